// The daemon's crash report: written when it is killed by a crash signal,
// kept across the next start, shown by tallyctl crash; and a dump directory
// that cannot be made stops the start.
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <string>

#include "support/daemon.h"
#include "support/e2e_util.h"

namespace {

namespace fs = std::filesystem;

TEST(CrashReport, ACrashIsReportedKeptAndShownByTallyctl) {
    tallyd_daemon d;
    ASSERT_TRUE(d.start()) << d.log_text();
    const std::string root = "tallyctl --root '" + d.root() + "' ";
    EXPECT_EQ(1, run_tool(root + "crash 2>/dev/null").second);

    const std::string dump = d.path("/etc/corvane/dump/tallyd.dump");
    kill(d.pid(), SIGSEGV);
    EXPECT_EQ(255, d.wait_exit());
    auto out = d.out_lines();
    ASSERT_FALSE(out.empty());
    EXPECT_EQ("Creating dumpfile: " + dump, out.back());
    std::string report = read_text(dump);
    const std::string lead = "# tallyd, crashed at ";
    EXPECT_EQ(0u, report.rfind(lead, 0)) << report;
    // A signal sent by another process carries no fault code.
    EXPECT_NE(std::string::npos,
              report.find("\n#   Signal # = 11\n#   Error #  = 0\n#   Cause code = 0 (Unknown)\n"))
        << report;

    auto [text, status] = run_tool(root + "crash");
    EXPECT_EQ(0, status);
    EXPECT_EQ(0u, text.find("newest crash report: " + dump + "\n" + report)) << text;

    // The next start keeps the report as the newest copy.
    ASSERT_TRUE(d.start()) << d.log_text();
    EXPECT_FALSE(fs::exists(dump));
    EXPECT_EQ(report, read_text(dump + ".1"));
    auto [json_text, json_status] = run_tool(root + "--json crash");
    EXPECT_EQ(0, json_status);
    nlohmann::json j = nlohmann::json::parse(json_text, nullptr, false);
    ASSERT_FALSE(j.is_discarded()) << json_text;
    EXPECT_EQ(dump + ".1", j["newest"]["file"]);
    EXPECT_EQ(report, j["newest"]["report"]);
    ASSERT_EQ(1u, j["reports"].size());
    EXPECT_EQ(report.substr(lead.size(), report.find('\n') - lead.size()),
              j["reports"][0]["crashed_at"]);
    EXPECT_EQ(0, d.stop());
}

TEST(CrashReport, ADumpDirectoryThatCannotBeMadeEndsStartUp) {
    tallyd_daemon_options o;
    o.wait_ready = false;
    tallyd_daemon d(o);
    write_text(d.path("/etc/corvane"), "a file where the directory belongs");
    ASSERT_TRUE(d.start());
    EXPECT_EQ(255, d.wait_exit());
    EXPECT_TRUE(d.wait_log("mkdir failed: Not a directory")) << d.log_text();
    EXPECT_FALSE(fs::exists(d.path("/var/run/tac/tallyd.pid")));  // never got that far
}

}  // namespace
