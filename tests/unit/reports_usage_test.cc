#include <algorithm>

#include "entity/dict.h"
#include "ipc/msg_ids.h"
#include "reports/usage.h"
#include "reports_fixture.h"

using namespace report_wire;

namespace {

constexpr uint32_t kNow = 1700000000;  // the fixture's pinned clock

class UsageReports : public report_test {
   protected:
    bytes_t usage(const usage_request &r) {
        return ask(tallyd_get_clients_summary, TALLYD_MSG_GET_CLIENTS_SUMMARY, build_usage(r));
    }
    bytes_t app_clients(const app_client_request &r) {
        return ask(tallyd_get_app_client, TALLYD_MSG_GET_APP_CLIENT, build_app_client(r));
    }
    static std::string field(const bytes_t &d, const wire_field &f) {
        return std::string(wire_get_text(d, f));
    }
    static uint64_t at(const bytes_t &d, const wire_field &f) { return wire_get_num(d, f); }
    static std::string t(uint32_t secs_ago) { return std::to_string(kNow - secs_ago); }
    static bool zeros(const bytes_t &d) {
        return std::all_of(d.begin(), d.end(), [](uint8_t b) { return b == 0; });
    }
};

TEST_F(UsageReports, HourSeriesHasTwelveFiveMinuteStepsOfBitsPerSecond) {
    insert(db(), "avp_all_group_hour",
           {{t(10), "web", "80", "3000", "6000", "1"},
            {t(0), "web", "80", "1", "1", "1"},  // the end of step 0 is not in it
            {t(301), "web", "80", "600", "0", "1"},
            {t(3599), "mail", "25", "75", "150", "2"},
            {t(3601), "web", "80", "9999", "9999", "1"}});  // older than the hour
    const bytes_t d = usage({.ssid = "all", .usage = kUsageSeries});
    ASSERT_EQ(kUsage.data_size, d.size());
    EXPECT_EQ(3675u, at(d, kUsageUplink));
    EXPECT_EQ(6150u, at(d, kUsageDownlink));
    std::string up, down;
    for (uint32_t i = 0; i < 12; ++i) {
        const uint64_t u = i == 0 ? 3000 : i == 1 ? 600 : i == 11 ? 75 : 0;
        const uint64_t w = i == 0 ? 6000 : i == 11 ? 150 : 0;
        up += (i ? "," : "") + t(i * 300) + "," + std::to_string(u * 8 / 300);
        down += (i ? "," : "") + t(i * 300) + "," + std::to_string(w * 8 / 300);
    }
    EXPECT_EQ(up, field(d, kUsageUpSeries));
    EXPECT_EQ(down, field(d, kUsageDownSeries));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, uplink = 3675, downlink = 6150 \n"));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, ALL ssid=all, period=1-hour\n"));
}

TEST_F(UsageReports, SeriesFiltersBySsidApGroupAndClient) {
    ASSERT_EQ(1, tallyd_avp_ssid_mapping("corp"));
    ASSERT_EQ(2, tallyd_avp_ssid_mapping("o'clock"));
    ASSERT_EQ(1, tallyd_avp_ap_mapping("00:aa:00:00:00:01"));
    insert(db(), "avp_ap_ssid_hour",
           {{t(10), "web", "80", "1", "1", "100", "0", "3"},
            {t(10), "web", "80", "2", "1", "20", "0", "3"},
            {t(10), "web", "80", "1", "2", "3", "0", "4"}});
    insert(db(), "avp_curve_client",
           {{t(10), "x'y", "7", "0"}, {t(10), "aabbccddeeff", "1000", "0"}});
    const struct {
        usage_request r;
        uint64_t uplink;
    } cases[] = {
        {{.ssid = "corp", .client_type = kClientAll}, 120},
        {{.ssid = "nobody", .client_type = kClientAll}, 0},  // unknown SSID: id 0
        {{.ssid = "o'clock", .client_type = kClientAll}, 3},
        {{.ssid = "all", .mac = "00:aa:00:00:00:01", .client_type = kClientAp}, 103},
        {{.ssid = "corp", .mac = "00:aa:00:00:00:01", .client_type = kClientAp}, 100},
        {{.ssid = "all", .client_type = kClientApgroup, .apgroup_id = 3}, 0},  // group table
        {{.ssid = "corp", .client_type = kClientApgroup, .apgroup_id = 3}, 120},
        {{.ssid = "all", .mac = "x'y", .client_type = kClientOne}, 7},  // a quote is a value
    };
    for (const auto &c : cases) {
        usage_request r = c.r;
        r.usage = kUsageSeries;
        EXPECT_EQ(c.uplink, at(usage(r), kUsageUplink)) << r.ssid << " " << r.client_type;
    }
    EXPECT_EQ(0, log_count("aErrMsg")) << log_dump();
}

