// The traffic simulator behind tallyd-flowgen: reproducible, decodable by
// the ingester, and skewed enough for top lists.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <memory>
#include <numeric>
#include <string>
#include <vector>

#include "base/file.h"
#include "flow/ingest_stream.h"
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

class flow_sim_test : public root_test {};

TEST_F(flow_sim_test, SameSeedSameFilesOtherSeedOtherFiles) {
    flow_sim_config cfg{.aps = 4, .clients = 30, .ssids = 3, .entries = 20, .seed = 11};
    auto a = encode_rounds(cfg, 2);
    auto b = encode_rounds(cfg, 2);
    EXPECT_EQ(a, b);
    cfg.seed = 12;
    EXPECT_NE(encode_rounds(cfg, 2), a);
    EXPECT_EQ(arc_spool_name("00:1a:2b:00:00:01", 3), "00:1a:2b:00:00:01-3");
    EXPECT_EQ(arc_spool_name("00:1a:2b:00:00:01", 3, arc_bad::no_colon), "001a2b000001-3");
}

TEST_F(flow_sim_test, WrittenReportsDecodeThroughTheSpoolReader) {
    flow_sim sim({.aps = 3, .clients = 7, .ssids = 2, .entries = 50, .seed = 1});
    auto msg = std::make_unique<ArcMessage>();
    auto back = std::make_unique<ArcMessage>();
    std::string dir = path("/spool");
    write_file("/spool/.keep", "");
    for (uint32_t ap = 0; ap < 3; ++ap) {
        sim.report(ap, 1, msg.get());
        std::string name = arc_spool_name(sim.ap_mac(ap), 1);
        ASSERT_EQ(arc_write_file(dir, name, arc_encode(*msg)), 0);
        unique_fd fd(open((dir + "/" + name).c_str(), O_RDONLY));
        ASSERT_TRUE(fd);
        pb_byte_t buffer[4096];
        arc_source src{.fd = fd.get(), .buffer = buffer};
        EXPECT_TRUE(tallyd_decode_arc(&src, back.get()));
        EXPECT_TRUE(back->has_serial);
        ASSERT_EQ(back->records_count, 50);
        for (pb_size_t i = 0; i < back->records_count; ++i) {
            EXPECT_EQ(std::string(back->records[i].ap_mac), sim.ap_mac(ap));
            EXPECT_EQ(back->records[i].total, back->records[i].uplink + back->records[i].downlink);
        }
    }
}

TEST_F(flow_sim_test, TrafficIsHeavyTailedOverClients) {
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
