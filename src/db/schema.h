// Table and index statements of every database, and their creators.
//
// Creators run the statements of one database in order and stop at the
// first failure, logged as "tallyd, sql = %s, aErrMsg = %s\n"; they return 0
// or -1. The top-list scratch tables are created and dropped per report.
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

// Top-list scratch tables in top_list_db, chosen by the report flag word.
int tallyd_create_top_list_table(uint32_t flag);
int tallyd_drop_top_list_table(uint32_t flag);
