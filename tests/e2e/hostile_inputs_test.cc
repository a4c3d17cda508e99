// What a broken or hostile neighbour can put in front of the daemon: special
// files in the spool and in place of repository lists, floods of bad
// datagrams, stray signals and a huge dictionary. The daemon must keep
// answering, keep its log readable and end cleanly.
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <initializer_list>
#include <memory>
#include <string>
#include <thread>

#include "base/path.h"
#include "client.h"
#include "sim/arc_writer.h"
#include "support/daemon.h"
#include "support/e2e_util.h"

namespace {

namespace fs = std::filesystem;

constexpr uint32_t kScale = 30;  // a flow run every 2 s

std::string mac(uint32_t i) {
    char b[18];
    std::snprintf(b, sizeof b, "02:00:%02x:%02x:%02x:%02x", (i >> 24) & 0xff, (i >> 16) & 0xff,
                  (i >> 8) & 0xff, i & 0xff);
    return b;
}

// A flow file of one entry on each AP of ap_macs. One file, so that the flow
// run's time budget, checked after each file, cannot drop a part of them.
void put_flow(const std::string &spool, const std::string &name,
              std::initializer_list<std::string> ap_macs) {
    auto msg = std::make_unique<ArcMessage>();
    *msg = ArcMessage_init_zero;
    msg->has_serial = true;
    for (const std::string &ap_mac : ap_macs) {
        ArcFlowRecord &r = msg->records[msg->records_count++];
        std::snprintf(r.app, sizeof r.app, "HTTPS");
        std::snprintf(r.client_mac, sizeof r.client_mac, "02:00:00:00:00:09");
        std::snprintf(r.ap_mac, sizeof r.ap_mac, "%s", ap_mac.c_str());
        std::snprintf(r.ssid, sizeof r.ssid, "corp");
        r.total = r.downlink = 100;
    }
    ASSERT_EQ(0, arc_write_file(spool, name, arc_encode(*msg)));
}

std::string base_rows(const tallyd_daemon &d) {
    return e2e_sql(d.path("/tmp/tallyd/avp_temp.db"), "SELECT ap_mac FROM avp_base ORDER BY 1");
}

bool is_fifo(const std::string &p) {
    struct stat st;
    return lstat(p.c_str(), &st) == 0 && S_ISFIFO(st.st_mode);
}

TEST(HostileInputs, SpecialFilesInTheSpoolNeitherStallTheDaemonNorStay) {
    tallyd_daemon_options options;
    options.time_scale = kScale;
    tallyd_daemon d(options);
    const std::string spool = d.path(TALLYD_SPOOL_DIR);
    const std::string ap = "00:1a:2b:00:00:0";
    fs::create_directories(spool + "/" + ap + "3-dir");
    ASSERT_EQ(0, mkfifo((spool + "/" + ap + "1-fifo").c_str(), 0600));
    ASSERT_EQ(0, mkfifo(d.path("/fifo").c_str(), 0600));
    fs::create_symlink(d.path("/fifo"), spool + "/" + ap + "2-link");
    int sock = socket(AF_UNIX, SOCK_DGRAM, 0);
    sockaddr_un addr{};
    addr.sun_family = AF_UNIX;
    std::snprintf(addr.sun_path, sizeof addr.sun_path, "%s/%s4-sock", spool.c_str(), ap.c_str());
    ASSERT_EQ(0, bind(sock, reinterpret_cast<sockaddr *>(&addr), sizeof addr));
    close(sock);
    put_flow(spool, ap + "5-1", {ap + "5"});

    ASSERT_TRUE(d.start()) << d.log_text();
    ASSERT_TRUE(eventually([&] { return base_rows(d) == "1"; }, 10000)) << d.log_text();
    EXPECT_TRUE(d.probe(1000));
    EXPECT_TRUE(eventually([&] { return fs::is_empty(spool); }, 2000));
    EXPECT_TRUE(is_fifo(d.path("/fifo")));  // the link went, not what it named
    EXPECT_EQ(0, d.stop());
}

TEST(HostileInputs, ListsThatAreNoFilesAreLoggedAbsentAndNeverReplaced) {
    tallyd_daemon d;
    const std::string xrepo = d.path(TALLYD_XREPO_DIR);
    fs::create_directories(xrepo + "/avpssid-list.xml");
    ASSERT_EQ(0, mkfifo((xrepo + "/avpap-list.xml").c_str(), 0600));

    ASSERT_TRUE(d.start()) << d.log_text();
    EXPECT_EQ(1, d.log_count("avpssid-list.xml is not a regular file, ignored"));
    EXPECT_EQ(1, d.log_count("avpap-list.xml is not a regular file, ignored"));
    // A new AP is given an id, which the list cannot take: nothing is written.
    EXPECT_TRUE(run_tool("tallyctl --root " + d.root() + " stat0a " + mac(1) + "=5").second == 0);
    EXPECT_TRUE(d.wait_log("tallyd_add_avpap_xml")) << d.log_text();
    EXPECT_TRUE(is_fifo(xrepo + "/avpap-list.xml"));
    EXPECT_TRUE(fs::is_directory(xrepo + "/avpssid-list.xml"));
    EXPECT_TRUE(d.probe());
}

TEST(HostileInputs, AFloodOfOneBadDatagramIsCutAndOtherLinesStillShow) {
    tallyd_daemon d;
    ASSERT_TRUE(d.start()) << d.log_text();
    tallyd_root_set(d.root());
    tallyctl_conn conn;
    std::string error;
    ASSERT_TRUE(conn.open(tallyd_socket_kind::control, &error)) << error;
    const uint8_t junk[3] = {1, 2, 3};
    const auto start = std::chrono::steady_clock::now();
    for (int i = 0; i < 20000; ++i) {
        ASSERT_TRUE(conn.send(junk, &error)) << error;
        if (i == 10000) {
            ASSERT_TRUE(d.send(0x03000047));
        }
    }
    ASSERT_TRUE(d.probe(5000));  // the daemon has caught up
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    ASSERT_TRUE(conn.send(junk, &error));  // reports the last second's count
    EXPECT_TRUE(d.wait_log("lines like \"tallyd, recvfrom msg too short, len = %d\" suppressed"));
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    EXPECT_LE(d.log_count("recvfrom msg too short, len = 3"), 10 * (static_cast<int>(secs) + 2));
    EXPECT_EQ(1, d.log_count("tallyd, received invalid msg id 0x03000047")) << d.log_text();
}

TEST(HostileInputs, HupQuitAndUsr1Or2EndTheDaemonAsTermDoes) {
    tallyd_daemon d;
    for (int sig : {SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2}) {
        ASSERT_TRUE(d.start()) << sig << d.log_text();
        kill(d.pid(), sig);
        EXPECT_EQ(0, d.wait_exit()) << sig;
        EXPECT_FALSE(fs::exists(d.path(TALLYD_PID_FILE))) << sig;
    }
    ASSERT_TRUE(d.start()) << d.log_text();
    EXPECT_EQ(0, d.stop());
}

// 400,000 APs on the small platform (56 buckets, chains of thousands): the
// ids are those stored, and the full dictionary refuses a new AP.
TEST(HostileInputs, AFourHundredThousandEntryApListLoadsInSeconds) {
    constexpr uint32_t kAps = 400000;
    tallyd_daemon_options options;
    options.time_scale = kScale;
    options.ready_timeout_ms = 30000;
    tallyd_daemon d(options);
    std::string list = "<avpap-list>";
    for (uint32_t i = 1; i <= kAps; ++i)
        list += "<avpap id=\"" + std::to_string(i) + "\" ap=\"" + mac(i) + "\"/>";
    write_text(d.path(TALLYD_XREPO_DIR) + "/avpap-list.xml", list + "</avpap-list>");
    const std::string spool = d.path(TALLYD_SPOOL_DIR);
    fs::create_directories(spool);
    put_flow(spool, mac(kAps) + "-1", {mac(kAps), mac(7), mac(kAps + 1)});

    const auto start = std::chrono::steady_clock::now();
    ASSERT_TRUE(d.start()) << d.log_text();
    const double secs =
        std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    // A load that walked its chains took two minutes; the bound is loose
    // enough for a sanitizer build on a busy machine (make bench times it).
    EXPECT_LT(secs, tallyd_test_timeout(12000) / 1000.0);
    ASSERT_TRUE(eventually([&] { return base_rows(d) == "7,400000"; }, 10000)) << base_rows(d);
    EXPECT_EQ(1, d.log_count("avpap-list holds its maximum of 3584 entries"));
}

}  // namespace
