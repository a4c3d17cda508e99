// The wireless statistics reports through the daemon's sockets: stations
// fed as counters batches come back in the client list, the client summary
// and the single client chart as summed here; the AP traffic table, which
// no task of the daemon fills, is filled by the test.
#include <gtest/gtest.h>

#include <map>
#include <string>
#include <vector>

#include "base/clock.h"
#include "events/events_wire.h"
#include "ipc/msg_ids.h"
#include "ipc/msg_layout.h"
#include "report_decode.h"
#include "reports/statis_wire.h"
#include "support/e2e_tools.h"
#include "support/launch.h"

using namespace report_wire;

namespace {

class StatisE2e : public ::testing::Test {
   protected:
    void SetUp() override {
        ASSERT_TRUE(d_.start()) << d_.log_text();
        stat_ = d_.path("/tmp/tallyd/statistic.db");
    }
    void TearDown() override {
        expect_no_fault(d_);
        EXPECT_EQ(0, d_.stop());
    }

    std::vector<uint8_t> reply(uint32_t id, const std::vector<uint8_t> &msg) {
        auto replies = d_.request(id, std::span(msg).subspan(12), 5000, 200);
        EXPECT_EQ(1u, replies.size()) << d_.log_text();
        return replies.empty() ? std::vector<uint8_t>() : replies[0];
    }
    nlohmann::json ask(uint32_t id, const std::vector<uint8_t> &msg, const layout &l) {
        return tallyctl_decode_report(reply(id, msg), l);
    }

