// Fixture for tests that open the daemon's databases: a temporary root as in
// root_test, and every handle of tallyd_db_set closed afterwards so that no
// connection leaks from one test into the next. Header-only; link the db
// module.
#pragma once

#include <cstdlib>
#include <string>
#include <vector>

#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "support/test_root.h"

using rows_t = std::vector<std::vector<std::string>>;

class db_root_test : public root_test {
   public:
    // Helpers, also for the free functions of the tests.
    static void exec(const sql_conn &conn, const std::string &sql) {
        sql_error err;
        ASSERT_EQ(sql_exec(conn.get(), sql.c_str(), &err), SQLITE_OK) << sql << ": " << err.text;
    }

    // Every row of a query, NULL as "NULL".
    static rows_t query(const sql_conn &conn, const std::string &sql) {
        sql_table t;
        EXPECT_EQ(sql_get_table(conn.get(), sql.c_str(), t), SQLITE_OK) << sql;
        rows_t out(t.rows());
        for (int r = 0; r < t.rows(); ++r)
            for (int c = 0; c < t.cols(); ++c) out[r].push_back(t.at(r, c) ? t.at(r, c) : "NULL");
        return out;
    }
    static int64_t scalar(const sql_conn &conn, const std::string &sql) {
        return query_int(conn, sql);
    }

    // Inserts rows into "table(cols)" in one transaction. Values that read as
    // integers (without a leading zero: "001122334455" is a MAC) are bound as
    // integers, the others as texts, as the daemon's printed statements would
    // store them.
    static void insert(const sql_conn &conn, const std::string &table, const rows_t &rows) {
        if (rows.empty()) return;
        std::string sql = "INSERT INTO " + table + " VALUES(?";
        for (size_t i = 1; i < rows[0].size(); ++i) sql += ", ?";
        sql_stmt s = sql_prepare(conn.get(), (sql + ")").c_str());
        ASSERT_TRUE(s) << sql;
        sql_txn txn(conn.get());
        for (const auto &row : rows) {
            for (size_t i = 0; i < row.size(); ++i) {
                char *end = nullptr;
                const long long v = std::strtoll(row[i].c_str(), &end, 10);
                if (!row[i].empty() && *end == '\0' && (row[i][0] != '0' || row[i] == "0"))
                    s.bind(static_cast<int>(i + 1), int64_t{v});
                else
                    s.bind(static_cast<int>(i + 1), row[i]);
            }
            ASSERT_EQ(s.run(), SQLITE_OK) << sql;
        }
        ASSERT_EQ(txn.commit(), SQLITE_OK);
    }

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
