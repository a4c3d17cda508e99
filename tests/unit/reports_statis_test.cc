#include <sys/socket.h>

#include "base/clock.h"
#include "db/recover.h"
#include "ipc/msg_ids.h"
#include "reports/client_list.h"
#include "reports/statis_chart.h"
#include "reports/statis_summary.h"
#include "reports/statis_wire.h"
#include "reports_fixture.h"
#include "support/db_corrupt.h"

using namespace report_wire;

namespace {

constexpr uint32_t kNow = 1800000000;

class StatisReports : public report_test {
   protected:
    void SetUp() override {
        report_test::SetUp();
        tallyd_clock_set(kNow);
        ap1 = tallyd_avp_ap_mapping("00:11:22:33:44:01");
        ap2 = tallyd_avp_ap_mapping("00:11:22:33:44:02");
        corp = tallyd_avp_ssid_mapping("corp");
        guest = tallyd_avp_ssid_mapping("guest's");
        phone = tallyd_avp_dvcinfo_mapping("phone");
    }
    void TearDown() override {
        tallyd_clock_release();
        report_test::TearDown();
    }
    sql_conn &st() { return tallyd_db_set.statistic_db; }
    static std::string ago(uint32_t s) { return std::to_string(kNow - s); }

    // One AP's traffic on one SSID (tx, rx), s seconds ago.
    void ap_bytes(const char *table, uint32_t s, int ap, int ssid, int group, int tx, int rx) {
        insert(st(), table,
               {{ago(s), std::to_string(ap), std::to_string(ssid), std::to_string(group), "0", "0",
                 "0", "0", std::to_string(tx), std::to_string(rx), std::to_string(tx + rx)}});
    }
    void client_bytes(const char *table, uint32_t s, const std::string &mac, int ap, int ssid,
                      int group, int tx, int rx) {
        insert(st(), table,
               {{ago(s), mac, std::to_string(ap), std::to_string(group), std::to_string(ssid), "0",
                 "0", "0", "0", "0", std::to_string(tx), std::to_string(rx),
                 std::to_string(tx + rx)}});
    }
    void info(const char *table, uint32_t s, const std::string &mac, int ap, int ssid, int dvcinfo,
              int group, const std::string &rest = "NULL, NULL, NULL") {
        exec(st(), std::string("INSERT INTO ") + table +
                       "(time, client_mac, ap_id, ssid_id, dvcinfo_id, apgroup_id, ip, ip6, "
                       "host_name) VALUES(" +
                       ago(s) + ", '" + mac + "', " + std::to_string(ap) + ", " +
                       std::to_string(ssid) + ", " + std::to_string(dvcinfo) + ", " +
                       std::to_string(group) + ", " + rest + ")");
    }
    bytes_t summary(int (*h)(std::span<const uint8_t>), uint32_t id, const statis_request &r) {
        return ask(h, id, build_statis(r));
    }
    bytes_t aps(const statis_request &r) {
        return summary(tallyd_statis_ap, TALLYD_MSG_STATIS_AP, r);
    }
    static uint64_t field(const bytes_t &d, const wire_field &f) { return wire_get_num(d, f); }
    static std::string name(const bytes_t &d, const array &a, size_t i) {
        return std::string(wire_get_text(record(d, a, i), a.fields[0].wire));
    }
    static uint64_t value(const bytes_t &d, const array &a, size_t i) {
        return wire_get_num(record(d, a, i), a.fields[1].wire);
    }
    std::string chart_text(const bytes_t &d, const layout &l) {
        return std::string(wire_get_text(d, l.fields[1].wire));
    }

