// The daemon running fast (TALLYD_TIME_SCALE) turns simulated flow files into
// five-minute buckets holding exactly the traffic of the files.
#include <gtest/gtest.h>

#include <cstdlib>
#include <map>
#include <memory>
#include <string>

#include "sim/flow_sim.h"
#include "support/daemon.h"
#include "support/e2e_util.h"

namespace {

constexpr uint32_t kScale = 100;  // five daemon minutes in three seconds

flow_sim_config batch(uint64_t seed) {
    return {.aps = 5, .clients = 40, .ssids = 3, .entries = 20, .seed = seed};
}

// tallyd-flowgen writes one round of the batch into the daemon's spool.
void write_batch(tallyd_daemon &d, const flow_sim_config &c) {
    const std::string cmd = tallyd_test_command("tallyd-flowgen") + " --quiet --root '" + d.root() +
                            "' --aps " + std::to_string(c.aps) + " --clients " +
                            std::to_string(c.clients) + " --ssids " + std::to_string(c.ssids) +
                            " --entries " + std::to_string(c.entries) + " --seed " +
                            std::to_string(c.seed);
    ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
}

using sums_t = std::map<std::string, std::map<std::string, uint64_t>>;

// What the same simulation wrote, summed independently: per "app/group" the
// uplink and downlink, per client (short MAC form) the total, and all uplink.
sums_t expected(const flow_sim_config &c) {
    flow_sim sim(c);
    auto msg = std::make_unique<ArcMessage>();
    sums_t s;
    for (uint32_t ap = 0; ap < c.aps; ++ap) {
        sim.report(ap, 1, msg.get());
        for (pb_size_t i = 0; i < msg->records_count; ++i) {
            const ArcFlowRecord &r = msg->records[i];
            s["up"][std::string(r.app) + "/1"] += r.uplink;  // unknown APs: group 1
            s["down"][std::string(r.app) + "/1"] += r.downlink;
            s["all"]["up"] += r.uplink;
            std::string mac = r.client_mac;
            std::erase(mac, ':');
            if (r.total) s["total"][mac] += r.total;
        }
    }
    return s;
}

// Rows of a two-column query on the daemon's main database as key -> number.
struct db_reader {
    std::string file;
    std::map<std::string, uint64_t> pairs(const std::string &sql) const {
        std::map<std::string, uint64_t> out;
        for (const auto &row : e2e_rows(file, sql)) out[row.at(0)] = std::stoull(row.at(1));
        return out;
    }
};

// The bucket times, waiting up to 20 s for `count`. The client table is the
// last of the three a run writes, so its buckets are complete everywhere.
std::map<std::string, uint64_t> wait_buckets(const db_reader &db, size_t count) {
    std::map<std::string, uint64_t> b;
    eventually(
        [&] {
            b = db.pairs("SELECT time, count(*) FROM avp_top_client_hour GROUP BY time");
            return b.size() >= count;
        },
        20000);
    return b;
}

}  // namespace

TEST(RollupBuckets, FlowFilesBecomeFiveMinuteBucketsOfTheirTraffic) {
    tallyd_daemon_options o;
    o.time_scale = kScale;
    tallyd_daemon d(o);
    ASSERT_TRUE(d.start()) << d.log_text();
    const flow_sim_config first = batch(11), second = batch(12);
    write_batch(d, first);

    const db_reader db{d.path("/tmp/tallyd/avp_1.0.db")};
    auto buckets = wait_buckets(db, 1);
    ASSERT_EQ(buckets.size(), 1u) << d.log_text();
    write_batch(d, second);  // well before the next flow run and bucket
    buckets = wait_buckets(db, 2);
    ASSERT_EQ(buckets.size(), 2u) << d.log_text();
    const std::string t1 = buckets.begin()->first, t2 = buckets.rbegin()->first;
    EXPECT_EQ(std::stoul(t2) - std::stoul(t1), 300u);

    for (const auto &[t, c] : {std::pair{t1, first}, std::pair{t2, second}}) {
        const sums_t want = expected(c);
        const std::string in = " FROM avp_all_group_hour WHERE time=" + t;
        EXPECT_EQ(db.pairs("SELECT app || '/' || group_id, uplink" + in), want.at("up")) << t;
        EXPECT_EQ(db.pairs("SELECT app || '/' || group_id, downlink" + in), want.at("down"));
        EXPECT_EQ(db.pairs("SELECT client_mac, SUM(total) FROM avp_top_client_hour WHERE time=" +
                           t + " GROUP BY client_mac"),
                  want.at("total"));
        EXPECT_EQ(db.pairs("SELECT 'up', SUM(uplink) FROM avp_ap_ssid_hour WHERE time=" + t),
                  want.at("all"));
    }
    EXPECT_EQ(0, d.stop());
}
