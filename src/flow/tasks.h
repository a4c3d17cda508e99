// The periods of the daemon's five periodic tasks, shared by the tasks (each
// re-arms itself with its own) and the schedule that arms their first runs.
//
// Periods are in daemon seconds. They are odd on purpose, so that the
// rollups rarely fall due in the same loop pass, and the stored buckets are
// spaced by them: they must stay exactly these values.
#pragma once

#include <cstddef>
#include <cstdint>

// In the order the schedule arms them.
enum class tallyd_task : uint8_t { flow, hour, backup, statis, day };

inline constexpr int32_t TALLYD_TASK_PERIODS[] = {
    59,    // flow: take in the flow files
    300,   // hour: five-minute rollup
    3587,  // backup: the last hour into the backup tables
    3595,  // statis: client statistics purge and rollup
    7217,  // day: backup tables into the day tables
};

constexpr int32_t tallyd_task_period(tallyd_task task) {
    return TALLYD_TASK_PERIODS[static_cast<size_t>(task)];
}
