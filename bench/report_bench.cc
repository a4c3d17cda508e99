// The report requests against tables as full as the largest platform lets
// them grow: the real daemon (a child process) answers each report kind 200
// times through its control socket, and this process, the client, prints the
// median and 99th percentile of the round trip per kind.
//
// Fill (class 2, the largest platform): twelve five-minute buckets of the
// hour tables at their rollup limits (8,000 application rows, 80,000
// application-AP-SSID rows, 6,000 client rows each), twelve day runs of
// 32,000 SSID rows and 6,000 client rows, two backup runs, 1,024 APs and 32
// SSIDs in the dictionaries and the configuration, 6,000 clients in the
// client directory. Hour rows are stamped within the last 37 minutes so that
// no purge of the daemon touches them in the 20 minutes the benchmark may
// run: each kind stops after 200 requests or 30 seconds, whichever comes
// first, and prints how many it made.
//
// The wireless statistics reports run on statistic.db filled as a busy
// controller fills it within the purge windows: 1,000 clients on 100 APs
// (4 SSIDs, 10 AP groups) with a counters batch every minute for two hours
// (120,000 client traffic rows), AP traffic every five minutes for two hours
// (9,600 rows), the day tables at a full day (24 hourly runs: 9,600 AP rows,
// 24,000 client rows, 24,000 client identity rows), 288 chart points per AP
// (28,800 rows) and each AP's four WLANs.
//
// A report kind is one row of kinds().

#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "base/path.h"
#include "client.h"
#include "db/db_files.h"
#include "db/sql.h"
#include "ipc/msg_ids.h"
#include "reports/report_wire.h"
#include "reports/statis_wire.h"
#include "support/bench_util.h"

using namespace report_wire;

