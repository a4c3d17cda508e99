// The daemon as a whole: start-up, the single-instance lock, the checks every
// datagram goes through, and shutdown.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "client.h"
#include "ipc/msg_layout.h"
#include "support/daemon.h"
#include "support/e2e_util.h"

namespace {

namespace fs = std::filesystem;

// A pid that certainly belongs to no process any more.
pid_t dead_pid() {
    pid_t child = fork();
    if (child == 0) _exit(0);
    waitpid(child, nullptr, 0);
    return child;
}

TEST(Foundation, StartsAnswersTheProbeAndStopsCleanlyOnSigterm) {
    tallyd_daemon d;
    ASSERT_TRUE(d.start()) << d.log_text();
    EXPECT_TRUE(d.probe());
    EXPECT_EQ(std::to_string(d.pid()), read_text(d.path("/var/run/tac/tallyd.pid")));
    for (auto s : {"tallyd.socket", "tallyd_stat.socket", "tallydTac.socket"})
        EXPECT_TRUE(fs::exists(d.path("/var/run/tac/") + s)) << s;

    EXPECT_EQ(0, d.stop());
    EXPECT_FALSE(fs::exists(d.path("/var/run/tac/tallyd.pid")));
    auto out = d.out_lines();
    EXPECT_NE(out.end(), std::find(out.begin(), out.end(), "Database file max is 15MB"));
}

TEST(Foundation, EveryBadDatagramIsLoggedAndDropped) {
    tallyd_daemon d;
    ASSERT_TRUE(d.start()) << d.log_text();
    using k = tallyd_socket_kind;

    const std::vector<uint8_t> short_msg(11, 0);
    ASSERT_TRUE(d.send_raw(k::control, short_msg));
    EXPECT_TRUE(d.logs_line("3 tallyd, recvfrom msg too short, len = 11"));

    tallyctl_bytes m = tallyctl_message(TALLYD_MSG_AP_ADD, std::vector<uint8_t>(8, 1), 4);
    be32_put(&m[8], 4);
    ASSERT_TRUE(d.send_raw(k::control, m));
    EXPECT_TRUE(
        d.logs_line("3 tallyd, received msg of 20 bytes from module 4 but len specified is = 4"));

    // Too long for the receive buffer: cut to 8,191 bytes, then mismatched.
    ASSERT_TRUE(d.send_raw(k::control,
                           tallyctl_message(TALLYD_MSG_AP_ADD, std::vector<uint8_t>(8180, 0), 2)));
    EXPECT_TRUE(d.logs_line(
        "3 tallyd, received msg of 8191 bytes from module 2 but len specified is = 8180"));
    // Each socket knows only its own ids.
    ASSERT_TRUE(d.send_raw(k::stat, tallyctl_message(TALLYD_MSG_AP_ADD, {}, 9)));
    EXPECT_TRUE(d.logs_line("3 tallyd, received invalid msg id 0x12000002 from module 9"));

    // Ignored ids are accepted without a word and without a reply.
    size_t lines_before = d.log_lines().size();
    EXPECT_TRUE(d.request(TALLYD_MSG_IGNORED_49, {}, 300).empty());
    EXPECT_TRUE(d.request(TALLYD_MSG_EVT_IGNORED_01, {}, 300).empty());
    EXPECT_EQ(lines_before, d.log_lines().size()) << d.log_text();

    // A probe whose length field is wrong is answered all the same.
    tallyctl_conn conn;
    std::string error;
    ASSERT_TRUE(conn.open(k::monitor, &error)) << error;
    tallyctl_bytes probe = tallyctl_message(TALLYD_MSG_TAC_PROBE, {});
    be32_put(&probe[8], 77);
    ASSERT_TRUE(conn.send(probe, &error));
    tallyctl_bytes reply;
    ASSERT_TRUE(conn.receive(&reply, 2000));
    tallyctl_reply_fields f = tallyctl_decode_reply(reply);
    EXPECT_EQ(28u, f.bytes);
    EXPECT_EQ(18u, f.module);
    EXPECT_EQ(TALLYD_MSG_TAC_PROBE_REPLY, f.msg_id);
    EXPECT_EQ(16u, f.length);
    EXPECT_EQ(TALLYD_MSG_TAC_PROBE, f.request_id);

    EXPECT_TRUE(d.probe());
    EXPECT_EQ(0, d.stop());
}

TEST(Foundation, SecondInstanceIsRefusedAndTheFirstRunsOn) {
    tallyd_daemon first;
    ASSERT_TRUE(first.start()) << first.log_text();

    tallyd_daemon_options o;
    o.root = first.root();
    o.wait_ready = false;
    tallyd_daemon second(o);
    ASSERT_TRUE(second.start());
    EXPECT_EQ(255, second.wait_exit());
    auto err = second.log_lines();
    ASSERT_GE(err.size(), 2u) << second.log_text();
    EXPECT_EQ("The tallyd is existing!", err[0]);
    EXPECT_EQ(0u, err[1].rfind(": ", 0)) << err[1];  // perror's system error text

    EXPECT_TRUE(first.probe());
    EXPECT_EQ(std::to_string(first.pid()), read_text(first.path("/var/run/tac/tallyd.pid")));
    EXPECT_EQ(0, first.stop());
}

TEST(Foundation, StaleLockAndSocketFilesDoNotBlockStartUp) {
    tallyd_daemon d;
    // A pid file of a dead process, and socket paths taken by plain files.
    write_text(d.path("/var/run/tac/tallyd.pid"), std::to_string(dead_pid()));
    write_text(d.path("/var/run/tac/tallyd.socket"), "stale");
    write_text(d.path("/var/run/tac/tallydTac.socket"), "stale");
    ASSERT_TRUE(d.start()) << d.log_text();
    EXPECT_EQ(std::to_string(d.pid()), read_text(d.path("/var/run/tac/tallyd.pid")));
    // SIGINT ends the daemon like SIGTERM.
    kill(d.pid(), SIGINT);
    EXPECT_EQ(0, d.wait_exit());
    EXPECT_FALSE(fs::exists(d.path("/var/run/tac/tallyd.pid")));

    // A live process that is not a tallyd does not count either.
    pid_t sleeper = fork();
    if (sleeper == 0) {
        execlp("sleep", "sleep", "30", static_cast<char *>(nullptr));
        _exit(127);
    }
    write_text(d.path("/var/run/tac/tallyd.pid"), std::to_string(sleeper) + "\n");
    tallyd_daemon_options o;
    o.root = d.root();
    tallyd_daemon again(o);
    bool started = again.start();
    kill(sleeper, SIGKILL);
    waitpid(sleeper, nullptr, 0);
    ASSERT_TRUE(started) << again.log_text();
    EXPECT_EQ(0, again.stop());
}

}  // namespace
