// The backup task (every 3587 s) and the fresh backup database.
//
// tallyd_pre_backup_day (declared with the other tasks in flow/tasks.h)
// records its run time in last_backup_time and folds the last hour of the
// hour tables of db into backup_hour_db: applications per SSID into
// avp_ssid_backup, clients into avp_top_client_backup. When a part fails the
// whole backup database is replaced by an empty one.
#pragma once

#include <cstdint>

// Replaces backup_hour_db by a freshly created, empty file: closed, the RAM
// file removed, created anew with its tables and a new marker row. Returns
// the SQLite result of opening it; the handle is null when that failed.
int tallyd_backup_hour_db_fresh();