namespace {

constexpr int kRequests = 200;
constexpr double kKindBudgetS = 30;  // a slow kind stops early, its count printed
constexpr double kTargetP99Ms = 20;

constexpr uint32_t kAps = 1024, kSsids = 32, kApps = 200, kGroups = 40, kClients = 6000;
constexpr uint32_t kBuckets = 12, kBucketStep = 200;
constexpr uint32_t kAppRows = 8000, kApSsidRows = 80000, kClientRows = 6000;
constexpr uint32_t kDayRuns = 12, kDayStep = 7217, kDayRows = 32000, kBackupRuns = 2;
// The statistic tables: stations, APs, SSIDs and AP groups of a busy controller.
constexpr uint32_t kStaClients = 1000, kStaAps = 100, kStaSsids = 4, kStaGroups = 10;
constexpr uint32_t kStaMinutes = 120, kStaHours = 24, kChartPoints = 288;

struct kind {
    std::string name;  // empty: the top lists, named by kind_name
    uint32_t id;
    std::vector<uint8_t> msg;  // a builder's message, header bytes zero
};

std::vector<kind> kinds() {
    std::vector<kind> k;
    const struct {
        const char *name;
        uint32_t flag;
    } lists[] = {
        {"apps", kFlagApps}, {"clients", kFlagClients}, {"aps", kFlagAps}, {"ssids", kFlagSsids}};
    for (uint32_t period : {kPeriodHour, kPeriodDay})
        for (const auto &l : lists)
            k.push_back(
                {"", TALLYD_MSG_GET_TOP_SUMMARY, build_top({.period = period, .flag = l.flag})});
    const char *periods[] = {"hour", "day", "week", "month"};
    for (uint32_t p = 0; p < 4; ++p)
        k.push_back({periods[p], TALLYD_MSG_GET_CLIENTS_SUMMARY,
                     build_usage({.ssid = "all", .period = p, .usage = kUsageSeries})});
    k.push_back({"pie apps", TALLYD_MSG_GET_CLIENTS_SUMMARY,
                 build_usage({.client_type = kClientPie, .type = 1, .usage = kUsageDetail})});
    k.push_back({"pie ports", TALLYD_MSG_GET_CLIENTS_SUMMARY,
                 build_usage({.client_type = kClientPie, .type = 0, .usage = kUsageDetail})});
    k.push_back({"list apps ssid-7", TALLYD_MSG_GET_CLIENTS_SUMMARY,
                 build_usage({.ssid = "ssid-7", .type = 1, .usage = kUsageDetail})});
    k.push_back({"app clients", TALLYD_MSG_GET_APP_CLIENT, build_app_client({.name = "app-003"})});
    k.push_back({"clients summary type 2", TALLYD_MSG_GET_CLIENTS_SUMMARY,
                 build_usage({.type = kTypeTopClients})});
    const char *aps[] = {"00:1a:2b:00:00:01", "00:1a:2b:00:00:02", "00:1a:2b:00:00:03"};
    for (uint8_t day : {0, 1}) {
        const std::string p = day ? " day" : " hour";
        const statis_request all{.period = day},
            group{.period = day, .ap_type = kApTypeGroup, .apgroup_id = 3};
        const statis_request list{.period = day,
                                  .ssid = "ssid-2",
                                  .ap_type = kApTypeList,
                                  .aps = {aps[0], aps[1], aps[2]}};
        for (const auto &[name, id] : {std::pair{"ap stats", TALLYD_MSG_STATIS_AP},
                                       std::pair{"ssid stats", TALLYD_MSG_STATIS_SSID},
                                       std::pair{"client summary", TALLYD_MSG_STATIS_CLIENT}}) {
            k.push_back({std::string(name) + p, id, build_statis(all)});
            k.push_back({std::string(name) + " group" + p, id, build_statis(group)});
            k.push_back({std::string(name) + " aps+ssid" + p, id, build_statis(list)});
        }
        k.push_back({"ap chart" + p, TALLYD_MSG_STATIS_AP_CHART, build_chart({.period = day})});
        k.push_back({"ap chart one ap" + p, TALLYD_MSG_STATIS_AP_CHART,
                     build_chart({.period = day, .ap_type = kApTypeList, .ap_mac = aps[0]})});
        k.push_back(
            {"client chart" + p, TALLYD_MSG_STATIS_CLIENT_CHART, build_chart({.period = day})});
    }
    k.push_back({"single client chart", TALLYD_MSG_STATIS_SINGLE_CLIENT,
                 build_single_chart("02:5c:00:00:00:07")});
    k.push_back({"client list", TALLYD_MSG_GET_CLIENT_LIST, build_client_list({})});
    const uint8_t one[6] = {0x02, 0x5c, 0, 0, 0, 7};
    k.push_back({"client list one", TALLYD_MSG_GET_CLIENT_LIST, build_client_list(one)});
    return k;
}

std::string kind_name(const kind &k, size_t i) {
    if (!k.name.empty() && k.id == TALLYD_MSG_GET_CLIENTS_SUMMARY && i >= 8 && i < 12)
        return "series " + k.name;
    if (!k.name.empty()) return k.name;
    static const char *lists[] = {"apps", "clients", "aps", "ssids"};
    return std::string("top ") + lists[i % 4] + (i < 4 ? " hour" : " day");
}

// --- the fill ---------------------------------------------------------------

uint64_t rng_state = 88172645463325252ull;
uint64_t rnd() {
    rng_state ^= rng_state << 13, rng_state ^= rng_state >> 7, rng_state ^= rng_state << 17;
    return rng_state;
}

std::string mac12(uint32_t c) {
    char b[16];
    std::snprintf(b, sizeof b, "025c%08x", c);
    return b;
}

std::string app_name(uint32_t a) {
    char b[16];
    std::snprintf(b, sizeof b, "app-%03u", a);
    return b;
}

bool fill_failed = false;

// Runs insert once per row with bind(stmt, row) in one transaction; a
// failing row is reported and fails the whole benchmark.
void fill(sql_conn &conn, const char *insert, uint32_t rows,
          const std::function<void(sql_stmt &, uint32_t)> &bind) {
    sql_error err;
    sql_stmt s = sql_prepare(conn.get(), insert, &err);
    sql_txn txn(conn.get());
    for (uint32_t r = 0; s && r < rows && !err.failed(); ++r) {
        bind(s, r);
        s.run(&err);
    }
    if (err.failed() || txn.commit(&err) != SQLITE_OK) {
        std::fprintf(stderr, "report_bench: %s: %s\n", insert, err.text.c_str());
        fill_failed = true;
    }
}

// Application rows of the three shapes: per AP group (avp_all_group_hour),
// per SSID and group (the day and backup tables), per AP, SSID and group.
enum class app_rows { per_group, per_ssid, per_ap_ssid };

void fill_app_rows(sql_conn &conn, const char *table, uint32_t t, uint32_t rows, app_rows shape) {
    const bool ap = shape == app_rows::per_ap_ssid, ssid = shape != app_rows::per_group;
    const std::string sql = std::string("INSERT INTO ") + table + "(time, app, port" +
                            (ap ? ", ap_mac" : "") + (ssid ? ", ssid" : "") +
                            ", uplink, downlink, group_id) VALUES(?, ?, ?" + (ap ? ", ?" : "") +
                            (ssid ? ", ?" : "") + ", ?, ?, ?)";
    fill(conn, sql.c_str(), rows, [&](sql_stmt &s, uint32_t r) {
        int i = 1;
        s.bind(i++, int64_t{t});
        s.bind(i++, app_name(r % kApps));
        s.bind(i++, int64_t{r % kApps == 0 ? 0 : 80 + r % kApps});
        if (ap) s.bind(i++, int64_t{1 + (r / kApps) % kAps});
        if (ssid) s.bind(i++, int64_t{1 + r % kSsids});
        s.bind(i++, static_cast<int64_t>(rnd() % 1000000));
        s.bind(i++, static_cast<int64_t>(rnd() % 8000000));
        s.bind(i++, int64_t{1 + r % kGroups});
    });
}

void fill_clients(sql_conn &conn, const char *table, uint32_t t, uint32_t rows) {
    const std::string sql = std::string("INSERT INTO ") + table +
                            "(time, client_mac, ap_mac, ssid, total) VALUES(?, ?, ?, ?, ?)";
    fill(conn, sql.c_str(), rows, [&](sql_stmt &s, uint32_t r) {
        s.bind(1, int64_t{t});
        s.bind(2, mac12(r % kClients));
        s.bind(3, int64_t{1 + r % kAps});
        s.bind(4, int64_t{1 + r % kSsids});
        s.bind(5, static_cast<int64_t>(rnd() % 50000000));
    });
}

std::string station_mac(uint32_t c) {
    char b[24];
    std::snprintf(b, sizeof b, "02:5c:%02x:%02x:%02x:%02x", c >> 24, (c >> 16) & 0xff,
                  (c >> 8) & 0xff, c & 0xff);
    return b;
}

// Rows of AP traffic (statis_ap_h, _d): every AP on every SSID at t.
void fill_ap_traffic(sql_conn &st, const char *table, uint32_t t) {
    const std::string sql = std::string("INSERT INTO ") + table +
                            "(time, ap_id, ssid_id, apgroup_id, wlangroup_id, tx_bytes, rx_bytes, "
                            "total_bytes) VALUES(?, ?, ?, ?, 1, ?, ?, ?)";
    fill(st, sql.c_str(), kStaAps * kStaSsids, [&](sql_stmt &s, uint32_t r) {
        const int64_t tx = static_cast<int64_t>(rnd() % 5000000),
                      rx = static_cast<int64_t>(rnd() % 20000000);
        s.bind(1, int64_t{t});
        s.bind(2, int64_t{1 + r % kStaAps});
        s.bind(3, int64_t{1 + r / kStaAps});
        s.bind(4, int64_t{1 + r % kStaAps % kStaGroups});
        s.bind(5, tx);
        s.bind(6, rx);
        s.bind(7, tx + rx);
    });
}

// Rows of client traffic (statis_client_h, _d): every station at t.
void fill_client_traffic(sql_conn &st, const char *table, uint32_t t) {
    const std::string sql =
        std::string("INSERT INTO ") + table +
        "(time, client_mac, ap_id, apgroup_id, ssid_id, wlangroup_id, rssi, "
        "tx_bytes, rx_bytes, total_bytes) VALUES(?, ?, ?, ?, ?, 1, -50, ?, ?, ?)";
    fill(st, sql.c_str(), kStaClients, [&](sql_stmt &s, uint32_t c) {
        const int64_t tx = static_cast<int64_t>(rnd() % 100000),
                      rx = static_cast<int64_t>(rnd() % 400000);
        const uint32_t ap = c % kStaAps;
        s.bind(1, int64_t{t});
        s.bind(2, station_mac(c));
        s.bind(3, int64_t{1 + ap});
        s.bind(4, int64_t{1 + ap % kStaGroups});
        s.bind(5, int64_t{1 + c % kStaSsids});
        s.bind(6, tx);
        s.bind(7, rx);
        s.bind(8, tx + rx);
    });
}

void fill_statistics(sql_conn &st, uint32_t now) {
    for (uint32_t m = 0; m < kStaMinutes; ++m) {
        fill_client_traffic(st, "statis_client_h", now - m * 60);
        if (m % 5 == 0) fill_ap_traffic(st, "statis_ap_h", now - m * 60);
    }
    for (uint32_t h = 0; h < kStaHours; ++h) {
        const uint32_t t = now - h * 3600;
        fill_ap_traffic(st, "statis_ap_d", t);
        fill_client_traffic(st, "statis_client_d", t);
        fill(st,
             "INSERT INTO statis_client_info_d(time, client_mac, ap_id, ssid_id, dvcinfo_id, "
             "apgroup_id, ip, host_name) VALUES(?, ?, ?, ?, ?, ?, '10.1.0.1', 'h')",
             kStaClients, [&](sql_stmt &s, uint32_t c) {
                 s.bind(1, int64_t{t});
                 s.bind(2, station_mac(c));
                 s.bind(3, int64_t{1 + c % kStaAps});
                 s.bind(4, int64_t{1 + c % kStaSsids});
                 s.bind(5, int64_t{c % 3});
                 s.bind(6, int64_t{1 + c % kStaAps % kStaGroups});
             });
    }
    fill(st,
         "INSERT INTO statis_ap_chart(time, ap_id, apgroup_id, tx_bytes, rx_bytes, client_count) "
         "VALUES(?, ?, ?, ?, ?, ?)",
         kStaAps * kChartPoints, [&](sql_stmt &s, uint32_t r) {
             s.bind(1, int64_t{now - (r / kStaAps) * 300});
             s.bind(2, int64_t{1 + r % kStaAps});
             s.bind(3, int64_t{1 + r % kStaAps % kStaGroups});
             s.bind(4, static_cast<int64_t>(rnd() % 5000000));
             s.bind(5, static_cast<int64_t>(rnd() % 20000000));
             s.bind(6, int64_t{10});
         });
    fill(st,
         "INSERT INTO statis_ap_wlan(time, ap_id, wlan_id, apgrp_id, wlangrp_id) "
         "VALUES(0, ?, ?, ?, 1)",
         (kStaAps + kStaGroups) * kStaSsids, [&](sql_stmt &s, uint32_t r) {
             const uint32_t who = r / kStaSsids;  // APs, then the group-level rows
             s.bind(1, int64_t{who < kStaAps ? 1 + who : 0});
             s.bind(2, int64_t{1 + r % kStaSsids});
             s.bind(3, int64_t{who < kStaAps ? 1 + who % kStaGroups : 1 + who - kStaAps});
         });
}

void fill_databases(uint32_t now) {
    sql_conn db = bench_open(tallyd_path(TALLYD_DB_MAIN));
    sql_conn backup = bench_open(tallyd_path(TALLYD_DB_BACKUP));
    sql_conn statistic = bench_open(tallyd_path(TALLYD_DB_STATISTIC));
    for (sql_conn *c : {&db, &backup, &statistic}) sqlite3_busy_timeout(c->get(), 10000);
    for (uint32_t b = 0; b < kBuckets; ++b) {
        const uint32_t t = now - b * kBucketStep;
        fill_app_rows(db, "avp_all_group_hour", t, kAppRows, app_rows::per_group);
        fill_app_rows(db, "avp_ap_ssid_hour", t, kApSsidRows, app_rows::per_ap_ssid);
        fill_clients(db, "avp_top_client_hour", t, kClientRows);
        fill(db,
             "INSERT INTO avp_app_client_hour(time, app, port, client_mac, uplink, downlink) "
             "VALUES(?, ?, ?, ?, ?, ?)",
             kClientRows, [&](sql_stmt &s, uint32_t r) {
                 s.bind(1, int64_t{t});
                 s.bind(2, app_name(r % kApps));
                 s.bind(3, int64_t{80 + r % kApps});
                 s.bind(4, mac12(r));
                 s.bind(5, static_cast<int64_t>(rnd() % 1000000));
                 s.bind(6, static_cast<int64_t>(rnd() % 8000000));
             });
    }
    for (uint32_t d = 0; d < kDayRuns; ++d) {
        fill_app_rows(db, "avp_ssid_day", now - d * kDayStep, kDayRows, app_rows::per_ssid);
        fill_clients(db, "avp_top_client_day", now - d * kDayStep, kClientRows);
    }
    for (uint32_t d = 0; d < kBackupRuns; ++d) {
        fill_app_rows(backup, "avp_ssid_backup", now - d * kBucketStep, kDayRows,
                      app_rows::per_ssid);
        fill_clients(backup, "avp_top_client_backup", now - d * kBucketStep, kClientRows);
    }
    fill(statistic,
         "INSERT INTO statis_client_info_h(time, client_mac, ap_id, ssid_id, dvcinfo_id, ip, "
         "ip6, host_name, user_name, active) VALUES(?, ?, ?, ?, 0, ?, '', ?, ?, 1)",
         kClients, [&](sql_stmt &s, uint32_t c) {
             s.bind(1, int64_t{now - (c < kStaClients ? 0 : 60)});  // the stations newest
             s.bind(2, station_mac(c));                             // mac12(c) with colons
             s.bind(3, int64_t{1 + c % kAps});
             s.bind(4, int64_t{1 + c % kSsids});
             s.bind(5, "10.0." + std::to_string(c / 256) + "." + std::to_string(c % 256));
             s.bind(6, "host-" + std::to_string(c));
             s.bind(7, "user" + std::to_string(c));
         });
    fill_statistics(statistic, now);
}

void write_file(const std::string &path, const std::string &body) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    if (std::FILE *f = std::fopen(path.c_str(), "w")) {
        std::fputs(body.c_str(), f);
        std::fclose(f);
    }
}

