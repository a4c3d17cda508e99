// The databases the real daemon opens at start-up, the flash copies
// tallyd-save writes while it runs, and what it takes back after a reboot.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/daemon.h"
#include "support/e2e_util.h"

namespace fs = std::filesystem;

namespace {

std::string tables(const std::string &file) {
    return e2e_sql(file, "SELECT name FROM sqlite_master WHERE type='table' ORDER BY rowid");
}

// tallyd-save on the root; its exit status, its standard error in *err.
int run_save(const tallyd_daemon &d, std::string *err = nullptr) {
    auto [out, status] = run_tool("tallyd-save --root '" + d.root() + "' 2>&1");
    if (err) *err = out;
    return status;
}

TEST(DbStartup, FiveDatabasesWithTheirTablesAndMarkers) {
    tallyd_daemon d;
    ASSERT_TRUE(d.start()) << d.log_text();

    const std::string main = d.path("/tmp/tallyd/avp_1.0.db");
    EXPECT_EQ(
        "avp_app_client_hour,avp_curve_client,avp_ap_ssid_hour,avp_all_group_hour,"
        "avp_top_client_hour,avp_ap,avp_ap_day,avp_ssid_day,avp_top_client_day",
        tables(main));
    EXPECT_EQ("---|0", e2e_sql(main, "SELECT client_mac, total FROM avp_top_client_day"));
    EXPECT_EQ("1", e2e_sql(main, "PRAGMA auto_vacuum"));

    const std::string flash = d.path("/etc/corvane-images/tallyd/avp_flash.db");
    EXPECT_EQ("avp_ap_week,avp_ssid_week,avp_ap_month,avp_ssid_month", tables(flash));
    EXPECT_EQ("---,---", e2e_sql(flash,
                                 "SELECT app FROM avp_ssid_week UNION ALL "
                                 "SELECT app FROM avp_ssid_month"));
    EXPECT_EQ("", e2e_sql(flash, "SELECT app FROM avp_ap_week"));

    EXPECT_EQ("avp_base", tables(d.path("/tmp/tallyd/avp_temp.db")));
    const std::string backup = d.path("/tmp/tallyd/avp_backup_hour.db");
    EXPECT_EQ("avp_top_client_backup,avp_ap_backup,avp_ssid_backup", tables(backup));
    EXPECT_EQ("---", e2e_sql(backup, "SELECT client_mac FROM avp_top_client_backup"));

    const std::string statistic = d.path("/tmp/tallyd/statistic.db");
    EXPECT_EQ(
        "statis_ap_h,statis_ap_d,statis_client_info_h,statis_client_info_d,statis_client_h,"
        "statis_client_d,statis_ap_wlan,statis_ap_chart",
        tables(statistic));
    EXPECT_EQ("---", e2e_sql(statistic, "SELECT client_mac FROM statis_client_d"));

    // The markers are stamped at this start: the statistic database is opened
    // last, at most a second or two after the main one.
    const long t_main = std::stol(e2e_sql(main, "SELECT time FROM avp_top_client_day"));
    const long t_statistic = std::stol(e2e_sql(statistic, "SELECT time FROM statis_client_d"));
    EXPECT_GE(t_statistic, t_main);
    EXPECT_LE(t_statistic, t_main + 2);
    EXPECT_FALSE(fs::exists(d.path("/tmp/tallyd/avp_top_list.db")));
    EXPECT_EQ(0, d.stop());
}

TEST(DbStartup, CopiesSavedWhileRunningSurviveARebootAndACorruptOneIsRebuilt) {
    tallyd_daemon first;
    ASSERT_TRUE(first.start()) << first.log_text();
    const std::string main = first.path("/tmp/tallyd/avp_1.0.db");
    const std::string statistic = first.path("/tmp/tallyd/statistic.db");
    const std::string backup = first.path("/tmp/tallyd/avp_backup_hour.db");
    // Another writer, as the controller's tools may be; the daemon keeps its
    // connections open meanwhile.
    ASSERT_EQ("", e2e_sql(main, "INSERT INTO avp_ap VALUES(0, 'aa:bb', 'M1', 2)"));
    ASSERT_EQ("", e2e_sql(statistic, "INSERT INTO statis_ap_chart VALUES(1, 2, 3, 4, 5, 6)"));
    ASSERT_EQ("", e2e_sql(backup, "INSERT INTO avp_ap_backup(time) VALUES(0)"));
    const std::string marker = e2e_sql(main, "SELECT time FROM avp_top_client_day");

    // A write transaction in flight is not part of the copy.
    sql_conn writer;
    ASSERT_EQ(SQLITE_OK, tallyd_db_open(backup, SQLITE_OPEN_READWRITE, writer));
    ASSERT_EQ(SQLITE_OK,
              sql_exec(writer.get(), "BEGIN; INSERT INTO avp_ap_backup(time) VALUES(1)"));
    std::string err;
    ASSERT_EQ(0, run_save(first, &err)) << err;
    ASSERT_EQ(SQLITE_OK, sql_exec(writer.get(), "COMMIT"));
    writer.close();
    // Each checklist names the database by the path it has once restored;
    // no temporary file is left.
    const std::string flash_dir = first.path("/etc/corvane-images/tallyd");
    for (const char *base : {"avp_1.0", "avp_backup_hour", "statistic"}) {
        const std::string sum = read_text(flash_dir + "/" + base + ".md5");
        EXPECT_NE(std::string::npos,
                  sum.find("  " + first.path(std::string("/tmp/tallyd/") + base + ".db") + "\n"))
            << sum;
    }
    for (const auto &e : fs::directory_iterator(flash_dir))
        EXPECT_FALSE(e.path().filename().string().starts_with(".")) << e.path();
    // A flipped byte in the statistic copy.
    const std::string copy = flash_dir + "/statistic.db";
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
    EXPECT_EQ("aa:bb", e2e_sql(main, "SELECT ap_mac FROM avp_ap"));
    // The marker keeps the time of the first start: the data is that old.
    EXPECT_EQ(marker, e2e_sql(main, "SELECT time FROM avp_top_client_day"));
    EXPECT_EQ("0", e2e_sql(backup, "SELECT time FROM avp_ap_backup"));
    EXPECT_EQ("---", e2e_sql(statistic, "SELECT client_mac FROM statis_client_d"));
    EXPECT_EQ("", e2e_sql(statistic, "SELECT ap_id FROM statis_ap_chart"))
        << "the corrupt copy was taken back";
    // Copies and checklists are consumed; the live flash database stays.
    for (const auto &e : fs::directory_iterator(flash_dir))
        EXPECT_EQ("avp_flash.db", e.path().filename()) << e.path();
    EXPECT_FALSE(fs::exists(second.path("/tmp/tallyd/avp_1.0.md5")));
    EXPECT_EQ(0, second.stop());
}

TEST(DbStartup, SaveRefusesWithoutADatabaseOrAWritableFlashDirectory) {
    tallyd_daemon d;  // only its root
    std::string err;
    write_text(d.path("/tmp/tallyd/avp_1.0.db"), "");
    EXPECT_EQ(1, run_save(d, &err));
    EXPECT_NE(std::string::npos, err.find("avp_backup_hour.db is missing")) << err;
    EXPECT_FALSE(fs::exists(d.path("/etc/corvane-images/tallyd/avp_1.0.db")));

    for (const char *base : {"avp_backup_hour", "statistic"})
        write_text(d.path(std::string("/tmp/tallyd/") + base + ".db"), "");
    write_text(d.path("/etc/corvane-images/tallyd"), "not a directory");
    EXPECT_EQ(2, run_save(d, &err));
    EXPECT_NE(std::string::npos, err.find("is not writable")) << err;
}

}  // namespace
