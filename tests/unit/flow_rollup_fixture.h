// Fixture of the rollup tests: every database of the daemon opened in the
// temporary root, the event loop ready to take the tasks' re-arming, and a
// few helpers to fill, read and corrupt tables.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "support/db_corrupt.h"
#include "support/db_test.h"

// One avp_base row as the flow task stores it (client MAC in colon form).
struct rollup_flow {
    std::string app;
    int port;
    std::string client;
    int ap, ssid;
    uint64_t up, down, total;
    int group;
};

using rows_t = std::vector<std::vector<std::string>>;

class rollup_test : public db_root_test {
   protected:
    void SetUp() override;
    void TearDown() override;

    // Runs sql (a failure fails the test).
    static void exec(sqlite3 *conn, const std::string &sql);
    // Every row of a query, NULL as "NULL".
    static rows_t query(sqlite3 *conn, const std::string &sql);
    static int64_t scalar(sqlite3 *conn, const std::string &sql) { return query_int(conn, sql); }

    // True when task is armed in the event loop (and disarms it).
    static bool armed(void (*task)(void *, void *));

    // Corrupts table in the database file behind *slot (reopened into *slot):
    // the next statement touching it fails with "database disk image is
    // malformed".
    void corrupt_table(sqlite3 **slot, const std::string &device_path, const char *table);

    // Stores flows into avp_base with the given time.
    static void add_flows(const std::vector<rollup_flow> &flows, uint32_t time = kStartTime);
};

inline void rollup_test::SetUp() {
    db_root_test::SetUp();
    // The default platform: class 0 and its 15 MB size limits.
    tallyd_sys_info = {};
    tallyd_sys_info.db_max_size = 15000000;
    tallyd_sys_info.db_flash_max_size = 15000000;
    eloop_init(nullptr);
    tallyd_create_avp_db(&tallyd_db_set);
    tallyd_create_avp_temp_db(&tallyd_db_set);
    tallyd_create_avp_backup_hour_db(&tallyd_db_set);
    tallyd_create_statistic_db(&tallyd_db_set);
    ASSERT_NE(tallyd_db_set.db, nullptr);
    ASSERT_NE(tallyd_db_set.temp_db, nullptr);
    ASSERT_NE(tallyd_db_set.backup_hour_db, nullptr);
    ASSERT_NE(tallyd_db_set.statistic_db, nullptr);
}

inline void rollup_test::TearDown() {
    eloop_destroy();
    tallyd_sys_info = {};
    db_root_test::TearDown();
}

inline void rollup_test::exec(sqlite3 *conn, const std::string &sql) {
    sql_error err;
    ASSERT_EQ(sql_exec(conn, sql.c_str(), &err), SQLITE_OK) << sql << ": " << err.text;
}

inline rows_t rollup_test::query(sqlite3 *conn, const std::string &sql) {
    rows_t out;
    sql_table t;
    sql_error err;
    EXPECT_EQ(sql_get_table(conn, sql.c_str(), t, &err), SQLITE_OK) << sql << ": " << err.text;
    for (int r = 0; r < t.rows(); ++r) {
        out.emplace_back();
        for (int c = 0; c < t.cols(); ++c) out.back().push_back(t.at(r, c) ? t.at(r, c) : "NULL");
    }
    return out;
}

inline bool rollup_test::armed(void (*task)(void *, void *)) {
    return eloop_cancel_timeout(task, ELOOP_ALL_CTX, ELOOP_ALL_CTX) == 1;
}

inline void rollup_test::corrupt_table(sqlite3 **slot, const std::string &device_path,
                                       const char *table) {
    sql_cache_drop(*slot);
    ASSERT_TRUE(::corrupt_table(slot, path(device_path).c_str(), table));
}

inline void rollup_test::add_flows(const std::vector<rollup_flow> &flows, uint32_t time) {
    sql_stmt s = sql_prepare(tallyd_db_set.temp_db,
                             "INSERT INTO avp_base(time, app, port, client_mac, ap_mac, ssid, "
                             "uplink, downlink, total, category, group_id) "
                             "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, '', ?)");
    ASSERT_TRUE(s);
    sql_txn txn(tallyd_db_set.temp_db);
    for (const rollup_flow &f : flows) {
        s.bind(1, int64_t{time});
        s.bind(2, f.app);
        s.bind(3, int64_t{f.port});
        s.bind(4, f.client);
        s.bind(5, int64_t{f.ap});
        s.bind(6, int64_t{f.ssid});
        s.bind_u64(7, f.up);
        s.bind_u64(8, f.down);
        s.bind_u64(9, f.total);
        s.bind(10, int64_t{f.group});
        ASSERT_EQ(s.run(), SQLITE_OK);
    }
    ASSERT_EQ(txn.commit(), SQLITE_OK);
}
