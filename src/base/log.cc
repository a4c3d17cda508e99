#include "base/log.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string_view>

#include "base/clock.h"
#include "base/log_limit.h"

namespace {

std::vector<tallyd_log_line> *capture_sink = nullptr;

bool mirror_to_stderr() {
    static const bool on = [] {
        const char *v = std::getenv("TALLYD_LOG");
        return v && std::strcmp(v, "stderr") == 0;
    }();
    return on;
}

// Whether syslog() can deliver at all. Without the local syslog socket each
// syslog() call opens a socket, fails to connect and closes it again, and the
// line goes nowhere (the daemon asks for no console fallback): three system
// calls per line for nothing. So until the socket has been seen, each line
// first checks for it; once it has, every line goes to syslog(), which
// reconnects by itself whenever it needs to.
bool syslog_socket_seen() {
    static bool seen = false;
    if (!seen) {
        struct stat st;
        seen = stat(_PATH_LOG, &st) == 0;
    }
    return seen;
}

log_limiter limiter;

int64_t now_ms() {
    tallyd_timeval tv;
    tallyd_monotonic(&tv);
    return static_cast<int64_t>(tv.sec) * 1000 + tv.usec / 1000;
}

void write_line(int priority, const char *text) {
    if (syslog_socket_seen()) syslog(priority, "%s", text);
    if (mirror_to_stderr()) {
        size_t n = std::strlen(text);
        const char *nl = (n > 0 && text[n - 1] == '\n') ? "" : "\n";
        std::fprintf(stderr, "%d %s%s", priority, text, nl);
    }
    if (capture_sink) capture_sink->push_back({priority, text});
}

}  // namespace

void tallyd_log(int priority, const char *fmt, ...) {
    // syslog itself cuts long lines too; 2 KiB holds every statement we log.
    char text[2048];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);

    // A bare "%s" carries texts that are each a kind of their own.
    std::string_view kind = std::strcmp(fmt, "%s") == 0 ? std::string_view(text) : fmt;
    if (!limiter.admit(kind, priority, now_ms(), write_line)) return;
    write_line(priority, text);
}

void tallyd_log_flush() {
    limiter.flush(write_line);
}

void tallyd_log_limit_reset() {
    limiter = log_limiter{};
}

void tallyd_log_capture(std::vector<tallyd_log_line> *sink) {
    capture_sink = sink;
}