    int32_t ap1 = 0, ap2 = 0, corp = 0, guest = 0, phone = 0;
};

TEST_F(StatisReports, ApSummaryFiltersCountsAndRanks) {
    ap_bytes("statis_ap_h", 60, ap1, corp, 1, 100, 900);
    ap_bytes("statis_ap_h", 120, ap2, guest, 2, 50, 50);
    ap_bytes("statis_ap_h", 4000, ap2, guest, 2, 7000, 0);  // older than the hour
    info("statis_client_info_h", 60, "aa:00:00:00:00:01", ap1, corp, phone, 1);
    info("statis_client_info_h", 60, "aa:00:00:00:00:02", ap1, corp, 0, 1);
    info("statis_client_info_h", 60, "aa:00:00:00:00:03", ap2, guest, 0, 2);
    exec(st(), "INSERT INTO statis_ap_wlan VALUES(0, " + std::to_string(ap1) +
                   ", 5, 1, 1), (0, 0, 5, 1, 1), (" + ago(60) + ", " + std::to_string(ap2) +
                   ", 6, 2, 1), (" + ago(9000) + ", 77, 6, 2, 1)");

    bytes_t d = aps({});
    ASSERT_EQ(kApStats.data_size, d.size());
    EXPECT_EQ(1100u, field(d, kStatisTotal));
    EXPECT_EQ(3u, field(d, kStatisClients));
    EXPECT_EQ(3u,
              field(d, kStatisAps));  // ap_id 0 of the group rows counts; 77 closed too long ago
    ASSERT_EQ(2u, field(d, kStatisByteCount));
    EXPECT_EQ("00:11:22:33:44:01", name(d, kApStats.records, 0));
    EXPECT_EQ(1000u, value(d, kApStats.records, 0));
    ASSERT_EQ(2u, field(d, kStatisClientCount));
    EXPECT_EQ(2u, value(d, kApStats.more, 0));

    // The byte column, an AP group, an AP list (unknown MACs match nothing).
    EXPECT_EQ(150u, field(aps({.bytes_type = kBytesTx}), kStatisTotal));
    EXPECT_EQ(950u, field(aps({.bytes_type = kBytesRx}), kStatisTotal));
    d = aps({.ap_type = kApTypeGroup, .apgroup_id = 2});
    EXPECT_EQ(100u, field(d, kStatisTotal));
    EXPECT_EQ(1u, field(d, kStatisAps));
    EXPECT_EQ(0u, field(aps({.ap_type = kApTypeGroup, .apgroup_id = 99}), kStatisTotal));
    d = aps({.ap_type = kApTypeList, .aps = {"00:11:22:33:44:02", "it's"}});
    EXPECT_EQ(100u, field(d, kStatisTotal));
    EXPECT_EQ("00:11:22:33:44:02", name(d, kApStats.records, 0));
    // Only the first twenty entries of a longer list are read.
    std::vector<std::string_view> many(20, "ff:ff:ff:ff:ff:fe");
    many.push_back("00:11:22:33:44:01");
    d = aps({.ap_type = kApTypeList, .aps = many});
    EXPECT_EQ(0u, field(d, kStatisTotal));
    EXPECT_EQ(kApStats.data_size, d.size());

    // An SSID with a quote narrows the traffic; the configured WLAN its count.
    write_file("/etc/corvane/xrepo/wlansvc-list.xml",
               "<wlansvc-list><wlan id=\"6\" ssid=\"guest's\"/></wlansvc-list>");
    d = aps({.ssid = "guest's"});
    EXPECT_EQ(100u, field(d, kStatisTotal));
    EXPECT_EQ(1u, field(d, kStatisAps));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, ssid = guest's"));
    d = aps({.ssid = "nobody"});
    EXPECT_EQ(0u, field(d, kStatisTotal));
    EXPECT_EQ(0u, field(d, kStatisAps));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, total byte is 0\n"));
}

TEST_F(StatisReports, TopNumIsClampedAndUnknownKeysKeepTheirNumbers) {
    for (int ap = 100; ap < 160; ++ap) ap_bytes("statis_ap_h", 10, ap, corp, 1, ap, 0);
    for (uint8_t top : {0, 200, 50}) {
        const bytes_t d = aps({.top_num = top});
        EXPECT_EQ(50u, field(d, kStatisByteCount)) << int{top};
        EXPECT_EQ("", name(d, kApStats.records, 0));  // ids the dictionary never gave
        EXPECT_EQ(159u, value(d, kApStats.records, 0));
    }
    EXPECT_EQ(7u, field(aps({.top_num = 7}), kStatisByteCount));
    EXPECT_TRUE(logged(LOG_DEBUG,
                       "tallyd, ap static period=0, ssid_type=0, ap_type=0, apgroup_id=0, "
                       "top_num=200, bytes_type=0\n"));
}

TEST_F(StatisReports, SsidAndClientSummaries) {
    ap_bytes("statis_ap_h", 60, ap1, corp, 1, 100, 900);
    ap_bytes("statis_ap_h", 60, ap2, guest, 1, 10, 10);
    exec(st(), "INSERT INTO statis_ap_wlan VALUES(0, 0, 5, 1, 1), (0, 0, 6, 1, 1), (0, " +
                   std::to_string(ap1) + ", 7, 1, 1)");
    info("statis_client_info_h", 60, "aa:00:00:00:00:01", ap1, corp, phone, 1);
    info("statis_client_info_h", 60, "aa:00:00:00:00:02", ap2, guest, phone, 1);
    info("statis_client_info_h", 60, "aa:00:00:00:00:03", ap2, guest, 0, 1);

    // SSID lists ignore the SSID filter; the total honours it.
    bytes_t d = summary(tallyd_statis_ssid, TALLYD_MSG_STATIS_SSID, {.ssid = "guest's"});
    ASSERT_EQ(kSsidStats.data_size, d.size());
    EXPECT_EQ(20u, field(d, kStatisTotal));
    EXPECT_EQ(2u, field(d, kStatisWlans));  // group-level rows only
    ASSERT_EQ(2u, field(d, kStatisByteCount));
    EXPECT_EQ("corp", name(d, kSsidStats.records, 0));
    EXPECT_EQ("guest's", name(d, kSsidStats.more, 0));
    EXPECT_EQ(2u, value(d, kSsidStats.more, 0));

    // Client report: nothing without client traffic rows but a bytes total.
    client_bytes("statis_client_h", 60, "aa:00:00:00:00:01", ap1, corp, 1, 5, 5);
    client_bytes("statis_client_h", 60, "aa:00:00:00:00:02", ap2, guest, 1, 30, 0);
    d = summary(tallyd_statis_client, TALLYD_MSG_STATIS_CLIENT, {});
    ASSERT_EQ(kClientStats.data_size, d.size());
    EXPECT_EQ(1020u, field(d, kStatisTotal));
    EXPECT_EQ(3u, field(d, kStatisClientClients));
    ASSERT_EQ(2u, field(d, kStatisByteCount));
    EXPECT_EQ("aa:00:00:00:00:02", name(d, kClientStats.records, 0));
    EXPECT_EQ(30u, value(d, kClientStats.records, 0));
    ASSERT_EQ(2u, field(d, kStatisClientCount));
    EXPECT_EQ("phone", name(d, kClientStats.more, 0));
    EXPECT_EQ(2u, value(d, kClientStats.more, 0));
    EXPECT_EQ("", name(d, kClientStats.more, 1));  // device type 0
    EXPECT_EQ(1u, value(d, kClientStats.more, 1));

    exec(st(), "DELETE FROM statis_ap_h");
    EXPECT_TRUE(summary(tallyd_statis_client, TALLYD_MSG_STATIS_CLIENT, {}).empty());
    d = summary(tallyd_statis_ssid, TALLYD_MSG_STATIS_SSID, {});
    EXPECT_EQ(kSsidStats.data_size, d.size());
    EXPECT_EQ(2u, field(d, kStatisWlans));
}

TEST_F(StatisReports, DayFallsBackToTheHourTablesOverTheWholeDay) {
    ap_bytes("statis_ap_h", 7200, ap1, corp, 1, 40, 0);
    ap_bytes("statis_ap_h", 90000, ap1, corp, 1, 1000, 0);  // older than the day
    EXPECT_EQ(0u, field(aps({}), kStatisTotal));
    EXPECT_EQ(40u, field(aps({.period = kStatisDay}), kStatisTotal));
    ap_bytes("statis_ap_d", 50000, ap2, corp, 1, 5, 0);
    const bytes_t d = aps({.period = kStatisDay});
    EXPECT_EQ(5u, field(d, kStatisTotal));
    EXPECT_EQ("00:11:22:33:44:02", name(d, kApStats.records, 0));
}

TEST_F(StatisReports, SummaryRequestsOfAnyLengthAndAMalformedDatabase) {
    ap_bytes("statis_ap_h", 60, ap1, corp, 1, 10, 0);
    // The header alone reads as an all-zero request; extra bytes are ignored.
    EXPECT_EQ(10u, field(ask(tallyd_statis_ap, TALLYD_MSG_STATIS_AP, bytes_t(12)), kStatisTotal));
    bytes_t longer = build_statis({});
    longer.resize(2000, 0x27);
    EXPECT_EQ(10u, field(ask(tallyd_statis_ap, TALLYD_MSG_STATIS_AP, longer), kStatisTotal));

    ASSERT_TRUE(corrupt_table(st(), path("/tmp/tallyd/statistic.db").c_str(), "statis_ap_h"));
    const bytes_t d = aps({});
    EXPECT_EQ(kApStats.data_size, d.size());
    EXPECT_EQ(0u, field(d, kStatisTotal));
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, value = SELECT SUM(total_bytes) FROM statis_ap_h WHERE "
                       "time>=1799996400, aErrMsg = database disk image is malformed\n"))
        << log_dump();
    EXPECT_EQ(0, count_rows(st(), "statis_ap_h"));  // rebuilt
}

