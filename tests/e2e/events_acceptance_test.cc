// Acceptance: a controller's day in miniature replayed through the daemon's
// sockets, and the rows of avp_ap, statis_ap_wlan, statis_client_info_h and
// statis_client_h compared with what the rules give, worked out by hand.
//
// Repository: WLAN groups 1 {1, 2}, 2 {3}, 3 {4, 5}; AP group 10 with its
// radios on WLAN groups 1 and 2, AP group 20 with both on 3; the AP list
// names A in group 10 and B in group 20.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/clock.h"
#include "events/events_wire.h"
#include "support/daemon.h"
#include "support/e2e_tools.h"
#include "support/e2e_util.h"

namespace {

using namespace events_wire;

constexpr const char *kA = "00:1a:2b:00:00:0a";  // AP id 1: the first AP mapped
constexpr const char *kB = "00:1a:2b:00:00:0b";  // AP id 2

void write_list(const tallyd_daemon &d, const std::string &name, const std::string &xml) {
    write_text(d.path(TALLYD_XREPO_DIR) + "/" + name + ".xml", xml);
}

station sta(const char *mac, const char *ap, const char *ssid, const char *host) {
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

TEST(events_acceptance, AReplayedDayLeavesTheRowsTheRulesGive) {
    tallyd_daemon d;
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
    const uint32_t t0 = tallyd_now();
    ASSERT_TRUE(d.start()) << d.log_text();
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
    send(TALLYD_MSG_STA_ADD, build_sta_add(sta("02:00:00:00:00:01", kA, "corp", "Ann's")));
    send(TALLYD_MSG_STA_ADD, build_sta_add(sta("02:00:00:00:00:02", kB, "guest", "")));
    send(TALLYD_MSG_STA_ACTIVE, build_sta_active("02:00:00:00:00:01"));
    handled();

    // A minute of counters: a known named client, a known unnamed one and a
    // new one.
    const std::vector<station> counters = {sta("02:00:00:00:00:01", kA, "corp", "other"),
                                           sta("02:00:00:00:00:02", kB, "guest", "Bo"),
                                           sta("02:00:00:00:00:03", kB, "guest", "Cy's")};
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
