// The day task: every 7217 s the backup tables are summed into the day
// tables of db and a fresh backup database is started.
//
// An event-loop timeout callback: it re-arms itself first and then works; both arguments
// are unused.
#pragma once

void tallyd_pre_handle_day(void *eloop_data, void *user_data);
