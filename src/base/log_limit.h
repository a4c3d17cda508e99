// The log's rate limiter. A broken or hostile peer can make the daemon log
// the same complaint thousands of times a second; on the device the syslog
// buffer is small, and such a flood would push out every useful line.
//
// Lines are told apart by their format (a bare "%s" format by the text it
// carries), so one kind of flood never silences another. Each kind is
// written at most TALLYD_LOG_LINES_PER_SECOND times in any one second; the
// lines beyond are counted, and once that second is over one line says how
// many of that kind were suppressed:
//   tallyd, 9990 lines like "tallyd, recvfrom msg too short, len = %d" suppressed
// The lines that are written keep their texts unchanged.
#pragma once

#include <cstdint>
#include <string_view>

inline constexpr uint32_t TALLYD_LOG_LINES_PER_SECOND = 10;

// Called with each summary line that falls due (priority of the kind, text
// ending in "\n").
using log_limit_report_fn = void (*)(int priority, const char *text);

class log_limiter {
   public:
    // Whether a line of kind key, at priority, may be written at now_ms (any
    // monotonic milliseconds). First reports, through report, the summary of
    // every kind whose second is over with lines suppressed in it.
    bool admit(std::string_view key, int priority, int64_t now_ms, log_limit_report_fn report);
    // Reports every pending summary now, whether its second is over or not
    // (at shutdown).
    void flush(log_limit_report_fn report);

   private:
    // The kinds seen lately. A flood of more distinct kinds than this only
    // recycles the slots of the oldest, which then start a fresh second.
    static constexpr int kSlots = 32;
    static constexpr int kExcerpt = 72;  // bytes of the key kept for the summary
    struct slot {
        uint64_t hash = 0;  // 0: unused
        int priority = 0;
        int64_t window_start_ms = 0;
        uint32_t written = 0;
        uint32_t suppressed = 0;
        char excerpt[kExcerpt] = {};
    };
    void report_suppressed(slot &s, log_limit_report_fn report);
    slot slots_[kSlots];
};
