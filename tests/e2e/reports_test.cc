// The report requests through the daemon's own sockets: traffic the daemon
// took in from simulated flow files comes back in the top lists, the usage
// series and the pie exactly as summed here from the same simulation, and a
// requester that went away costs nothing but a log line.
#include <gtest/gtest.h>
#include <signal.h>
#include <sqlite3.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <memory>
#include <string>
#include <vector>

#include "base/path.h"
#include "client.h"
#include "ipc/msg_ids.h"
#include "report_decode.h"
#include "reports/report_wire.h"
#include "sim/flow_sim.h"
#include "support/daemon.h"
#include "support/e2e_util.h"
#include "support/launch.h"

using namespace report_wire;

namespace {

constexpr uint32_t kScale = 100;

const flow_sim_config kTraffic{.aps = 6, .clients = 60, .ssids = 3, .entries = 30, .seed = 21};

using totals_t = std::map<std::string, uint64_t>;

// What the simulation sent, summed independently of the daemon.
struct expected_traffic {
    totals_t apps, clients, aps, ssids;  // bytes per name
    uint64_t clients_total = 0, uplink = 0, downlink = 0;
};

expected_traffic expect(const flow_sim_config &c) {
    flow_sim sim(c);
    auto msg = std::make_unique<ArcMessage>();
    expected_traffic e;
    // The per-AP-and-SSID table keeps 32 bits of each group's sums.
    std::map<std::string, std::pair<uint64_t, uint64_t>> ap_ssid;
    for (uint32_t ap = 0; ap < c.aps; ++ap) {
        sim.report(ap, 1, msg.get());
        for (pb_size_t i = 0; i < msg->records_count; ++i) {
            const ArcFlowRecord &r = msg->records[i];
            e.apps[r.app] += r.uplink + r.downlink;
            e.clients[r.client_mac] += r.total;
            e.aps[r.ap_mac] += r.total;
            e.clients_total += r.total;
            e.uplink += r.uplink;
            e.downlink += r.downlink;
            auto &g = ap_ssid[std::string(r.ap_mac) + "/" + r.app + "/" + r.ssid];
            g.first += r.uplink, g.second += r.downlink;
        }
    }
    for (const auto &[key, sums] : ap_ssid)
        e.ssids[key.substr(key.rfind('/') + 1)] +=
            static_cast<uint32_t>(sums.first) + uint64_t{static_cast<uint32_t>(sums.second)};
    return e;
}

// The ten largest of a map, as name -> bytes.
totals_t top10(const totals_t &all) {
    std::vector<std::pair<uint64_t, std::string>> v;
    for (const auto &[k, n] : all) v.emplace_back(n, k);
    std::sort(v.rbegin(), v.rend());
    totals_t out;
    for (size_t i = 0; i < std::min<size_t>(10, v.size()); ++i) out[v[i].second] = v[i].first;
    return out;
}

class ReportsE2e : public ::testing::Test {
   protected:
    void SetUp() override {
        tallyd_daemon_options o;
        o.time_scale = kScale;
        d_ = std::make_unique<tallyd_daemon>(o);
        for (const char *list : {"ap-list", "wlansvc-list", "avpap-list", "avpssid-list"})
            write_text(d_->path(std::string("/etc/corvane/xrepo/") + list + ".xml"),
                       std::string("<") + list + "/>");
        ASSERT_TRUE(d_->start()) << d_->log_text();
    }
    void TearDown() override { EXPECT_EQ(0, d_->stop()); }

    // One request; its reply decoded with the layout (empty on no reply).
    // The reply carries the layout's whole data area, or none when empty.
    nlohmann::json ask(uint32_t id, const std::vector<uint8_t> &msg, const layout &l,
                       bool empty = false) {
        auto replies = d_->request(id, std::span(msg).subspan(12), 5000, 200);
        EXPECT_EQ(1u, replies.size()) << d_->log_text();
        if (replies.size() != 1) return {};
        EXPECT_EQ(replies[0].size(), 28u + (empty ? 0 : l.data_size));
        return tallyctl_decode_report(replies[0], l);
    }

    void feed(const flow_sim_config &c) {
        const std::string cmd = std::string(TALLYD_BIN_DIR) + "/tallyd-flowgen --quiet --root '" +
                                d_->root() + "' --aps " + std::to_string(c.aps) + " --clients " +
                                std::to_string(c.clients) + " --ssids " + std::to_string(c.ssids) +
                                " --entries " + std::to_string(c.entries) + " --seed " +
                                std::to_string(c.seed);
        ASSERT_EQ(std::system(cmd.c_str()), 0) << cmd;
        sqlite3 *db = nullptr;
        sqlite3_open_v2(d_->path("/tmp/tallyd/avp_1.0.db").c_str(), &db, SQLITE_OPEN_READONLY,
                        nullptr);
        sqlite3_busy_timeout(db, 2000);
        // The client table is the last of a run's three rollups.
        ASSERT_TRUE(eventually(
            [&] {
                sqlite3_stmt *s = nullptr;
                sqlite3_prepare_v2(db, "SELECT count(*) FROM avp_top_client_hour", -1, &s, nullptr);
                const bool rows = s && sqlite3_step(s) == SQLITE_ROW && sqlite3_column_int(s, 0);
                sqlite3_finalize(s);
                return rows;
            },
            20000))
            << d_->log_text();
        sqlite3_close_v2(db);
    }

