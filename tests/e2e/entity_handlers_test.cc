// The entity messages through the running daemon, one round trip each: a
// host-name mark in the client directory, the ARC switch through the files
// it removes, AP and SSID ids that the daemon hands out and keeps across a
// restart, and a per-AP value message that promises more than it carries.
#include <gtest/gtest.h>

#include <algorithm>
#include <ctime>
#include <filesystem>
#include <string>
#include <vector>

#include "base/path.h"
#include "entity/entity_wire.h"
#include "sim/flow_sim.h"
#include "support/daemon.h"
#include "support/e2e_tools.h"
#include "support/e2e_util.h"

namespace {

namespace fs = std::filesystem;
using k = tallyd_socket_kind;

std::string list_file(const tallyd_daemon &d, const std::string &list) {
    return d.path(TALLYD_XREPO_DIR) + "/" + list + ".xml";
}

TEST(EntityHandlersE2e, HostNameMarksTheClientRowAndNeverStoresTheName) {
    tallyd_daemon d;
    ASSERT_TRUE(d.start()) << d.log_text();
    const std::string db = d.path("/tmp/tallyd/statistic.db");
    const std::string a = "02:00:00:00:00:0a", b = "02:00:00:00:00:0b";
    ASSERT_EQ("", e2e_sql(db,
                          "INSERT INTO statis_client_info_h(time, client_mac, host_name) "
                          "VALUES(1000, '" +
                              a + "', 'laptop'), (1000, '" + b + "', 'phone')"));
    auto rows = [&] {
        return e2e_sql(db, "SELECT host_name FROM statis_client_info_h ORDER BY client_mac");
    };

    // A name marks the row "#" and stamps it now; the empty name restores
    // the default (the empty text); a MAC holding quotes is a value that
    // matches no client.
    const int64_t before = std::time(nullptr);
    EXPECT_TRUE(sent(tallyctl(d, "set-hostname " + a + " 'Kitchen PC'")));
    EXPECT_TRUE(d.logs_line("7 tallyd, update sta: " + a + ", host_name: Kitchen PC"));
    EXPECT_EQ("#,phone", rows());
    const int64_t t = std::stoll(
        e2e_sql(db, "SELECT time FROM statis_client_info_h WHERE client_mac = '" + a + "'"));
    EXPECT_GE(t, before);
    EXPECT_LE(t, static_cast<int64_t>(std::time(nullptr)) + 1);
    EXPECT_TRUE(sent(tallyctl(d, "set-hostname " + b + " ''")));
    EXPECT_TRUE(d.logs_line("5 tallyd, set default host name"));
    EXPECT_EQ("#,", rows());
    ASSERT_TRUE(send_built(d, TALLYD_MSG_SET_STA_HOSTNAME,
                           entity_wire::build_set_hostname("x' OR '1'='1", "")));
    EXPECT_TRUE(d.logs_line("7 tallyd, update sta: x' OR '1'='1, host_name: "));
    EXPECT_EQ("#,", rows());

    EXPECT_EQ(0, d.log_count("aErrMsg")) << d.log_text();
    EXPECT_EQ(0, d.stop());
    expect_no_fault(d);
}

TEST(EntityHandlersE2e, ArcOffRemovesTheArcFilesOnlyOnTheControlSocket) {
    tallyd_daemon d;
    write_text(list_file(d, "system"),
               "<?xml version=\"1.0\"?>\n<system><internal arc-app-enable=\"true\"/>"
               "<qpx qpxpushenabled=\"yes\"/></system>\n");
    ASSERT_TRUE(d.start()) << d.log_text();
    const std::string dir = d.path(TALLYD_RAM_DIR);
    const std::vector<std::string> arc = {"arc_app.db", "qpxarc"};
    for (const auto &n : arc) write_text(dir + "/" + n, "x");

    EXPECT_TRUE(sent(tallyctl(d, "arc on")));
    EXPECT_TRUE(d.logs_line("7 tallyd, arc qpx interface: enabled"));
    // Refused on the statistics socket: nothing is removed.
    ASSERT_TRUE(send_built(d, TALLYD_MSG_ARC_QPX_INTERFACE, entity_wire::build_arc(0), k::stat));
    EXPECT_TRUE(d.logs_line("3 tallyd, received invalid msg id 0x0300005d from module 0"));
    for (const auto &n : arc) EXPECT_TRUE(fs::exists(dir + "/" + n)) << n;

    EXPECT_TRUE(sent(tallyctl(d, "arc off")));
    EXPECT_TRUE(d.logs_line("7 tallyd, arc qpx interface: disabled"));
    for (const auto &n : arc) EXPECT_FALSE(fs::exists(dir + "/" + n)) << n;
    EXPECT_TRUE(fs::exists(dir + "/statistic.db"));
    EXPECT_EQ(0, d.stop());
    expect_no_fault(d);
}

constexpr uint32_t kScale = 20;  // a flow run every 3 s, long before the hour task

// Flow rows of the daemon's current run, once all expected have arrived:
// distinct "client|ap id|ssid id" triples.
std::string flow_triples(tallyd_daemon &d, int expected) {
    const std::string temp_db = d.path("/tmp/tallyd/avp_temp.db");
    const std::string count = std::to_string(expected);
    if (!eventually([&] { return e2e_sql(temp_db, "SELECT count(*) FROM avp_base") == count; },
                    20000))
        return "only " + e2e_sql(temp_db, "SELECT count(*) FROM avp_base") + " rows";
    return e2e_sql(temp_db,
                   "SELECT DISTINCT client_mac, ap_mac, ssid FROM avp_base ORDER BY 1, 2, 3");
}

TEST(EntityHandlersE2e, IdsGivenByTheDaemonSurviveARestart) {
    tallyd_daemon_options options;
    options.time_scale = kScale;
    tallyd_daemon d(options);
    seed_repository(d);
    const std::string flowgen = "tallyd-flowgen --quiet --root '" + d.root() +
                                "' --aps 3 --clients 12 --ssids 2 --entries 8 --seed 7";
    const int rows = 3 * 8;
    flow_sim sim({.aps = 3, .clients = 12, .ssids = 2, .entries = 8, .seed = 7});

    ASSERT_TRUE(d.start()) << d.log_text();
    ASSERT_EQ(0, run_tool(flowgen).second);
    const std::string first = flow_triples(d, rows);
    ASSERT_EQ(std::string::npos, first.find("only")) << first << d.log_text();
    // A fresh repository numbers from 1 in order of first use.
    const std::string ap_ids = tallyctl(d, "ids ap");
    const std::string ssid_ids = tallyctl(d, "ids ssid");
    for (uint32_t i = 0; i < 3; ++i) EXPECT_NE(std::string::npos, ap_ids.find(sim.ap_mac(i)));
    for (const char *id : {"1\t1\t", "2\t2\t", "3\t3\t"})
        EXPECT_NE(std::string::npos, ap_ids.find(id)) << ap_ids;
    EXPECT_EQ(3, std::count(ap_ids.begin(), ap_ids.end(), '\n')) << ap_ids;
    EXPECT_EQ(0u, ssid_ids.find("1\t1\t")) << ssid_ids;
    EXPECT_EQ(0, d.stop());

    // The controller added an entry with a higher id while tallyd was down.
    std::string ap_list = read_text(list_file(d, "avpap-list"));
    const size_t end = ap_list.find("</avpap-list>");
    ASSERT_NE(std::string::npos, end) << ap_list;
    ap_list.insert(end, "<avpap id=\"40\" ap=\"00:aa:bb:cc:dd:40\"/>\n");
    write_text(list_file(d, "avpap-list"), ap_list);
    const std::string all_ids = tallyctl(d, "ids");

    // The same reports after the restart map to the same ids and add nothing;
    // a new AP continues after the highest id.
    ASSERT_TRUE(d.start()) << d.log_text();
    ASSERT_EQ(0, run_tool(flowgen).second);
    EXPECT_EQ(first, flow_triples(d, rows)) << d.log_text();
    EXPECT_EQ(all_ids, tallyctl(d, "ids"));
    EXPECT_TRUE(sent(tallyctl(d, "stat0a 00:aa:bb:cc:dd:40=1 00:aa:bb:cc:dd:02=3")));
    EXPECT_TRUE(eventually([&] {
        return tallyctl(d, "ids ap") ==
               ap_ids + "40\t40\t00:aa:bb:cc:dd:40\n41\t41\t00:aa:bb:cc:dd:02\n";
    })) << tallyctl(d, "ids ap");
    EXPECT_EQ(ssid_ids, tallyctl(d, "ids ssid"));
    EXPECT_EQ(0, d.stop());
    expect_no_fault(d);
}

TEST(EntityHandlersE2e, PerApValuesPromisingMoreRecordsThanSentAreSurvived) {
    tallyd_daemon d;
    seed_repository(d);
    ASSERT_TRUE(d.start()) << d.log_text();
    std::vector<uint8_t> m = entity_wire::build_stat_0a({{"00:0a:00:00:00:01", 7}});
    wire_put_num(m, entity_wire::kStat0aCount, 0x7fffffffu);
    ASSERT_TRUE(send_built(d, TALLYD_MSG_STAT_0A, m, k::stat));
    EXPECT_TRUE(d.probe());
    EXPECT_TRUE(eventually([&] { return tallyctl(d, "ids ap") == "1\t1\t00:0a:00:00:00:01\n"; }))
        << tallyctl(d, "ids ap");
    EXPECT_TRUE(d.running());
    EXPECT_EQ(0, d.stop());
    expect_no_fault(d);
}

}  // namespace
