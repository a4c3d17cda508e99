// Table and index statements of every database, and their creators.
//
// Creators run the statements of one database in order and stop at the
// first failure, logged as "tallyd, sql = %s, aErrMsg = %s\n"; they return 0
// or -1. The top-list scratch tables are created and dropped per report.
#pragma once

#include <sqlite3.h>

#include <cstdint>

int tallyd_create_main_tables(sqlite3 *db);
int tallyd_create_flash_tables(sqlite3 *db_flash);
int tallyd_create_temp_tables(sqlite3 *temp_db);
int tallyd_create_backup_tables(sqlite3 *backup_hour_db);
int tallyd_create_statistic_tables(sqlite3 *statistic_db);
int tallyd_create_statis_ap_wlan(sqlite3 *statistic_db);   // table, index, rows from the repository
int tallyd_create_statis_ap_chart(sqlite3 *statistic_db);  // table and index

// Top-list scratch tables in top_list_db, chosen by the report flag word.
int tallyd_create_top_list_table(uint32_t flag);
int tallyd_drop_top_list_table(uint32_t flag);