    tallyd_daemon d_;
    std::string stat_;
};

TEST_F(StatisE2e, FedStationsComeBackInTheListTheSummaryAndTheChart) {
    // Three stations with known counters, in two batches five seconds apart.
    std::map<std::string, std::pair<uint64_t, uint64_t>> sent;  // mac -> tx, rx
    std::vector<std::string> macs = {"02:aa:00:00:00:01", "02:aa:00:00:00:02", "02:aa:00:00:00:03"};
    for (int batch = 0; batch < 2; ++batch) {
        std::vector<events_wire::station> list;
        for (size_t i = 0; i < macs.size(); ++i) {
            events_wire::station s;
            s.client_mac = macs[i];
            s.ap_mac = "00:0b:00:00:00:01";
            s.ssid = "corp";
            s.device = "laptop";
            s.host_name = "host";
            s.tx_bytes = 1000 * (i + 1) + batch;
            s.rx_bytes = 7 * (i + 1);
            sent[macs[i]].first += s.tx_bytes;
            sent[macs[i]].second += s.rx_bytes;
            list.push_back(s);
        }
        ASSERT_TRUE(send_built(d_, TALLYD_MSG_CLIENT_STATS,
                               events_wire::build_client_stats(tallyd_now() - 5 + batch * 5, list),
                               tallyd_socket_kind::stat));
    }
    ASSERT_TRUE(eventually([&] {
        return e2e_sql(stat_, "SELECT COUNT(*) FROM statis_client_h") == "6";
    })) << d_.log_text();

    // No AP traffic yet: the list and the client summary carry nothing.
    EXPECT_EQ(28u, reply(TALLYD_MSG_GET_CLIENT_LIST, build_client_list({})).size());
    EXPECT_EQ(28u, reply(TALLYD_MSG_STATIS_CLIENT, build_statis({})).size());

    const uint64_t all = 40000;
    EXPECT_EQ("", e2e_sql(stat_,
                          "INSERT INTO statis_ap_h(time, ap_id, ssid_id, apgroup_id, "
                          "tx_bytes, rx_bytes, total_bytes) VALUES(" +
                              std::to_string(tallyd_now() - 60) + ", 1, 1, 0, 30000, " +
                              "10000, 40000)"));
    const nlohmann::json list = ask(TALLYD_MSG_GET_CLIENT_LIST, build_client_list({}), kClientList);
    ASSERT_EQ(3u, list["records"].size()) << list.dump();
    for (const auto &r : list["records"]) {
        const auto &[tx, rx] = sent.at(r["client_mac"].get<std::string>());
        EXPECT_EQ(tx, r["uplink"].get<uint64_t>());
        EXPECT_EQ(rx, r["downlink"].get<uint64_t>());
        EXPECT_EQ((tx + rx) * 10000 / all, r["share"].get<uint64_t>());
        EXPECT_EQ("laptop", r["device"]);
        EXPECT_EQ("Open", r["auth_type"]);
    }
    const uint8_t one[6] = {0x02, 0xaa, 0, 0, 0, 0x02};
    const nlohmann::json single =
        ask(TALLYD_MSG_GET_CLIENT_LIST, build_client_list(one), kClientList);
    ASSERT_EQ(1u, single["records"].size());
    EXPECT_EQ(sent["02:aa:00:00:00:02"].first, single["records"][0]["uplink"].get<uint64_t>());

    // A 27-byte request: status 2 in the reply word, no data.
    std::vector<uint8_t> short_req = build_client_list({});
    short_req.pop_back();
    const std::vector<uint8_t> refused = reply(TALLYD_MSG_GET_CLIENT_LIST, short_req);
    EXPECT_EQ(2u, wire_be32(refused, TALLYD_REPLY_WORD.offset));
    EXPECT_EQ(28u, refused.size());

    const nlohmann::json summary = ask(TALLYD_MSG_STATIS_CLIENT, build_statis({}), kClientStats);
    EXPECT_EQ(all, summary["fields"]["total"].get<uint64_t>());
    EXPECT_EQ(3u, summary["fields"]["clients"].get<uint64_t>());
    ASSERT_EQ(3u, summary["records"].size());
    EXPECT_EQ("02:aa:00:00:00:03", summary["records"][0]["name"]);
    EXPECT_EQ(sent["02:aa:00:00:00:03"].first + sent["02:aa:00:00:00:03"].second,
              summary["records"][0]["bytes"].get<uint64_t>());
    EXPECT_EQ("laptop", summary["devices"][0]["device"]);
    EXPECT_EQ(3u, summary["devices"][0]["clients"].get<uint64_t>());

    const nlohmann::json chart =
        ask(TALLYD_MSG_STATIS_SINGLE_CLIENT, build_single_chart(macs[0]), kSingleChart);
    const auto &steps = chart["fields"]["bytes"];
    ASSERT_EQ(13u, steps.size());
    // The newest row in the newest step; the older one five seconds before it
    // lies outside the next step (still "0,0").
    EXPECT_EQ(1001u, steps[0][1].get<uint64_t>());
    EXPECT_EQ(7u, steps[0][2].get<uint64_t>());
    for (size_t i = 1; i < 13; ++i) EXPECT_EQ(0u, steps[i][1].get<uint64_t>());

    // tallyctl prints the same replies and draws the chart.
    const std::string json = tallyctl(d_, "--json clients");
    EXPECT_EQ(list["records"], nlohmann::json::parse(json, nullptr, false)["records"]) << json;
    EXPECT_NE(std::string::npos, tallyctl(d_, "client-summary --top 2").find("02:aa:00:00:00:03"));
    EXPECT_NE(std::string::npos, tallyctl(d_, "ap-stats --ap 00:0b:00:00:00:01").find("aps: "));
    EXPECT_EQ(0u, tallyctl(d_, "ap-stats --top 300").find("exit 2"));
    const std::string png = d_.path("/chart.png");
    const std::string drawn = tallyctl(d_, "client-chart1 " + macs[0] + " --png '" + png + "'");
    if (drawn.rfind("exit", 0) == 0 && tallyd_test_launched())
        GTEST_SKIP() << "the tallyctl under test (a cross build) has no cairo to draw with";
    EXPECT_EQ(0u, read_text(png).find("\x89PNG")) << drawn;
}

}  // namespace
