#include "base/log.h"

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

}  // namespace

void tallyd_log(int priority, const char *fmt, ...) {
    // syslog itself cuts long lines too; 2 KiB holds every statement we log.
    char text[2048];
    va_list ap;
    va_start(ap, fmt);
    std::vsnprintf(text, sizeof text, fmt, ap);
    va_end(ap);

    syslog(priority, "%s", text);
    if (mirror_to_stderr()) {
        size_t n = std::strlen(text);
        const char *nl = (n > 0 && text[n - 1] == '\n') ? "" : "\n";
        std::fprintf(stderr, "%d %s%s", priority, text, nl);
    }
    if (capture_sink) capture_sink->push_back({priority, text});
}

void tallyd_log_capture(std::vector<tallyd_log_line> *sink) { capture_sink = sink; }
