// The running daemon takes in the spool: simulated flow files become avp_base
// rows on its 59-second schedule (run fast with TALLYD_TIME_SCALE), bad files
// are dropped, and later rounds from tallyd-flowgen reach the hour tables.
#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <memory>
#include <string>

#include "base/path.h"
#include "sim/arc_writer.h"
#include "sim/flow_sim.h"
#include "support/daemon.h"
#include "support/e2e_util.h"

namespace {

constexpr uint32_t kScale = 30;  // a flow run every 2 s, the hour task every 10 s

// A number the daemon's database holds; -1 when the query gives none.
int64_t query_int(const std::string &file, const std::string &sql) {
    const std::string v = e2e_sql(file, sql);
    return v.empty() || v.find_first_not_of("0123456789") != std::string::npos ? -1 : std::stoll(v);
}

size_t spool_files(const std::string &spool) {
    size_t n = 0;
    std::error_code ec;
    for (auto it = std::filesystem::directory_iterator(spool, ec);
         it != std::filesystem::directory_iterator(); it.increment(ec))
        ++n;
    return n;
}

TEST(FlowIngestE2e, SpoolFilesBecomeBaseRowsThenHourBuckets) {
    tallyd_daemon_options options;
    options.time_scale = kScale;
    tallyd_daemon d(options);
    std::string spool = d.path(TALLYD_SPOOL_DIR);
    std::string temp_db = d.path("/tmp/tallyd/avp_temp.db");
    std::string main_db = d.path("/tmp/tallyd/avp_1.0.db");
    std::filesystem::create_directories(spool);

    // Four good reports and two bad ones are waiting before the daemon starts.
    flow_sim sim({.aps = 4, .clients = 24, .ssids = 2, .entries = 20, .seed = 5});
    auto msg = std::make_unique<ArcMessage>();
    uint64_t up = 0, down = 0;
    for (uint32_t ap = 0; ap < 4; ++ap) {
        sim.report(ap, 1, msg.get());
        for (pb_size_t i = 0; i < msg->records_count; ++i) {
            up += msg->records[i].uplink;
            down += msg->records[i].downlink;
        }
        ASSERT_EQ(arc_write_file(spool, arc_spool_name(sim.ap_mac(ap), 1), arc_encode(*msg)), 0);
    }
    flow_sim full({.aps = 1, .clients = 5, .ssids = 1, .entries = 50, .seed = 6});
    full.report(0, 1, msg.get());
    ASSERT_EQ(arc_write_file(spool, "00:1a:2b:ff:ff:01-1", arc_encode(*msg, arc_bad::too_many)), 0);
    ASSERT_EQ(arc_write_file(spool, arc_spool_name("00:1a:2b:ff:ff:02", 1, arc_bad::no_colon),
                             arc_encode(*msg)),
              0);

    ASSERT_TRUE(d.start()) << d.log_text();
    // The first flow run comes 59 daemon seconds after start.
    ASSERT_TRUE(d.wait_log("tallyd, failed to decode ARC", 15000)) << d.log_text();
    ASSERT_TRUE(eventually([&] { return spool_files(spool) == 0; }, 5000));
    ASSERT_TRUE(
        eventually([&] { return query_int(temp_db, "SELECT count(*) FROM avp_base") == 80; }, 5000))
        << d.log_text();
    EXPECT_EQ(query_int(temp_db, "SELECT sum(uplink) FROM avp_base"), static_cast<int64_t>(up));
    EXPECT_EQ(query_int(temp_db, "SELECT sum(downlink) FROM avp_base"), static_cast<int64_t>(down));
    EXPECT_EQ(query_int(temp_db, "SELECT count(DISTINCT ap_mac) FROM avp_base"), 4);
    EXPECT_EQ(query_int(temp_db, "SELECT count(DISTINCT time) FROM avp_base"), 1);
    EXPECT_EQ(query_int(temp_db, "SELECT count(*) FROM avp_base WHERE group_id <> 1"), 0);

    // tallyd-flowgen every 60 daemon seconds, two rounds, while the daemon runs:
    // the hour task then folds avp_base into five-minute buckets.
    std::string cmd = tallyd_test_command("tallyd-flowgen") + " --quiet --root '" + d.root() +
                      "' --aps 3 --clients 12 --entries 10 --every 60 --rounds 2 " + "--round 10";
    ASSERT_EQ(std::system(("TALLYD_TIME_SCALE=" + std::to_string(kScale) + " " + cmd).c_str()), 0);
    EXPECT_TRUE(eventually(
        [&] { return query_int(main_db, "SELECT count(*) FROM avp_ap_ssid_hour") > 0; }, 20000))
        << d.log_text();
    EXPECT_TRUE(eventually([&] { return spool_files(spool) == 0; }, 5000));
    EXPECT_EQ(d.log_count("tallyd, flow commit aErrMsg"), 0);
    EXPECT_EQ(d.stop(), 0);
}

}  // namespace
