// The databases of a running daemon under faults an operator's device meets:
// a main database that turns corrupt, and copies taken while flows come in.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <chrono>
#include <cstdio>
#include <memory>
#include <string>

#include "base/file.h"
#include "sim/flow_sim.h"
#include "support/daemon.h"
#include "support/db_corrupt.h"
#include "support/e2e_util.h"

namespace {

constexpr const char *kMain = "/tmp/tallyd/avp_1.0.db";
constexpr const char *kFlash = "/etc/corvane-images/tallyd/avp_flash.db";

// Round n of flow files from tallyd-flowgen (its files named apart from
// those of other rounds); the uplink bytes it holds.
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

uint64_t hour_uplink(const tallyd_daemon &d) {
    const std::string v = e2e_sql(d.path(kMain), "SELECT TOTAL(uplink) FROM avp_ap_ssid_hour");
    return v.starts_with("ERROR") ? 0 : static_cast<uint64_t>(std::stod(v));
}

std::string md5_of(const std::string &file) {
    tallyd_pipe p(popen(("md5sum '" + file + "'").c_str(), "r"));
    char line[128] = {};
    if (!p || !std::fgets(line, sizeof line, p.get())) return "";
    return std::string(line).substr(0, 32);
}

ino_t inode(const std::string &file) {
    struct stat st {};
    return ::stat(file.c_str(), &st) == 0 ? st.st_ino : 0;
}

TEST(DbSafety, ARebuildOfTheMainDatabaseLeavesTheFlashDatabaseInPlace) {
    tallyd_daemon_options o;
    o.time_scale = 100;  // an hour-table rollup every three seconds
    tallyd_daemon d(o);
    ASSERT_TRUE(d.start()) << d.log_text();
    const std::string flash = d.path(kFlash);
    ASSERT_EQ("", e2e_sql(flash, "INSERT INTO avp_ap_week(time, app) VALUES(0, 'kept')"));
    const ino_t flash_inode = inode(flash);

    ASSERT_TRUE(corrupt_table_file(d.path(kMain).c_str(), "avp_all_group_hour"));
    write_round(d, 1);
    ASSERT_TRUE(d.wait_log("recover hour and day tables from malformed", 15000)) << d.log_text();

    EXPECT_EQ(flash_inode, inode(flash));
    EXPECT_EQ("kept", e2e_sql(flash, "SELECT app FROM avp_ap_week"));
    // The rebuilt main database takes the next rounds into its hour tables.
    const uint64_t up = write_round(d, 2);
    EXPECT_TRUE(eventually([&] { return hour_uplink(d) == up; }, 15000))
        << hour_uplink(d) << " of " << up << "\n"
        << d.log_text();
    EXPECT_EQ(0, d.stop());
}

TEST(DbSafety, CopiesTakenInALoopDuringAFlowLoadCostNoRows) {
    tallyd_daemon_options o;
    o.time_scale = 60;
    tallyd_daemon d(o);
    ASSERT_TRUE(d.start()) << d.log_text();
    const std::string flash_dir = d.path("/etc/corvane-images/tallyd");

    uint64_t up = 0;
    uint32_t round = 0;
    int saves = 0;
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(15);
    while (std::chrono::steady_clock::now() < end) {
        if (saves % 4 == 0) up += write_round(d, ++round);
        auto [out, rc] = run_tool("tallyd-save --root '" + d.root() + "' 2>&1");
        ASSERT_EQ(0, rc) << out;
        ++saves;
        // Each copy is a whole database: the checksum its checklist names
        // and SQLite's own check agree.
        for (const char *base : {"avp_1.0", "avp_backup_hour", "statistic"}) {
            const std::string copy = flash_dir + "/" + base + ".db";
            const std::string sum = read_text(flash_dir + "/" + base + ".md5").substr(0, 32);
            EXPECT_EQ(sum, md5_of(copy)) << base;
            EXPECT_EQ("ok", e2e_sql(copy, "PRAGMA integrity_check")) << base;
        }
    }
    // Every round reaches the hour tables once the rollups catch up.
    EXPECT_TRUE(eventually([&] { return hour_uplink(d) == up; }, 15000))
        << hour_uplink(d) << " of " << up << " after " << saves << " saves\n"
        << d.log_text();
    EXPECT_EQ(0, d.log_count("recover"));
    EXPECT_GT(saves, 10);
    EXPECT_EQ(0, d.stop());
}

}  // namespace
