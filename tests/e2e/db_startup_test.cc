// The databases the real daemon opens at start-up, and the flash copies it
// takes back after a restart.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "support/daemon.h"
#include "support/e2e_util.h"

namespace fs = std::filesystem;

namespace {

// A read-only look at one database file, as another tool would take it.
class db_file {
   public:
    explicit db_file(const std::string &path) {
        if (sqlite3_open_v2(path.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
            sqlite3_close_v2(db_);
            db_ = nullptr;
        }
    }
    ~db_file() { sqlite3_close_v2(db_); }
    db_file(const db_file &) = delete;
    db_file &operator=(const db_file &) = delete;

    // First column of every row joined with ','; "ERROR" when it fails.
    std::string list(const std::string &sql) const {
        sqlite3_stmt *s = nullptr;
        if (!db_ || sqlite3_prepare_v2(db_, sql.c_str(), -1, &s, nullptr) != SQLITE_OK)
            return "ERROR";
        std::string out;
        int rc;
        while ((rc = sqlite3_step(s)) == SQLITE_ROW) {
            if (!out.empty()) out += ',';
            const unsigned char *t = sqlite3_column_text(s, 0);
            out += t ? reinterpret_cast<const char *>(t) : "NULL";
        }
        sqlite3_finalize(s);
        return rc == SQLITE_DONE ? out : "ERROR";
    }
    std::string tables() const {
        return list("SELECT name FROM sqlite_master WHERE type='table' ORDER BY rowid");
    }

   private:
    sqlite3 *db_ = nullptr;
};

int run_save(const std::string &root) {
    std::string cmd = std::string(TALLYD_BIN_DIR) + "/tallyd-save --root " + root;
    int status = std::system(cmd.c_str());
    return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

TEST(DbStartup, FiveDatabasesWithTheirTablesAndMarkers) {
    tallyd_daemon d;
    ASSERT_TRUE(d.start()) << d.log_text();

    db_file main(d.path("/tmp/tallyd/avp_1.0.db"));
    EXPECT_EQ(
        "avp_app_client_hour,avp_curve_client,avp_ap_ssid_hour,avp_all_group_hour,"
        "avp_top_client_hour,avp_ap,avp_ap_day,avp_ssid_day,avp_top_client_day",
        main.tables());
    EXPECT_EQ("---|0", main.list("SELECT client_mac||'|'||total FROM avp_top_client_day"));
    EXPECT_EQ("1", main.list("PRAGMA auto_vacuum"));

    db_file flash(d.path("/etc/corvane-images/tallyd/avp_flash.db"));
    EXPECT_EQ("avp_ap_week,avp_ssid_week,avp_ap_month,avp_ssid_month", flash.tables());
    EXPECT_EQ("---", flash.list("SELECT app FROM avp_ssid_week"));
    EXPECT_EQ("---", flash.list("SELECT app FROM avp_ssid_month"));
    EXPECT_EQ("", flash.list("SELECT app FROM avp_ap_week"));

    db_file temp(d.path("/tmp/tallyd/avp_temp.db"));
    EXPECT_EQ("avp_base", temp.tables());

    db_file backup(d.path("/tmp/tallyd/avp_backup_hour.db"));
    EXPECT_EQ("avp_top_client_backup,avp_ap_backup,avp_ssid_backup", backup.tables());
    EXPECT_EQ("---", backup.list("SELECT client_mac FROM avp_top_client_backup"));

    db_file statistic(d.path("/tmp/tallyd/statistic.db"));
    EXPECT_EQ(
        "statis_ap_h,statis_ap_d,statis_client_info_h,statis_client_info_d,statis_client_h,"
        "statis_client_d,statis_ap_wlan,statis_ap_chart",
        statistic.tables());
    EXPECT_EQ("---", statistic.list("SELECT client_mac FROM statis_client_d"));

    // The markers are stamped at this start: the statistic database is opened
    // last, at most a second or two after the main one.
    const long t_main = std::stol(main.list("SELECT time FROM avp_top_client_day"));
    const long t_statistic = std::stol(statistic.list("SELECT time FROM statis_client_d"));
    EXPECT_GE(t_statistic, t_main);
    EXPECT_LE(t_statistic, t_main + 2);
    EXPECT_FALSE(fs::exists(d.path("/tmp/tallyd/avp_top_list.db")));
    EXPECT_EQ(0, d.stop());
}

TEST(DbStartup, SavedCopiesSurviveARebootAndACorruptOneIsRebuilt) {
    tallyd_daemon first;
    ASSERT_TRUE(first.start()) << first.log_text();
    // Another writer, as the controller's tools may be; the daemon keeps its
    // connections open meanwhile.
    for (auto [file, sql] :
         {std::pair{"avp_1.0.db", "INSERT INTO avp_ap VALUES(0, 'aa:bb', 'M1', 2)"},
          {"statistic.db", "INSERT INTO statis_ap_chart VALUES(1, 2, 3, 4, 5, 6)"}}) {
        sqlite3 *db = nullptr;
        ASSERT_EQ(SQLITE_OK,
                  sqlite3_open(first.path(std::string("/tmp/tallyd/") + file).c_str(), &db));
        sqlite3_busy_timeout(db, 5000);
        EXPECT_EQ(SQLITE_OK, sqlite3_exec(db, sql, nullptr, nullptr, nullptr)) << file;
        sqlite3_close(db);
    }
    ASSERT_EQ(0, run_save(first.root()));
    // A flipped byte in the statistic copy.
    const std::string copy = first.path("/etc/corvane-images/tallyd/statistic.db");
    std::string bytes = read_text(copy);
    ASSERT_GT(bytes.size(), 100u);
    bytes[100] = static_cast<char>(bytes[100] ^ 0x40);
    write_text(copy, bytes);
    EXPECT_EQ(0, first.stop());

    // Reboot: RAM is gone.
    fs::remove_all(first.path("/tmp/tallyd"));
    tallyd_daemon_options again;
    again.root = first.root();
    tallyd_daemon second(again);
    ASSERT_TRUE(second.start()) << second.log_text();
    db_file main(second.path("/tmp/tallyd/avp_1.0.db"));
    EXPECT_EQ("aa:bb", main.list("SELECT ap_mac FROM avp_ap"));
    EXPECT_FALSE(fs::exists(second.path("/etc/corvane-images/tallyd/avp_1.0.db")));
    EXPECT_FALSE(fs::exists(copy));
    db_file statistic(second.path("/tmp/tallyd/statistic.db"));
    EXPECT_EQ("---", statistic.list("SELECT client_mac FROM statis_client_d"));
    EXPECT_EQ("", statistic.list("SELECT ap_id FROM statis_ap_chart"))
        << "the corrupt copy was taken back";
    EXPECT_EQ(0, second.stop());
}

}  // namespace
