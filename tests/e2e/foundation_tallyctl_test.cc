// tallyctl: its parsing, and the binary against a running and a stopped
// daemon.
#include <gtest/gtest.h>

#include <string>

#include "client.h"
#include "ipc/msg_layout.h"
#include "support/daemon.h"
#include "support/e2e_util.h"

namespace {

struct run_result {
    int status;
    std::string out;
};

// Runs build/tallyctl with args (root given) and collects stdout and stderr.
run_result tallyctl(const std::string &root, const std::string &args) {
    auto [out, status] = run_tool("tallyctl --root '" + root + "' " + args + " 2>&1");
    return {status, out};
}

TEST(TallyctlClient, ParsesIdsPayloadsAndSockets) {
    uint32_t id = 0;
    EXPECT_TRUE(tallyctl_parse_id("0x03000045", &id));
    EXPECT_EQ(TALLYD_MSG_GET_TOP_SUMMARY, id);
    EXPECT_TRUE(tallyctl_parse_id("TALLYD_MSG_AP_ADD", &id));
    EXPECT_EQ(TALLYD_MSG_AP_ADD, id);
    EXPECT_TRUE(tallyctl_parse_id("stat_0a", &id));
    EXPECT_EQ(TALLYD_MSG_STAT_0A, id);
    EXPECT_TRUE(tallyctl_parse_id("12", &id));
    EXPECT_EQ(12u, id);
    for (const char *bad : {"", "0x", "0x1g", "4294967296", "AP_ADDX", "-1"})
        EXPECT_FALSE(tallyctl_parse_id(bad, &id)) << bad;

    tallyctl_bytes b;
    EXPECT_TRUE(tallyctl_parse_hex("00 ff:0A-1b", &b));
    EXPECT_EQ((tallyctl_bytes{0x00, 0xff, 0x0a, 0x1b}), b);
    EXPECT_TRUE(tallyctl_parse_hex("", &b));
    EXPECT_TRUE(b.empty());
    for (const char *bad : {"0", "0g", "0 0", "abc"}) EXPECT_FALSE(tallyctl_parse_hex(bad, &b));

    tallyd_socket_kind k;
    EXPECT_TRUE(tallyctl_parse_socket("stat", &k));
    EXPECT_EQ(tallyd_socket_kind::stat, k);
    EXPECT_FALSE(tallyctl_parse_socket("data", &k));

    const uint8_t payload[] = {9, 8};
    tallyctl_bytes m = tallyctl_message(TALLYD_MSG_AP_DEL, payload, 5);
    EXPECT_EQ((tallyctl_bytes{0, 5, 0, 0, 0x12, 0, 0, 3, 0, 0, 0, 2, 9, 8}), m);
}

TEST(TallyctlBinary, ProbeAndSendAgainstTheDaemon) {
    tallyd_daemon d;
    ASSERT_TRUE(d.start()) << d.log_text();

    run_result r = tallyctl(d.root(), "probe");
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("msg_id 0x08000002")) << r.out;
    EXPECT_NE(std::string::npos, r.out.find("request_id 0x08000001")) << r.out;

    r = tallyctl(d.root(), "--json send --id 0x03000047 --module 6 --hex 0102 --wait 100");
    EXPECT_EQ(0, r.status) << r.out;
    EXPECT_EQ(nlohmann::json::parse(R"({"sent": {"msg_id": "0x03000047", "socket": "control",
                                           "bytes": 14}, "replies": []})"),
              nlohmann::json::parse(r.out, nullptr, false));
    EXPECT_TRUE(d.wait_log("3 tallyd, received invalid msg id 0x03000047 from module 6"));

    r = tallyctl(d.root(), "--json send --socket monitor --id TAC_PROBE");
    EXPECT_EQ(0, r.status);
    nlohmann::json probe = nlohmann::json::parse(r.out, nullptr, false);
    ASSERT_TRUE(probe.contains("replies")) << r.out;
    ASSERT_EQ(1u, probe["replies"].size()) << r.out;
    const nlohmann::json &reply = probe["replies"][0];
    EXPECT_EQ(18, reply["module"]);
    EXPECT_EQ("0x08000002", reply["msg_id"]);
    EXPECT_EQ(16, reply["length"]);
    EXPECT_EQ("0x08000001", reply["request_id"]);

    EXPECT_EQ(2, tallyctl(d.root(), "send --id NO_SUCH_ID").status);
    EXPECT_EQ(2, tallyctl(d.root(), "send --id 1 --hex 123").status);
    EXPECT_EQ(2, tallyctl(d.root(), "bogus").status);

    ASSERT_EQ(0, d.stop());
    r = tallyctl(d.root(), "probe");
    EXPECT_EQ(1, r.status);
    EXPECT_NE(std::string::npos, r.out.find("not running")) << r.out;
    EXPECT_EQ(1, tallyctl(d.root(), "send --id 0x03000047").status);
}

}  // namespace