TEST_F(StatisReports, ChartSeriesStepsBackFromNow) {
    auto series = [](std::vector<chart_row> rows, size_t steps = 13) {
        return tallyd_chart_series(rows, kNow, {steps, 8191, ",", "0", true});
    };
    EXPECT_EQ("0,0,0,0,0,0,0,0,0,0,0,0,0", series({}));
    EXPECT_EQ(288u * 2 - 1, series({}, 288).size());
    // Rows every five minutes, the newest 100 s old.
    std::vector<chart_row> rows;
    for (int i = 0; i < 20; ++i)
        rows.push_back({int32_t(kNow - 100 - 300 * i), std::to_string(i + 1)});
    EXPECT_EQ("1,2,3,4,5,6,7,8,9,10,11,12,13", series(rows));
    // The second step is measured from the first row: a gap after it
    // empties the rest.
    rows = {{int32_t(kNow - 10), "7"}, {int32_t(kNow - 900), "8"}, {int32_t(kNow - 1200), "9"}};
    EXPECT_EQ("7,0,0,0,0,0,0,0,0,0,0,0,0", series(rows));
    // A row from the future holds every step at 0.
    EXPECT_EQ("0,0,0,0,0,0,0,0,0,0,0,0,0",
              series({{int32_t(kNow + 60), "5"}, {int32_t(kNow - 10), "6"}}));
    EXPECT_EQ("1,2,3", tallyd_chart_series(std::vector<chart_row>{{int32_t(kNow), "1"},
                                                                  {int32_t(kNow - 160), "2"},
                                                                  {int32_t(kNow - 700), "3"}},
                                           kNow, {3, 99, ",", "0", true}));
    EXPECT_EQ("123,", tallyd_chart_series({}, kNow, {2, 4, ",", "123", false}));  // cut
}

