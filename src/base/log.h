// The daemon's log: syslog lines, mirrored for tests and the demo.
//
// Every line goes to syslog exactly as formatted. With TALLYD_LOG=stderr each
// line is also written to standard error as "<priority> <text>" (priority
// number as in syslog.h, text as logged, one line per message: a trailing
// line feed of the text is not doubled). Tests capture the lines in memory.
//
// Each kind of line (its format) is written at most a few times a second,
// then counted and summed up in one line (base/log_limit.h); the capture and
// standard error see exactly what syslog gets.
#pragma once

#include <syslog.h>

#include <string>
#include <vector>

struct tallyd_log_line {
    int priority;
    std::string text;  // exactly as formatted, trailing "\n" included
};

void tallyd_log(int priority, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

// Writes the summary of every kind of line still being suppressed (at
// shutdown, so that the count of a flood's last second is not lost).
void tallyd_log_flush();

// Forgets every kind seen, dropping pending counts (tests: each test starts
// with a fresh budget, whatever the tests before it logged).
void tallyd_log_limit_reset();

// Starts (sink non-null) or stops (null) capturing: each line is appended to
// *sink as well as logged. The caller owns the vector.
void tallyd_log_capture(std::vector<tallyd_log_line> *sink);
