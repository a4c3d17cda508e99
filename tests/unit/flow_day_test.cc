// The backup and day tasks and the per-SSID rollup between them.
#include "flow/backup_task.h"
#include "flow/day_ssid.h"
#include "flow/day_task.h"
#include "flow_rollup_fixture.h"

namespace {

constexpr uint32_t kT0 = 1700000000;  // the fixture's pinned clock

std::string at(int64_t offset) {
    return std::to_string(kT0 + offset);
}

const char *kSsidCols = "SELECT time, app, ssid, uplink, downlink, group_id FROM ";

}  // namespace

TEST_F(FlowRollup, BackupTaskFoldsTheLastHourOfTheHourTables) {
    // (time, app, port, ap_mac, ssid, uplink, downlink, group_id); the range
    // is [now - 3587, now).
    insert(tallyd_db_set.db, "avp_ap_ssid_hour",
           {{at(-3588), "http", "80", "1", "1", "500", "500", "1"},
            {at(-3587), "http", "80", "1", "1", "10", "20", "1"},
            {at(-300), "http", "80", "2", "1", "1", "2", "1"},
            {at(-300), "http", "80", "2", "1", "4", "4", "2"},
            {at(-5), "it's", "80", "3", "2", "7", "0", "1"},
            {at(0), "it's", "80", "3", "2", "900", "900", "1"}});
    insert(tallyd_db_set.db, "avp_top_client_hour",
           {{at(-600), "001122334455", "1", "1", "100"},
            {at(-300), "001122334455", "1", "2", "50"},
            {at(-300), "001122334455", "2", "1", "7"},
            {at(-4000), "00aabbccddee", "1", "1", "999"},
            {at(-300), "00aabbccddee", "1", "1", "0"}});

    tallyd_pre_backup_day(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_backup_day));
    EXPECT_EQ(tallyd_sys_info.last_backup_time, kT0);
    sql_conn &backup = tallyd_db_set.backup_hour_db;
    // Per SSID, application and group, whatever the AP.
    EXPECT_EQ(query(backup, std::string(kSsidCols) + "avp_ssid_backup ORDER BY ssid, group_id"),
              (rows_t{{at(0), "http", "1", "11", "22", "1"},
                      {at(0), "http", "1", "4", "4", "2"},
                      {at(0), "it's", "2", "7", "0", "1"}}));
    // Clients per AP, MACs as they stand, a zero total skipped, the marker kept.
    EXPECT_EQ(query(backup,
                    "SELECT time, client_mac, ap_mac, total FROM avp_top_client_backup "
                    "ORDER BY total"),
              (rows_t{{at(0), "---", "0", "0"},
                      {at(0), "001122334455", "2", "7"},
                      {at(0), "001122334455", "1", "150"}}));
}

TEST_F(FlowRollup, EachSsidGetsItsShareOfTheRowBudget) {
    rows_t rows;
    for (int ssid = 1; ssid <= 10; ++ssid)
        for (int a = 0; a < 100; ++a)
            rows.push_back({at(-60), "app" + std::to_string(a), "80", "1", std::to_string(ssid),
                            std::to_string(a * 10 + ssid), "1", "1"});
    insert(tallyd_db_set.db, "avp_ap_ssid_hour", rows);
    EXPECT_EQ(tallyd_get_attr_count(tallyd_db_set.db, tallyd_table::avp_ap_ssid_hour,
                                    tallyd_column::ssid, kT0 - 60),
              10);
    EXPECT_EQ(tallyd_get_attr_count(tallyd_db_set.db, tallyd_table::avp_ap_ssid_hour,
                                    tallyd_column::ssid, kT0),
              0);

    // Default platform: 800 rows over 10 SSIDs, each keeping its largest 80.
    sql_conn &backup = tallyd_db_set.backup_hour_db;
    ASSERT_EQ(
        tallyd_pre_handle_avp_ssid(4, tallyd_table::avp_ap_ssid_hour, tallyd_table::avp_ssid_backup,
                                   kT0, tallyd_db_set.db, backup),
        0);
    EXPECT_EQ(query(backup, "SELECT count(DISTINCT ssid), count(*) FROM avp_ssid_backup"),
              (rows_t{{"10", "800"}}));
    EXPECT_EQ(query(backup,
                    "SELECT ssid FROM avp_ssid_backup GROUP BY ssid HAVING "
                    "min(uplink)<>200+ssid"),
              rows_t{});

    // Class 3 (3200 rows): every application of every SSID fits.
    tallyd_sys_info.platform_class = 3;
    exec(backup, "DELETE FROM avp_ssid_backup");
    tallyd_pre_handle_avp_ssid(4, tallyd_table::avp_ap_ssid_hour, tallyd_table::avp_ssid_backup,
                               kT0, tallyd_db_set.db, backup);
    EXPECT_EQ(scalar(backup, "SELECT count(*) FROM avp_ssid_backup"), 1000);

    // No SSID since the range start: not a statement runs on the target.
    int statements = 0;
    sqlite3_trace_v2(
        backup.get(), SQLITE_TRACE_STMT,
        [](unsigned, void *n, void *, void *) { return ++*static_cast<int *>(n), 0; }, &statements);
    EXPECT_EQ(
        tallyd_pre_handle_avp_ssid(4, tallyd_table::avp_ap_ssid_hour, tallyd_table::avp_ssid_backup,
                                   kT0 + 4000, tallyd_db_set.db, backup),
        0);
    sqlite3_trace_v2(backup.get(), 0, nullptr, nullptr);
    EXPECT_EQ(statements, 0);
}