TEST_F(StatisReports, ChartsByScopeAndTheSingleClient) {
    auto chart = [&](bool clients, const chart_request &r) {
        return ask(clients ? tallyd_statis_client_chart : tallyd_statis_ap_chart,
                   clients ? TALLYD_MSG_STATIS_CLIENT_CHART : TALLYD_MSG_STATIS_AP_CHART,
                   build_chart(r));
    };
    insert(st(), "statis_ap_chart",
           {{ago(10), std::to_string(ap1), "1", "100", "1", "3"},
            {ago(10), std::to_string(ap2), "2", "20", "2", "4"},
            {ago(310), std::to_string(ap1), "1", "5", "5", "1"}});
    bytes_t d = chart(false, {});
    ASSERT_EQ(kApChart.data_size, d.size());
    EXPECT_EQ(kNow, field(d, kChartTime));
    EXPECT_EQ("123,10,0,0,0,0,0,0,0,0,0,0,0", chart_text(d, kApChart));
    EXPECT_EQ("20,0,0,0,0,0,0,0,0,0,0,0,0",
              chart_text(chart(false, {.ap_type = kApTypeGroup, .apgroup_id = 2, .bytes_type = 1}),
                         kApChart));
    EXPECT_EQ("1,5,0,0,0,0,0,0,0,0,0,0,0", chart_text(chart(false, {.ap_type = kApTypeList,
                                                                    .ap_mac = "00:11:22:33:44:01",
                                                                    .bytes_type = kBytesRx}),
                                                      kApChart));
    const std::string zeros = "0,0,0,0,0,0,0,0,0,0,0,0,0";
    EXPECT_EQ(zeros,
              chart_text(chart(false, {.ap_type = kApTypeList, .ap_mac = "it's"}), kApChart));
    // The header alone reads as all APs over the hour, the sum of both bytes.
    EXPECT_EQ(
        "123,10,0,0,0,0,0,0,0,0,0,0,0",
        chart_text(ask(tallyd_statis_ap_chart, TALLYD_MSG_STATIS_AP_CHART, bytes_t(12)), kApChart));
    d = chart(true, {.period = kStatisDay});
    ASSERT_EQ(kClientChart.data_size, d.size());
    EXPECT_EQ(0, chart_text(d, kClientChart).find("7,1,0,"));
    EXPECT_EQ(288u * 2 - 1, chart_text(d, kClientChart).size());

    client_bytes("statis_client_h", 30, "aa:00:00:00:00:01", ap1, corp, 1, 11, 22);
    client_bytes("statis_client_h", 330, "aa:00:00:00:00:01", ap1, corp, 1, 33, 44);
    d = ask(tallyd_statis_single_client, TALLYD_MSG_STATIS_SINGLE_CLIENT,
            build_single_chart("aa:00:00:00:00:01"));
    ASSERT_EQ(kSingleChart.data_size, d.size());
    EXPECT_EQ("11,22;33,44;0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0",
              chart_text(d, kSingleChart));
    d = ask(tallyd_statis_single_client, TALLYD_MSG_STATIS_SINGLE_CLIENT, build_single_chart("'"));
    EXPECT_EQ("0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0;0,0", chart_text(d, kSingleChart));

    // A failing query: the full area, no time, no text.
    exec(st(), "DROP TABLE statis_ap_chart");
    d = chart(false, {});
    EXPECT_EQ(kApChart.data_size, d.size());
    EXPECT_EQ(0u, field(d, kChartTime));
    EXPECT_EQ("", chart_text(d, kApChart));
}

