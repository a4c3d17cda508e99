// The traffic simulator behind tallyd-flowgen: reproducible, and skewed
// enough for top lists.

#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "sim/arc_writer.h"
#include "sim/flow_sim.h"
#include "support/test_root.h"

namespace {

std::vector<std::vector<uint8_t>> encode_rounds(const flow_sim_config &cfg, uint32_t rounds) {
    flow_sim sim(cfg);
    auto msg = std::make_unique<ArcMessage>();
    std::vector<std::vector<uint8_t>> out;
    for (uint32_t round = 1; round <= rounds; ++round) {
        for (uint32_t ap = 0; ap < cfg.aps; ++ap) {
            sim.report(ap, round, msg.get());
            out.push_back(arc_encode(*msg));
        }
    }
    return out;
}

class FlowSim : public root_test {};

TEST_F(FlowSim, SameSeedSameFilesOtherSeedOtherFiles) {
    flow_sim_config cfg{.aps = 4, .clients = 30, .ssids = 3, .entries = 20, .seed = 11};
    auto a = encode_rounds(cfg, 2);
    auto b = encode_rounds(cfg, 2);
    EXPECT_EQ(a, b);
    cfg.seed = 12;
    EXPECT_NE(encode_rounds(cfg, 2), a);
    EXPECT_EQ(arc_spool_name("00:1a:2b:00:00:01", 3), "00:1a:2b:00:00:01-3");
    EXPECT_EQ(arc_spool_name("00:1a:2b:00:00:01", 3, arc_bad::no_colon), "001a2b000001-3");
}

TEST_F(FlowSim, TrafficIsHeavyTailedOverClients) {
    flow_sim sim({.aps = 10, .clients = 200, .ssids = 4, .entries = 50, .seed = 3});
    auto msg = std::make_unique<ArcMessage>();
    std::map<std::string, uint64_t> per_client;
    for (uint32_t round = 1; round <= 5; ++round) {
        for (uint32_t ap = 0; ap < 10; ++ap) {
            sim.report(ap, round, msg.get());
            for (pb_size_t i = 0; i < msg->records_count; ++i)
                per_client[msg->records[i].client_mac] += msg->records[i].total;
        }
    }
    std::vector<uint64_t> totals;
    for (const auto &[mac, bytes] : per_client) totals.push_back(bytes);
    std::sort(totals.rbegin(), totals.rend());
    uint64_t all = std::accumulate(totals.begin(), totals.end(), uint64_t{0});
    uint64_t top10 = std::accumulate(totals.begin(), totals.begin() + 10, uint64_t{0});
    // Ten of some two hundred clients carry well over their 5 % share.
    EXPECT_GT(top10 * 100, all * 30) << "top10=" << top10 << " all=" << all;
    EXPECT_GT(per_client.size(), 50u);
}

}  // namespace
