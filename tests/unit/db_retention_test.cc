// Retention: the delete primitive, the purge groups and the size trimming
// of the main and flash databases.
#include <gtest/gtest.h>

#include <string>
#include <tuple>

#include "base/clock.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/recover.h"
#include "db/retention.h"
#include "support/db_test.h"

namespace {

class DbRetention : public db_root_test {
   protected:
    void SetUp() override {
        db_root_test::SetUp();
        ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
        saved_ = tallyd_sys_info;
        // Markers are stamped now; keep them out of the way of cuts at now.
        tallyd_clock_advance(1);
        now_ = tallyd_now();
    }
    void TearDown() override {
        tallyd_sys_info = saved_;
        db_root_test::TearDown();
    }

    static void exec(sql_conn &conn, const std::string &sql) {
        ASSERT_EQ(SQLITE_OK, sql_exec(conn.get(), sql.c_str())) << sql;
    }

    // n rows of about 1 KB each stamped t; the bulk goes into a column no
    // index holds, so that a row costs the same 1 KB everywhere.
    static void fill(sql_conn &conn, const char *table, const char *text_column, uint32_t t,
                     int n = 40) {
        for (int i = 0; i < n; ++i)
            exec(conn, std::string("INSERT INTO ") + table + "(time, " + text_column + ") VALUES(" +
                           std::to_string(t) + ", randomblob(1000))");
    }

    // Number of rows of table stamped t.
    static int64_t at(sql_conn &conn, const char *table, uint32_t t) {
        return query_int(conn, std::string("SELECT COUNT(*) FROM ") + table +
                                   " WHERE time=" + std::to_string(t));
    }

    // Twelve two-hour slots of day rows (slot s in the middle of
    // [now-(s+1)*7200, now-s*7200)) and twelve five-minute slots of hour rows.
    uint32_t day_slot(int s) const { return now_ - s * 7200 - 3600; }
    uint32_t hour_slot(int s) const { return now_ - s * 300 - 150; }
    void fill_main() {
        sql_conn &db = tallyd_db_set.db;
        exec(db, "BEGIN");
        for (int s = 0; s < 12; ++s) {
            fill(db, "avp_ssid_day", "uplink", day_slot(s));
            fill(db, "avp_curve_client", "uplink", hour_slot(s), 20);
            fill(db, "avp_top_client_hour", "total", hour_slot(s), 20);
        }
        exec(db, "COMMIT");
    }

    std::string main_path() const { return path("/tmp/tallyd/avp_1.0.db"); }
    uint32_t main_size() const { return tallyd_file_size(main_path().c_str()); }

    tallyd_sys_info_t saved_{};
    uint32_t now_ = 0;
};

TEST_F(DbRetention, TimedDeleteKeepsCurrentRowsAndDropsFutureOnes) {
    sql_conn &db = tallyd_db_set.db;
    const uint32_t cut = now_ - 3600;
    for (uint32_t t : {0u, cut - 1, cut, now_, now_ + 10}) fill(db, "avp_ap", "ap_mac", t, 1);

    ASSERT_EQ(0, tallyd_delete_by_time(tallyd_table::avp_ap, cut, db, TALLYD_RECOVER_NONE));
    EXPECT_EQ("0," + std::to_string(cut) + "," + std::to_string(now_),
              query_list(db, "SELECT time FROM avp_ap ORDER BY time"));
    ASSERT_EQ(0, tallyd_delete_by_time(tallyd_table::avp_ap, 0, db, TALLYD_RECOVER_NONE));  // all
    EXPECT_EQ(0, count_rows(db, "avp_ap"));
    sql_conn closed;
    EXPECT_EQ(-1, tallyd_purge_day(cut, closed));
}

TEST_F(DbRetention, FailedDeleteLeavesItsTransactionOpen) {
    sql_conn &db = tallyd_db_set.db;
    // A table of another database: not in db.
    EXPECT_EQ(-1, tallyd_delete_by_time(tallyd_table::statis_ap_h, 0, db, TALLYD_RECOVER_DB));
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, value = DELETE FROM statis_ap_h, aErrMsg = no such table: "
                       "statis_ap_h\n"))
        << log_dump();
    EXPECT_EQ(0, sqlite3_get_autocommit(db.get()));  // no ROLLBACK
    // Not a malformed database: its mask rebuilt nothing.
    EXPECT_EQ(0, log_count("recover"));
    EXPECT_EQ(-1, tallyd_delete_by_time(tallyd_table::avp_ap, now_, db, TALLYD_RECOVER_NONE));
    EXPECT_EQ(1, log_count("tallyd, delete record BEGIN,  aErrMsg = cannot start a transaction"));
}

