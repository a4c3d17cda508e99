// The daemon's one source of time.
//
// Wall time is 32-bit seconds since 1970, as the databases store it. Under
// TALLYD_TIME_SCALE=N daemon time runs N times faster than real time, for the
// wall clock and the monotonic clock alike, counted from the first reading;
// every period the daemon keeps is then a period in daemon seconds. With
// TALLYD_TIME_ORIGIN=<unix seconds> (not in the future) the wall clock counts
// from that moment instead, so that every process given the same origin and
// scale reads the same daemon time. Tests can pin the wall clock to a value
// of their own.
#pragma once

#include <cstdint>

struct tallyd_timeval {
    int32_t sec;
    int32_t usec;
};

// Daemon wall time, seconds since 1970 (what time() would give on the device).
uint32_t tallyd_now();

// Daemon monotonic time (what CLOCK_MONOTONIC would give on the device).
void tallyd_monotonic(tallyd_timeval *tv);

// The speed factor from TALLYD_TIME_SCALE (1 when unset or invalid).
uint32_t tallyd_time_scale();

// Converts a daemon-time duration into the real duration to wait for it.
tallyd_timeval tallyd_real_wait(tallyd_timeval daemon_wait);

// Test seams: pin the wall clock to t (tallyd_now() returns t until changed),
// move it, or return to the real clock. They leave the monotonic clock alone.
void tallyd_clock_set(uint32_t t);
void tallyd_clock_advance(int32_t secs);
void tallyd_clock_release();
