// Opening the databases at start-up: files left in RAM, flash copies taken
// back (or refused), corrupt files rebuilt, and the migration of old layouts.
#include "db/db_files.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>

#include "base/clock.h"
#include "db/recover.h"
#include "db/schema.h"
#include "support/db_test.h"

namespace fs = std::filesystem;

namespace {

constexpr const char *kRam = "/tmp/tallyd";
constexpr const char *kFlash = "/etc/corvane-images/tallyd";

class DbFiles : public db_root_test {
   protected:
    static std::string dev(const char *dir, const std::string &name) {
        return std::string(dir) + "/" + name;
    }

    // One row of our own in each restorable database and in db_flash.
    void put_rows() {
        ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.db.get(),
                                      "INSERT INTO avp_ap(time, ap_mac, model, group_id) "
                                      "VALUES(0, 'aa:bb:cc:00:00:01', 'X1', 3)"));
        ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.backup_hour_db.get(),
                                      "INSERT INTO avp_ap_backup(time, app, port, ap_mac, uplink, "
                                      "downlink) VALUES(0, 'web', 80, 1, 5, 6)"));
        ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.statistic_db.get(),
                                      "INSERT INTO statis_ap_wlan VALUES(0, 4, 5, 6, 7)"));
        ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.db_flash.get(),
                                      "INSERT INTO avp_ap_week(time, app, port, ap_mac, uplink, "
                                      "downlink) VALUES(0, 'mail', 25, 2, 1, 1)"));
    }

    // What a save before reboot leaves: the copy and a checklist naming the
    // RAM path it is restored to.
    void save_copy(const std::string &base) {
        fs::copy_file(path(dev(kRam, base + ".db")), path(dev(kFlash, base + ".db")),
                      fs::copy_options::overwrite_existing);
        std::string cmd =
            "md5sum " + path(dev(kRam, base + ".db")) + " > " + path(dev(kFlash, base + ".md5"));
        ASSERT_EQ(0, std::system(cmd.c_str()));
    }

    // A reboot: the daemon stops, RAM is gone, time has passed.
    void reboot(int32_t secs = 600) {
        close_all_databases();
        fs::remove_all(path(kRam));
        tallyd_clock_advance(secs);
    }
};

TEST_F(DbFiles, UnverifiedCopiesGiveFreshDatabases) {
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    put_rows();
    const std::string ram_main = path(dev(kRam, "avp_1.0.db"));
    enum { kNoMd5, kWrongMd5, kTruncated, kGarbage };
    for (int fault : {kNoMd5, kWrongMd5, kTruncated, kGarbage}) {
        SCOPED_TRACE(fault);
        for (const char *base : {"avp_1.0", "statistic"}) save_copy(base);
        std::string flash_main = path(dev(kFlash, "avp_1.0.db"));
        switch (fault) {
            case kNoMd5:
                fs::remove(path(dev(kFlash, "avp_1.0.md5")));
                break;
            case kWrongMd5:
                write_file(dev(kFlash, "avp_1.0.md5"),
                           "0123456789abcdef0123456789abcdef  " + ram_main + "\n");
                break;
            case kTruncated:
                fs::resize_file(flash_main, fs::file_size(flash_main) / 2);
                break;
            case kGarbage:  // garbage with a checklist that matches it
                write_file(dev(kFlash, "avp_1.0.db"), std::string(3000, 'x'));
                ASSERT_EQ(0, std::system(("cp " + flash_main + " " + ram_main + " && md5sum " +
                                          ram_main + " > " + path(dev(kFlash, "avp_1.0.md5")))
                                             .c_str()));
                break;
        }
        reboot();
        ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set)) << log_dump();
        EXPECT_EQ(0, count_rows(tallyd_db_set.db, "avp_ap"));
        EXPECT_EQ(tallyd_now(), query_int(tallyd_db_set.db, "SELECT time FROM avp_top_client_day"));
        EXPECT_FALSE(exists(dev(kFlash, "avp_1.0.db")));
        EXPECT_FALSE(exists(dev(kRam, "avp_1.0.md5")));
        // The statistic copy was fine and is used.
        EXPECT_EQ(1, count_rows(tallyd_db_set.statistic_db, "statis_ap_wlan"));
        ASSERT_EQ(SQLITE_OK,
                  sql_exec(tallyd_db_set.db.get(),
                           "INSERT INTO avp_ap VALUES(0, 'aa:bb:cc:00:00:01', 'X1', 3)"));
    }
}

