// tallyctl metrics against databases it did not write: fixtures whose names
// hold quotes, backslashes, line feeds and bytes that are not UTF-8, and a
// controller played by tallyd-sim against the real daemon. Every export must
// pass promtool, hold each series once, and carry the sums this file
// computes from the rows it wrote or reads back.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <iterator>
#include <map>
#include <set>
#include <string>
#include <type_traits>
#include <vector>

#include "base/path.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "entity/dict.h"
#include "support/daemon.h"
#include "support/db_test.h"
#include "support/e2e_tools.h"
#include "support/e2e_util.h"

namespace {

using samples_t = std::map<std::string, std::string>;  // "name{labels}" -> value

// The samples of an export; a series written twice fails the test.
samples_t samples(const std::string &text) {
    samples_t out;
    size_t p = 0;
    for (size_t end; (end = text.find('\n', p)) != std::string::npos; p = end + 1) {
        const std::string line = text.substr(p, end - p);
        if (line.empty() || line[0] == '#') continue;
        const size_t blank = line.rfind(' ');
        EXPECT_TRUE(out.emplace(line.substr(0, blank), line.substr(blank + 1)).second) << line;
    }
    EXPECT_EQ(p, text.size()) << "text does not end in a line feed";
    EXPECT_TRUE(text.size() >= 6 && text.compare(text.size() - 6, 6, "# EOF\n") == 0) << text;
    return out;
}

// The series of one family.
samples_t family(const samples_t &all, const std::string &name) {
    samples_t out;
    for (const auto &[series, value] : all)
        if (series == name || series.rfind(name + "{", 0) == 0) out.emplace(series, value);
    return out;
}

// Checks text with promtool; the test is skipped (after its other checks)
// where promtool is not installed.
void expect_promtool_accepts(const std::string &text, const std::string &dir) {
    if (std::system("command -v promtool >/dev/null 2>&1") != 0)
        GTEST_SKIP() << "promtool not found (Debian package prometheus): the export was not "
                        "validated";
    const std::string file = dir + "/promtool-input.prom";
    write_text(file, text);
    tallyd_pipe p(popen(("promtool check metrics < '" + file + "' 2>&1").c_str(), "r"));
    ASSERT_TRUE(p);
    std::string said;
    char buf[512];
    while (size_t n = std::fread(buf, 1, sizeof buf, p.get())) said.append(buf, n);
    EXPECT_EQ(0, pclose(p.release())) << said << "\n" << text;
}

std::pair<std::string, int> metrics(const std::string &root, const std::string &args = "") {
    return run_tool("tallyctl --root '" + root + "' metrics " + args);
}

class MetricsE2e : public db_root_test {};

// One rollup row of the fixture: ids as the tables hold them.
struct flow_row {
    const char *app;
    int ap, ssid;
    uint64_t up, down;
};

TEST_F(MetricsE2e, OddNamesAreEscapedOnceEachAndTheSumsAddUp) {
    write_file(TALLYD_PLATFORM_FILE, "KDL2206");
    // SSID 5 and 6 both hold the empty text, as mapping an empty SSID makes
    // them: one series. An XML list holds the raw bytes of a name.
    write_file("/etc/corvane/xrepo/avpssid-list.xml",
               "<avpssid-list><avpssid id=\"1\" ssid=\"corp\"/>"
               "<avpssid id=\"2\" ssid=\"guest &quot;lobby&quot;\"/>"
               "<avpssid id=\"3\" ssid=\"back\\slash&#10;next\"/>"
               "<avpssid id=\"4\" ssid=\"caf\xc3\xa9 \xff\"/>"
               "<avpssid id=\"5\" ssid=\"\"/><avpssid id=\"6\" ssid=\"\"/></avpssid-list>");
    write_file("/etc/corvane/xrepo/avpap-list.xml",
               "<avpap-list><avpap id=\"1\" ap=\"00:1a:2b:00:00:01\"/>"
               "<avpap id=\"2\" ap=\"00:1a:2b:00:00:02\"/></avpap-list>");
    write_file("/etc/corvane/xrepo/avpapgroup-list.xml",
               "<avpapgroup-list><avpapgroup id=\"1\" apgroup=\"floor &quot;2&quot;\"/>"
               "</avpapgroup-list>");
    std::vector<tallyd_dict_stored> groups;
    ASSERT_EQ(0, tallyd_dict_read_stored("apgroup", &groups));
    const std::map<int, std::string> ssid_label = {{1, "{ssid=\"corp\"}"},
                                                   {2, "{ssid=\"guest \\\"lobby\\\"\"}"},
                                                   {3, "{ssid=\"back\\\\slash\\nnext\"}"},
                                                   {4, "{ssid=\"caf\xc3\xa9 \xef\xbf\xbd\"}"},
                                                   {5, ""},
                                                   {6, ""}};
    const std::map<int, std::string> ap_label = {
        {1, "{ap=\"00:1a:2b:00:00:01\",apgroup=\"floor \\\"2\\\"\"}"},
        {2, "{ap=\"00:1a:2b:00:00:02\",apgroup=\"#7\"}"},
        {9, "{ap=\"#9\"}"}};  // an id the dictionary does not hold, an AP avp_ap lacks
    const std::map<std::string, std::string> app_label = {
        {"Zoom", "{app=\"Zoom\"}"},
        {"it's \"q\"", "{app=\"it's \\\"q\\\"\"}"},
        {"line\nbreak", "{app=\"line\\nbreak\"}"},
        {std::string("bad\xfe\xff", 5), "{app=\"bad\xef\xbf\xbd\xef\xbf\xbd\"}"},
        {"", ""}};
    const flow_row rows[] = {{"Zoom", 1, 1, 1000, 2000},
                             {"it's \"q\"", 1, 2, 5000, 100},
                             {"line\nbreak", 2, 3, 300, 300},
                             {"bad\xfe\xff", 2, 4, 70, 7},
                             {"", 9, 5, 10, 20},
                             {"Zoom", 9, 6, 1, 2},
                             {"Zoom", 2, 1, 4000000000, 900}};

    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    sql_conn &db = tallyd_db_set.db;
    auto insert = [&](const char *sql, const std::vector<std::string> &texts,
                      const std::vector<int64_t> &numbers) {
        sql_stmt *s = db.cached(sql);
        int i = 1;
        for (const std::string &t : texts) s->bind(i++, t);
        for (int64_t n : numbers) s->bind(i++, n);
        ASSERT_EQ(SQLITE_OK, s->run()) << sql;
    };
    const char *kAp = "INSERT INTO avp_ap(time, ap_mac, model, group_id) VALUES(0, ?, 'X', ?)";
    insert(kAp, {"00:1a:2b:00:00:01"}, {static_cast<int64_t>(groups.at(0).id)});
    insert(kAp, {"00:1a:2b:00:00:02"}, {7});

    // The hour tables get each row once, the day tables twice; clients c0
    // to c2 move between the APs.
    std::map<std::string, uint64_t> ap_hour, ssid_hour, app_hour, ap_day;
    std::map<std::string, std::set<std::string>> ap_clients, ssid_clients;
    for (size_t i = 0; i < std::size(rows); ++i) {
        const flow_row &r = rows[i];
        const int64_t up = static_cast<int64_t>(r.up), down = static_cast<int64_t>(r.down);
        const std::string client = "c" + std::to_string(i % 3);
        insert(
            "INSERT INTO avp_ap_ssid_hour(time, app, port, ap_mac, ssid, uplink, downlink, "
            "group_id) VALUES(1, ?, 80, ?, ?, ?, ?, 1)",
            {r.app}, {r.ap, r.ssid, up, down});
        insert(
            "INSERT INTO avp_all_group_hour(time, app, port, uplink, downlink, group_id) "
            "VALUES(1, ?, 80, ?, ?, 1)",
            {r.app}, {up, down});
        for (int64_t t : {1, 2})
            insert(
                "INSERT INTO avp_ssid_day(app, time, port, ssid, uplink, downlink, group_id) "
                "VALUES(?, ?, 80, ?, ?, ?, 1)",
                {r.app}, {t, r.ssid, up, down});
        for (const char *table : {"avp_top_client_hour", "avp_top_client_day"})
            insert((std::string("INSERT INTO ") + table +
                    "(client_mac, time, ap_mac, ssid, total) VALUES(?, 1, ?, ?, ?)")
                       .c_str(),
                   {client}, {r.ap, r.ssid, up + down});
        ap_hour[ap_label.at(r.ap)] += r.up + r.down;
        ap_day[ap_label.at(r.ap)] += r.up + r.down;
        ssid_hour[ssid_label.at(r.ssid)] += r.up + r.down;
        app_hour[app_label.at(r.app)] += r.up + r.down;
        ap_clients[ap_label.at(r.ap)].insert(client);
        ssid_clients[ssid_label.at(r.ssid)].insert(client);
    }
    // A table whose name needs every escape, in a file of its own.
    sql_conn odd = open_db(path("/tmp/tallyd/odd.db"));
    ASSERT_EQ(SQLITE_OK, sql_exec(odd.get(),
                                  "CREATE TABLE \"t\"\"q\\b\nn\xff\"(time INTEGER);"
                                  "INSERT INTO \"t\"\"q\\b\nn\xff\" VALUES(5), (9)"));
    write_file("/etc/corvane/xrepo/avpdvcinfo-list.xml", "<avpdvcinfo-list/>");

    auto [text, rc] = metrics(tallyd_root());
    ASSERT_EQ(0, rc) << text;
    const samples_t all = samples(text);
    auto expect_family = [&](const std::string &name, const auto &want) {
        samples_t expected;
        for (const auto &[labels, value] : want) {
            if constexpr (std::is_same_v<std::decay_t<decltype(value)>, std::set<std::string>>)
                expected[name + labels] = std::to_string(value.size());
            else
                expected[name + labels] = std::to_string(value);
        }
        EXPECT_EQ(expected, family(all, name));
    };
    expect_family("tallyd_ap_hour_bytes", ap_hour);
    expect_family("tallyd_ssid_hour_bytes", ssid_hour);
    expect_family("tallyd_app_hour_bytes", app_hour);
    expect_family("tallyd_ap_day_bytes", ap_day);
    auto twice = [](std::map<std::string, uint64_t> sums) {
        for (auto &[labels, value] : sums) value *= 2;
        return sums;
    };
    expect_family("tallyd_ssid_day_bytes", twice(ssid_hour));
    expect_family("tallyd_app_day_bytes", twice(app_hour));
    expect_family("tallyd_ap_clients", ap_clients);
    expect_family("tallyd_ssid_clients", ssid_clients);

    const std::string odd_table =
        "{file=\"/tmp/tallyd/odd.db\",table=\"t\\\"q\\\\b\\nn\xef\xbf\xbd\"}";
    EXPECT_EQ("2", all.at("tallyd_table_rows" + odd_table));
    EXPECT_EQ("9", all.at("tallyd_table_newest_time_seconds" + odd_table));
    EXPECT_EQ("150000000", all.at("tallyd_db_size_limit_bytes{file=\"/tmp/tallyd/avp_1.0.db\"}"));
    EXPECT_EQ("3", all.at("tallyd_platform_class"));
    EXPECT_EQ("6", all.at("tallyd_dictionary_entries{dictionary=\"ssid\"}"));
    EXPECT_EQ("1024", all.at("tallyd_dictionary_table_size{dictionary=\"ap\"}"));
    EXPECT_EQ("0", all.at("tallyd_up"));
    EXPECT_EQ(0u, all.count("tallyd_start_time_seconds"));
    EXPECT_EQ("0", all.at("tallyd_metrics_read_errors"));

    // Capped: the two largest applications, then the rest in one series.
    auto [capped, rc_capped] = metrics(tallyd_root(), "--top 2");
    ASSERT_EQ(0, rc_capped);
    std::vector<std::pair<uint64_t, std::string>> by_size;
    for (const auto &[labels, value] : app_hour) by_size.emplace_back(value, labels);
    std::sort(by_size.rbegin(), by_size.rend());
    samples_t top;
    for (size_t i = 0; i < 2; ++i)
        top["tallyd_app_hour_bytes" + by_size[i].second] = std::to_string(by_size[i].first);
    uint64_t rest = 0;
    for (size_t i = 2; i < by_size.size(); ++i) rest += by_size[i].first;
    top["tallyd_app_hour_bytes{other=\"true\"}"] = std::to_string(rest);
    EXPECT_EQ(top, family(samples(capped), "tallyd_app_hour_bytes"));

    // --out replaces the file in one piece and leaves nothing beside it.
    const std::string dir = path("/textfile"), out = dir + "/tallyd.prom";
    write_text(out, "old");
    ASSERT_EQ(0, metrics(tallyd_root(), "--out '" + out + "'").second);
    EXPECT_EQ(text, read_text(out));
    EXPECT_EQ(1, std::distance(std::filesystem::directory_iterator(dir), {}));
    EXPECT_EQ(2, metrics(tallyd_root(), "--top -1").second);
    expect_promtool_accepts(text, tallyd_root());
    expect_promtool_accepts(capped, tallyd_root());
}

// A controller at 60 times real speed until the first five-minute rollup:
// the export while the daemon runs and after it stopped.
TEST(MetricsSimE2e, ASimulatedControllerExportsItsHourAndHealth) {
    const int64_t started = std::time(nullptr);
    const sim_clock clock{60};
    tallyd_daemon d(clock.daemon());
    ASSERT_EQ(0, clock.run(d, "--repo-only --quiet").second);
    ASSERT_TRUE(d.start()) << d.log_text();
    auto [sim, sim_rc] = clock.run(d, "--quiet --minutes 6 --aps 4 --clients 20");
    ASSERT_EQ(0, sim_rc) << sim;
    const std::string main_db = d.path(TALLYD_DB_MAIN);
    ASSERT_TRUE(eventually(
        [&] { return e2e_sql(main_db, "SELECT COUNT(*) > 0 FROM avp_ap_ssid_hour") == "1"; },
        15000))
        << d.log_text();

    const std::string out = d.path("/textfile/tallyd.prom");
    ASSERT_EQ(0, metrics(d.root(), "--out '" + out + "'").second);
    const std::string live = read_text(out);
    const samples_t running = samples(live);
    EXPECT_EQ("1", running.at("tallyd_up"));
    const int64_t start = std::stoll(running.at("tallyd_start_time_seconds"));
    EXPECT_GE(start, started - 1);
    EXPECT_LE(start, std::time(nullptr));
    ASSERT_EQ(0, d.stop());

    auto [text, rc] = metrics(d.root());
    ASSERT_EQ(0, rc);
    const samples_t all = samples(text);
    EXPECT_EQ("0", all.at("tallyd_up"));
    tallyd_root_set(d.root());
    std::vector<tallyd_dict_stored> aps, ssids;
    ASSERT_EQ(0, tallyd_dict_read_stored("ap", &aps));
    ASSERT_EQ(0, tallyd_dict_read_stored("ssid", &ssids));
    std::map<std::string, std::string> group_of;
    for (const auto &row : e2e_rows(main_db, "SELECT ap_mac, group_id FROM avp_ap"))
        group_of[row[0]] = row[1];
    std::map<std::string, uint64_t> ap_hour, ssid_hour;
    for (const auto &row :
         e2e_rows(main_db, "SELECT ap_mac, ssid, uplink + downlink FROM avp_ap_ssid_hour")) {
        for (const tallyd_dict_stored &e : aps)
            if (std::to_string(e.id) == row[0]) {
                auto g = group_of.find(e.key);
                ap_hour["{ap=\"" + e.key +
                        (g == group_of.end() ? "" : "\",apgroup=\"#" + g->second) + "\"}"] +=
                    std::stoull(row[2]);
            }
        for (const tallyd_dict_stored &e : ssids)
            if (std::to_string(e.id) == row[1])
                ssid_hour["{ssid=\"" + e.key + "\"}"] += std::stoull(row[2]);
    }
    ASSERT_FALSE(ap_hour.empty());
    for (const auto &[want, name] : {std::pair{&ap_hour, "tallyd_ap_hour_bytes"},
                                     std::pair{&ssid_hour, "tallyd_ssid_hour_bytes"}}) {
        samples_t expected;
        for (const auto &[labels, value] : *want) expected[name + labels] = std::to_string(value);
        EXPECT_EQ(expected, family(all, name));
    }
    expect_no_fault(d);
    expect_promtool_accepts(live, d.root());
    expect_promtool_accepts(text, d.root());
}

}  // namespace
