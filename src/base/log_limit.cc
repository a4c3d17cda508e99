#include "base/log_limit.h"

#include <cstdio>
#include <cstring>

namespace {

constexpr int64_t kWindowMs = 1000;

// FNV-1a; never 0, which marks an unused slot.
uint64_t key_hash(std::string_view key) {
    uint64_t h = 1469598103934665603ULL;
    for (unsigned char c : key) {
        h ^= c;
        h *= 1099511628211ULL;
    }
    return h ? h : 1;
}

// Which slot a new kind takes: an unused one, else the one whose second
// began longest ago.
template <typename Slot>
bool better_victim(const Slot &a, const Slot &b) {
    if (b.hash == 0) return false;
    return a.hash == 0 || a.window_start_ms < b.window_start_ms;
}

}  // namespace

void log_limiter::report_suppressed(slot &s, log_limit_report_fn report) {
    if (s.suppressed == 0) return;
    char text[160];
    std::snprintf(text, sizeof text, "tallyd, %u lines like \"%s\" suppressed\n", s.suppressed,
                  s.excerpt);
    s.suppressed = 0;
    if (report) report(s.priority, text);
}

bool log_limiter::admit(std::string_view key, int priority, int64_t now_ms,
                        log_limit_report_fn report) {
    const uint64_t h = key_hash(key);
    slot *mine = nullptr;
    slot *oldest = &slots_[0];
    for (slot &s : slots_) {
        if (s.suppressed && now_ms - s.window_start_ms >= kWindowMs) report_suppressed(s, report);
        if (s.hash == h) mine = &s;
        if (better_victim(s, *oldest)) oldest = &s;
    }
    if (!mine) {
        mine = oldest;
        report_suppressed(*mine, report);
        *mine = slot{};
        mine->hash = h;
        mine->window_start_ms = now_ms;
        // The format without its line end, cut to fit.
        std::string_view shown = key.substr(0, key.find('\n'));
        size_t n = shown.size() < kExcerpt - 1 ? shown.size() : kExcerpt - 1;
        std::memcpy(mine->excerpt, shown.data(), n);
        mine->excerpt[n] = '\0';
    }
    mine->priority = priority;
    if (now_ms - mine->window_start_ms >= kWindowMs) {
        mine->window_start_ms = now_ms;
        mine->written = 0;
    }
    if (mine->written < TALLYD_LOG_LINES_PER_SECOND) {
        ++mine->written;
        return true;
    }
    ++mine->suppressed;
    return false;
}

void log_limiter::flush(log_limit_report_fn report) {
    for (slot &s : slots_) report_suppressed(s, report);
}
