// The client statistics rollup and the statistics purge task.
#include "flow/client_statis.h"
#include "flow/tasks.h"
#include "flow_rollup_fixture.h"

namespace {

struct client_info {
    uint32_t time;
    std::string mac;
    int ap, ssid, apgroup;
    std::string host;
};

void add_hourly(const std::vector<client_info> &rows) {
    sql_stmt s = sql_prepare(
        tallyd_db_set.statistic_db,
        "INSERT INTO statis_client_info_h(time, client_mac, ap_id, ssid_id, dvcinfo_id, "
        "apgroup_id, wlangroup_id, ip, ip6, host_name, vlan, channel, radio, status, auth_type, "
        "user_name, active) VALUES(?, ?, ?, ?, 4, ?, 5, '10.0.0.9', 'fe80::1', ?, 10, 36, 1, 2, "
        "'wpa2', 'o''neil', 1)");
    ASSERT_TRUE(s);
    for (const auto &r : rows) {
        s.bind(1, int64_t{r.time});
        s.bind(2, r.mac);
        s.bind(3, int64_t{r.ap});
        s.bind(4, int64_t{r.ssid});
        s.bind(5, int64_t{r.apgroup});
        s.bind(6, r.host);
        ASSERT_EQ(s.run(), SQLITE_OK);
    }
}

int rollup(uint32_t now, int32_t mode = 1) {
    return tallyd_pre_handle_client_statis_info(
        mode, "statis_client_info_h", "statis_client_info_d", tallyd_db_set.statistic_db, now);
}

const char *kDaily =
    "SELECT time, client_mac, ap_id, ssid_id, dvcinfo_id, apgroup_id, wlangroup_id, ip, ip6, "
    "host_name, vlan, channel, radio, status, auth_type, user_name, active "
    "FROM statis_client_info_d ORDER BY client_mac, apgroup_id";

}  // namespace

TEST_F(rollup_test, ClientIdentitiesKeepOneDailyRowPerAssociation) {
    const uint32_t t = kStartTime;
    add_hourly({{t - 600, "00:11:22:33:44:55", 1, 1, 1, "guest's tablet"},
                {t - 300, "00:11:22:33:44:55", 1, 1, 1, "guest's tablet"},
                {t - 300, "66:77:88:99:aa:bb", 2, 1, 1, "printer"}});
    sqlite3 *stat = tallyd_db_set.statistic_db;
    EXPECT_EQ(rollup(t, 0), 0);
    EXPECT_EQ(scalar(stat, "SELECT count(*) FROM statis_client_info_d"), 0);

    EXPECT_EQ(rollup(t), 0);
    const std::string now = std::to_string(t);
    EXPECT_EQ(query(stat, kDaily),
              (rows_t{{now, "00:11:22:33:44:55", "1", "1", "4", "1", "5", "10.0.0.9", "fe80::1",
                       "guest's tablet", "10", "36", "1", "2", "wpa2", "o'neil", "1"},
                      {now, "66:77:88:99:aa:bb", "2", "1", "4", "1", "5", "10.0.0.9", "fe80::1",
                       "printer", "10", "36", "1", "2", "wpa2", "o'neil", "1"}}));
    EXPECT_EQ(scalar(stat,
                     "SELECT count(*) FROM statis_client_info_d WHERE typeof(ap_id)<>"
                     "'integer' OR typeof(host_name)<>'text' OR typeof(time)<>'integer'"),
              0);

    // Seen again: only the time moves, identity columns stay as first stored.
    exec(stat, "UPDATE statis_client_info_h SET host_name='renamed'");
    EXPECT_EQ(rollup(t + 600), 0);
    EXPECT_EQ(query(stat, "SELECT time, host_name FROM statis_client_info_d ORDER BY client_mac"),
              (rows_t{{std::to_string(t + 600), "guest's tablet"},
                      {std::to_string(t + 600), "printer"}}));

    // The same client, AP and SSID under another AP group: a second row.
    exec(stat, "UPDATE statis_client_info_h SET apgroup_id=3 WHERE ap_id=2");
    EXPECT_EQ(rollup(t + 900), 0);
    EXPECT_EQ(scalar(stat, "SELECT count(*) FROM statis_client_info_d"), 3);
    EXPECT_EQ(query(stat, "SELECT time, host_name FROM statis_client_info_d WHERE apgroup_id=3"),
              (rows_t{{std::to_string(t + 900), "renamed"}}));
}

