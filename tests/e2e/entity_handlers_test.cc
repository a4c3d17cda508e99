// The entity messages through the running daemon: host-name marks in the
// client directory, the ARC switch and its files, AP and SSID ids that the
// daemon hands out and keeps across a restart, and per-AP value messages
// that promise more records than they carry.
#include <gtest/gtest.h>
#include <sqlite3.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <string>
#include <utility>
#include <vector>

#include "base/path.h"
#include "client.h"
#include "entity/entity_wire.h"
#include "sim/flow_sim.h"
#include "support/daemon.h"
#include "support/e2e_util.h"

namespace {

namespace fs = std::filesystem;
using k = tallyd_socket_kind;

// Runs a statement on a database the daemon keeps open and returns every
// row as "a|b|c", rows joined with ','. "ERROR: ..." when it fails.
std::string sql(const std::string &file, const std::string &statement) {
    sqlite3 *db = nullptr;
    std::string out;
    if (sqlite3_open_v2(file.c_str(), &db, SQLITE_OPEN_READWRITE, nullptr) != SQLITE_OK) {
        sqlite3_close_v2(db);
        return "ERROR: open " + file;
    }
    sqlite3_busy_timeout(db, 3000);
    sqlite3_stmt *s = nullptr;
    int rc = sqlite3_prepare_v2(db, statement.c_str(), -1, &s, nullptr);
    for (int row = 0; rc == SQLITE_OK || rc == SQLITE_ROW; ++row) {
        if ((rc = sqlite3_step(s)) != SQLITE_ROW) break;
        if (row) out += ',';
        for (int c = 0; c < sqlite3_column_count(s); ++c) {
            if (c) out += '|';
            const unsigned char *t = sqlite3_column_text(s, c);
            out += t ? reinterpret_cast<const char *>(t) : "NULL";
        }
    }
    if (rc != SQLITE_DONE) out = std::string("ERROR: ") + sqlite3_errmsg(db);
    sqlite3_finalize(s);
    sqlite3_close_v2(db);
    return out;
}

// What tallyctl prints for a datagram sent that has no reply.
bool sent(const std::string &out) {
    return out.rfind("sent 0x", 0) == 0 && out.find("no reply") != std::string::npos;
}

std::string tallyctl(const tallyd_daemon &d, const std::string &args) {
    auto [out, rc] = run_tool("tallyctl --root '" + d.root() + "' " + args);
    return rc == 0 ? out : "exit " + std::to_string(rc) + ": " + out;
}

// The ARC flag of the running daemon, read with gdb; -1 when gdb cannot
// attach (no gdb, no ptrace permission). Nothing outside the process shows it.
int arc_flag(pid_t pid) {
    std::string cmd = "gdb -batch -nx -p " + std::to_string(pid) +
                      " -ex 'printf \"flag=%d\\n\", tallyd_sys_info.qpx_push' 2>/dev/null";
    FILE *p = popen(cmd.c_str(), "r");
    if (!p) return -1;
    int flag = -1;
    char line[512];
    while (std::fgets(line, sizeof line, p))
        if (std::sscanf(line, "flag=%d", &flag) == 1) break;
    while (std::fgets(line, sizeof line, p)) {
    }
    pclose(p);
    return flag;
}

// Sends a message made by an entity builder (which leaves the header zero).
bool send_built(tallyd_daemon &d, uint32_t id, const std::vector<uint8_t> &built,
                k socket = k::control) {
    return d.send(id, std::span<const uint8_t>(built).subspan(12), socket);
}

// Nothing the sanitizers or a crash would leave behind.
void expect_no_fault(tallyd_daemon &d) {
    std::string log = d.log_text();
    for (const char *mark : {"AddressSanitizer", "runtime error", "LeakSanitizer", "Segmentation"})
        EXPECT_EQ(std::string::npos, log.find(mark)) << mark << " in:\n" << log;
}

void seed_repository(const tallyd_daemon &d) {
    fs::path to = d.path(TALLYD_XREPO_DIR);
    fs::create_directories(to);
    for (const auto &e : fs::directory_iterator(fs::path(TALLYD_SOURCE_DIR) / "tools/xrepo-seed"))
        if (e.path().extension() == ".xml")
            fs::copy_file(e.path(), to / e.path().filename(), fs::copy_options::overwrite_existing);
}

std::string list_file(const tallyd_daemon &d, const std::string &list) {
    return d.path(TALLYD_XREPO_DIR) + "/" + list + ".xml";
}

TEST(entity_handlers_e2e, HostNameMarksTheClientRowAndNeverStoresTheName) {
    tallyd_daemon d;
    ASSERT_TRUE(d.start()) << d.log_text();
    const std::string db = d.path("/tmp/tallyd/statistic.db");
    const std::string a = "02:00:00:00:00:0a", b = "02:00:00:00:00:0b", c = "02:00:00:00:00:0c";
    ASSERT_EQ("", sql(db,
                      "INSERT INTO statis_client_info_h(time, client_mac, host_name) VALUES"
                      "(1000, '" +
                          a + "', 'laptop'), (1000, '" + b +
                          "', 'phone'), "
                          "(1000, '" +
                          c + "', 'tablet')"));
    auto row = [&](const std::string &mac) {
        return sql(db,
                   "SELECT host_name, time > 1000 FROM statis_client_info_h "
                   "WHERE client_mac = '" +
                       mac + "'");
    };

    // Through tallyctl: a name marks the row "#", the time moves on.
    const auto before = static_cast<uint32_t>(std::time(nullptr));
    EXPECT_TRUE(sent(tallyctl(d, "set-hostname " + a + " 'Kitchen PC'")));
    EXPECT_TRUE(d.logs_line("7 tallyd, update sta: " + a + ", host_name: Kitchen PC"));
    EXPECT_EQ("#|1", row(a));
    const int64_t t = std::stoll(sql(db,
                                     "SELECT time FROM statis_client_info_h WHERE "
                                     "client_mac = '" +
                                         a + "'"));
    EXPECT_GE(t, before);
    EXPECT_LE(t, static_cast<int64_t>(std::time(nullptr)) + 1);
    EXPECT_EQ("laptop|0", sql(db,
                              "SELECT 'laptop', count(*) FROM statis_client_info_h "
                              "WHERE host_name = 'Kitchen PC'"));

    // The empty name restores the default (the empty text), with a notice.
    EXPECT_TRUE(sent(tallyctl(d, "set-hostname " + b + " ''")));
    EXPECT_TRUE(d.logs_line("7 tallyd, update sta: " + b + ", host_name: "));
    EXPECT_TRUE(d.logs_line("5 tallyd, set default host name"));
    EXPECT_EQ("|1", row(b));

    // Quotes in the name or the MAC change nothing but the named row: the
    // MAC matches no client, so no row is touched and nothing fails.
    ASSERT_TRUE(send_built(d, TALLYD_MSG_SET_STA_HOSTNAME,
                           entity_wire::build_set_hostname(c, "O'Brien's \"tab\"")));
    EXPECT_TRUE(d.logs_line("7 tallyd, update sta: " + c + ", host_name: O'Brien's \"tab\""));
    EXPECT_EQ("#|1", row(c));
    const std::string sneaky = "x' OR '1'='1";
    ASSERT_TRUE(
        send_built(d, TALLYD_MSG_SET_STA_HOSTNAME, entity_wire::build_set_hostname(sneaky, "")));
    EXPECT_TRUE(d.logs_line("7 tallyd, update sta: " + sneaky + ", host_name: "));
    EXPECT_EQ("#|1,|1,#|1", sql(db,
                                "SELECT host_name, time > 1000 FROM statis_client_info_h "
                                "ORDER BY client_mac"));
    // A client without a row gets none.
    ASSERT_TRUE(send_built(d, TALLYD_MSG_SET_STA_HOSTNAME,
                           entity_wire::build_set_hostname("02:00:00:00:00:0d", "new")));
    EXPECT_TRUE(d.logs_line("7 tallyd, update sta: 02:00:00:00:00:0d, host_name: new"));
    EXPECT_EQ("3", sql(db, "SELECT count(*) FROM statis_client_info_h"));

    EXPECT_EQ(0, d.log_count("aErrMsg")) << d.log_text();
    EXPECT_EQ(0, d.stop());
    expect_no_fault(d);
}

TEST(entity_handlers_e2e, ArcOffRemovesArcFilesAndTheRepositoryFlagIsLoadedAtStart) {
    tallyd_daemon d;
    const std::string system = list_file(d, "system");
    write_text(system,
               "<?xml version=\"1.0\"?>\n<system>\n  <internal arc-app-enable=\"true\"/>\n"
               "  <qpx qpxpushenabled=\"yes\"/>\n</system>\n");
    ASSERT_TRUE(d.start()) << d.log_text();
    const bool gdb = arc_flag(d.pid()) != -1;
    auto expect_flag = [&](int want) {
        if (gdb) {
            EXPECT_EQ(want, arc_flag(d.pid())) << "ARC flag";
        }
    };
    expect_flag(1);

    // Names holding "arc" anywhere go, case matters; the databases stay.
    const std::string dir = d.path(TALLYD_RAM_DIR);
    const std::vector<std::string> doomed = {"arc", "arc_app.db", "qpxarc", "search.log"};
    const std::vector<std::string> kept = {"ARC_upper", "a-r-c", "keep.txt"};
    auto create_all = [&] {
        for (const auto &n : doomed) write_text(dir + "/" + n, "x");
        for (const auto &n : kept) write_text(dir + "/" + n, "x");
    };
    create_all();
    fs::create_directories(dir + "/archive");  // a directory is not removed

    // Any non-zero value switches on; only 1 is logged as "enabled".
    EXPECT_TRUE(sent(tallyctl(d, "arc 2")));
    EXPECT_TRUE(d.logs_line("7 tallyd, arc qpx interface: disabled"));
    for (const auto &n : doomed) EXPECT_TRUE(fs::exists(dir + "/" + n)) << n;
    expect_flag(1);

    EXPECT_TRUE(sent(tallyctl(d, "arc off")));
    EXPECT_TRUE(d.logs_line("7 tallyd, arc qpx interface: disabled", 2));
    for (const auto &n : doomed) EXPECT_FALSE(fs::exists(dir + "/" + n)) << n;
    for (const auto &n : kept) EXPECT_TRUE(fs::exists(dir + "/" + n)) << n;
    EXPECT_TRUE(fs::is_directory(dir + "/archive"));
    EXPECT_TRUE(fs::exists(dir + "/statistic.db"));
    expect_flag(0);

    create_all();
    EXPECT_TRUE(sent(tallyctl(d, "arc on")));
    EXPECT_TRUE(d.logs_line("7 tallyd, arc qpx interface: enabled"));
    for (const auto &n : doomed) EXPECT_TRUE(fs::exists(dir + "/" + n)) << n;
    expect_flag(1);

    // The switch on the statistics socket is refused and removes nothing.
    ASSERT_TRUE(send_built(d, TALLYD_MSG_ARC_QPX_INTERFACE, entity_wire::build_arc(0), k::stat));
    EXPECT_TRUE(d.logs_line("3 tallyd, received invalid msg id 0x0300005d from module 0"));
    for (const auto &n : doomed) EXPECT_TRUE(fs::exists(dir + "/" + n)) << n;
    EXPECT_EQ(0, d.stop());

    // Without a qpx child, or without the list, the daemon starts switched off.
    if (gdb) {
        write_text(system,
                   "<?xml version=\"1.0\"?>\n<system><internal arc-app-enable=\"1\"/>"
                   "</system>\n");
        ASSERT_TRUE(d.start()) << d.log_text();
        EXPECT_EQ(0, arc_flag(d.pid()));
        EXPECT_EQ(0, d.stop());
        write_text(system,
                   "<?xml version=\"1.0\"?>\n<system><qpx qpxpushenabled=\"true\"/>"
                   "</system>\n");
        ASSERT_TRUE(d.start()) << d.log_text();
        EXPECT_EQ(1, arc_flag(d.pid())) << "arc-app-enable defaults to true";
        EXPECT_EQ(0, d.stop());
    }
    expect_no_fault(d);
}

constexpr uint32_t kScale = 20;  // a flow run every 3 s, long before the hour task

// Flow rows of the daemon's current run, once all expected have arrived:
// distinct "client|ap id|ssid id" triples.
std::string flow_triples(tallyd_daemon &d, int expected) {
    const std::string temp_db = d.path("/tmp/tallyd/avp_temp.db");
    const std::string count = std::to_string(expected);
    if (!eventually([&] { return sql(temp_db, "SELECT count(*) FROM avp_base") == count; }, 20000))
        return "only " + sql(temp_db, "SELECT count(*) FROM avp_base") + " rows";
    return sql(temp_db, "SELECT DISTINCT client_mac, ap_mac, ssid FROM avp_base ORDER BY 1, 2, 3");
}

TEST(entity_handlers_e2e, IdsGivenByTheDaemonSurviveARestart) {
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
    EXPECT_EQ(3, std::count(ap_ids.begin(), ap_ids.end(), '\n')) << ap_ids;
    for (const char *id : {"1\t1\t", "2\t2\t", "3\t3\t"})
        EXPECT_NE(std::string::npos, ap_ids.find(id)) << ap_ids;
    EXPECT_EQ(0u, ssid_ids.find("1\t1\t")) << ssid_ids;
    EXPECT_EQ("3", sql(d.path("/tmp/tallyd/avp_temp.db"),
                       "SELECT count(*) FROM (SELECT DISTINCT ap_mac FROM avp_base "
                       "WHERE ap_mac BETWEEN 1 AND 3)"));

    // A per-AP value for a new MAC takes the next id.
    EXPECT_TRUE(sent(tallyctl(d, "stat0a 00:aa:bb:cc:dd:01=5 " + sim.ap_mac(0) + "=9")));
    EXPECT_TRUE(eventually([&] {
        return tallyctl(d, "ids ap") == ap_ids + "4\t4\t00:aa:bb:cc:dd:01\n";
    })) << tallyctl(d, "ids ap");
    EXPECT_EQ(0, d.stop());

    // The controller added an entry with a higher id while tallyd was down.
    std::string ap_list = read_text(list_file(d, "avpap-list"));
    const size_t end = ap_list.find("</avpap-list>");
    ASSERT_NE(std::string::npos, end) << ap_list;
    ap_list.insert(end, "<avpap id=\"40\" ap=\"00:aa:bb:cc:dd:40\"/>\n");
    write_text(list_file(d, "avpap-list"), ap_list);
    const std::string all_ids = tallyctl(d, "ids");

    // The same reports after the restart map to the same ids and add nothing.
    ASSERT_TRUE(d.start()) << d.log_text();
    ASSERT_EQ(0, run_tool(flowgen).second);
    EXPECT_EQ(first, flow_triples(d, rows)) << d.log_text();
    EXPECT_EQ(all_ids, tallyctl(d, "ids"));
    EXPECT_EQ(ap_list, read_text(list_file(d, "avpap-list")));

    // Known MACs keep their ids; a new one continues after the highest.
    EXPECT_TRUE(sent(tallyctl(d,
                              "stat0a 00:aa:bb:cc:dd:40=1 00:aa:bb:cc:dd:01=2 "
                              "00:aa:bb:cc:dd:02=3")));
    EXPECT_TRUE(eventually([&] {
        return tallyctl(d, "ids ap") == ap_ids +
                                            "4\t4\t00:aa:bb:cc:dd:01\n40\t40\t00:aa:bb:cc:dd:40\n"
                                            "41\t41\t00:aa:bb:cc:dd:02\n";
    })) << tallyctl(d, "ids ap");
    EXPECT_EQ(ssid_ids, tallyctl(d, "ids ssid"));
    EXPECT_EQ(0, d.stop());
    expect_no_fault(d);
}

// A per-AP value message whose count field says what it likes.
std::vector<uint8_t> stat_0a(int32_t count,
                             const std::vector<std::pair<std::string, uint32_t>> &r) {
    std::vector<uint8_t> m = entity_wire::build_stat_0a(r);
    wire_put_num(m, entity_wire::kStat0aCount, static_cast<uint32_t>(count));
    return m;
}

TEST(entity_handlers_e2e, PerApValuesPromisingMoreRecordsThanSentAreSurvived) {
    tallyd_daemon d;
    seed_repository(d);
    ASSERT_TRUE(d.start()) << d.log_text();
    auto ap_ids = [&] { return tallyctl(d, "ids ap"); };

    // The records sent are mapped, nothing is read past them.
    ASSERT_TRUE(send_built(d, TALLYD_MSG_STAT_0A, stat_0a(0x7fffffff, {{"00:0a:00:00:00:01", 7}}),
                           k::stat));
    ASSERT_TRUE(send_built(d, TALLYD_MSG_STAT_0A,
                           stat_0a(1000, {{"00:0a:00:00:00:02", 1}, {"00:0a:00:00:00:03", 0}}),
                           k::stat));
    ASSERT_TRUE(
        send_built(d, TALLYD_MSG_STAT_0A, stat_0a(-1, {{"00:0a:00:00:00:04", 1}}), k::stat));
    EXPECT_TRUE(d.probe());
    EXPECT_TRUE(eventually([&] {
        return ap_ids() == "1\t1\t00:0a:00:00:00:01\n2\t2\t00:0a:00:00:00:02\n";
    })) << ap_ids();

    // Bytes left from a longer datagram before it are not records.
    std::vector<uint8_t> longer = stat_0a(1, {{"00:0a:00:00:00:05", 1}});
    wire_put_num(longer, entity_wire::kStat0aCount, 0u);
    ASSERT_TRUE(send_built(d, 0x1200000b, longer, k::stat));
    EXPECT_TRUE(d.logs_line("3 tallyd, received invalid msg id 0x1200000b from module 0"));
    ASSERT_TRUE(send_built(d, TALLYD_MSG_STAT_0A, stat_0a(5, {}), k::stat));

    // A MAC filling its 36 bytes without a zero ends there, not in the value.
    const std::string full(36, 'm');
    std::vector<uint8_t> unterminated = stat_0a(1, {{"", 0x41414141}});
    std::copy(full.begin(), full.end(), unterminated.begin() + entity_wire::kStat0aFirstRecord);
    ASSERT_TRUE(send_built(d, TALLYD_MSG_STAT_0A, unterminated, k::stat));
    EXPECT_TRUE(d.probe());
    EXPECT_TRUE(eventually([&] {
        return ap_ids() == "1\t1\t00:0a:00:00:00:01\n2\t2\t00:0a:00:00:00:02\n3\t3\t" + full + "\n";
    })) << ap_ids();

    // On the wrong socket the message is refused and maps nothing; so are
    // event ids on the statistics socket.
    ASSERT_TRUE(send_built(d, TALLYD_MSG_STAT_0A, stat_0a(1, {{"00:0a:00:00:00:06", 1}})));
    EXPECT_TRUE(d.logs_line("3 tallyd, received invalid msg id 0x1200000a from module 0"));
    for (uint32_t id : {TALLYD_MSG_STA_ADD, TALLYD_MSG_AP_ADD, TALLYD_MSG_APGROUP_UPDATE}) {
        ASSERT_TRUE(send_built(d, id, stat_0a(1, {{"00:0a:00:00:00:07", 1}}), k::stat));
        char line[80];
        std::snprintf(line, sizeof line, "3 tallyd, received invalid msg id 0x%08x from module 0",
                      id);
        EXPECT_TRUE(d.logs_line(line));
    }
    EXPECT_TRUE(d.probe());
    const std::string last = ap_ids();
    EXPECT_EQ(3, std::count(last.begin(), last.end(), '\n')) << last;
    EXPECT_TRUE(d.running());
    EXPECT_EQ(0, d.stop());
    expect_no_fault(d);
}

}  // namespace
