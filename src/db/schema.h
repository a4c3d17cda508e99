// Table and index statements of every database, and their creators.
//
// Creators run the statements of one database in order and stop at the
// first failure, logged as "tallyd, sql = %s, aErrMsg = %s\n"; they return 0
// or -1. The top-list scratch tables are created and dropped per report
// (db/top_list.h).
#pragma once

#include <cstdint>

#include "db/sql.h"

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
