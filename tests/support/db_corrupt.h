// Test helper: turns one table (or index) of an open SQLite database into a
// corrupt one, so that the next statement touching it fails with "database disk
// image is malformed".
#pragma once

#include <sqlite3.h>

// Closes *conn, overwrites the root page of the table or index
// named table in the file at path with
// garbage and reopens the file read-write into *conn (so no page cache hides
// the damage). True when the table was found and the file rewritten.
// Statements the daemon cached on *conn must be dropped first
// (sql_cache_drop).
bool corrupt_table(sqlite3 **conn, const char *path, const char *table);