TEST_F(UsageReports, LongerPeriodsFallBackToShorterTablesWhenEmpty) {
    insert(db(), "avp_ssid_day", {{t(100), "web", "80", "1", "7217", "72170", "1"}});
    // The week table holds only its marker: the day answers, in day steps.
    bytes_t d = usage({.ssid = "all", .period = kUsageWeek, .usage = kUsageSeries});
    std::string up = field(d, kUsageUpSeries);
    EXPECT_EQ(0u, up.rfind(t(0) + ",8," + t(7217) + ",0,", 0)) << up;
    EXPECT_EQ(23, std::count(up.begin(), up.end(), ','));  // 12 steps
    EXPECT_EQ(72170u, at(d, kUsageDownlink));

    // Nothing anywhere but the hour: a month request reads hour steps.
    exec(db(), "DELETE FROM avp_ssid_day");
    insert(db(), "avp_all_group_hour", {{t(400), "web", "80", "30", "30", "1"}});
    d = usage({.ssid = "all", .period = kUsageMonth, .usage = kUsageSeries});
    up = field(d, kUsageUpSeries);
    EXPECT_EQ(0u, up.rfind(t(0) + ",0," + t(300) + ",0,", 0)) << up;
    EXPECT_EQ(23, std::count(up.begin(), up.end(), ','));
    EXPECT_EQ(30u, at(d, kUsageUplink));
}

TEST_F(UsageReports, PiesPreferTheDayAndLabelApplicationsAndPorts) {
    // Empty day and hour tables: zeros.
    EXPECT_TRUE(zeros(usage({.client_type = kClientPie, .usage = kUsageDetail})));

    insert(db(), "avp_all_group_hour",
           {{t(10), "web", "80", "600", "400", "1"},
            {t(10), "", "0", "100", "100", "1"},
            {t(10), "web", "8080", "200", "0", "2"},
            {t(10), "vpn", "2049", "50", "50", "2"}});
    bytes_t d = usage({.client_type = kClientPie, .type = 1, .usage = kUsageDetail});
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, hour pie total = 1500\n"));
    EXPECT_EQ(1500u, at(d, kUsageTotal));
    ASSERT_EQ(3u, filled(d, kUsage));
    EXPECT_EQ("web", text(d, kUsage, 0, kDetailLabel));
    EXPECT_EQ(800u, num(d, kUsage, 0, kDetailUplink));
    EXPECT_EQ(400u, num(d, kUsage, 0, kDetailDownlink));
    EXPECT_EQ(1200u, num(d, kUsage, 0, kDetailBytes));
    EXPECT_EQ(8000u, num(d, kUsage, 0, kDetailShare));
    EXPECT_EQ("Miscellaneous", text(d, kUsage, 1, kDetailLabel));
    EXPECT_EQ(std::string(8, '\0'), std::string(d.begin() + 8, d.begin() + 16));

    d = usage({.client_type = kClientPie, .type = 0, .usage = kUsageDetail});
    ASSERT_EQ(4u, filled(d, kUsage));
    EXPECT_EQ("http(port 80)", text(d, kUsage, 0, kDetailLabel));
    EXPECT_EQ("port 8080", text(d, kUsage, 1, kDetailLabel));
    EXPECT_EQ("dynamic", text(d, kUsage, 2, kDetailLabel));
    EXPECT_EQ("nfs(port 2049", text(d, kUsage, 3, kDetailLabel));

    insert(db(), "avp_ssid_day", {{t(10), "mail", "25", "1", "5", "5", "1"}});
    d = usage({.client_type = kClientPie, .type = 1, .usage = kUsageDetail});
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, day pie total = 10\n"));
    EXPECT_EQ(10u, at(d, kUsageTotal));
    EXPECT_EQ("mail", text(d, kUsage, 0, kDetailLabel));
    EXPECT_EQ(1u, filled(d, kUsage));
}

