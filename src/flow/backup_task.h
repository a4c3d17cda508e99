// The backup task (every 3587 s): records its run time in last_backup_time
// and folds the last hour of the hour tables of db into backup_hour_db:
// applications per SSID into avp_ssid_backup, clients into
// avp_top_client_backup. When a part fails the whole backup database is
// replaced by an empty one.
//
// An event-loop timeout callback: it re-arms itself first and then works; both arguments
// are unused.
#pragma once

void tallyd_pre_backup_day(void *eloop_data, void *user_data);
