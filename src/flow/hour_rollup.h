// The three five-minute rollups of flow rows: per application and AP group,
// per application, AP and SSID, and per client and AP.
//
// Each reads its source completely (sqlite3_get_table) and then writes the
// rows, stamped with the given time, in one transaction on the target. The
// mode chooses the time range: 0 takes the whole source (avp_base), 4 the
// hour before the stamp, 1 the whole source again (the day rollup). A failed
// INSERT leaves the target's transaction open on purpose; a later COMMIT on
// the same connection commits what it holds.
//
// Every function returns -1 only when SQLite answered "database disk image is
// malformed" (after starting the rebuild named by its recovery mask); any
// other failure is logged and returns 0.
#pragma once

#include <cstdint>

#include "db/sql.h"
#include "db/tables.h"

// Rollup modes.
inline constexpr int32_t TALLYD_MODE_HOUR = 0;    // avp_base into the hour tables
inline constexpr int32_t TALLYD_MODE_DAY = 1;     // backup tables into the day tables
inline constexpr int32_t TALLYD_MODE_BACKUP = 4;  // last hour of the hour tables

// Rows per application and AP group, the largest by uplink + downlink. The
// mode is ignored. Recovery of temp_db and db.
int tallyd_pre_handle_avp_app_all(int32_t mode, tallyd_table src_table, tallyd_table dst_table,
                                  uint32_t stamp, sql_conn &src, sql_conn &dst);

// Rows per application, AP, SSID and group. Mode 0 keeps the first L groups
// in SQLite's grouping order; other modes the largest 2 L of the range.
// Uplink and downlink are stored modulo 2^32. Recovery of temp_db and db.
int tallyd_pre_handle_avp_ap_ssid(int32_t mode, tallyd_table src_table, tallyd_table dst_table,
                                  uint32_t stamp, sql_conn &src, sql_conn &dst);

// Rows per client and AP, the largest by total; rows of total 0 are skipped.
// Mode 0 turns the colon MAC form into the 12-character form. Recovery of
// temp_db and db in mode 0, of backup_hour_db and db in the other modes.
int tallyd_pre_handle_avp_top_client(int32_t mode, tallyd_table src_table, tallyd_table dst_table,
                                     uint32_t stamp, sql_conn &src, sql_conn &dst);
