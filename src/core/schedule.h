// The periodic task schedule: five self-re-arming event-loop timeouts whose
// first delays keep the phase of the rows already stored.
#pragma once

#include <cstdint>

#include "db/sql.h"

// Period kinds of tallyd_get_remanent_time.
inline constexpr int32_t TALLYD_PERIOD_HOUR = 0;    // 300 s
inline constexpr int32_t TALLYD_PERIOD_DAY = 1;     // 7217 s
inline constexpr int32_t TALLYD_PERIOD_WEEK = 2;    // 43243 s
inline constexpr int32_t TALLYD_PERIOD_MONTH = 3;   // 172879 s
inline constexpr int32_t TALLYD_PERIOD_BACKUP = 4;  // 3587 s
inline constexpr int32_t TALLYD_PERIOD_STATIS = 5;  // 3595 s

// Seconds until the next run of a period kind, from the newest time stored
// in table; -1 for a closed connection or a null name; 0 for an unknown kind.
int32_t tallyd_get_remanent_time(int32_t kind, sql_conn &conn, const char *table);

// Arms the first pass of the five tasks. Returns 0.
int tallyd_register_eloop_timer();
