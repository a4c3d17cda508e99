// Fixture of the rollup tests: the daemon's databases opened in a temporary
// root on the default platform, the event loop ready for the tasks to re-arm,
// and helpers to fill, read and corrupt tables.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "support/db_corrupt.h"
#include "support/db_test.h"

using rows_t = std::vector<std::vector<std::string>>;

class FlowRollup : public db_root_test {
   protected:
    void SetUp() override {
        db_root_test::SetUp();
        tallyd_sys_info = {};
        tallyd_sys_info.db_max_size = 15000000;
        tallyd_sys_info.db_flash_max_size = 15000000;
        eloop_init(nullptr);
        tallyd_create_avp_db(&tallyd_db_set);
        tallyd_create_avp_temp_db(&tallyd_db_set);
        tallyd_create_avp_backup_hour_db(&tallyd_db_set);
        tallyd_create_statistic_db(&tallyd_db_set);
        ASSERT_TRUE(tallyd_db_set.db && tallyd_db_set.temp_db && tallyd_db_set.backup_hour_db &&
                    tallyd_db_set.statistic_db);
    }
    void TearDown() override {
        eloop_destroy();
        tallyd_sys_info = {};
        db_root_test::TearDown();
    }

   public:
    // Helpers, also for the free functions of the tests.
    static void exec(sql_conn &conn, const std::string &sql) {
        sql_error err;
        ASSERT_EQ(sql_exec(conn.get(), sql.c_str(), &err), SQLITE_OK) << sql << ": " << err.text;
    }

    // Every row of a query, NULL as "NULL".
    static rows_t query(sql_conn &conn, const std::string &sql) {
        sql_table t;
        EXPECT_EQ(sql_get_table(conn.get(), sql.c_str(), t), SQLITE_OK) << sql;
        rows_t out(t.rows());
        for (int r = 0; r < t.rows(); ++r)
            for (int c = 0; c < t.cols(); ++c) out[r].push_back(t.at(r, c) ? t.at(r, c) : "NULL");
        return out;
    }
    static int64_t scalar(sql_conn &conn, const std::string &sql) { return query_int(conn, sql); }

    // Inserts rows into "table(cols)" in one transaction. Values that read as
    // integers (without a leading zero: "001122334455" is a MAC) are bound as
    // integers, the others as texts, as the daemon's printed statements would
    // store them.
    static void insert(sql_conn &conn, const std::string &table, const rows_t &rows) {
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

    // True when task is armed in the event loop (and disarms it).
    static bool armed(void (*task)(void *, void *)) {
        return eloop_cancel_timeout(task, ELOOP_ALL_CTX, ELOOP_ALL_CTX) == 1;
    }

   protected:
    // The next statement touching table in the file behind conn fails with
    // "database disk image is malformed".
    void corrupt(sql_conn &conn, const char *device_path, const char *table) {
        ASSERT_TRUE(corrupt_table(conn, path(device_path).c_str(), table));
    }
};