TEST_F(UsageReports, FilteredListsWriteTheirTotalAndAtMostTwentyFiveRows) {
    ASSERT_EQ(1, tallyd_avp_ssid_mapping("corp"));
    rows_t rows;
    for (int i = 0; i < 30; ++i)
        rows.push_back(
            {t(10), "app" + std::to_string(i), "80", "1", "1", std::to_string(100 + i), "0", "1"});
    rows.push_back({t(10), "other", "80", "1", "2", "5000", "0", "1"});  // another SSID
    insert(db(), "avp_ap_ssid_hour", rows);
    bytes_t d = usage({.ssid = "corp", .type = 1, .usage = kUsageDetail});
    EXPECT_EQ(30u * 100 + 435, at(d, kUsageTotal));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, APP0 total = 3435 \n"));
    EXPECT_EQ(25u, filled(d, kUsage));
    EXPECT_EQ("app29", text(d, kUsage, 0, kDetailLabel));
    EXPECT_EQ(129u * 10000 / 3435, num(d, kUsage, 0, kDetailShare));
    EXPECT_EQ("app5", text(d, kUsage, 24, kDetailLabel));

    // Series and list together fill both parts of the area.
    d = usage({.ssid = "corp", .type = 0, .usage = kUsageSeries | kUsageDetail});
    EXPECT_EQ(3435u, at(d, kUsageTotal));
    EXPECT_EQ(3435u, at(d, kUsageUplink));
    EXPECT_EQ("http(port 80)", text(d, kUsage, 0, kDetailLabel));
    EXPECT_EQ(1u, filled(d, kUsage));

    // The hour client table has no port: the kept statement fails as it
    // always did, and shows as the device prints it, the MAC a plain value.
    insert(db(), "avp_curve_client", {{t(10), "aa'b", "7", "0"}});
    d = usage({.mac = "aa'b", .client_type = kClientOne, .type = 0, .usage = kUsageDetail});
    EXPECT_EQ(7u, at(d, kUsageTotal));
    EXPECT_EQ(0u, filled(d, kUsage));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, PORT total = 7 \n"));
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, value = SELECT port, SUM(uplink), SUM(downlink) FROM "
                       "avp_curve_client WHERE client_mac='aa'b'GROUP by port ORDER by "
                       "(SUM(uplink)+SUM(downlink)) DESC LIMIT 25, aErrMsg = no such column: "
                       "port\n"))
        << log_dump();
}

TEST_F(UsageReports, RefusedAndMalformedRequestsGetTheirWholeZeroArea) {
    insert(db(), "avp_curve_client", {{t(10), "aabbccddeeff", "1000", "0"}});
    for (uint32_t period : {kUsageDay, kUsageWeek, kUsageMonth, 7u}) {
        const bytes_t d = usage(
            {.mac = "aabbccddeeff", .client_type = kClientOne, .period = period, .usage = 0x11});
        EXPECT_EQ(kUsage.data_size, d.size());
        EXPECT_TRUE(zeros(d)) << period;
    }
    EXPECT_EQ(4, log_count("tallyd, client summary only supports 1-hour\n"));

    // The header alone, and texts that fill their fields without a zero.
    EXPECT_EQ(kUsage.data_size,
              ask(tallyd_get_clients_summary, TALLYD_MSG_GET_CLIENTS_SUMMARY, bytes_t(12)).size());
    bytes_t m = build_usage({.ssid = "x", .usage = kUsageSeries | kUsageDetail});
    std::fill_n(m.begin() + kUsageSsid.offset, kUsageSsid.width + kUsageMac.width, 's');
    EXPECT_EQ(kUsage.data_size,
              ask(tallyd_get_clients_summary, TALLYD_MSG_GET_CLIENTS_SUMMARY, m).size());
    EXPECT_TRUE(
        logged(LOG_DEBUG, "tallyd, ALL ssid=" + std::string(64, 's') + ", period=1-hour\n"));
}

TEST_F(UsageReports, ApplicationClientsUseTheClientRecord) {
    insert(db(), "avp_app_client_hour",
           {{t(10), "Bob's app", "443", "aabbccddee01", "100", "200"},
            {t(20), "Bob's app", "443", "aabbccddee01", "50", "50"},
            {t(10), "Bob's app", "443", "aabbccddee02", "100", "0"},
            {t(10), "Bob", "80", "aabbccddee03", "9000", "0"}});
    insert(tallyd_db_set.statistic_db, "statis_client_info_h(time, client_mac, host_name)",
           {{"1", "aa:bb:cc:dd:ee:01", "laptop"}});
    bytes_t d = app_clients({.name = "Bob's app"});
    ASSERT_EQ(kAppClients.data_size, d.size());
    EXPECT_EQ(500u, wire_get_num(d, kClientsTotal));
    ASSERT_EQ(2u, filled(d, kAppClients));
    EXPECT_EQ("aa:bb:cc:dd:ee:01", text(d, kAppClients, 0, kClientMac));
    EXPECT_EQ("laptop", text(d, kAppClients, 0, kClientHost));
    EXPECT_EQ(400u, num(d, kAppClients, 0, kClientBytes));
    EXPECT_EQ(8000u, num(d, kAppClients, 0, kClientShare));

    d = app_clients({.name = "443", .by = 0});
    EXPECT_EQ(2u, filled(d, kAppClients));
    d = app_clients({.name = "80", .by = 5});
    EXPECT_EQ("aa:bb:cc:dd:ee:03", text(d, kAppClients, 0, kClientMac));

    // Offset 144 set: nothing computed, no data.
    EXPECT_TRUE(app_clients({.name = "Bob's app", .skip = 1}).empty());
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, sending get app client to vexd..."));
}

}  // namespace
