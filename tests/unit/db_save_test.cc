// The flash copies written by tallyd-save, taken back by the openers.
#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdlib>
#include <filesystem>
#include <string>

#include "base/clock.h"
#include "db/db_files.h"
#include "support/db_test.h"

namespace fs = std::filesystem;

namespace {

class DbSave : public db_root_test {
   protected:
    // Runs the built tool; returns its exit status, its stderr in *err.
    int run_save(std::string *err = nullptr, bool root_from_env = false) {
        std::string tool = std::string(TALLYD_BIN_DIR) + "/tallyd-save";
        EXPECT_TRUE(fs::exists(tool)) << "build the tallyd-save target first";
        std::string err_file = path("/save.err");
        std::string root = path("");
        std::string cmd =
            root_from_env ? "TALLYD_ROOT=" + root + " " + tool : tool + " --root " + root;
        int status = std::system((cmd + " 2>" + err_file).c_str());
        if (err) *err = read_file("/save.err");
        return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    }

    void reboot() {
        close_all_databases();
        fs::remove_all(path("/tmp/tallyd"));
        tallyd_clock_advance(600);
    }

    std::string flash(const std::string &name) const {
        return "/etc/corvane-images/tallyd/" + name;
    }
};

TEST_F(DbSave, SavedWhileOpenAndRestoredAfterAReboot) {
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    ASSERT_EQ(SQLITE_OK,
              sql_exec(tallyd_db_set.db.get(), "INSERT INTO avp_ap VALUES(0, 'm', 'x', 1)"));
    ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.statistic_db.get(),
                                  "INSERT INTO statis_ap_wlan VALUES(0, 1, 2, 3, 4)"));
    ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.backup_hour_db.get(),
                                  "INSERT INTO avp_ap_backup(time) VALUES(0)"));
    // A write transaction in flight is not part of the copy.
    ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.backup_hour_db.get(),
                                  "BEGIN; INSERT INTO avp_ap_backup(time) VALUES(1)"));

    // The handles stay open, as in a running daemon.
    ASSERT_EQ(0, run_save(nullptr, true));
    ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.backup_hour_db.get(), "COMMIT"));
    for (const char *base : {"avp_1.0", "avp_backup_hour", "statistic"}) {
        EXPECT_TRUE(exists(flash(std::string(base) + ".db"))) << base;
        std::string sum = read_file(flash(std::string(base) + ".md5"));
        EXPECT_NE(std::string::npos,
                  sum.find("  " + path("/tmp/tallyd/" + std::string(base) + ".db") + "\n"))
            << sum;
    }
    for (const auto &e : fs::directory_iterator(path("/etc/corvane-images/tallyd")))
        EXPECT_FALSE(e.path().filename().string().starts_with(".")) << e.path();

    reboot();
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_ap"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.statistic_db, "statis_ap_wlan"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.backup_hour_db, "avp_ap_backup"));
    // The markers keep the time of the first start: the data is that old.
    EXPECT_EQ(kStartTime, query_int(tallyd_db_set.db, "SELECT time FROM avp_top_client_day"));
    // Copies and checklists are consumed; the live flash database stays.
    for (const char *base : {"avp_1.0", "avp_backup_hour", "statistic"}) {
        EXPECT_FALSE(exists(flash(std::string(base) + ".db"))) << base;
        EXPECT_FALSE(exists(flash(std::string(base) + ".md5"))) << base;
        EXPECT_FALSE(exists("/tmp/tallyd/" + std::string(base) + ".md5")) << base;
    }
    EXPECT_TRUE(exists(flash("avp_flash.db")));
}

TEST_F(DbSave, AFlippedByteInACopyMakesTheNextStartBuildAfresh) {
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    ASSERT_EQ(SQLITE_OK,
              sql_exec(tallyd_db_set.db.get(), "INSERT INTO avp_ap VALUES(0, 'm', 'x', 1)"));
    ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.statistic_db.get(),
                                  "INSERT INTO statis_ap_wlan VALUES(0, 1, 2, 3, 4)"));
    ASSERT_EQ(0, run_save());
    std::string bytes = read_file(flash("statistic.db"));
    ASSERT_GT(bytes.size(), 5000u);
    bytes[5000] = static_cast<char>(bytes[5000] ^ 0x01);
    write_file(flash("statistic.db"), bytes);

    reboot();
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    EXPECT_EQ(0, count_rows(tallyd_db_set.statistic_db, "statis_ap_wlan"));
    EXPECT_EQ(tallyd_now(),
              query_int(tallyd_db_set.statistic_db, "SELECT time FROM statis_client_d"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_ap"));  // the sound copy is used
}

TEST_F(DbSave, RefusesWithoutADatabaseOrAWritableFlashDirectory) {
    std::string err;
    write_file("/tmp/tallyd/avp_1.0.db", "");
    EXPECT_EQ(1, run_save(&err));
    EXPECT_NE(std::string::npos, err.find("avp_backup_hour.db is missing")) << err;
    EXPECT_FALSE(exists(flash("avp_1.0.db")));

    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    close_all_databases();
    fs::remove_all(path("/etc/corvane-images/tallyd"));
    write_file("/etc/corvane-images/tallyd", "not a directory");
    EXPECT_EQ(2, run_save(&err));
    EXPECT_NE(std::string::npos, err.find("is not writable")) << err;
}

}  // namespace
