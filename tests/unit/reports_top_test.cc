#include <algorithm>
#include <filesystem>
#include <numeric>

#include "base/sys_info.h"
#include "db/recover.h"
#include "entity/dict.h"
#include "ipc/msg_ids.h"
#include "reports/top_summary.h"
#include "reports/usage.h"
#include "reports_fixture.h"
#include "support/db_corrupt.h"

using namespace report_wire;

namespace {

class TopSummary : public report_test {
   protected:
    bytes_t top(uint32_t period, uint32_t flag) {
        return ask(tallyd_get_top_summary, TALLYD_MSG_GET_TOP_SUMMARY,
                   build_top({.type = 7, .period = period, .flag = flag}));
    }
    // Hour traffic: per application (uplink, downlink) and per client total.
    void hour_apps(const rows_t &rows) { insert(db(), "avp_all_group_hour", rows); }
    void hour_clients(const rows_t &rows) { insert(db(), "avp_top_client_hour", rows); }
    bool scratch_tables_left() {
        return !query(tallyd_db_set.top_list_db,
                      "SELECT name FROM sqlite_master WHERE type='table'")
                    .empty();
    }
};

TEST_F(TopSummary, HourApplicationsAreRankedWithSharesOfAllClientTraffic) {
    hour_clients({{"100", "aabbccddeeff", "1", "1", "10000"}});
    hour_apps({{"100", "web", "80", "1000", "2000", "1"},
               {"100", "web", "80", "500", "500", "2"},  // same app, other group: summed
               {"100", "", "0", "300", "0", "1"},
               {"100", "Bob's app", "1", "10", "20", "1"},
               {"100", "idle", "1", "0", "0", "1"}});
    const bytes_t d = top(kPeriodHour, kFlagApps);
    ASSERT_EQ(kTopApps.data_size, d.size());
    ASSERT_EQ(4u, filled(d, kTopApps));  // the idle group sorts last and is sent with 0
    EXPECT_EQ("web", text(d, kTopApps, 0, kAppName));
    EXPECT_EQ(4000u, num(d, kTopApps, 0, kAppBytes));
    EXPECT_EQ(4000u, num(d, kTopApps, 0, kAppShare));  // 40.00% of the client total
    EXPECT_EQ("Miscellaneous", text(d, kTopApps, 1, kAppName));
    EXPECT_EQ(300u, num(d, kTopApps, 1, kAppShare));
    EXPECT_EQ("Bob's app", text(d, kTopApps, 2, kAppName));
    EXPECT_EQ(30u, num(d, kTopApps, 2, kAppShare));
    EXPECT_EQ("idle", text(d, kTopApps, 3, kAppName));
    EXPECT_FALSE(scratch_tables_left());
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, get top summary, period = 0, flag = 0X1, type = 7\n"));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, hour total = 10000\n"));
}

TEST_F(TopSummary, TenEqualGroupsShareEquallyAndTheArrayIsAlwaysFull) {
    rows_t apps;
    for (int i = 0; i < 12; ++i)
        apps.push_back({"100", "app" + std::to_string(i), "1", "50", "50", "1"});
    hour_apps(apps);
    hour_clients({{"100", "aabbccddeeff", "1", "1", "1000"}});
    bytes_t d = top(kPeriodHour, kFlagApps);
    ASSERT_EQ(10u, filled(d, kTopApps));
    for (size_t i = 0; i < 10; ++i) EXPECT_EQ(1000u, num(d, kTopApps, i, kAppShare));

    // Fewer groups: the same 1,440 bytes, zeros after the last record.
    exec(db(), "DELETE FROM avp_all_group_hour WHERE app <> 'app0'");
    d = top(kPeriodHour, kFlagApps);
    EXPECT_EQ(kTopApps.data_size, d.size());
    EXPECT_EQ(1u, filled(d, kTopApps));
}

