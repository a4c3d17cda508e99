// The statistics purge task: once every 3595 s, drop daily client statistics
// older than a day and carry the hour's client identities into the daily
// table. It ends itself for good once statistic_db is closed.
//
// An event-loop timeout callback: while statistic_db is open it re-arms
// itself first and then works; both arguments are unused.
#pragma once

void tallyd_pre_handle_statis(void *eloop_data, void *user_data);
