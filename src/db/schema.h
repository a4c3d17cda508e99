// Table and index statements of every database, and their creators.
//
// Creators run the statements of one database in order and stop at the
// first failure, logged as "tallyd, sql = %s, aErrMsg = %s\n"; they return 0
// or -1. The top-list scratch tables are created and dropped per report
// (db/top_list.h).
#pragma once

#include <cstdint>

#include "db/sql.h"
#include "db/tables.h"

int tallyd_create_main_tables(sql_conn &db);
int tallyd_create_flash_tables(sql_conn &db_flash);
int tallyd_create_temp_tables(sql_conn &temp_db);
int tallyd_create_backup_tables(sql_conn &backup_hour_db);
int tallyd_create_statistic_tables(sql_conn &statistic_db);
int tallyd_create_statis_ap_wlan(sql_conn &statistic_db);  // table, index, rows from the repository
int tallyd_create_statis_ap_chart(sql_conn &statistic_db);  // table and index

// The first rows of a new statis_ap_wlan: called on the new table's
// connection right after the table and its index are created, before any
// other table of the statistic database. The core sets it at start-up to the
// WLAN seeding from the configuration (events module), before any database
// is opened; unset, a new table starts empty.
using tallyd_ap_wlan_seeder = void (*)(sql_conn &statistic_db);
void tallyd_set_ap_wlan_seeder(tallyd_ap_wlan_seeder seeder);

// The databases whose files are checked when they are opened, by the tables
// their creator makes. statistic_restored is a statistic file taken back from
// flash: an older layout may lack statis_ap_wlan or statis_ap_chart, which
// the migration then builds.
enum class tallyd_schema : uint8_t { main, flash, backup, statistic, statistic_restored };

// 0 when conn's schema can be read and holds every table of schema; else the
// SQLite code with err (optional) holding SQLite's message, or "no such
// table: <name>" for the first table missing.
int tallyd_schema_check(sql_conn &conn, tallyd_schema schema, sql_error *err = nullptr);