TEST_F(TopSummary, DayAddsDayBackupAndHourRowsNewerThanTheLastBackup) {
    tallyd_sys_info.last_backup_time = 500;
    insert(db(), "avp_top_client_day", {{"10", "aabbccddeeff", "1", "1", "4000"}});
    insert(tallyd_db_set.backup_hour_db, "avp_top_client_backup",
           {{"400", "aabbccddeeff", "1", "1", "3000"}, {"400", "112233445566", "2", "2", "1000"}});
    hour_clients({{"400", "aabbccddeeff", "1", "1", "700"},  // folded into the backup already
                  {"600", "112233445566", "2", "2", "2000"}});
    insert(db(), "avp_ssid_day", {{"10", "mail", "25", "1", "1000", "1000", "1"}});
    insert(tallyd_db_set.backup_hour_db, "avp_ssid_backup",
           {{"400", "mail", "25", "1", "500", "500", "1"},
            {"400", "web", "80", "2", "10", "10", "1"}});
    hour_apps({{"400", "web", "80", "100", "100", "1"}, {"600", "web", "80", "400", "0", "1"}});

    bytes_t d = top(kPeriodDay, kFlagApps);
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, day total_d = 4000, total_h = 2000, total_bk = 4000\n"));
    ASSERT_EQ(2u, filled(d, kTopApps));
    EXPECT_EQ("mail", text(d, kTopApps, 0, kAppName));
    EXPECT_EQ(3000u, num(d, kTopApps, 0, kAppBytes));
    EXPECT_EQ(3000u, num(d, kTopApps, 0, kAppShare));
    EXPECT_EQ("web", text(d, kTopApps, 1, kAppName));  // newer hour rows only: 400 + 20
    EXPECT_EQ(420u, num(d, kTopApps, 1, kAppBytes));

    d = top(kPeriodDay, kFlagClients);
    ASSERT_EQ(2u, filled(d, kTopClients));
    EXPECT_EQ("aa:bb:cc:dd:ee:ff", text(d, kTopClients, 0, kClientMac));
    EXPECT_EQ(7000u, num(d, kTopClients, 0, kClientBytes));
    EXPECT_EQ(3000u, num(d, kTopClients, 1, kClientBytes));
    EXPECT_EQ(10000u, wire_get_num(d, kClientsTotal));
    EXPECT_FALSE(scratch_tables_left());

    // No backup run yet: every hour row counts.
    tallyd_sys_info.last_backup_time = 0;
    d = top(kPeriodDay, kFlagClients);
    EXPECT_EQ(7700u, num(d, kTopClients, 0, kClientBytes));
}

TEST_F(TopSummary, AccessPointsCarryConfigurationAndCumulativeDayClientCounts) {
    ASSERT_EQ(1, tallyd_avp_ap_mapping("00:aa:00:00:00:01"));
    ASSERT_EQ(2, tallyd_avp_ap_mapping("00:aa:00:00:00:02"));
    write_file("/etc/corvane/xrepo/ap-list.xml",
               "<ap-list><ap mac=\"00:aa:00:00:00:02\" devname=\"lobby\" location=\"ground "
               "floor\"/></ap-list>");
    hour_clients({{"100", "c1", "1", "1", "500"},
                  {"100", "c2", "1", "1", "400"},
                  {"100", "c1", "2", "1", "300"},
                  {"100", "c3", "2", "1", "900"},
                  {"100", "c9", "7", "1", "10"}});  // an AP the dictionary does not know
    bytes_t d = top(kPeriodHour, kFlagAps);
    ASSERT_EQ(kTopAps.data_size, d.size());
    ASSERT_EQ(3u, filled(d, kTopAps));
    EXPECT_EQ("00:aa:00:00:00:02", text(d, kTopAps, 0, kApMac));
    EXPECT_EQ(1200u, num(d, kTopAps, 0, kApBytes));
    EXPECT_EQ(2u, num(d, kTopAps, 0, kApClients));
    EXPECT_EQ("lobby", text(d, kTopAps, 0, kApDevname));
    EXPECT_EQ("ground floor", text(d, kTopAps, 0, kApLocation));
    EXPECT_EQ("00:aa:00:00:00:01", text(d, kTopAps, 1, kApMac));
    EXPECT_EQ(2u, num(d, kTopAps, 1, kApClients));
    EXPECT_EQ("", text(d, kTopAps, 1, kApDevname));
    EXPECT_EQ("", text(d, kTopAps, 2, kApMac));
    EXPECT_EQ(10u, num(d, kTopAps, 2, kApBytes));

    // The day counts gather into one list: each AP adds its clients to
    // those of the APs before it.
    insert(db(), "avp_top_client_day", {{"10", "c4", "1", "1", "50"}});
    d = top(kPeriodDay, kFlagAps);
    EXPECT_EQ(2u, num(d, kTopAps, 0, kApClients));  // c1 c3
    EXPECT_EQ(4u, num(d, kTopAps, 1, kApClients));  // + c2 c4
    EXPECT_EQ(5u, num(d, kTopAps, 2, kApClients));  // + c9

    // Without "ap-list" the AP list sends no data at all.
    std::filesystem::remove(path("/etc/corvane/xrepo/ap-list.xml"));
    EXPECT_TRUE(top(kPeriodHour, kFlagAps).empty());
}