class ClientList : public StatisReports {
   protected:
    bytes_t list(std::span<const uint8_t> mac = {}, uint32_t period = 0) {
        return ask(tallyd_get_client_list, TALLYD_MSG_GET_CLIENT_LIST,
                   build_client_list(mac, period));
    }
    std::string text(const bytes_t &d, size_t i, const wire_field &f) {
        return std::string(wire_get_text(record(d, kClientList.records, i), f));
    }
    uint64_t num(const bytes_t &d, size_t i, const wire_field &f) {
        return wire_get_num(record(d, kClientList.records, i), f);
    }
};

TEST_F(ClientList, RefusalsAndEmptyReplies) {
    for (size_t payload : {27u, 29u, 0u}) {
        bytes_t m = build_client_list({});
        m.resize(12 + payload);
        tallyd_msg_header_put(m, 9, TALLYD_MSG_GET_CLIENT_LIST, static_cast<uint32_t>(payload));
        m.resize(8192);
        EXPECT_EQ(-1, tallyd_get_client_list(m));
        const std::vector<bytes_t> got = replies();
        ASSERT_EQ(1u, got.size());
        EXPECT_EQ(2u, wire_be32(got[0], TALLYD_REPLY_WORD.offset));
        EXPECT_EQ(TALLYD_REPLY_HDR_LEN, got[0].size());
    }
    EXPECT_TRUE(
        logged(LOG_WARNING, "tallyd, invalid message len, expected len is 28, but received 27\n"));
    EXPECT_TRUE(list().empty());  // no traffic at all
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, total=0\n"));
    ap_bytes("statis_ap_h", 60, ap1, corp, 1, 10, 0);
    client_bytes("statis_client_h", 60, "aa:00:00:00:00:01", ap1, corp, 1, 5, 5);
    info("statis_client_info_h", 60, "aa:00:00:00:00:01", ap1, corp, 0, 1, "'1.2.3.4', NULL, NULL");
    EXPECT_EQ(kStaSize, list().size());
    EXPECT_TRUE(list({}, 1).empty());
    bytes_t flagged = build_client_list({});
    wire_put_num(flagged, kListFlag, 1);
    EXPECT_TRUE(ask(tallyd_get_client_list, TALLYD_MSG_GET_CLIENT_LIST, flagged).empty());
}

