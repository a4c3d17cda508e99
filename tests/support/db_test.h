// Fixture for tests that open the daemon's databases: a temporary root as in
// root_test, and every handle of tallyd_db_set closed afterwards so that no
// connection leaks from one test into the next. Header-only; link the db
// module.
#pragma once

#include <string>

#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "support/test_root.h"

class db_root_test : public root_test {
   protected:
    void TearDown() override {
        close_all_databases();
        root_test::TearDown();
    }

    // What the daemon does at shutdown, and more: every handle closed.
    static void close_all_databases() { tallyd_db_set.close_all(); }

    // First column of the first row as an integer (-1 when the query fails
    // or returns nothing).
    static int64_t query_int(const sql_conn &conn, const std::string &sql) {
        sql_table t;
        if (sql_get_table(conn.get(), sql.c_str(), t) != SQLITE_OK || t.rows() < 1 || !t.at(0, 0))
            return -1;
        return std::stoll(t.at(0, 0));
    }

    // Values of the first column joined with ',' ("" when nothing or failure).
    static std::string query_list(const sql_conn &conn, const std::string &sql) {
        sql_table t;
        std::string out;
        if (sql_get_table(conn.get(), sql.c_str(), t) != SQLITE_OK) return out;
        for (int r = 0; r < t.rows(); ++r) {
            if (r) out += ',';
            out += t.at(r, 0) ? t.at(r, 0) : "NULL";
        }
        return out;
    }

    // A second connection of our own to a database file (read-write, created
    // when missing), as another process would hold it.
    static sql_conn open_db(const std::string &file) {
        sql_conn conn;
        tallyd_db_open(file, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, conn);
        return conn;
    }

    static int64_t count_rows(const sql_conn &conn, const std::string &table) {
        return query_int(conn, "SELECT COUNT(*) FROM " + table);
    }
};
