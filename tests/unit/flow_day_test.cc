// The backup and day tasks and the per-SSID rollup between them.
#include <map>
#include <set>
#include <tuple>

#include "flow/day_ssid.h"
#include "flow/hour_rollup.h"
#include "flow/tasks.h"
#include "flow_rollup_fixture.h"

namespace {

using row_set = std::set<std::vector<std::string>>;
row_set as_set(const rows_t &rows) {
    return {rows.begin(), rows.end()};
}

// One application row of an hour or backup table.
struct app_row {
    uint32_t time;
    std::string app;
    int ssid;
    uint64_t up, down;
    int group;
};

void add_app_rows(sqlite3 *conn, const char *table, const std::vector<app_row> &rows) {
    // avp_ap_ssid_hour also has an AP column; the backup and day tables not.
    const bool hour = std::string(table) == "avp_ap_ssid_hour";
    const std::string sql =
        std::string("INSERT INTO ") + table + "(time, app, port, ssid, uplink, downlink, group_id" +
        (hour ? ", ap_mac) VALUES(?, ?, 80, ?, ?, ?, ?, 7)" : ") VALUES(?, ?, 80, ?, ?, ?, ?)");
    sql_stmt s = sql_prepare(conn, sql.c_str());
    ASSERT_TRUE(s);
    sql_txn txn(conn);
    for (const auto &r : rows) {
        s.bind(1, int64_t{r.time});
        s.bind(2, r.app);
        s.bind(3, int64_t{r.ssid});
        s.bind_u64(4, r.up);
        s.bind_u64(5, r.down);
        s.bind(6, int64_t{r.group});
        ASSERT_EQ(s.run(), SQLITE_OK);
    }
    ASSERT_EQ(txn.commit(), SQLITE_OK);
}

// Sums per (ssid, app, group) of the rows with from <= time < to, as the
// rollup stores them at `stamp`.
row_set expect_ssid_sums(const std::vector<app_row> &rows, uint32_t from, uint32_t to,
                         uint32_t stamp) {
    std::map<std::tuple<int, std::string, int>, std::pair<uint64_t, uint64_t>> sums;
    for (const auto &r : rows) {
        if (r.time < from || r.time >= to) continue;
        auto &s = sums[{r.ssid, r.app, r.group}];
        s.first += r.up;
        s.second += r.down;
    }
    row_set out;
    for (const auto &[k, v] : sums)
        out.insert({std::to_string(stamp), std::get<1>(k), "80", std::to_string(std::get<0>(k)),
                    std::to_string(v.first), std::to_string(v.second),
                    std::to_string(std::get<2>(k))});
    return out;
}

void add_client_rows(sqlite3 *conn, const char *table, const rows_t &rows) {
    for (const auto &r : rows)
        ASSERT_EQ(sql_exec(conn, (std::string("INSERT INTO ") + table +
                                  "(time, client_mac, ap_mac, ssid, total) VALUES(" + r[0] + ", '" +
                                  r[1] + "', " + r[2] + ", " + r[3] + ", " + r[4] + ")")
                                     .c_str()),
                  SQLITE_OK);
}

const char *kSsidCols = "SELECT time, app, port, ssid, uplink, downlink, group_id FROM ";

}  // namespace

TEST_F(rollup_test, BackupTaskFoldsTheLastHourOfTheHourTables) {
    const uint32_t now = kStartTime;
    const std::vector<app_row> rows = {
        {now - 3600, "http", 1, 500, 500, 1},  // before the hour: left out
        {now - 3587, "http", 1, 10, 20, 1},    // first second of the range
        {now - 300, "http", 1, 1, 2, 1},      {now - 300, "http", 1, 4, 4, 2},
        {now - 300, "it's", 2, 7, 0, 1},      {now - 5, "dns", 2, 3, 3, 1},
        {now, "dns", 2, 900, 900, 1},  // the stamp itself is outside
    };
    add_app_rows(tallyd_db_set.db, "avp_ap_ssid_hour", rows);
    add_client_rows(tallyd_db_set.db, "avp_top_client_hour",
                    {{std::to_string(now - 600), "001122334455", "1", "1", "100"},
                     {std::to_string(now - 300), "001122334455", "1", "2", "50"},
                     {std::to_string(now - 300), "001122334455", "2", "1", "7"},
                     {std::to_string(now - 4000), "00aabbccddee", "1", "1", "999"},
                     {std::to_string(now - 300), "00aabbccddee", "1", "1", "0"}});

    tallyd_pre_backup_day(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_backup_day));
    EXPECT_EQ(tallyd_sys_info.last_backup_time, now);
    sqlite3 *backup = tallyd_db_set.backup_hour_db;
    EXPECT_EQ(as_set(query(backup, std::string(kSsidCols) + "avp_ssid_backup")),
              expect_ssid_sums(rows, now - 3587, now, now));
    EXPECT_EQ(scalar(backup,
                     "SELECT count(*) FROM avp_ssid_backup WHERE typeof(app)<>'text' OR "
                     "typeof(uplink)<>'integer'"),
              0);
    // Clients: summed per AP over the range, MACs as they stand, a zero total
    // skipped; the marker row stays.
    EXPECT_EQ(as_set(query(backup,
                           "SELECT client_mac, ap_mac, total, time FROM "
                           "avp_top_client_backup WHERE client_mac<>'---'")),
              (row_set{{"001122334455", "1", "150", std::to_string(now)},
                       {"001122334455", "2", "7", std::to_string(now)}}));
    EXPECT_EQ(scalar(backup, "SELECT count(*) FROM avp_top_client_backup WHERE client_mac='---'"),
              1);
}