// The repository lists the reports read: 1,024 APs, 32 SSIDs.
void write_configuration() {
    std::string aps = "<avpap-list>", ap_list = "<ap-list>", ssids = "<avpssid-list>",
                wlans = "<wlansvc-list>";
    for (uint32_t a = 1; a <= kAps; ++a) {
        char mac[32];
        std::snprintf(mac, sizeof mac, "00:1a:2b:00:%02x:%02x", a >> 8, a & 0xff);
        aps += "<avpap id=\"" + std::to_string(a) + "\" ap=\"" + mac + "\"/>";
        ap_list += std::string("<ap mac=\"") + mac + "\" devname=\"ap-" + std::to_string(a) +
                   "\" location=\"floor " + std::to_string(a % 8) + "\"/>";
    }
    for (uint32_t s = 1; s <= kSsids; ++s) {
        const std::string name = "ssid-" + std::to_string(s);
        ssids += "<avpssid id=\"" + std::to_string(s) + "\" ssid=\"" + name + "\"/>";
        wlans += "<wlan id=\"" + std::to_string(s) + "\" ssid=\"" + name +
                 "\" encryption=\"wpa2-psk\"/>";
    }
    auto write = [](const char *list, const std::string &body) {
        write_file(tallyd_path(std::string(TALLYD_XREPO_DIR) + "/" + list + ".xml"), body);
    };
    write("avpap-list", aps + "</avpap-list>");
    write("ap-list", ap_list + "</ap-list>");
    write("avpssid-list", ssids + "</avpssid-list>");
    write("wlansvc-list", wlans + "</wlansvc-list>");
    for (const char *empty : {"avpapgroup-list", "avpdvcinfo-list", "sta-rename-list"})
        write(empty, std::string("<") + empty + "/>");
    write_file(tallyd_path(TALLYD_PLATFORM_FILE), "VX8810R\n");
}