TEST_F(TopSummary, SsidsCarryTheirEncryptionOrOpen) {
    ASSERT_EQ(1, tallyd_avp_ssid_mapping("corp"));
    ASSERT_EQ(2, tallyd_avp_ssid_mapping("guest"));
    write_file("/etc/corvane/xrepo/wlansvc-list.xml",
               "<wlansvc-list><wlan id=\"1\" ssid=\"corp\" encryption=\"wpa2-enterprise-x\"/>"
               "</wlansvc-list>");
    insert(db(), "avp_ap_ssid_hour",
           {{"100", "web", "80", "1", "1", "600", "400", "1"},
            {"100", "web", "80", "1", "2", "100", "100", "1"}});
    hour_clients({{"100", "c1", "1", "1", "1000"},
                  {"100", "c2", "1", "1", "500"},
                  {"100", "c3", "1", "2", "500"}});
    const bytes_t d = top(kPeriodHour, kFlagSsids);
    ASSERT_EQ(kTopSsids.data_size, d.size());
    EXPECT_EQ("corp", text(d, kTopSsids, 0, kSsidName));
    EXPECT_EQ("wpa2-enterprise", text(d, kTopSsids, 0, kSsidEncryption));  // 15 characters
    EXPECT_EQ(2u, num(d, kTopSsids, 0, kSsidClients));
    EXPECT_EQ(5000u, num(d, kTopSsids, 0, kSsidShare));
    EXPECT_EQ("guest", text(d, kTopSsids, 1, kSsidName));
    EXPECT_EQ("Open", text(d, kTopSsids, 1, kSsidEncryption));
    EXPECT_EQ(1u, num(d, kTopSsids, 1, kSsidClients));
}

TEST_F(TopSummary, ClientsCarryTheirDirectoryDetails) {
    const int32_t phone = tallyd_avp_dvcinfo_mapping("phone");
    write_file("/etc/corvane/xrepo/sta-rename-list.xml",
               "<sta-rename-list><sta mac=\"aa:bb:cc:dd:ee:01\" rename=\"Ann's phone\"/>"
               "</sta-rename-list>");
    hour_clients({{"100", "AABBCCDDEE01", "1", "1", "900"},
                  {"100", "aabbccddee02", "1", "1", "600"},
                  {"100", "aabbccddee03", "1", "1", "300"}});
    sql_conn &st = tallyd_db_set.statistic_db;
    const std::string cols =
        "statis_client_info_h(time, client_mac, dvcinfo_id, ip, ip6, host_name, channel, "
        "user_name, active)";
    insert(st, cols,
           {{"20", "aa:bb:cc:dd:ee:01", std::to_string(phone), "10.0.0.1", "fe80::1", "#", "6",
             "ann", "1"},
            {"10", "aa:bb:cc:dd:ee:01", "0", "10.0.0.9", "", "older", "6", "x", "0"},
            {"10", "aa:bb:cc:dd:ee:02", "9999", "10.0.0.2", "", "lost", "1", "bob", "1"}});
    insert(st, "statis_client_info_d(time, client_mac, dvcinfo_id, ip, host_name, active)",
           {{"5", "aa:bb:cc:dd:ee:02", "0", "10.0.0.22", "daily", "1"}});

    const bytes_t d = top(kPeriodHour, kFlagClients);
    ASSERT_EQ(3u, filled(d, kTopClients));
    // The oldest row of the hour directory: no device type, its own name.
    EXPECT_EQ("aa:bb:cc:dd:ee:01", text(d, kTopClients, 0, kClientMac));
    EXPECT_EQ("", text(d, kTopClients, 0, kClientDevice));
    EXPECT_EQ("older", text(d, kTopClients, 0, kClientHost));
    EXPECT_EQ("10.0.0.9", text(d, kTopClients, 0, kClientIp));
    EXPECT_EQ(0u, num(d, kTopClients, 0, kClientActive));
    // An unknown device type ends the hour row: the day directory answers.
    EXPECT_EQ("daily", text(d, kTopClients, 1, kClientHost));
    EXPECT_EQ("10.0.0.22", text(d, kTopClients, 1, kClientIp));
    EXPECT_EQ("", text(d, kTopClients, 2, kClientHost));
    EXPECT_EQ(1800u, wire_get_num(d, kClientsTotal));

    // The renamed client's "#" row is the oldest once the other goes.
    exec(st, "DELETE FROM statis_client_info_h WHERE host_name='older'");
    const bytes_t r = top(kPeriodHour, kFlagClients);
    EXPECT_EQ("phone", text(r, kTopClients, 0, kClientDevice));
    EXPECT_EQ("Ann's phone", text(r, kTopClients, 0, kClientHost));
    EXPECT_EQ("fe80::1", text(r, kTopClients, 0, kClientIp6));
    EXPECT_EQ("ann", text(r, kTopClients, 0, kClientUser));
    EXPECT_EQ(1u, num(r, kTopClients, 0, kClientActive));
    EXPECT_EQ(5000u, num(r, kTopClients, 0, kClientShare));

    // The same list answers a clients summary of type 2, for the hour.
    const bytes_t t2 =
        ask(tallyd_get_clients_summary, TALLYD_MSG_GET_CLIENTS_SUMMARY,
            build_usage({.client_type = kClientAll, .period = kUsageDay, .type = kTypeTopClients}));
    EXPECT_EQ(r, t2);
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, received msg to get clients summary, type=2\n"));
}

