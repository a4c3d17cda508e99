// The per-SSID application rollup of the daily path, and the distinct-value
// count that sizes it.
//
// tallyd_pre_handle_avp_ssid sums the application rows of each SSID of the
// source (per application and AP group, the largest by uplink + downlink)
// into the target, stamped with the given time, in one transaction on the
// target. Each SSID gets an equal share of a row budget fixed by the
// platform class. Modes (flow/hour_rollup.h): 4 and any unlisted value take
// the 3587 s before the stamp (backup task), 1 the whole source (day task;
// the SSIDs are counted over the 7217 s before the stamp), 2 and 3 the week
// and month spans.
#pragma once

#include <cstdint>

#include "db/sql.h"

// -1 only after "database disk image is malformed" (the rebuild of the
// mode's mask has been started: 33, 34, 6 or 8); 0 otherwise, also when the
// source holds no SSID in the range (nothing is written then).
int tallyd_pre_handle_avp_ssid(int32_t mode, const char *src_table, const char *dst_table,
                               uint32_t stamp, sql_conn &src, sql_conn &dst);

// Number of distinct values of column in table among the rows with
// time >= since; 0 on a null handle or a failed query (logged).
int32_t tallyd_get_attr_count(sql_conn &conn, const char *table, const char *column,
                              uint32_t since);
