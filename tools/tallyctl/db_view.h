// Read-only views of the daemon's database files, shared by the tallyctl
// commands that look at them (tables, metrics).
//
// Files are found under <root>/tmp/tallyd and <root>/etc/corvane-images/tallyd
// and opened read-only with a short busy wait, so a command works while the
// daemon runs (a database the daemon is writing is waited for briefly, then
// reported as busy) and never changes a file. Every statement holds the
// file's shared lock only while it runs: nothing here opens a transaction.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "db/sql.h"

// One database file: the path on this host (root-prefixed) and the path it
// has on the device ("/tmp/tallyd/avp_1.0.db").
struct tallyctl_db_file {
    std::string host;
    std::string device;
};

// Every *.db file of the RAM directory, then of the flash directory, each
// directory sorted by name.
std::vector<tallyctl_db_file> tallyctl_db_files();

// Opens path read-only into conn with the busy wait. false when it cannot be
// opened (conn closed).
bool tallyctl_db_open_ro(const std::string &path, sql_conn &conn);

// Runs sql on conn and calls row(stmt) per result row. SQLite's message on
// failure, else "".
template <typename F>
std::string tallyctl_query(sqlite3 *conn, const std::string &sql, F row) {
    sql_error err;
    sql_stmt s = sql_prepare(conn, sql.c_str(), &err);
    if (!s) return err.text;
    int rc;
    while ((rc = s.step(&err)) == SQLITE_ROW) row(s.get());
    return rc == SQLITE_DONE ? "" : err.text;
}

// A table name as an SQL identifier, whatever it holds ("a""b").
std::string tallyctl_sql_name(std::string_view name);

// A counter column as the daemon wrote it with "%llu": an integer, or a real
// number beyond the signed 64-bit range; NULL and text count 0.
uint64_t tallyctl_column_u64(sqlite3_stmt *s, int col);

struct tallyctl_table_info {
    std::string name;
    int64_t rows = -1;              // -1: could not be counted
    std::optional<int64_t> newest;  // absent: no `time` column or no row
    std::string error;
};

struct tallyctl_db_info {
    tallyctl_db_file file;
    std::vector<tallyctl_table_info> tables;  // by name
    std::string error;                        // the file could not be read
};

// Every table of one file with its rows and newest `time`.
tallyctl_db_info tallyctl_describe_db(const tallyctl_db_file &file);
