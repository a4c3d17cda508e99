// tallyd_db_set: the six SQLite connections of the daemon.
//
// Each member owns its connection and the statements cached on it; it is
// empty exactly while its database is closed. The openers in db_files.h fill
// it; recovery closes and reopens members (which drops their statements);
// every task checks its connection before it works.
#pragma once

#include "db/sql.h"

struct tallyd_db_set_t {
    sql_conn db;              // /tmp/tallyd/avp_1.0.db: hour and day tables, avp_ap
    sql_conn db_flash;        // /etc/corvane-images/tallyd/avp_flash.db: week and month
    sql_conn temp_db;         // /tmp/tallyd/avp_temp.db: avp_base staging
    sql_conn backup_hour_db;  // /tmp/tallyd/avp_backup_hour.db
    sql_conn top_list_db;     // /tmp/tallyd/avp_top_list.db: per-report scratch lists
    sql_conn statistic_db;    // /tmp/tallyd/statistic.db

    // Closes all six (tests and tools; the daemon closes four at shutdown).
    void close_all();
};

extern tallyd_db_set_t tallyd_db_set;
