// Network events through the running daemon: tallyctl's event commands,
// counters batches as large as a controller sends, what does not fit, a
// statistic database that turns corrupt under a batch, and an acceptance
// replay of AP, WLAN group and station events against the rules.
#include <gtest/gtest.h>

#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "base/clock.h"
#include "client.h"
#include "events/events_wire.h"
#include "support/daemon.h"
#include "support/db_corrupt.h"
#include "support/e2e_tools.h"
#include "support/e2e_util.h"

namespace {

using namespace events_wire;
using k = tallyd_socket_kind;

constexpr const char *kA = "00:1a:2b:00:00:0a";
constexpr const char *kB = "00:1a:2b:00:00:0b";

void write_list(const tallyd_daemon &d, const std::string &name, const std::string &xml) {
    write_text(d.path(TALLYD_XREPO_DIR) + "/" + name + ".xml", xml);
}

// A daemon on a seeded repository with WLAN groups 1 {1, 2}, 2 {3}, 3 {4, 5},
// AP group 10 (radios on WLAN groups 1 and 2), AP group 20 (both on 3), and
// the APs A in group 10 and B in group 20.
void start(tallyd_daemon &d) {
    seed_repository(d);
    write_list(d, "wlangroup-list",
               "<wlangroup-list><g id=\"1\"><w id=\"1\"/><w id=\"2\"/></g><g id=\"2\"><w id=\"3\"/>"
               "</g><g id=\"3\"><w id=\"4\"/><w id=\"5\"/></g></wlangroup-list>");
    write_list(d, "apgroup-list",
               "<apgroup-list><g id=\"10\"><ap-property><radio radio-type=\"11ng\" "
               "wlangroup-id=\"1\"/><radio radio-type=\"11na\" wlangroup-id=\"2\"/></ap-property>"
               "</g><g id=\"20\"><ap-property><radio radio-type=\"11ng\" wlangroup-id=\"3\"/>"
               "<radio radio-type=\"11na\" wlangroup-id=\"3\"/></ap-property></g></apgroup-list>");
    write_list(d, "ap-list",
               std::string("<ap-list><ap mac=\"") + kA + "\" group-id=\"10\"/><ap mac=\"" + kB +
                   "\" group-id=\"20\"/></ap-list>");
    ASSERT_TRUE(d.start()) << d.log_text();
}

std::string stat_db(const tallyd_daemon &d) {
    return d.path("/tmp/tallyd/statistic.db");
}
std::string main_db(const tallyd_daemon &d) {
    return d.path("/tmp/tallyd/avp_1.0.db");
}

station sta(const char *mac, const char *ap, const char *host, uint64_t bytes = 1000) {
    station s;
    s.client_mac = mac;
    s.ap_mac = ap;
    s.ssid = "corp";
    s.device = "phone";
    s.host_name = host;
    s.tx_bytes = bytes;
    return s;
}

// A station of the acceptance replay: known counters, AP group 10.
station joined(const char *mac, const char *ap, const char *ssid, const char *host) {
    station s;
    s.client_mac = mac;
    s.ap_mac = ap;
    s.ssid = ssid;
    s.device = "phone";
    s.host_name = host;
    s.tx_bytes = 5000;
    s.rx_bytes = 1000;
    s.tx_pkts = 50;
    s.rx_pkts = 10;
    s.apgroup = 10;
    s.wlangroup = 1;
    s.rssi = -40;
    return s;
}

TEST(EventsE2e, ToolCommandsCarryEveryEventAndRefuseBadValues) {
    tallyd_daemon d;
    start(d);
    const char *cmds[] = {
        "ap-add --mac 00:1a:2b:00:00:0a --model \"Bob's AP\" --apgroup 10 --wlangroup0 1 "
        "--wlangroup1 2",
        "sta-add --client-mac 02:5c:00:00:00:01 --ap-mac 00:1a:2b:00:00:0a --host-name \"x'y\" "
        "--ip 10.1.2.3 --ip6 fe80::1 --vlan 7",
        "sta-active --mac 02:5c:00:00:00:01",
        "client-stats --client-mac 02:5c:00:00:00:10 --count 3 --tx-bytes 700 --rssi -70",
        "wlan-group --action leave --wlan 1 --wlangroup 1",
        "ap-wlan-update --mac 00:1a:2b:00:00:0a --apgroup 10 --radios 1 --wlangroup0 2",
        "apgroup-update --action delete --apgroup 20",
        "ap-del --mac 00:1a:2b:00:00:0a",
    };
    for (const char *c : cmds) EXPECT_TRUE(sent(tallyctl(d, c))) << c;
    ASSERT_TRUE(
        eventually([&] { return e2e_sql(main_db(d), "SELECT time > 0 FROM avp_ap") == "1"; }));
    EXPECT_EQ("Bob's AP|10", e2e_sql(main_db(d), "SELECT model, group_id FROM avp_ap"));
    EXPECT_EQ("10.1.2.3|fe80::1|x'y|7|1",
              e2e_sql(stat_db(d),
                      "SELECT ip, ip6, host_name, vlan, active FROM statis_client_info_h "
                      "WHERE client_mac='02:5c:00:00:00:01'"));
    EXPECT_EQ("02:5c:00:00:00:10|-70|700,02:5c:00:00:00:11|-70|700,02:5c:00:00:00:12|-70|700",
              e2e_sql(stat_db(d), "SELECT client_mac, rssi, total_bytes FROM statis_client_h"));
    // A's rows: WLAN 1 left its group, WLAN group 1 is no longer on A, the AP
    // left; only group 10's own rows of WLANs 2 and 3 stay current.
    EXPECT_EQ("0|2|10,0|3|10", e2e_sql(stat_db(d),
                                       "SELECT ap_id, wlan_id, apgrp_id FROM "
                                       "statis_ap_wlan WHERE time=0 ORDER BY 1, 2"));

    // Refused before anything is sent: exit 2 and a message naming the value.
    const size_t lines = d.log_lines().size();
    const std::pair<const char *, const char *> bad[] = {
        {"ap-add --mac 00:1a:2b:00:00:0", "not 16"},
        {"ap-del --mac 00:1a:2b:00:00:0aa", "not 18"},
        {"sta-add --client-mac 02:5c:00:00:00:01 --host-name "
         "hhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhhh",
         "at most 63 characters"},
        {"client-stats --client-mac 02:5c:00:00:00:01 --count 1873", "at most 1872"},
        {"apgroup-update --action renamed", "--action"},
        {"ap-add --mac 00:1a:2b:00:00:0a --apgroup 4294967296", "--apgroup"},
        {"sta-add --client-mac 02:5c:00:00:00:01 --rssi -129", "--rssi"},
        {"wlan-group --wlan 1 --colour 2", "unknown option --colour"},
        {"sta-active", "--mac is required"},
    };
    for (const auto &[args, why] : bad) {
        auto [out, rc] = run_tool("tallyctl --root '" + d.root() + "' " + args + " 2>&1");
        EXPECT_EQ(2, rc) << args;
        EXPECT_NE(std::string::npos, out.find(why)) << args << ": " << out;
    }
    auto [help, rc] = run_tool("tallyctl ap-add --help");
    EXPECT_EQ(0, rc);
    EXPECT_NE(std::string::npos,
              help.find("--model        AP model (default VX-AP320, at most 31)"))
        << help;
    EXPECT_TRUE(d.probe());
    EXPECT_EQ(lines, d.log_lines().size()) << d.log_text();
    expect_no_fault(d);
}

TEST(EventsE2e, StatisticsSocketTakesRealBatchesAndNothingBeyond) {
    tallyd_daemon d;
    start(d);
    std::vector<std::string> macs;
    for (int i = 0; i < 300; ++i) {
        char m[18];
        std::snprintf(m, sizeof m, "02:5c:00:00:%02x:%02x", i / 256, i % 256);
        macs.push_back(m);
    }
    std::vector<station> list;
    for (const std::string &m : macs) list.push_back(sta(m.c_str(), kA, "h", 600000));
    std::vector<uint8_t> big = build_client_stats(tallyd_now(), list);
    ASSERT_EQ(168020u, big.size());
    ASSERT_TRUE(send_built(d, TALLYD_MSG_CLIENT_STATS, big, k::stat));
    ASSERT_TRUE(d.wait_log("tallyd, sta count = 300"));
    EXPECT_EQ("300", e2e_sql(stat_db(d), "SELECT COUNT(*) FROM statis_client_h"));

    // A header alone that claims 300 stations finds zeros where the last
    // batch was, and a batch whose count is larger or negative reads only
    // what it holds.
    std::vector<uint8_t> hollow = build_client_stats(tallyd_now(), {});
    wire_put_num(hollow, kBatchCount, 300);
    std::vector<uint8_t> one = build_client_stats(tallyd_now(), {list.data(), 1});
    std::vector<uint8_t> negative = one;
    wire_put_num(one, kBatchCount, 5);
    wire_put_num(negative, kBatchCount, static_cast<uint32_t>(-5));
    for (const auto &m : {hollow, one, negative})
        ASSERT_TRUE(send_built(d, TALLYD_MSG_CLIENT_STATS, m, k::stat));
    ASSERT_TRUE(d.wait_log("tallyd, sta count = -5"));
    EXPECT_EQ("301", e2e_sql(stat_db(d), "SELECT COUNT(*) FROM statis_client_h"));

    // One byte more than the socket takes: logged and dropped unread.
    const std::vector<uint8_t> huge((size_t{1} << 20) - 12, 0);
    ASSERT_TRUE(d.send_raw(k::stat, tallyctl_message(TALLYD_MSG_CLIENT_STATS, huge, 4)));
    EXPECT_TRUE(
        d.logs_line("3 tallyd, received msg of 1048576 bytes from module 4, more than "
                    "the 1048575 bytes it takes"));

    // Control messages shorter than their layout read zeros past their end.
    std::vector<uint8_t> ap = build_ap_add({kB, "", 0, 0, {0, 0}});
    ap.resize(kApAddMac.offset + 18);
    std::vector<uint8_t> join = build_sta_add(sta("02:5c:00:00:ff:01", "", ""));
    join.resize(kStaAddRecordOffset + kStaClientMac.width);
    ASSERT_TRUE(send_built(d, TALLYD_MSG_AP_ADD, ap));
    ASSERT_TRUE(send_built(d, TALLYD_MSG_STA_ADD, join));
    // Its SSID and AP MAC read empty, and an empty key gets no id.
    EXPECT_TRUE(d.wait_log("tallyd, add sta, no ap_id or ssid_id")) << d.log_text();
    EXPECT_EQ(1, d.log_count("tallyd, avpssid-list: an empty key gets no id"));
    EXPECT_EQ("0", e2e_sql(stat_db(d),
                           "SELECT count(*) FROM statis_client_info_h WHERE "
                           "client_mac='02:5c:00:00:ff:01'"));
    EXPECT_EQ("|0", e2e_sql(main_db(d), "SELECT model, group_id FROM avp_ap"));
    EXPECT_TRUE(d.probe());
    expect_no_fault(d);
}

TEST(EventsE2e, AStatisticDatabaseCorruptUnderABatchIsRebuilt) {
    tallyd_daemon d;
    start(d);
    station s = sta("02:5c:00:00:00:01", kA, "h");
    ASSERT_TRUE(
        send_built(d, TALLYD_MSG_CLIENT_STATS, build_client_stats(tallyd_now(), {&s, 1}), k::stat));
    ASSERT_TRUE(d.wait_log("tallyd, sta count = 1"));
    ASSERT_TRUE(corrupt_table_file(stat_db(d).c_str(), "statis_client_info_h"));
    s.client_mac = "02:5c:00:00:00:02";
    ASSERT_TRUE(
        send_built(d, TALLYD_MSG_CLIENT_STATS, build_client_stats(tallyd_now(), {&s, 1}), k::stat));
    ASSERT_TRUE(d.wait_log("aErrMsg = database disk image is malformed")) << d.log_text();
    ASSERT_TRUE(d.wait_log("tallyd, sta count = 1", 5000, 2));
    EXPECT_TRUE(d.probe());
    // The rebuilt database is empty and takes the next batch.
    s.client_mac = "02:5c:00:00:00:03";
    ASSERT_TRUE(
        send_built(d, TALLYD_MSG_CLIENT_STATS, build_client_stats(tallyd_now(), {&s, 1}), k::stat));
    EXPECT_TRUE(eventually([&] {
        return e2e_sql(stat_db(d), "SELECT client_mac FROM statis_client_h") == "02:5c:00:00:00:03";
    })) << d.log_text();
    expect_no_fault(d);
}

// Acceptance: a controller's day in miniature replayed through the sockets,
// and the rows of avp_ap, statis_ap_wlan, statis_client_info_h and
// statis_client_h compared with what the rules give, worked out by hand.
TEST(EventsAcceptanceE2e, AReplayedDayLeavesTheRowsTheRulesGive) {
    tallyd_daemon d;
    const uint32_t t0 = tallyd_now();
    start(d);
    const std::string stat = d.path("/tmp/tallyd/statistic.db");
    const std::string main = d.path("/tmp/tallyd/avp_1.0.db");
    auto send = [&](uint32_t id, const std::vector<uint8_t> &m,
                    tallyd_socket_kind s = tallyd_socket_kind::control) {
        ASSERT_TRUE(send_built(d, id, m, s));
    };
    // The control socket is read in order: once an unknown id sent last is
    // logged, every event before it has been handled.
    int barriers = 0;
    auto handled = [&] {
        ASSERT_TRUE(d.send(0x03000047));
        ASSERT_TRUE(d.wait_log("tallyd, received invalid msg id 0x03000047", 5000, ++barriers));
    };

    // APs and stations join.
    send(TALLYD_MSG_AP_ADD, build_ap_add({kA, "A-320", 10, 2, {1, 2}}));
    send(TALLYD_MSG_AP_ADD, build_ap_add({kB, "B-320", 20, 2, {3, 3}}));
    send(TALLYD_MSG_STA_ADD, build_sta_add(joined("02:00:00:00:00:01", kA, "corp", "Ann's")));
    send(TALLYD_MSG_STA_ADD, build_sta_add(joined("02:00:00:00:00:02", kB, "guest", "")));
    send(TALLYD_MSG_STA_ACTIVE, build_sta_active("02:00:00:00:00:01"));
    handled();

    // A minute of counters: a known named client, a known unnamed one and a
    // new one.
    const std::vector<station> counters = {joined("02:00:00:00:00:01", kA, "corp", "other"),
                                           joined("02:00:00:00:00:02", kB, "guest", "Bo"),
                                           joined("02:00:00:00:00:03", kB, "guest", "Cy's")};
    const uint32_t t1 = tallyd_now();
    send(TALLYD_MSG_CLIENT_STATS, build_client_stats(t1, counters), tallyd_socket_kind::stat);
    ASSERT_TRUE(d.wait_log("tallyd, sta count = 3"));

    // WLAN 6 joins WLAN group 1; A's radios move to WLAN group 3; B leaves
    // and comes back in its group; WLAN 4 leaves WLAN group 3; AP group 20
    // is updated to WLAN group 2, and the AP list is read again.
    send(TALLYD_MSG_WLAN_GROUP_UPDATE, build_wlan_group_update({0, 6, "lab", 1}));
    send(TALLYD_MSG_AP_WLAN_UPDATE, build_ap_wlan_update({kA, 2, {3, 0}, 10}));
    send(TALLYD_MSG_AP_DEL, build_ap_del(kB));
    send(TALLYD_MSG_AP_ADD, build_ap_add({kB, "B-999", 20, 2, {3, 3}}));
    send(TALLYD_MSG_WLAN_GROUP_UPDATE, build_wlan_group_update({1, 4, "iot", 3}));
    send(TALLYD_MSG_APGROUP_UPDATE, build_apgroup_update({2, {2, 0}, 20}));
    handled();
    const uint32_t t2 = tallyd_now() + 1;

    // B came back in its group: its row kept the time of its departure and
    // its first model, until the AP list set it present again.
    EXPECT_EQ("0|00:1a:2b:00:00:0a|A-320|10,0|00:1a:2b:00:00:0b|B-320|20",
              e2e_sql(main, "SELECT time, ap_mac, model, group_id FROM avp_ap ORDER BY ap_mac"));

    // "c" is a row closed during the replay.
    const std::string closed = "CASE WHEN time=0 THEN '0' WHEN time BETWEEN " + std::to_string(t0) +
                               " AND " + std::to_string(t2) + " THEN 'c' ELSE time END";
    EXPECT_EQ(
        // AP group 10's own rows: seeded, then WLAN 6 joined.
        "0 0 1 10 1,0 0 2 10 1,0 0 6 10 1,0 0 3 10 2,"
        // AP group 20's: seeded, WLAN 4 left, then the update closed the
        // rest and brought WLAN group 2.
        "0 0 3 20 2,c 0 4 20 3,c 0 5 20 3,"
        // A: WLAN group 1 and 2 rows closed by the move to WLAN group 3,
        // whose WLAN 4 then left.
        "c 1 1 10 1,c 1 2 10 1,c 1 6 10 1,c 1 3 10 2,c 1 4 10 3,0 1 5 10 3,"
        // B: closed by its departure, reopened by its return; WLAN 4 left.
        "c 2 4 20 3,0 2 5 20 3",
        e2e_sql(stat, "SELECT " + closed +
                          "||' '||ap_id||' '||wlan_id||' '||apgrp_id||' '||wlangrp_id FROM "
                          "statis_ap_wlan ORDER BY ap_id, apgrp_id, wlangrp_id, wlan_id"));

    // The directory: joins store real ids (SSID corp 1, guest 2) and clear
    // active; the batch fills an empty host name and adds the new client
    // with ids 1 and active 1.
    const std::string s1 = std::to_string(t1);
    EXPECT_EQ(
        "02:00:00:00:00:01|1|1|10|Ann's|1,"
        "02:00:00:00:00:02|2|2|10|Bo|0,"
        "02:00:00:00:00:03|1|1|NULL|Cy's|1",
        e2e_sql(stat,
                "SELECT client_mac, ap_id, ssid_id, apgroup_id, host_name, active FROM "
                "statis_client_info_h ORDER BY client_mac"));
    EXPECT_EQ("1,1,1", e2e_sql(stat, "SELECT time BETWEEN " + std::to_string(t0) + " AND " + s1 +
                                         " AND (time=" + s1 +
                                         " OR client_mac='02:00:00:00:00:01') "
                                         "FROM statis_client_info_h ORDER BY client_mac"));
    EXPECT_EQ(s1 + "|02:00:00:00:00:01|1|10|1|1|-40|50|10|60|5000|1000|6000," + s1 +
                  "|02:00:00:00:00:02|1|10|1|1|-40|50|10|60|5000|1000|6000," + s1 +
                  "|02:00:00:00:00:03|1|10|1|1|-40|50|10|60|5000|1000|6000",
              e2e_sql(stat,
                      "SELECT time, client_mac, ap_id, apgroup_id, ssid_id, wlangroup_id, rssi, "
                      "tx_pkts, rx_pkts, total_pkts, tx_bytes, rx_bytes, total_bytes FROM "
                      "statis_client_h ORDER BY client_mac"));
    expect_no_fault(d);
}

}  // namespace
