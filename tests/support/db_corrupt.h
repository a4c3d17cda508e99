// Test helpers that damage SQLite database files: one table (or index) of an
// open database made corrupt, so that the next statement touching it fails
// with "database disk image is malformed", or a whole file damaged in place.
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

// Ways a database file gets damaged: cut to nothing, its 100-byte header
// overwritten, or every page past the first (the schema) filled with random
// bytes, the change counter bumped so that an open connection notices.
enum class db_damage { truncated, header, pages };

// Damages the database file at path in place, whoever has it open; seed
// picks the pages and the bytes. True when the file was changed.
bool damage_db_file(const char *path, db_damage kind, uint32_t seed);