double percentile(std::vector<double> v, double p) {
    std::sort(v.begin(), v.end());
    return v[std::min(v.size() - 1, static_cast<size_t>(p * static_cast<double>(v.size())))];
}

// Round trips of one kind, in milliseconds; empty when a request went
// unanswered.
std::vector<double> measure(const kind &k) {
    tallyctl_conn conn;
    std::string error;
    if (!conn.open(tallyd_socket_kind::control, &error)) return {};
    const tallyctl_bytes datagram = tallyctl_message(k.id, std::span(k.msg).subspan(12));
    std::vector<double> ms;
    tallyctl_bytes reply;
    bench_timer budget;
    for (int i = 0; i < kRequests && budget.seconds() < kKindBudgetS; ++i) {
        const auto t0 = std::chrono::steady_clock::now();
        if (!conn.send(datagram, &error) || !conn.receive(&reply, 60000)) return {};
        ms.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - t0)
                .count());
    }
    return ms;
}

}  // namespace

int main(int argc, char **argv) {
    // Arguments limit the run to the kinds whose name contains one of them.
    const std::vector<std::string> only(argv + 1, argv + argc);
    bench_root root;
    write_configuration();
    const pid_t daemon = bench_start_daemon(root.path());
    if (daemon < 0) {
        std::fprintf(stderr, "report_bench: tallyd did not start\n");
        return 1;
    }
    bench_timer fill_time;
    fill_databases(static_cast<uint32_t>(std::time(nullptr)));
    if (fill_failed) {
        kill(daemon, SIGTERM);
        waitpid(daemon, nullptr, 0);
        return 1;
    }
    std::printf("filled the tables in %.1fs; %d requests per report kind\n", fill_time.seconds(),
                kRequests);
    int missed = 0;
    const std::vector<kind> all = kinds();
    for (size_t i = 0; i < all.size(); ++i) {
        const std::string name = kind_name(all[i], i);
        if (!only.empty() && std::none_of(only.begin(), only.end(), [&](const std::string &o) {
                return name.find(o) != std::string::npos;
            }))
            continue;
        const std::vector<double> ms = measure(all[i]);
        if (ms.empty()) {
            std::printf("%s: no reply\n", name.c_str());
            ++missed;
            continue;
        }
        const double p50 = percentile(ms, 0.5), p99 = percentile(ms, 0.99);
        const bool ok = p99 <= kTargetP99Ms;
        missed += !ok;
        std::printf("%-24s p50=%.2f ms p99=%.2f ms n=%zu [p99<=%.0f ms %s]\n", (name + ":").c_str(),
                    p50, p99, ms.size(), kTargetP99Ms, ok ? "ok" : "MISSED");
        std::fflush(stdout);
    }
    kill(daemon, SIGTERM);
    waitpid(daemon, nullptr, 0);
    return missed ? 1 : 0;
}
