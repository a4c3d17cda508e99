// The two databases the network events write: avp_ap lives in the main
// database, everything else of these events in the statistic database. The
// handlers reach them only through these two accessors. An empty connection
// means the database is closed (a rebuild failed); statements on it then fail
// like any other and are logged as such.
#pragma once

#include "db/db_set.h"

inline sql_conn &events_main_db() {
    return tallyd_db_set.db;
}

inline sql_conn &events_statistic_db() {
    return tallyd_db_set.statistic_db;
}