TEST_F(DbRetention, AReaderHoldingADatabaseDelaysItsPurgeAndNeverRebuildsIt) {
    using purge_fn = int (*)(uint32_t, sql_conn &);
    const std::tuple<sql_conn *, const char *, purge_fn> kTargets[] = {
        {&tallyd_db_set.db, "avp_ap_day", tallyd_purge_day},
        // The week group's mask names db: a lock must not cost db either.
        {&tallyd_db_set.db_flash, "avp_ap_week", tallyd_purge_week},
        {&tallyd_db_set.backup_hour_db, "avp_ap_backup", tallyd_purge_backup},
        {&tallyd_db_set.statistic_db, "statis_ap_d",
         [](uint32_t cut, sql_conn &c) { return tallyd_purge_statistic(cut, c, 86400); }},
    };
    exec(tallyd_db_set.db, "INSERT INTO avp_ap(time) VALUES(0)");
    for (const auto &[conn, table, purge] : kTargets) {
        SCOPED_TRACE(table);
        const sqlite3 *handle = conn->get();
        exec(*conn, std::string("INSERT INTO ") + table + "(time) VALUES(1)");
        sql_conn reader = open_db(sqlite3_db_filename(conn->get(), "main"));
        exec(reader, std::string("BEGIN; SELECT COUNT(*) FROM ") + table);
        log_.clear();
        EXPECT_EQ(-1, purge(now_, *conn));
        EXPECT_EQ(1, log_count("aErrMsg = database is locked")) << log_dump();
        EXPECT_EQ(0, log_count("recover"));
        EXPECT_EQ(handle, conn->get());
        EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_ap"));
        EXPECT_EQ(1, count_rows(reader, table));

        // The reader goes; the next run deletes what this one could not.
        exec(reader, "COMMIT");
        EXPECT_EQ(0, purge(now_, *conn)) << log_dump();
        EXPECT_EQ(0, count_rows(reader, table));
    }
}

TEST_F(DbRetention, StatisticPurgeChoosesItsTablesByPeriod) {
    sql_conn &st = tallyd_db_set.statistic_db;
    const uint32_t old = now_ - 90000;
    for (const char *table : {"statis_ap_h", "statis_client_h", "statis_ap_d", "statis_ap_wlan"}) {
        fill(st, table, "time", old, 1);
        fill(st, table, "time", 0, 1);
    }
    EXPECT_EQ(-1, tallyd_purge_statistic(now_, st, 3600));
    EXPECT_EQ(2, count_rows(st, "statis_ap_h"));

    ASSERT_EQ(0, tallyd_purge_statistic(now_ - 7200, st, 7200));
    EXPECT_EQ(1, count_rows(st, "statis_ap_h"));
    EXPECT_EQ(1, count_rows(st, "statis_client_h"));
    EXPECT_EQ(2, count_rows(st, "statis_ap_d"));

    ASSERT_EQ(0, tallyd_purge_statistic(now_ - 86400, st, 86400));
    EXPECT_EQ(1, count_rows(st, "statis_ap_d"));
    EXPECT_EQ("0", query_list(st, "SELECT time FROM statis_ap_wlan"));
    EXPECT_EQ(1, count_rows(st, "statis_client_d"));  // the marker is recent
    sql_conn closed;
    EXPECT_EQ(-1, tallyd_purge_statistic(now_, closed, 7200));
}

