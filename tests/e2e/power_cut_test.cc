// Power cuts and crashes: the daemon killed with SIGKILL at random moments
// while it takes in flows, rolls them up, handles events and saves its
// dictionaries, and started again on what it left behind.
#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <filesystem>
#include <map>
#include <memory>
#include <random>
#include <string>
#include <thread>

#include "entity/dict.h"
#include "events/events_wire.h"
#include "sim/arc_writer.h"
#include "sim/flow_sim.h"
#include "support/e2e_tools.h"
#include "support/test_root.h"

namespace {

constexpr const char *kDatabases[] = {
    "/tmp/tallyd/avp_1.0.db",         "/tmp/tallyd/avp_temp.db",
    "/tmp/tallyd/avp_backup_hour.db", "/tmp/tallyd/statistic.db",
    "/tmp/tallyd/avp_top_list.db",    "/etc/corvane-images/tallyd/avp_flash.db"};
constexpr const char *kDictionaries[] = {"ap", "ssid", "apgroup", "dvcinfo"};
constexpr uint32_t kHourPeriod = 300;

// One round of traffic: APs new to the daemon join and report flows (new
// dictionary entries and repository saves), their stations join and send
// counters, for as long as the round lasts.
void feed(tallyd_daemon &d, const sim_clock &clock, uint32_t round,
          std::chrono::milliseconds length) {
    flow_sim flows(flow_sim_config{4 * (round + 1), 40, 2 + round % 5, 20, round});
    ArcMessage msg;
    const auto end = std::chrono::steady_clock::now() + length;
    for (uint32_t step = 0; std::chrono::steady_clock::now() < end; ++step) {
        const uint32_t ap = 4 * round + step % 4;
        const std::string mac = flows.ap_mac(ap);
        events_wire::ap_add add{mac, "AP-120", 1, 2, {1, 1}};
        send_built(d, TALLYD_MSG_AP_ADD, events_wire::build_ap_add(add));
        flows.report(ap, step, &msg);
        ASSERT_EQ(0, arc_write_file(d.path(TALLYD_SPOOL_DIR), arc_spool_name(mac, step),
                                    arc_encode(msg)));
        const std::string client = flows.client_mac(step % 40), ssid = flows.ssid(step % 3);
        events_wire::station s;
        s.client_mac = client;
        s.ap_mac = mac;
        s.ssid = ssid;
        s.rx_bytes = 1000 * step;
        send_built(d, TALLYD_MSG_STA_ADD, events_wire::build_sta_add(s));
        send_built(d, TALLYD_MSG_CLIENT_STATS,
                   events_wire::build_client_stats(clock.now(), std::span(&s, 1)),
                   tallyd_socket_kind::stat);
        std::this_thread::sleep_for(std::chrono::milliseconds(15));
    }
}

// Every dictionary entry as its repository list holds it.
std::map<std::string, uint32_t> stored_ids(const tallyd_daemon &d, std::string *torn) {
    tallyd_root_set(d.root());
    std::map<std::string, uint32_t> ids;
    for (const char *name : kDictionaries) {
        std::vector<tallyd_dict_stored> entries;
        if (tallyd_dict_read_stored(name, &entries) != 0) *torn += std::string(name) + " ";
        for (const tallyd_dict_stored &e : entries) ids[std::string(name) + ":" + e.key] = e.id;
    }
    return ids;
}

uint32_t newest_hour(const tallyd_daemon &d) {
    const std::string t =
        e2e_sql(d.path("/tmp/tallyd/avp_1.0.db"), "SELECT MAX(time) FROM avp_top_client_hour");
    return t.empty() || t == "NULL" || t.rfind("ERROR", 0) == 0 ? 0 : std::stoul(t);
}

TEST(PowerCut, FiftyKillsLeaveDatabasesListsIdsAndScheduleIntact) {
    // Five minutes of daemon time a real second: a flow run every 0.2 s, a
    // five-minute rollup every second. The root is in RAM where there is
    // one, as the device's databases are: disk syncs would only make the
    // timers late.
    const sim_clock clock{300};
    std::unique_ptr<temp_dir> ram_root;
    tallyd_daemon_options options = clock.daemon();
    if (std::filesystem::is_directory("/dev/shm")) {
        const char *tmpdir = std::getenv("TMPDIR");
        const std::string saved = tmpdir ? tmpdir : "";
        setenv("TMPDIR", "/dev/shm", 1);
        ram_root = std::make_unique<temp_dir>();
        tmpdir ? setenv("TMPDIR", saved.c_str(), 1) : unsetenv("TMPDIR");
        options.root = ram_root->path();
    }
    tallyd_daemon d(options);
    ASSERT_EQ(0, clock.run(d, "--repo-only --quiet").second);
    std::filesystem::create_directories(d.path(TALLYD_SPOOL_DIR));
    std::mt19937 rng(20261123);
    std::map<std::string, uint32_t> ids;
    int resumed = 0;

    for (uint32_t round = 0; round < 50; ++round) {
        SCOPED_TRACE("round " + std::to_string(round));
        // Every tenth cut takes the RAM file system with it, as on the device.
        const bool ram_lost = round % 10 == 9;
        const uint32_t before = newest_hour(d);
        ASSERT_TRUE(d.start()) << d.log_text();
        feed(d, clock, round, std::chrono::milliseconds(200 + rng() % 1300));
        ASSERT_EQ(0, kill(d.pid(), SIGKILL));
        ASSERT_EQ(128 + SIGKILL, d.wait_exit());

        for (const char *db : kDatabases) {
            if (!std::filesystem::exists(d.path(db))) continue;
            EXPECT_EQ("ok", e2e_sql(d.path(db), "PRAGMA integrity_check")) << db;
        }
        std::string torn;
        const std::map<std::string, uint32_t> now = stored_ids(d, &torn);
        EXPECT_EQ("", torn) << "lists that no longer parse";
        for (const auto &[key, id] : ids) {
            auto it = now.find(key);
            ASSERT_NE(now.end(), it) << key << " lost";
            EXPECT_EQ(id, it->second) << key << " changed its id";
        }
        ids = now;
        // No stored flow names an AP or SSID the repository does not hold.
        const std::string base = d.path("/tmp/tallyd/avp_temp.db");
        for (const auto &row : e2e_rows(base, "SELECT DISTINCT ap_mac, ssid FROM avp_base")) {
            bool ap = false, ssid = false;
            for (const auto &[key, id] : now) {
                ap = ap || (key.rfind("ap:", 0) == 0 && std::to_string(id) == row[0]);
                ssid = ssid || (key.rfind("ssid:", 0) == 0 && std::to_string(id) == row[1]);
            }
            EXPECT_TRUE(ap && ssid) << "avp_base names ap " << row[0] << ", ssid " << row[1];
        }
        // The first rollup after the restart kept the phase of the last one
        // before it. Timers fire late, never early: a busy machine may make
        // it a few hundred ms late (a third of the period is 330 ms here),
        // while a schedule that lost its phase would land anywhere in it.
        const std::string after = e2e_sql(d.path("/tmp/tallyd/avp_1.0.db"),
                                          "SELECT MIN(time) FROM avp_top_client_hour WHERE "
                                          "time > " +
                                              std::to_string(before));
        if (before != 0 && !after.empty() && after != "NULL") {
            const uint32_t off = (std::stoul(after) - before) % kHourPeriod;
            EXPECT_LT(off, kHourPeriod / 3) << "rollup " << off << " s off phase";
            ++resumed;
        }
        if (ram_lost) std::filesystem::remove_all(d.path("/tmp"));
    }
    EXPECT_GT(ids.size(), 100u);
    EXPECT_GT(resumed, 10);
    ASSERT_TRUE(d.start()) << d.log_text();
    EXPECT_EQ(0, d.stop());
    expect_no_fault(d);
}

}  // namespace