    std::unique_ptr<tallyd_daemon> d_;
};

// name -> bytes of the decoded records, and each record's share checked
// against total.
totals_t records(const nlohmann::json &d, const char *name, uint64_t total) {
    totals_t out;
    for (const auto &r : d["records"]) {
        const uint64_t bytes = r["bytes"].get<uint64_t>();
        out[r[name].get<std::string>()] = bytes;
        EXPECT_EQ(bytes * 10000 / total, r["share"].get<uint64_t>()) << r.dump();
    }
    return out;
}

TEST_F(ReportsE2e, TheDaemonsOwnTrafficComesBackInEveryReport) {
    feed(kTraffic);
    const expected_traffic e = expect(kTraffic);

    auto top = [&](uint32_t flag) {
        return ask(TALLYD_MSG_GET_TOP_SUMMARY, build_top({.period = kPeriodHour, .flag = flag}),
                   *top_layout(flag));
    };
    EXPECT_EQ(top10(e.apps), records(top(kFlagApps), "app", e.clients_total));
    EXPECT_EQ(top10(e.clients), records(top(kFlagClients), "client_mac", e.clients_total));
    EXPECT_EQ(top10(e.aps), records(top(kFlagAps), "ap_mac", e.clients_total));
    EXPECT_EQ(top10(e.ssids), records(top(kFlagSsids), "ssid", e.clients_total));
    const nlohmann::json clients = top(kFlagClients);
    EXPECT_EQ(e.clients_total, clients["fields"]["total"].get<uint64_t>());

    // The day so far: no day or backup run yet, so the hour rows alone.
    const nlohmann::json day = ask(TALLYD_MSG_GET_TOP_SUMMARY,
                                   build_top({.period = kPeriodDay, .flag = kFlagApps}), kTopApps);
    EXPECT_EQ(top10(e.apps), records(day, "app", e.clients_total));

    const nlohmann::json series = ask(TALLYD_MSG_GET_CLIENTS_SUMMARY,
                                      build_usage({.ssid = "all", .usage = kUsageSeries}), kUsage);
    EXPECT_EQ(e.uplink, series["fields"]["uplink"].get<uint64_t>());
    EXPECT_EQ(e.downlink, series["fields"]["downlink"].get<uint64_t>());
    EXPECT_EQ(12u, series["fields"]["uplink_series"].size());

    const nlohmann::json pie =
        ask(TALLYD_MSG_GET_CLIENTS_SUMMARY,
            build_usage({.client_type = kClientPie, .type = 1, .usage = kUsageDetail}), kUsage);
    const uint64_t all = e.uplink + e.downlink;
    EXPECT_EQ(all, pie["fields"]["total"].get<uint64_t>());
    totals_t labels;
    for (const auto &r : pie["records"]) labels[r["label"]] = r["bytes"];
    EXPECT_EQ(top10(e.apps), labels);

    // No task fills the application client table.
    const nlohmann::json ac =
        ask(TALLYD_MSG_GET_APP_CLIENT,
            build_app_client({.name = pie["records"][0]["label"].get<std::string>()}), kAppClients);
    EXPECT_EQ(kAppClients.data_size, ac["data_length"].get<uint64_t>());
    EXPECT_TRUE(ac["records"].empty());

    // tallyctl prints the same reply as JSON and as a table, and draws it.
    const std::string ctl = "tallyctl --root '" + d_->root() + "' ";
    auto ok_output = [](const std::string &command) {
        auto [out, status] = run_tool(command);
        EXPECT_EQ(0, status) << command;
        return out;
    };
    const nlohmann::json printed =
        nlohmann::json::parse(ok_output(ctl + "--json usage --pie apps"), nullptr, false);
    EXPECT_EQ(pie, printed);
    const std::string table = ok_output(ctl + "top --list apps");
    EXPECT_NE(std::string::npos, table.find(pie["records"][0]["label"].get<std::string>()));
    EXPECT_NE(std::string::npos, table.find('%'));
    const std::string png = d_->path("/series.png"), svg = d_->path("/pie.svg");
    auto [drawn, status] = run_tool(ctl + "usage --series --png '" + png + "'");
    if (status != 0 && tallyd_test_launched())
        GTEST_SKIP() << "the tallyctl under test (a cross build) has no cairo to draw with";
    EXPECT_EQ(0, status);
    ok_output(ctl + "usage --pie ports --svg '" + svg + "'");
    EXPECT_EQ(0u, read_text(png).find("\x89PNG"));
    EXPECT_NE(std::string::npos, read_text(svg).find("<svg"));
}

TEST_F(ReportsE2e, ARequesterThatIsGoneCostsALogLineAndTheNextRequestIsServed) {
    // Hold the daemon still so that the requester is surely gone when it
    // answers.
    ASSERT_EQ(0, kill(d_->pid(), SIGSTOP));
    {
        tallyd_root_set(d_->root());
        tallyctl_conn gone;
        std::string error;
        ASSERT_TRUE(gone.open(tallyd_socket_kind::control, &error)) << error;
        const std::vector<uint8_t> msg = build_top({});
        ASSERT_TRUE(gone.send(
            tallyctl_message(TALLYD_MSG_GET_TOP_SUMMARY, std::span(msg).subspan(12)), &error));
    }
    ASSERT_EQ(0, kill(d_->pid(), SIGCONT));
    EXPECT_TRUE(d_->wait_log("tallyd, failed fd: ")) << d_->log_text();
    ask(TALLYD_MSG_GET_TOP_SUMMARY, build_top({}), kTopApps, true);  // no traffic yet
}

}  // namespace