TEST_F(DbRetention, OldestDayRowsGoFirstAndOnlyAsFarAsTheLimitNeeds) {
    fill_main();
    // Exactly at its limit: nothing goes.
    const uint32_t before = main_size();
    tallyd_sys_info.db_max_size = static_cast<int32_t>(before);
    EXPECT_EQ(0, tallyd_check_db_size(1, main_path().c_str()));
    EXPECT_EQ(480, count_rows(tallyd_db_set.db, "avp_ssid_day"));
    EXPECT_EQ(0, tallyd_check_db_size(2, main_path().c_str()));  // unknown kind

    // Room for all but two and a half slots of day rows (~40 KB each).
    tallyd_sys_info.db_max_size = static_cast<int32_t>(before - 100000);
    ASSERT_EQ(0, tallyd_check_db_size(1, main_path().c_str()));
    EXPECT_LE(main_size(), static_cast<uint32_t>(tallyd_sys_info.db_max_size));
    sql_conn &db = tallyd_db_set.db;
    for (int s = 11; s >= 9; --s) EXPECT_EQ(0, at(db, "avp_ssid_day", day_slot(s))) << s;
    for (int s = 8; s >= 0; --s) EXPECT_EQ(40, at(db, "avp_ssid_day", day_slot(s))) << s;
    EXPECT_EQ(240, count_rows(db, "avp_curve_client"));
    EXPECT_EQ(240, count_rows(db, "avp_top_client_hour"));
}

TEST_F(DbRetention, HourRowsGoInFiveMinuteStepsOnlyAfterAllDayRows) {
    fill_main();
    // Room for the hour rows but two and a half of their slots (~40 KB each).
    sql_conn &db = tallyd_db_set.db;
    exec(db, "DELETE FROM avp_ssid_day");
    const uint32_t without_day = main_size();
    exec(tallyd_db_set.db, "BEGIN");
    for (int s = 0; s < 12; ++s) fill(db, "avp_ssid_day", "uplink", day_slot(s));
    exec(tallyd_db_set.db, "COMMIT");
    tallyd_sys_info.db_max_size = static_cast<int32_t>(without_day - 100000);

    ASSERT_EQ(0, tallyd_check_db_size(1, main_path().c_str()));
    EXPECT_EQ(0, count_rows(db, "avp_ssid_day"));
    for (int s = 11; s >= 9; --s) {
        EXPECT_EQ(0, at(db, "avp_curve_client", hour_slot(s))) << s;
        EXPECT_EQ(0, at(db, "avp_top_client_hour", hour_slot(s))) << s;
    }
    for (int s = 8; s >= 0; --s) EXPECT_EQ(20, at(db, "avp_curve_client", hour_slot(s))) << s;

    // A limit nothing can meet: every day and hour row older than now goes,
    // and the check still reports success.
    exec(db, "INSERT INTO avp_ap(time) VALUES(5)");
    tallyd_sys_info.db_max_size = 1;
    EXPECT_EQ(0, tallyd_check_db_size(1, main_path().c_str()));
    EXPECT_EQ(0, count_rows(db, "avp_curve_client") + count_rows(db, "avp_top_client_hour") +
                     count_rows(db, "avp_top_client_day"));
    EXPECT_EQ(1, count_rows(db, "avp_ap"));
}

TEST_F(DbRetention, FlashTrimmingTakesMonthRowsBeforeWeekRows) {
    sql_conn &fl = tallyd_db_set.db_flash;
    exec(fl, "BEGIN");
    for (int k = 0; k < 4; ++k) fill(fl, "avp_ap_month", "uplink", now_ - k * 604800 - 1000);
    for (int m = 0; m < 7; ++m) fill(fl, "avp_ssid_week", "uplink", now_ - m * 86400 - 1000);
    exec(fl, "COMMIT");
    const std::string flash = path("/etc/corvane-images/tallyd/avp_flash.db");
    tallyd_sys_info.db_flash_max_size =
        static_cast<int32_t>(tallyd_file_size(flash.c_str()) - 60000);

    ASSERT_EQ(0, tallyd_check_db_size(4, flash.c_str()));
    EXPECT_EQ(0, at(fl, "avp_ap_month", now_ - 3 * 604800 - 1000));
    EXPECT_EQ(0, at(fl, "avp_ap_month", now_ - 2 * 604800 - 1000));
    EXPECT_EQ(40, at(fl, "avp_ap_month", now_ - 604800 - 1000));
    EXPECT_EQ(281, count_rows(fl, "avp_ssid_week"));  // 7 x 40 and the marker

    tallyd_sys_info.db_flash_max_size = 1;
    EXPECT_EQ(0, tallyd_check_db_size(4, flash.c_str()));
    EXPECT_EQ(0, count_rows(fl, "avp_ap_month") + count_rows(fl, "avp_ssid_week"));
}

}  // namespace