TEST_F(TopSummary, BadRequestsGetExactlyOneEmptyOrPartialReply) {
    // No traffic, unknown periods, a request of the header alone.
    EXPECT_TRUE(top(kPeriodHour, kFlagApps).empty());
    hour_clients({{"100", "aabbccddee01", "1", "1", "100"}});
    hour_apps({{"100", "web", "80", "10", "10", "1"}});
    EXPECT_TRUE(top(2, kFlagApps).empty());
    EXPECT_TRUE(top(0xffffffff, kFlagApps).empty());
    EXPECT_TRUE(ask(tallyd_get_top_summary, TALLYD_MSG_GET_TOP_SUMMARY, bytes_t(12)).empty());
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, Incorrect flag = 0\n"));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, failed to create table...\n"));

    // Several bits: the last list built is what is sent.
    EXPECT_EQ(kTopClients.data_size, top(kPeriodHour, kFlagApps | kFlagClients).size());
    EXPECT_EQ(kTopSsids.data_size, top(kPeriodHour, kFlagAps | kFlagSsids).size());
    EXPECT_EQ(kTopAps.data_size, top(kPeriodHour, kFlagApps | kFlagAps).size());
    EXPECT_FALSE(scratch_tables_left());

    // A scratch table left behind: that flag is refused until it goes.
    exec(tallyd_db_set.top_list_db, "CREATE TABLE top_app_list(id, app, uplink, downlink)");
    EXPECT_TRUE(top(kPeriodHour, kFlagApps).empty());
    EXPECT_EQ(kTopClients.data_size, top(kPeriodHour, kFlagClients).size());
    exec(tallyd_db_set.top_list_db, "DROP TABLE top_app_list");
    EXPECT_EQ(kTopApps.data_size, top(kPeriodHour, kFlagApps).size());
}

TEST_F(TopSummary, AMalformedDatabaseIsRebuiltAndTheReplyStillSent) {
    hour_clients({{"100", "aabbccddee01", "1", "1", "100"}});
    ASSERT_TRUE(corrupt_table(tallyd_db_set.db, path("/tmp/tallyd/avp_1.0.db").c_str(),
                              "avp_top_client_hour"));
    EXPECT_TRUE(top(kPeriodHour, kFlagApps).empty());
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, recover hour and day tables from malformed\n"))
        << log_dump();
    EXPECT_EQ(0, count_rows(db(), "avp_top_client_hour"));  // a fresh file

    // The next request is served from the new file.
    hour_clients({{"100", "aabbccddee01", "1", "1", "100"}});
    EXPECT_EQ(kTopClients.data_size, top(kPeriodHour, kFlagClients).size());
}

}  // namespace
