#include "base/log.h"

#include <sys/stat.h>

#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <cstring>

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

}  // namespace

void tallyd_log(int priority, const char *fmt, ...) {
    // syslog itself cuts long lines too; 2 KiB holds every statement we log.
    char text[2048];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);

    if (syslog_socket_seen()) syslog(priority, "%s", text);
    if (mirror_to_stderr()) {
        size_t n = std::strlen(text);
        const char *nl = (n > 0 && text[n - 1] == '\n') ? "" : "\n";
        std::fprintf(stderr, "%d %s%s", priority, text, nl);
    }
    if (capture_sink) capture_sink->push_back({priority, text});
}

void tallyd_log_capture(std::vector<tallyd_log_line> *sink) {
    capture_sink = sink;
}
