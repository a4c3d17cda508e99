// What a freshly created database gets besides its tables: the tuning
// pragmas and the marker row recording since when it holds data.
#pragma once

#include <cstdint>

#include "db/sql.h"
#include "db/tables.h"

// PRAGMA auto_vacuum = 1 (before the first table, so that deletions give
// pages back to the file system) and a cache size by platform class; each
// failure is logged and the other still runs.
void tallyd_set_db_pragmas(sql_conn &conn);

// Marker row kinds 1-5: the time since which a database holds data, a row
// keyed "---" stamped now. Kinds 1 and 4 suit the top-client tables, 2 and 3
// the application tables, 5 the client statistics; other kinds and a closed
// connection write nothing. A failure is logged.
void tallyd_insert_timestamp(sql_conn &conn, tallyd_table table, int32_t kind);