TEST_F(rollup_test, EachSsidGetsItsShareOfTheRowBudget) {
    const uint32_t now = kStartTime;
    std::vector<app_row> rows;
    for (int ssid = 1; ssid <= 10; ++ssid)
        for (int a = 0; a < 100; ++a)
            rows.push_back({now - 60, "app" + std::to_string(a), ssid,
                            static_cast<uint64_t>(a * 10 + ssid), 1, 1});
    add_app_rows(tallyd_db_set.db, "avp_ap_ssid_hour", rows);
    ASSERT_EQ(tallyd_get_attr_count(tallyd_db_set.db, "avp_ap_ssid_hour", "ssid", now - 3587), 10);
    EXPECT_EQ(tallyd_get_attr_count(tallyd_db_set.db, "avp_ap_ssid_hour", "ssid", now), 0);

    // Default platform: 800 rows / 10 SSIDs, each keeping its largest 80.
    ASSERT_EQ(tallyd_pre_handle_avp_ssid(4, "avp_ap_ssid_hour", "avp_ssid_backup", now,
                                         tallyd_db_set.db, tallyd_db_set.backup_hour_db),
              0);
    sqlite3 *backup = tallyd_db_set.backup_hour_db;
    EXPECT_EQ(query(backup,
                    "SELECT ssid, count(*), min(uplink) FROM avp_ssid_backup GROUP BY "
                    "ssid HAVING count(*)<>80 OR min(uplink)<>200+ssid"),
              rows_t{});
    EXPECT_EQ(scalar(backup, "SELECT count(DISTINCT ssid) FROM avp_ssid_backup"), 10);

    // Class 3 (3200 rows): every application of every SSID fits.
    tallyd_sys_info.platform_class = 3;
    exec(backup, "DELETE FROM avp_ssid_backup");
    tallyd_pre_handle_avp_ssid(4, "avp_ap_ssid_hour", "avp_ssid_backup", now, tallyd_db_set.db,
                               backup);
    EXPECT_EQ(scalar(backup, "SELECT count(*) FROM avp_ssid_backup"), 1000);

    // No SSID since the range start: no statement at all runs on the target.
    int statements = 0;
    sqlite3_trace_v2(
        backup, SQLITE_TRACE_STMT,
        [](unsigned, void *n, void *, void *) {
            ++*static_cast<int *>(n);
            return 0;
        },
        &statements);
    EXPECT_EQ(tallyd_pre_handle_avp_ssid(4, "avp_ap_ssid_hour", "avp_ssid_backup", now + 4000,
                                         tallyd_db_set.db, backup),
              0);
    sqlite3_trace_v2(backup, 0, nullptr, nullptr);
    EXPECT_EQ(statements, 0);
}

