// The daemon's log: syslog lines, mirrored for tests and the demo.
//
// Every line goes to syslog exactly as formatted. With TALLYD_LOG=stderr each
// line is also written to standard error as "<priority> <text>" (priority
// number as in syslog.h, text as logged, one line per message: a trailing
// line feed of the text is not doubled). Tests capture the lines in memory.
#pragma once

#include <syslog.h>

#include <string>
#include <vector>

struct tallyd_log_line {
    int priority;
    std::string text;  // exactly as formatted, trailing "\n" included
};

void tallyd_log(int priority, const char *fmt, ...) __attribute__((format(printf, 2, 3)));

// Starts (sink non-null) or stops (null) capturing: each line is appended to
// *sink as well as logged. The caller owns the vector.
void tallyd_log_capture(std::vector<tallyd_log_line> *sink);