TEST_F(rollup_test, ClientStatisticsFailuresShowTheStatementsAsPrinted) {
    add_hourly({{kStartTime, "00:11:22:33:44:55", 1, 2, 3, "guest's tablet"}});
    exec(tallyd_db_set.statistic_db, "DROP TABLE statis_client_info_d");
    EXPECT_EQ(rollup(kStartTime), 0);
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, value = SELECT client_mac FROM statis_client_info_d \nWHERE "
                       "client_mac='00:11:22:33:44:55' AND ap_id=1 AND ssid_id=2 AND apgroup_id=3, "
                       "aErrMsg = no such table: statis_client_info_d\n"));
    EXPECT_TRUE(logged(
        LOG_ERR,
        "tallyd, value = INSERT INTO statis_client_info_d(\ntime, client_mac, ap_id, ssid_id, "
        "dvcinfo_id, apgroup_id, wlangroup_id, \nip, ip6, host_name, vlan, channel, radio, "
        "\nstatus, auth_type, user_name, active) \nVALUES(1700000000, '00:11:22:33:44:55', 1, 2, "
        "4, 3, 5, \n'10.0.0.9', 'fe80::1', 'guest''s tablet', 10, 36, 1, \n2, 'wpa2', 'o''neil', "
        "1), aErrMsg = no such table: statis_client_info_d\n"))
        << log_dump();
}

TEST_F(rollup_test, MalformedStatisticDbIsRebuilt) {
    add_hourly({{kStartTime, "00:11:22:33:44:55", 1, 2, 3, "tablet"}});
    exec(tallyd_db_set.statistic_db,
         "INSERT INTO statis_client_info_d(time, client_mac) VALUES(1, 'x')");
    corrupt_table(&tallyd_db_set.statistic_db, "/tmp/tallyd/statistic.db", "statis_client_info_d");
    EXPECT_EQ(rollup(kStartTime), -1);
    ASSERT_NE(tallyd_db_set.statistic_db, nullptr);
    EXPECT_EQ(scalar(tallyd_db_set.statistic_db, "SELECT count(*) FROM statis_client_info_h"), 0);
    EXPECT_EQ(query(tallyd_db_set.statistic_db, "SELECT client_mac FROM statis_client_d"),
              (rows_t{{"---"}}));
}

TEST_F(rollup_test, StatisticsTaskPurgesDailyRowsAndEndsWithoutItsDatabase) {
    sqlite3 *stat = tallyd_db_set.statistic_db;
    exec(stat, "INSERT INTO statis_client_d(time, client_mac) VALUES(" +
                   std::to_string(kStartTime + 5 - 86401) + ", 'old')");
    exec(stat, "INSERT INTO statis_client_d(time, client_mac) VALUES(" +
                   std::to_string(kStartTime + 5 - 86399) + ", 'recent')");
    add_hourly({{kStartTime - 10, "00:11:22:33:44:55", 1, 2, 3, "tablet"}});
    tallyd_clock_advance(5);

    tallyd_pre_handle_statis(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_statis));
    EXPECT_EQ(tallyd_sys_info.last_statis_time, kStartTime + 5);
    EXPECT_EQ(query(stat, "SELECT client_mac FROM statis_client_d WHERE client_mac<>'---'"),
              (rows_t{{"recent"}}));
    EXPECT_EQ(query(stat, "SELECT time, client_mac FROM statis_client_info_d"),
              (rows_t{{std::to_string(kStartTime + 5), "00:11:22:33:44:55"}}));

    // Once statistic_db is closed the task neither works nor re-arms.
    sql_close(&tallyd_db_set.statistic_db);
    tallyd_clock_advance(3595);
    tallyd_pre_handle_statis(nullptr, nullptr);
    EXPECT_FALSE(armed(tallyd_pre_handle_statis));
    EXPECT_EQ(tallyd_sys_info.last_statis_time, kStartTime + 5);
}
