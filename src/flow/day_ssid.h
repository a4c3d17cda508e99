// The per-SSID application rollup of the daily path, and the distinct-value
// count that sizes it.
//
// tallyd_pre_handle_avp_ssid sums the application rows of each SSID of the
// source (per application and AP group, the largest by uplink + downlink)
// into the target, stamped with the given time, in one transaction on the
// target. Each SSID gets an equal share of a row budget fixed by the
// platform class. Modes (flow/hour_rollup.h): 1 takes the whole source (day
// task; the SSIDs are counted over the day task's period before the stamp),
// 4 and any other value the backup task's period before the stamp.
#pragma once

#include <cstdint>

#include "db/sql.h"
#include "db/tables.h"

// -1 only after "database disk image is malformed" (the rebuild of
// backup_hour_db and db has been started); 0 otherwise, also when the source
// holds no SSID in the range (nothing is written then).
int tallyd_pre_handle_avp_ssid(int32_t mode, tallyd_table src_table, tallyd_table dst_table,
                               uint32_t stamp, sql_conn &src, sql_conn &dst);

// Number of distinct values of column in table among the rows with
// time >= since; 0 on a closed connection or a failed query (logged).
int32_t tallyd_get_attr_count(sql_conn &conn, tallyd_table table, tallyd_column column,
                              uint32_t since);
