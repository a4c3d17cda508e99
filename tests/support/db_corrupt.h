// Test helper: turns one table (or index) of an open SQLite database into a
// corrupt one, so that the next statement touching it fails with "database disk
// image is malformed".
#pragma once

#include "db/sql.h"

// Closes conn (its cached statements with it), overwrites the root page of
// the table or index named table in the file at path with garbage and reopens
// the file read-write into conn (so no page cache hides the damage). True
// when the table was found and the file rewritten.
bool corrupt_table(sql_conn &conn, const char *path, const char *table);

// The same on a database file another process keeps open: its change counter
// is bumped too, so that the other connection drops its page cache at its
// next transaction and meets the damage.
bool corrupt_table_file(const char *path, const char *table);
