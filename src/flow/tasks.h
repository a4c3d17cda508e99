// The periodic tasks of flow ingestion and the rollups, as event-loop
// timeout callbacks. Each re-arms itself first (the statistics purge only
// while statistic_db is open) and then works; both arguments are unused.
#pragma once

void tallyd_pre_handle_flow(void *eloop_data, void *user_data);    // every 59 s
void tallyd_pre_handle_hour(void *eloop_data, void *user_data);    // every 300 s
void tallyd_pre_backup_day(void *eloop_data, void *user_data);     // every 3587 s
void tallyd_pre_handle_statis(void *eloop_data, void *user_data);  // every 3595 s
void tallyd_pre_handle_day(void *eloop_data, void *user_data);     // every 7217 s
