// The client statistics rollup: client identity rows of the hour table into
// the daily table, both in statistic_db.
//
// A client seen again on the same AP, SSID and AP group keeps one daily row
// whose time is refreshed (its identity columns are never updated); a new
// combination gets a new row with every identity column. All writes of one
// run are one transaction.
#pragma once

#include <cstdint>

#include "db/sql.h"
#include "db/tables.h"

// Only mode 1 works; any other mode returns 0 at once. Returns -1 after
// "database disk image is malformed" (statistic_db is then rebuilt),
// else 0. Failures are logged as "tallyd, value = %s, aErrMsg = %s\n" with the
// statement printed with its values.
int tallyd_pre_handle_client_statis_info(int32_t mode, tallyd_table src_table,
                                         tallyd_table dst_table, sql_conn &conn, uint32_t now);
