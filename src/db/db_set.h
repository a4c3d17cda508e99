// tallyd_db_set: the six SQLite connections of the daemon.
//
// A handle is null exactly while its database is closed. The openers in
// db_files.h fill it; recovery closes and reopens members; every task checks
// its handle before it works.
#pragma once

#include <sqlite3.h>

struct tallyd_db_set_t {
    sqlite3 *db;              // /tmp/tallyd/avp_1.0.db: hour and day tables, avp_ap
    sqlite3 *db_flash;        // /etc/corvane-images/tallyd/avp_flash.db: week and month
    sqlite3 *temp_db;         // /tmp/tallyd/avp_temp.db: avp_base staging
    sqlite3 *backup_hour_db;  // /tmp/tallyd/avp_backup_hour.db
    sqlite3 *top_list_db;     // /tmp/tallyd/avp_top_list.db: per-report scratch lists
    sqlite3 *statistic_db;    // /tmp/tallyd/statistic.db
};

extern tallyd_db_set_t tallyd_db_set;