TEST_F(DbFiles, MissingMainCopyEmptiesTheFlashDirectory) {
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    put_rows();
    save_copy("statistic");
    save_copy("avp_backup_hour");
    write_file(dev(kFlash, "other.bin"), "x");
    write_file(dev(kFlash, ".hidden"), "x");
    reboot(1000);

    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    // Everything saved is gone, the week data with the old flash database.
    EXPECT_EQ(0, count_rows(tallyd_db_set.db_flash, "avp_ap_week"));
    EXPECT_EQ(0, count_rows(tallyd_db_set.statistic_db, "statis_ap_wlan"));
    EXPECT_EQ(0, count_rows(tallyd_db_set.backup_hour_db, "avp_ap_backup"));
    EXPECT_FALSE(exists(dev(kFlash, "other.bin")));
    EXPECT_TRUE(exists(dev(kFlash, ".hidden")));  // the shell's * skips it
    // The new flash database has fresh markers.
    const int64_t now = tallyd_now();
    EXPECT_EQ(now, query_int(tallyd_db_set.db_flash, "SELECT time FROM avp_ssid_week"));
    EXPECT_EQ(now, query_int(tallyd_db_set.db_flash, "SELECT time FROM avp_ssid_month"));
}

TEST_F(DbFiles, RamFilesOfAnEarlierRunAreUsedAsTheyAre) {
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    put_rows();
    // Stale rows (and a current AP row at time 0) around the opening cuts.
    const uint32_t now = tallyd_now();
    const std::string old_hour = std::to_string(now - 3700);
    const std::string old_two_hours = std::to_string(now - 7300);
    const std::string fresh = std::to_string(now - 100);
    ASSERT_EQ(SQLITE_OK,
              sql_exec(tallyd_db_set.db.get(),
                       ("INSERT INTO avp_curve_client VALUES(" + old_hour + ", 'a', 1, 1);" +
                        "INSERT INTO avp_curve_client VALUES(" + fresh + ", 'b', 1, 1);" +
                        "INSERT INTO avp_ap_day(time) VALUES(" + old_hour + ");")
                           .c_str()));
    ASSERT_EQ(SQLITE_OK,
              sql_exec(tallyd_db_set.statistic_db.get(),
                       ("INSERT INTO statis_client_h(time) VALUES(" + old_two_hours + ");" +
                        "INSERT INTO statis_client_d(time) VALUES(" + old_two_hours + ")")
                           .c_str()));
    save_copy("avp_1.0");  // must stay in flash: the RAM file wins
    close_all_databases();
    tallyd_clock_advance(10);

    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    EXPECT_EQ("b", query_list(tallyd_db_set.db, "SELECT client_mac FROM avp_curve_client"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_ap_day"));  // within the day
    EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_ap"));
    EXPECT_EQ(0, count_rows(tallyd_db_set.statistic_db, "statis_client_h"));
    EXPECT_EQ(2, count_rows(tallyd_db_set.statistic_db, "statis_client_d"));  // marker + row
    EXPECT_TRUE(exists(dev(kFlash, "avp_1.0.db")));
    EXPECT_TRUE(exists(dev(kFlash, "avp_1.0.md5")));
}

TEST_F(DbFiles, CorruptFilesAreRebuiltAndTheOthersKeepTheirData) {
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    put_rows();
    for (int i = 0; i < 200; ++i)
        ASSERT_EQ(SQLITE_OK, sql_exec(tallyd_db_set.statistic_db.get(),
                                      "INSERT INTO statis_client_d(time, client_mac) VALUES(0, "
                                      "'aa:bb:cc:dd:ee:ff-some-padding-to-fill-pages')"));
    close_all_databases();

    // A sound header and schema over garbage pages: opens, then reports
    // itself malformed to whoever reads it.
    const std::string stat = path(dev(kRam, "statistic.db"));
    {
        std::string bytes = read_file(dev(kRam, "statistic.db"));
        ASSERT_GT(bytes.size(), 8192u);
        for (size_t i = 4096; i < bytes.size(); ++i) bytes[i] = static_cast<char>(i * 7);
        write_file(dev(kRam, "statistic.db"), bytes);
    }

    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set)) << log_dump();
    sql_error err;
    sql_table t;
    sql_get_table(tallyd_db_set.statistic_db.get(), "SELECT COUNT(*) FROM statis_client_d", t,
                  &err);
    ASSERT_TRUE(err.malformed()) << err.text;

    tallyd_recover_from_malformed(TALLYD_RECOVER_STATISTIC);
    ASSERT_TRUE(tallyd_db_set.statistic_db);
    EXPECT_EQ(1, count_rows(tallyd_db_set.statistic_db, "statis_client_d"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_ap"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.db_flash, "avp_ap_week"));
    EXPECT_EQ(0, log_count("recover"));  // only db and db_flash announce a rebuild
}

TEST_F(DbFiles, RecoveryRebuildsExactlyTheDatabasesOfTheMask) {
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    put_rows();
    sqlite3 *flash = tallyd_db_set.db_flash.get();

    tallyd_recover_from_malformed(TALLYD_RECOVER_NONE);
    EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_ap"));

    // db and temp_db; db_flash untouched.
    ASSERT_EQ(SQLITE_OK,
              sql_exec(tallyd_db_set.temp_db.get(), "INSERT INTO avp_base(time) VALUES(1)"));
    tallyd_recover_from_malformed(TALLYD_RECOVER_TEMP | TALLYD_RECOVER_DB);
    EXPECT_EQ(0, count_rows(tallyd_db_set.db, "avp_ap"));
    EXPECT_EQ(0, count_rows(tallyd_db_set.temp_db, "avp_base"));
    EXPECT_EQ(flash, tallyd_db_set.db_flash.get());
    EXPECT_EQ(1, count_rows(tallyd_db_set.db_flash, "avp_ap_week"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.backup_hour_db, "avp_ap_backup"));
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, recover hour and day tables from malformed\n"));
    EXPECT_EQ(0, log_count("week and month"));
    // No flash copy of avp_1.0, yet the flash directory is left alone.
    EXPECT_TRUE(exists(dev(kFlash, "avp_flash.db")));

    tallyd_recover_from_malformed(TALLYD_RECOVER_FLASH | TALLYD_RECOVER_BACKUP);
    EXPECT_TRUE(exists(dev(kFlash, "avp_flash.db.bad")));  // the old one, kept aside
    EXPECT_EQ(0, count_rows(tallyd_db_set.db_flash, "avp_ap_week"));
    EXPECT_EQ(0, count_rows(tallyd_db_set.backup_hour_db, "avp_ap_backup"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.statistic_db, "statis_ap_wlan"));
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, recover week and month tables from malformed\n"));
}

TEST_F(DbFiles, DamageRebuildsTheMaskOnlyWhenItNamesTheDamagedDatabase) {
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    put_rows();
    const sql_error malformed{SQLITE_CORRUPT, std::string(TALLYD_ERR_MALFORMED)};
    const sql_error missing{SQLITE_ERROR, "no such table: avp_ap_backup"};

    // A dropped table, a lock or a missing table of a sound file is no damage.
    EXPECT_FALSE(tallyd_db_damaged(tallyd_db_set.backup_hour_db, missing));
    EXPECT_FALSE(tallyd_db_damaged(tallyd_db_set.backup_hour_db,
                                   {SQLITE_BUSY, std::string(TALLYD_ERR_LOCKED)}));
    // The week purge's mask names db: the damaged avp_flash.db is rebuilt alone.
    EXPECT_TRUE(tallyd_recover_if_damaged(tallyd_db_set.db_flash, malformed, TALLYD_RECOVER_DB));
    EXPECT_EQ(0, count_rows(tallyd_db_set.db_flash, "avp_ap_week"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_ap"));
    // Mask 0 rebuilds nothing; a mask naming the damaged database is used whole.
    tallyd_recover_damaged(tallyd_db_set.backup_hour_db, TALLYD_RECOVER_NONE);
    EXPECT_EQ(1, count_rows(tallyd_db_set.backup_hour_db, "avp_ap_backup"));
    tallyd_recover_damaged(tallyd_db_set.backup_hour_db, TALLYD_RECOVER_BACKUP | TALLYD_RECOVER_DB);
    EXPECT_EQ(0, count_rows(tallyd_db_set.db, "avp_ap"));
    EXPECT_EQ(0, count_rows(tallyd_db_set.backup_hour_db, "avp_ap_backup"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.statistic_db, "statis_ap_wlan"));

    // A file cut to nothing under its connection reads as an empty database.
    ASSERT_EQ(0, truncate(path(dev(kRam, "avp_backup_hour.db")).c_str(), 0));
    sql_table rows;
    sql_error err;
    sql_get_table(tallyd_db_set.backup_hour_db.get(), "SELECT * FROM avp_ap_backup", rows, &err);
    EXPECT_TRUE(tallyd_recover_if_damaged(tallyd_db_set.backup_hour_db, err, TALLYD_RECOVER_DB))
        << err.text;
    EXPECT_EQ(0, count_rows(tallyd_db_set.backup_hour_db, "avp_ap_backup"));
    EXPECT_EQ(1, count_rows(tallyd_db_set.statistic_db, "statis_ap_wlan"));
}

TEST_F(DbFiles, DamagedFilesAreRebuiltAndCostOnlyThemselves) {
    const std::tuple<std::string, sql_conn *, tallyd_schema> kTargets[] = {
        {dev(kRam, "avp_1.0.db"), &tallyd_db_set.db, tallyd_schema::main},
        {dev(kRam, "avp_backup_hour.db"), &tallyd_db_set.backup_hour_db, tallyd_schema::backup},
        {dev(kRam, "statistic.db"), &tallyd_db_set.statistic_db, tallyd_schema::statistic},
        {dev(kFlash, "avp_flash.db"), &tallyd_db_set.db_flash, tallyd_schema::flash},
    };
    for (const auto &[file, conn, schema] : kTargets) {
        const bool flash = conn == &tallyd_db_set.db_flash;
        for (int fault = 0; fault < 3; ++fault) {  // garbage, truncated, zero bytes
            SCOPED_TRACE(file + " fault " + std::to_string(fault));
            ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
            put_rows();
            close_all_databases();
            std::string bytes = read_file(file);
            ASSERT_GT(bytes.size(), 8192u);
            if (fault == 0)
                bytes.assign(bytes.size(), 'Z');
            else
                bytes.resize(fault == 1 ? bytes.size() / 2 : 0);
            write_file(file, bytes);

            ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set)) << log_dump();
            EXPECT_EQ(SQLITE_OK, tallyd_schema_check(*conn, schema));
            EXPECT_EQ(1, log_count(file + " is not a usable database"));
            // The week rows on flash outlive a damaged RAM file; a damaged
            // flash file is kept aside and costs the RAM files nothing.
            if (flash) {
                EXPECT_EQ(bytes, read_file(file + ".bad"));
                EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_ap"));
            } else {
                EXPECT_EQ(1, count_rows(tallyd_db_set.db_flash, "avp_ap_week"));
            }
            close_all_databases();
            fs::remove_all(path(kRam));
            fs::remove_all(path(kFlash));
            log_.clear();
        }
    }
}

TEST_F(DbFiles, OnlyARestoredStatisticFileIsMigrated) {
    // An older layout: no wlangrp_id, no client_count, a client chart.
    write_file(dev(kRam, "placeholder"), "");
    write_file(dev(kFlash, "placeholder"), "");
    sql_conn old = open_db(path(dev(kRam, "statistic.db")));
    ASSERT_EQ(0, tallyd_create_statistic_tables(old));
    ASSERT_EQ(SQLITE_OK, sql_exec(old.get(),
                                  "DROP TABLE statis_ap_wlan; DROP TABLE statis_ap_chart;"
                                  "DROP TABLE statis_client_d;"
                                  "CREATE TABLE statis_ap_wlan(time, ap_id, wlan_id, apgrp_id);"
                                  "INSERT INTO statis_ap_wlan VALUES(0, 1, 2, 3);"
                                  "CREATE TABLE statis_ap_chart(time, ap_id, tx_bytes);"
                                  "CREATE TABLE statis_client_chart(time);"
                                  "CREATE TABLE statis_client_d(time, client_mac);"));
    old.close();

    // Found in RAM: left as it is.
    tallyd_create_statistic_db(&tallyd_db_set);
    EXPECT_EQ(1, count_rows(tallyd_db_set.statistic_db, "statis_ap_wlan"));
    EXPECT_EQ(-1,
              query_int(tallyd_db_set.statistic_db, "SELECT client_count FROM statis_ap_chart"));
    close_all_databases();

    // Taken back from flash: migrated.
    save_copy("statistic");
    fs::remove(path(dev(kRam, "statistic.db")));
    tallyd_create_statistic_db(&tallyd_db_set);
    EXPECT_EQ(0, count_rows(tallyd_db_set.statistic_db, "statis_ap_wlan"));
    EXPECT_EQ(1, query_int(tallyd_db_set.statistic_db,
                           "SELECT COUNT(*) FROM pragma_table_info('statis_ap_wlan') "
                           "WHERE name='wlangrp_id'"));
    EXPECT_EQ(0, count_rows(tallyd_db_set.statistic_db, "statis_ap_chart"));
    EXPECT_EQ(0, query_int(tallyd_db_set.statistic_db,
                           "SELECT COUNT(*) FROM sqlite_master WHERE name='statis_client_chart'"));
}

}  // namespace