TEST_F(FlowRollup, DayTaskSumsTheBackupsAndStartsAFreshBackup) {
    // (time, app, port, ssid, uplink, downlink, group_id): the whole backup
    // table is summed, also rows older than one day period.
    insert(tallyd_db_set.backup_hour_db, "avp_ssid_backup",
           {{at(-9000), "http", "80", "1", "5", "5", "1"},
            {at(-3587), "http", "80", "1", "10", "20", "1"},
            {at(-10), "dns", "53", "2", "6000000000", "1", "1"}});
    insert(
        tallyd_db_set.backup_hour_db, "avp_top_client_backup",
        {{at(-3587), "001122334455", "1", "1", "100"}, {at(-10), "001122334455", "1", "2", "50"}});
    insert(tallyd_db_set.db, "avp_ssid_day",
           {{at(-86101), "old", "80", "1", "1", "1", "1"},
            {at(-86099), "kept", "80", "1", "1", "1", "1"}});
    tallyd_sys_info.last_backup_time = kT0 - 10;

    tallyd_pre_handle_day(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_day));
    EXPECT_EQ(tallyd_sys_info.day_stamp, kT0);
    EXPECT_EQ(tallyd_sys_info.last_backup_time, 0u);
    sql_conn &db = tallyd_db_set.db;
    EXPECT_EQ(query(db, std::string(kSsidCols) + "avp_ssid_day ORDER BY time, app"),
              (rows_t{{at(-86099), "kept", "1", "1", "1", "1"},
                      {at(0), "dns", "2", "6000000000", "1", "1"},
                      {at(0), "http", "1", "15", "25", "1"}}));
    // One row per client and AP (the backup marker, total 0, stays behind;
    // the day table's own marker stays).
    EXPECT_EQ(query(db,
                    "SELECT time, client_mac, ap_mac, total FROM avp_top_client_day "
                    "ORDER BY total"),
              (rows_t{{at(0), "---", "0", "0"}, {at(0), "001122334455", "1", "150"}}));

    // A fresh backup database: empty but for a new marker row.
    EXPECT_EQ(scalar(tallyd_db_set.backup_hour_db, "SELECT count(*) FROM avp_ssid_backup"), 0);
    EXPECT_EQ(query(tallyd_db_set.backup_hour_db, "SELECT client_mac FROM avp_top_client_backup"),
              (rows_t{{"---"}}));
}

TEST_F(FlowRollup, DayStampKeepsItsPeriodWithinTwoMinutes) {
    auto run = [](int32_t step) {
        tallyd_clock_advance(step);
        tallyd_pre_handle_day(nullptr, nullptr);
        return tallyd_sys_info.day_stamp - kT0;
    };
    EXPECT_EQ(run(0), 0u);
    EXPECT_EQ(run(7217 + 100), 7217u);                // 100 s late: keeps advancing
    EXPECT_EQ(run(7217 + 20), 2 * 7217u);             // now 120 s behind: still kept
    EXPECT_EQ(run(7217 + 1), 3 * 7217u + 121);        // 121 s: reset to the clock
    EXPECT_EQ(run(-50000), 3 * 7217u + 121 - 50000);  // clock stepped back
}

TEST_F(FlowRollup, MalformedDatabasesOfTheDailyPathAreRebuilt) {
    insert(tallyd_db_set.db, "avp_ap_ssid_hour",
           {{at(-60), "http", "80", "1", "1", "1", "1", "1"}});
    corrupt(tallyd_db_set.backup_hour_db, "/tmp/tallyd/avp_backup_hour.db", "avp_ssid_backup");
    tallyd_pre_backup_day(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_backup_day));
    EXPECT_TRUE(
        logged(LOG_ERR, "tallyd, INSERT avp_ssid aErrMsg = database disk image is malformed\n"));
    EXPECT_EQ(log_count("recover hour and day tables"), 1);  // mask 33: db and the backup
    EXPECT_EQ(scalar(tallyd_db_set.backup_hour_db, "SELECT count(*) FROM avp_ssid_backup"), 0);

    // In the day task the rollup rebuilds db and the backup (mask 34), and
    // the failed run rebuilds db once more; last_backup_time stays.
    insert(tallyd_db_set.backup_hour_db, "avp_ssid_backup",
           {{at(-60), "http", "80", "1", "1", "1", "1"}});
    corrupt(tallyd_db_set.db, "/tmp/tallyd/avp_1.0.db", "avp_ssid_day");
    tallyd_sys_info.last_backup_time = kT0;
    log_.clear();
    tallyd_pre_handle_day(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_day));
    EXPECT_EQ(log_count("recover hour and day tables"), 2) << log_dump();
    EXPECT_EQ(tallyd_sys_info.last_backup_time, kT0);
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(*) FROM avp_ssid_day"), 0);
}
