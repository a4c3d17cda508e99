// The controller simulator against the real daemon: the same seed plays the
// same run, and a live run fills the statistic tables and the flow tables
// with the same clients, APs and SSIDs under the same ids.
#include <gtest/gtest.h>

#include <string>

#include "support/daemon.h"
#include "support/e2e_tools.h"
#include "support/e2e_util.h"

namespace {

TEST(SimE2e, TheSameSeedPlaysTheSameRun) {
    auto [a, rc_a] = run_tool("tallyd-sim --dry-run --minutes 40 --seed 7");
    auto [b, rc_b] = run_tool("tallyd-sim --dry-run --minutes 40 --seed 7");
    auto [c, rc_c] = run_tool("tallyd-sim --dry-run --minutes 40 --seed 8");
    ASSERT_EQ(0, rc_a + rc_b + rc_c);
    EXPECT_EQ(a, b);
    EXPECT_NE(a, c);
    EXPECT_NE(std::string::npos, a.find("minute 39: ")) << a;
}

TEST(SimE2e, ALiveRunFillsStatisticAndFlowTablesCoherently) {
    // Daemon and simulator share one clock: a minute of daemon time is two
    // seconds here, which leaves a batch 0.4 s to arrive within its 12 s.
    const sim_clock clock{30};
    tallyd_daemon d(clock.daemon());
    ASSERT_EQ(0, clock.run(d, "--repo-only --quiet").second);
    ASSERT_TRUE(d.start()) << d.log_text();
    auto [out, rc] = clock.run(d, "--quiet --minutes 2 --aps 4 --clients 20");
    ASSERT_EQ(0, rc) << out;

    const std::string stat = d.path("/tmp/tallyd/statistic.db");
    const std::string base = d.path("/tmp/tallyd/avp_temp.db");
    ASSERT_TRUE(eventually([&] {
        return e2e_sql(base, "SELECT COUNT(*) > 0 FROM avp_base") == "1";
    })) << d.log_text();
    EXPECT_EQ("4", e2e_sql(d.path("/tmp/tallyd/avp_1.0.db"), "SELECT COUNT(*) FROM avp_ap"));
    // Every AP serves its group's WLANs: one current row per AP and WLAN.
    EXPECT_EQ("12", e2e_sql(stat, "SELECT COUNT(*) FROM statis_ap_wlan WHERE ap_id>0 AND time=0"));
    EXPECT_EQ("1", e2e_sql(stat, "SELECT COUNT(*) > 0 FROM statis_client_h"));

    // A client's SSID has one id in its directory row and in its flows. Only
    // rows made by a join hold real ids (and an AP group): a counters batch
    // read before the join stores 1, deliberately.
    const std::string ssids = e2e_sql(stat,
                                      "SELECT client_mac||'='||ssid_id FROM statis_client_info_h "
                                      "WHERE apgroup_id IS NOT NULL ORDER BY client_mac");
    ASSERT_FALSE(ssids.empty());
    const std::string flows = e2e_sql(base,
                                      "SELECT DISTINCT client_mac||'='||ssid FROM avp_base "
                                      "ORDER BY client_mac");
    int shared = 0;
    for (size_t p = 0, q; p < flows.size(); p = q + 1) {
        q = flows.find(',', p);
        if (q == std::string::npos) q = flows.size();
        const std::string pair = flows.substr(p, q - p), mac = pair.substr(0, pair.find('='));
        if (ssids.find(mac) == std::string::npos) continue;
        ++shared;
        EXPECT_NE(std::string::npos, ssids.find(pair)) << pair << " not in " << ssids;
    }
    EXPECT_GT(shared, 3);
    expect_no_fault(d);
}

}  // namespace