TEST_F(rollup_test, DayTaskSumsTheBackupsAndStartsAFreshBackup) {
    const uint32_t now = kStartTime;
    // The whole backup table is summed, also rows older than one day period.
    const std::vector<app_row> rows = {
        {now - 9000, "http", 1, 5, 5, 1},       {now - 3587, "http", 1, 10, 20, 1},
        {now - 10, "http", 1, 1, 2, 1},         {now - 10, "http", 2, 3, 4, 2},
        {now - 10, "dns", 2, 6000000000, 1, 1},
    };
    add_app_rows(tallyd_db_set.backup_hour_db, "avp_ssid_backup", rows);
    add_client_rows(tallyd_db_set.backup_hour_db, "avp_top_client_backup",
                    {{std::to_string(now - 3587), "001122334455", "1", "1", "100"},
                     {std::to_string(now - 10), "001122334455", "1", "2", "50"}});
    add_app_rows(tallyd_db_set.db, "avp_ssid_day",
                 {{now - 86101, "old", 1, 1, 1, 1}, {now - 86099, "kept", 1, 1, 1, 1}});
    tallyd_sys_info.last_backup_time = now - 10;

    tallyd_pre_handle_day(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_day));
    EXPECT_EQ(tallyd_sys_info.day_stamp, now);
    EXPECT_EQ(tallyd_sys_info.last_backup_time, 0u);
    sqlite3 *db = tallyd_db_set.db;
    row_set expected = expect_ssid_sums(rows, 0, now + 1, now);
    expected.insert({std::to_string(now - 86099), "kept", "80", "1", "1", "1", "1"});
    EXPECT_EQ(as_set(query(db, std::string(kSsidCols) + "avp_ssid_day")), expected);
    // One row per client and AP (its SSID taken from one of the rows); the
    // backup marker (total 0) is not carried over, the day table's own
    // marker from its creation stays.
    EXPECT_EQ(as_set(query(db, "SELECT time, client_mac, ap_mac, total FROM avp_top_client_day")),
              (row_set{{std::to_string(now), "001122334455", "1", "150"},
                       {std::to_string(kStartTime), "---", "0", "0"}}));
    EXPECT_EQ(scalar(db, "SELECT count(*) FROM avp_top_client_day WHERE ssid IN (1, 2)"), 1);

    // A fresh backup database: empty but for a new marker row.
    sqlite3 *backup = tallyd_db_set.backup_hour_db;
    ASSERT_NE(backup, nullptr);
    EXPECT_EQ(scalar(backup, "SELECT count(*) FROM avp_ssid_backup"), 0);
    EXPECT_EQ(query(backup, "SELECT time, client_mac FROM avp_top_client_backup"),
              (rows_t{{std::to_string(now), "---"}}));
}

TEST_F(rollup_test, DayStampKeepsItsPeriodWithinTwoMinutes) {
    const uint32_t t = kStartTime;
    tallyd_pre_handle_day(nullptr, nullptr);
    EXPECT_EQ(tallyd_sys_info.day_stamp, t);
    tallyd_clock_advance(7217 + 100);  // 100 s late: keeps advancing
    tallyd_pre_handle_day(nullptr, nullptr);
    EXPECT_EQ(tallyd_sys_info.day_stamp, t + 7217);
    tallyd_clock_advance(7217 + 20);  // now 120 s behind: still kept
    tallyd_pre_handle_day(nullptr, nullptr);
    EXPECT_EQ(tallyd_sys_info.day_stamp, t + 2 * 7217);
    tallyd_clock_advance(7217 + 1);  // 121 s: reset to the clock
    tallyd_pre_handle_day(nullptr, nullptr);
    EXPECT_EQ(tallyd_sys_info.day_stamp, t + 3 * 7217 + 121);
    tallyd_clock_advance(-50000);  // clock stepped back
    tallyd_pre_handle_day(nullptr, nullptr);
    EXPECT_EQ(tallyd_sys_info.day_stamp, t + 3 * 7217 + 121 - 50000);
}

TEST_F(rollup_test, MalformedDatabasesOfTheDailyPathAreRebuilt) {
    const uint32_t now = kStartTime;
    add_app_rows(tallyd_db_set.db, "avp_ap_ssid_hour", {{now - 60, "http", 1, 1, 1, 1}});
    corrupt_table(&tallyd_db_set.backup_hour_db, "/tmp/tallyd/avp_backup_hour.db",
                  "avp_ssid_backup");
    tallyd_pre_backup_day(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_backup_day));
    EXPECT_TRUE(
        logged(LOG_ERR, "tallyd, INSERT avp_ssid aErrMsg = database disk image is malformed\n"));
    EXPECT_EQ(log_count("recover hour and day tables"), 1);  // mask 33: db and the backup
    ASSERT_NE(tallyd_db_set.backup_hour_db, nullptr);
    EXPECT_EQ(scalar(tallyd_db_set.backup_hour_db, "SELECT count(*) FROM avp_ssid_backup"), 0);

    // In the day task the rollup rebuilds db and the backup (mask 34), and
    // the failed run rebuilds db once more; last_backup_time stays.
    add_app_rows(tallyd_db_set.backup_hour_db, "avp_ssid_backup", {{now - 60, "http", 1, 1, 1, 1}});
    corrupt_table(&tallyd_db_set.db, "/tmp/tallyd/avp_1.0.db", "avp_ssid_day");
    tallyd_sys_info.last_backup_time = now;
    log_.clear();
    tallyd_pre_handle_day(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_day));
    EXPECT_EQ(log_count("recover hour and day tables"), 2) << log_dump();
    EXPECT_EQ(tallyd_sys_info.last_backup_time, now);
    ASSERT_NE(tallyd_db_set.db, nullptr);
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(*) FROM avp_ssid_day"), 0);
}
