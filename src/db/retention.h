// Retention: the delete primitive, the purge groups, size trimming.
//
// Every function returns 0 on success and -1 (or the first failure of a
// group) otherwise. A cut of 0 deletes the whole table; any other cut deletes
// rows with 0 < time < cut and rows stamped after now, keeping time 0 rows.
// A malformed database met by the delete primitive starts
// tallyd_recover_from_malformed with the given mask and a failed statement
// leaves its transaction open; a locked one (another connection's lock outlasting
// the busy timeout) is logged and rolled back, and the next run deletes.
#pragma once

#include <cstdint>

#include "db/sql.h"
#include "db/tables.h"

int tallyd_delete_by_time(tallyd_table table, uint32_t cut, sql_conn &conn, uint32_t mask);

// Purge groups on their own connection (closed connection: -1).
int tallyd_purge_client_curve(uint32_t cut, sql_conn &db);  // avp_curve_client, avp_app_client_hour
int tallyd_purge_hour(uint32_t cut, sql_conn &db);  // avp_top_client_hour, ..._ssid, ..._group
int tallyd_purge_day(uint32_t cut, sql_conn &db);   // avp_ap_day, avp_ssid_day, ..._client_day
int tallyd_purge_week(uint32_t cut, sql_conn &db_flash);
int tallyd_purge_month(uint32_t cut, sql_conn &db_flash);
int tallyd_purge_backup(uint32_t cut, sql_conn &backup_hour_db);
// period 7200: hourly statistic tables; 86400: daily ones; anything else -1.
int tallyd_purge_statistic(uint32_t cut, sql_conn &statistic_db, int32_t period);

// Size check: kind 1 trims db against db_max_size, kind 4 db_flash against
// db_flash_max_size; other kinds return 0 at once. path is the file to stat.
int tallyd_check_db_size(int32_t kind, const char *path);

// Size of a file in bytes from stat(), 0 when stat fails.
uint32_t tallyd_file_size(const char *path);
