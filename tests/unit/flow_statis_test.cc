// The client statistics rollup and the statistics purge task.
#include "flow/client_statis.h"
#include "flow/statis_task.h"
#include "flow_rollup_fixture.h"

namespace {

constexpr uint32_t kT0 = 1700000000;  // the fixture's pinned clock

// Hourly identity rows: (time, mac, ap, ssid, apgroup, host name); the other
// columns are the same for every client.
void add_hourly(const rows_t &rows) {
    rows_t full;
    for (const auto &r : rows)
        full.push_back({r[0], r[1], r[2], r[3], "4", r[4], "5", "10.0.0.9", "fe80::1", r[5], "10",
                        "36", "1", "2", "wpa2", "o'neil", "1"});
    FlowRollup::insert(tallyd_db_set.statistic_db, "statis_client_info_h", full);
}

int rollup(uint32_t now, int32_t mode = 1) {
    return tallyd_pre_handle_client_statis_info(mode, tallyd_table::statis_client_info_h,
                                                tallyd_table::statis_client_info_d,
                                                tallyd_db_set.statistic_db, now);
}

}  // namespace

TEST_F(FlowRollup, ClientIdentitiesKeepOneDailyRowPerAssociation) {
    const std::string t = std::to_string(kT0);
    add_hourly({{t, "00:11:22:33:44:55", "1", "1", "1", "guest's tablet"},
                {t, "00:11:22:33:44:55", "1", "1", "1", "guest's tablet"},
                {t, "66:77:88:99:aa:bb", "2", "1", "1", "printer"}});
    sql_conn &stat = tallyd_db_set.statistic_db;
    EXPECT_EQ(rollup(kT0, 0), 0);
    EXPECT_EQ(scalar(stat, "SELECT count(*) FROM statis_client_info_d"), 0);

    EXPECT_EQ(rollup(kT0), 0);
    EXPECT_EQ(query(stat, "SELECT * FROM statis_client_info_d ORDER BY client_mac"),
              (rows_t{{t, "00:11:22:33:44:55", "1", "1", "4", "1", "5", "10.0.0.9", "fe80::1",
                       "guest's tablet", "10", "36", "1", "2", "wpa2", "o'neil", "1"},
                      {t, "66:77:88:99:aa:bb", "2", "1", "4", "1", "5", "10.0.0.9", "fe80::1",
                       "printer", "10", "36", "1", "2", "wpa2", "o'neil", "1"}}));
    EXPECT_EQ(scalar(stat,
                     "SELECT count(*) FROM statis_client_info_d WHERE typeof(ap_id)<>"
                     "'integer' OR typeof(host_name)<>'text' OR typeof(time)<>'integer'"),
              0);

    // Seen again: only the time moves; identity columns stay as first stored.
    exec(stat, "UPDATE statis_client_info_h SET host_name='renamed'");
    EXPECT_EQ(rollup(kT0 + 600), 0);
    const std::string t2 = std::to_string(kT0 + 600);
    EXPECT_EQ(query(stat, "SELECT time, host_name FROM statis_client_info_d ORDER BY client_mac"),
              (rows_t{{t2, "guest's tablet"}, {t2, "printer"}}));

    // The same client, AP and SSID under another AP group: a second row.
    exec(stat, "UPDATE statis_client_info_h SET apgroup_id=3 WHERE ap_id=2");
    EXPECT_EQ(rollup(kT0 + 900), 0);
    EXPECT_EQ(query(stat, "SELECT host_name FROM statis_client_info_d ORDER BY apgroup_id"),
              (rows_t{{"guest's tablet"}, {"printer"}, {"renamed"}}));
}

TEST_F(FlowRollup, ClientStatisticsFailuresShowTheStatementsAndRebuildWhenMalformed) {
    add_hourly({{std::to_string(kT0), "00:11:22:33:44:55", "1", "2", "3", "guest's tablet"}});
    exec(tallyd_db_set.statistic_db, "DROP TABLE statis_client_info_d");
    EXPECT_EQ(rollup(kT0), 0);
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

    // A malformed target: statistic_db is built anew (mask 16).
    exec(tallyd_db_set.statistic_db,
         "CREATE TABLE statis_client_info_d(time, client_mac, ap_id, ssid_id, apgroup_id)");
    corrupt(tallyd_db_set.statistic_db, "/tmp/tallyd/statistic.db", "statis_client_info_d");
    EXPECT_EQ(rollup(kT0), -1);
    EXPECT_EQ(scalar(tallyd_db_set.statistic_db, "SELECT count(*) FROM statis_client_info_h"), 0);
    EXPECT_EQ(query(tallyd_db_set.statistic_db, "SELECT client_mac FROM statis_client_d"),
              (rows_t{{"---"}}));
}

TEST_F(FlowRollup, StatisticsTaskPurgesDailyRowsAndEndsWithoutItsDatabase) {
    sql_conn &stat = tallyd_db_set.statistic_db;
    tallyd_clock_advance(5);
    exec(stat, "INSERT INTO statis_client_d(time, client_mac) VALUES(" +
                   std::to_string(kT0 + 5 - 86401) + ", 'old'), (" +
                   std::to_string(kT0 + 5 - 86399) + ", 'recent')");
    add_hourly({{std::to_string(kT0 - 10), "00:11:22:33:44:55", "1", "2", "3", "tablet"}});

    tallyd_pre_handle_statis(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_statis));
    EXPECT_EQ(tallyd_sys_info.last_statis_time, kT0 + 5);
    EXPECT_EQ(query(stat, "SELECT client_mac FROM statis_client_d WHERE client_mac<>'---'"),
              (rows_t{{"recent"}}));
    EXPECT_EQ(query(stat, "SELECT time, client_mac FROM statis_client_info_d"),
              (rows_t{{std::to_string(kT0 + 5), "00:11:22:33:44:55"}}));

    // Once statistic_db is closed the task neither works nor re-arms.
    tallyd_db_set.statistic_db.close();
    tallyd_clock_advance(3595);
    tallyd_pre_handle_statis(nullptr, nullptr);
    EXPECT_FALSE(armed(tallyd_pre_handle_statis));
    EXPECT_EQ(tallyd_sys_info.last_statis_time, kT0 + 5);
}
