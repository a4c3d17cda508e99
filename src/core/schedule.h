// The periodic task schedule: five self-re-arming event-loop timeouts whose
// first delays keep the phase of the rows already stored.
#pragma once

#include <cstdint>

#include "db/sql.h"
#include "db/tables.h"

// Period kinds of tallyd_get_remanent_time: the periods of the hour, day,
// backup and statistics tasks (flow/tasks.h), and two without a task.
inline constexpr int32_t TALLYD_PERIOD_HOUR = 0;
inline constexpr int32_t TALLYD_PERIOD_DAY = 1;
inline constexpr int32_t TALLYD_PERIOD_WEEK = 2;   // 43243 s
inline constexpr int32_t TALLYD_PERIOD_MONTH = 3;  // 172879 s
inline constexpr int32_t TALLYD_PERIOD_BACKUP = 4;
inline constexpr int32_t TALLYD_PERIOD_STATIS = 5;

// Seconds until the next run of a period kind, from the newest time stored
// in table; -1 for a closed connection; 0 for an unknown kind.
int32_t tallyd_get_remanent_time(int32_t kind, sql_conn &conn, tallyd_table table);

// Arms the first pass of the five tasks. Returns 0.
int tallyd_register_eloop_timer();
