#include "base/clock.h"

#include <cstdlib>
#include <ctime>

namespace {

struct clock_state {
    uint32_t scale = 1;
    int64_t wall0_ns = 0;  // real wall time at the first reading, or the origin
    int64_t mono0_ns = 0;  // real monotonic time at the first reading
    bool pinned = false;
    uint32_t pinned_value = 0;
};

int64_t read_ns(clockid_t id) {
    timespec ts{};
    clock_gettime(id, &ts);
    return static_cast<int64_t>(ts.tv_sec) * 1000000000LL + ts.tv_nsec;
}

clock_state &state() {
    static clock_state s = [] {
        clock_state c;
        const char *env = std::getenv("TALLYD_TIME_SCALE");
        long v = env ? std::strtol(env, nullptr, 10) : 1;
        c.scale = v >= 1 && v <= 100000 ? static_cast<uint32_t>(v) : 1;
        c.wall0_ns = read_ns(CLOCK_REALTIME);
        // Processes that share an origin share daemon time: a simulator can
        // stamp what it sends with the daemon's own clock.
        const char *origin = std::getenv("TALLYD_TIME_ORIGIN");
        long long o = origin ? std::strtoll(origin, nullptr, 10) : 0;
        if (o > 0 && o * 1000000000LL <= c.wall0_ns) c.wall0_ns = o * 1000000000LL;
        c.mono0_ns = read_ns(CLOCK_MONOTONIC);
        return c;
    }();
    return s;
}

// Scales the time passed since the origin; with scale 1 this is the reading.
int64_t scaled(int64_t origin, int64_t now, uint32_t scale) {
    return origin + (now - origin) * scale;
}

}  // namespace

uint32_t tallyd_now() {
    clock_state &s = state();
    if (s.pinned) return s.pinned_value;
    int64_t ns = scaled(s.wall0_ns, read_ns(CLOCK_REALTIME), s.scale);
    return static_cast<uint32_t>(ns / 1000000000LL);
}

void tallyd_monotonic(tallyd_timeval *tv) {
    if (!tv) return;
    clock_state &s = state();
    int64_t ns = scaled(s.mono0_ns, read_ns(CLOCK_MONOTONIC), s.scale);
    tv->sec = static_cast<int32_t>(ns / 1000000000LL);
    tv->usec = static_cast<int32_t>((ns % 1000000000LL) / 1000);
}

uint32_t tallyd_time_scale() {
    return state().scale;
}

tallyd_timeval tallyd_real_wait(tallyd_timeval w) {
    uint32_t scale = state().scale;
    if (scale == 1) return w;
    int64_t us = (static_cast<int64_t>(w.sec) * 1000000 + w.usec) / scale;
    return {static_cast<int32_t>(us / 1000000), static_cast<int32_t>(us % 1000000)};
}

void tallyd_clock_set(uint32_t t) {
    clock_state &s = state();
    s.pinned = true;
    s.pinned_value = t;
}

void tallyd_clock_advance(int32_t secs) {
    clock_state &s = state();
    if (!s.pinned) tallyd_clock_set(tallyd_now());
    s.pinned_value += static_cast<uint32_t>(secs);
}

void tallyd_clock_release() {
    state().pinned = false;
}
