// The databases of a running daemon while tallyd-save copies them, as the
// device does before a reboot, and flows keep coming in.
#include <gtest/gtest.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>

#include "sim/flow_sim.h"
#include "support/daemon.h"
#include "support/e2e_tools.h"

namespace {

// Round n of flow files from tallyd-flowgen; the uplink bytes it holds.
uint64_t write_round(const tallyd_daemon &d, uint32_t n) {
    const flow_sim_config c{.aps = 4, .clients = 30, .ssids = 2, .entries = 20, .seed = 5};
    auto [out, rc] =
        run_tool("tallyd-flowgen --quiet --root '" + d.root() + "' --aps 4 " +
                 "--clients 30 --ssids 2 --entries 20 --seed 5 --round " + std::to_string(n));
    EXPECT_EQ(0, rc) << out;
    flow_sim sim(c);
    auto msg = std::make_unique<ArcMessage>();
    uint64_t up = 0;
    for (uint32_t ap = 0; ap < c.aps; ++ap) {
        sim.report(ap, n, msg.get());
        for (pb_size_t i = 0; i < msg->records_count; ++i) up += msg->records[i].uplink;
    }
    return up;
}

std::string hour_uplink(const tallyd_daemon &d) {
    return e2e_sql(d.path("/tmp/tallyd/avp_1.0.db"), "SELECT SUM(uplink) FROM avp_ap_ssid_hour");
}

TEST(DbSafety, CopiesTakenInALoopDuringAFlowLoadCostNoRows) {
    tallyd_daemon d(sim_clock{30}.daemon());
    ASSERT_TRUE(d.start()) << d.log_text();
    const std::string flash_dir = d.path("/etc/corvane-images/tallyd");
    const std::string spool = d.path("/etc/corvane-images/firmwares/avpd");
    std::filesystem::create_directories(spool);

    uint64_t up = 0;
    uint32_t round = 0, saves = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (std::chrono::steady_clock::now() < end) {
        // A file arriving while a flow run reads the spool goes with it.
        if (std::filesystem::is_empty(spool)) up += write_round(d, ++round);
        auto [out, rc] = run_tool("tallyd-save --root '" + d.root() + "' 2>&1");
        ASSERT_EQ(0, rc) << out;
        ++saves;
        for (const char *base : {"avp_1.0", "avp_backup_hour", "statistic"})
            EXPECT_EQ("ok", e2e_sql(flash_dir + "/" + base + ".db", "PRAGMA integrity_check"));
    }
    // Every round reaches the hour tables once the rollups catch up.
    EXPECT_TRUE(eventually([&] { return hour_uplink(d) == std::to_string(up); }, 25000))
        << hour_uplink(d) << " of " << up << " after " << saves << " saves\n"
        << d.log_text();
    EXPECT_EQ(0, d.log_count("recover"));
    EXPECT_EQ(0, d.stop());
}

}  // namespace