TEST_F(ClientList, AllClientsWithTrafficNewestFirst) {
    write_file("/etc/corvane/xrepo/sta-rename-list.xml",
               "<sta-rename-list><sta mac=\"aa:00:00:00:00:01\" rename=\"lobby\"/>"
               "</sta-rename-list>");
    ap_bytes("statis_ap_h", 60, ap1, corp, 1, 500, 500);
    // 0.0.0.0 and :: but not last: kept.
    info("statis_client_info_h", 30, "aa:00:00:00:00:01", ap1, corp, phone, 1,
         "'0.0.0.0', '::', '#'");
    client_bytes("statis_client_h", 30, "aa:00:00:00:00:01", ap1, corp, 1, 100, 150);
    exec(st(),
         "UPDATE statis_client_info_h SET vlan=7, channel=36, radio=2, status=1, "
         "auth_type='WPA2', user_name='bob'");
    info("statis_client_info_h", 40, "aa:00:00:00:00:02", 99, 0, 0, 1, "NULL, NULL, '#'");
    client_bytes("statis_client_h", 40, "aa:00:00:00:00:02", ap1, corp, 1, 0, 50);
    info("statis_client_info_h", 45, "aa:00:00:00:00:03", ap1, corp, 0, 1);    // no traffic
    info("statis_client_info_h", 4000, "aa:00:00:00:00:04", ap1, corp, 0, 1);  // too old
    client_bytes("statis_client_h", 4000, "aa:00:00:00:00:04", ap1, corp, 1, 1, 1);

    bytes_t d = list();
    ASSERT_EQ(2u * kStaSize, d.size());
    EXPECT_EQ("aa:00:00:00:00:01", text(d, 0, kStaMac));
    EXPECT_EQ("phone", text(d, 0, kStaDevice));
    EXPECT_EQ("lobby", text(d, 0, kStaHost));
    EXPECT_EQ("00:11:22:33:44:01", text(d, 0, kStaAp));
    EXPECT_EQ("corp", text(d, 0, kStaSsid));
    EXPECT_EQ("WPA2", text(d, 0, kStaAuth));
    EXPECT_EQ("bob", text(d, 0, kStaUser));
    EXPECT_EQ(kNow - 30, num(d, 0, kStaTime));
    EXPECT_EQ(7u, num(d, 0, kStaVlan));
    EXPECT_EQ(36u, num(d, 0, kStaChannel));
    EXPECT_EQ(250u, num(d, 0, kStaTotal));
    EXPECT_EQ(2500u, num(d, 0, kStaShare));
    // NULL columns and unknown ids: their defaults; "#" without a name: empty.
    EXPECT_EQ("", text(d, 1, kStaHost));
    EXPECT_EQ("", text(d, 1, kStaAp));
    EXPECT_EQ("", text(d, 1, kStaDevice));
    EXPECT_EQ("Open", text(d, 1, kStaAuth));
    EXPECT_EQ(1u, num(d, 1, kStaVlan));
    EXPECT_EQ(1u, num(d, 1, kStaChannel));
    EXPECT_EQ(1u, num(d, 1, kStaRadio));
    EXPECT_EQ(0u, num(d, 1, kStaStatus));
    EXPECT_EQ(50u, num(d, 1, kStaDown));

    // The same client last in the list is dropped for its addresses.
    exec(st(), "UPDATE statis_client_info_h SET time=" + ago(50) +
                   " WHERE client_mac='aa:00:00:00:00:01'");
    d = list();
    ASSERT_EQ(kStaSize, d.size());
    EXPECT_EQ("aa:00:00:00:00:02", text(d, 0, kStaMac));
}

TEST_F(ClientList, AtMostTheHundredNewestAndOneClientByMac) {
    ap_bytes("statis_ap_h", 60, ap1, corp, 1, 1000, 0);
    for (int i = 0; i < 105; ++i) {
        char mac[18];
        std::snprintf(mac, sizeof mac, "bb:00:00:00:00:%02x", i);
        info("statis_client_info_h", 100 + i, mac, ap1, corp, 0, 1, "'10.0.0.1', NULL, NULL");
        if (i % 2 == 0) client_bytes("statis_client_h", 100, mac, ap1, corp, 1, 1, 0);
    }
    bytes_t d = list();
    EXPECT_EQ(50u * kStaSize, d.size());  // 0, 2, ..., 98
    EXPECT_EQ("bb:00:00:00:00:62", text(d, 49, kStaMac));

    const uint8_t one[6] = {0xbb, 0, 0, 0, 0, 0x04};
    d = list(one);
    ASSERT_EQ(kStaSize, d.size());
    EXPECT_EQ("bb:00:00:00:00:04", text(d, 0, kStaMac));
    EXPECT_EQ("10.0.0.1", text(d, 0, kStaIp));
    EXPECT_EQ(10u, num(d, 0, kStaShare));
    EXPECT_TRUE(logged(LOG_DEBUG,
                       "tallyd, receive a GET-STA mssage, id=bb:00:00:00:00:04, "
                       "period=0\n"));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, One STA, up = 1, down = 0\n"));

    // Gone requester: one attempt, logged.
    close(fds_[1]);
    fds_[1] = socket(AF_UNIX, SOCK_DGRAM, 0);
    bytes_t m = build_client_list({});
    tallyd_msg_header_put(m, 9, TALLYD_MSG_GET_CLIENT_LIST, kListPayload);
    tallyd_get_client_list(m);
    EXPECT_EQ(1, log_count("tallyd, failed fd")) << log_dump();
}

}  // namespace
