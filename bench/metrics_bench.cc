// tallyctl metrics against bare SQLite: the export of a controller at the
// largest platform's limits (VX8810R: 1,024 APs, 256 SSIDs, every rollup
// table as full as its row limits let it grow), timed as the program an
// operator runs, against one bare read of every row of the same files.
//
// Targets: under 0.5 s and under 1 MB of output with the default series cap.

#include <sys/resource.h>
#include <sys/wait.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/file.h"
#include "base/path.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "support/bench_util.h"

namespace {

constexpr uint32_t kNow = 1700000000;
constexpr int kAps = 1024, kSsids = 256, kGroups = 64, kApps = 3000, kClients = 6000;
constexpr int kRuns = 3;
constexpr size_t kMaxOutput = 1000000;

// Rows per five-minute bucket or per rollup run on the largest platform, and
// how many of them the tables keep: twelve buckets, twelve day runs, two
// backup runs, two hours of one-minute counters of 2,000 stations.
constexpr int kApSsidRows = 80000, kAllGroupRows = 8000, kTopClientRows = 6000;
constexpr int kSsidDayRows = 32000, kBuckets = 12, kDayRuns = 12, kBackupRuns = 2;
constexpr int kStations = 2000, kCounterMinutes = 120, kBaseRows = kAps * 50;

std::string mac(const char *prefix, int i) {
    char m[18];
    std::snprintf(m, sizeof m, "%s:%02x:%02x", prefix, (i >> 8) & 0xff, i & 0xff);
    return m;
}

std::string mac12(int i) {
    char m[13];
    std::snprintf(m, sizeof m, "025c0000%04x", i & 0xffff);
    return m;
}

std::string app(int i) {
    return "app-" + std::to_string(i % kApps);
}

// Heavy-tailed bytes, so that the top of each family stands out.
int64_t bytes(int i) {
    return 1000 + (int64_t{1} << (i * 7 % 31)) + i % 977;
}

// rows rows through one prepared INSERT in one transaction; bind(stmt, i)
// fills row i.
void fill(sql_conn &conn, const char *sql, int rows,
          const std::function<void(sql_stmt *, int)> &bind) {
    sql_exec(conn.get(), "BEGIN TRANSACTION");
    sql_stmt *s = conn.cached(sql);
    for (int i = 0; i < rows; ++i) {
        bind(s, i);
        s->run();
    }
    sql_exec(conn.get(), "COMMIT TRANSACTION");
}

void write_list(const std::string &list, const std::string &node, const std::string &attr, int n,
                const std::function<std::string(int)> &key) {
    std::ofstream out(tallyd_path(TALLYD_XREPO_DIR) + "/" + list + ".xml");
    out << "<" << list << ">\n";
    for (int i = 1; i <= n; ++i)
        out << "<" << node << " id=\"" << i << "\" " << attr << "=\"" << key(i) << "\"/>\n";
    out << "</" << list << ">\n";
}

// runs per-SSID rollups of application rows, step seconds apart.
void fill_ssid_runs(sql_conn &conn, const char *table, int runs, int step) {
    const std::string sql = std::string("INSERT INTO ") + table +
                            "(time, app, port, ssid, uplink, downlink, group_id) "
                            "VALUES(?, ?, 443, ?, ?, ?, ?)";
    fill(conn, sql.c_str(), kSsidDayRows * runs, [step](sql_stmt *s, int i) {
        s->bind(1, int64_t{kNow - step * (i / kSsidDayRows)});
        s->bind(2, app(i / 3));
        s->bind(3, int64_t{1 + i % kSsids});
        s->bind(4, bytes(i));
        s->bind(5, bytes(i + 5));
        s->bind(6, int64_t{1 + i % kGroups});
    });
}

void fill_main(sql_conn &db) {
    fill(db, "INSERT INTO avp_ap(time, ap_mac, model, group_id) VALUES(0, ?, 'AP-X', ?)", kAps,
         [](sql_stmt *s, int i) {
             s->bind(1, mac("00:1a:2b:00", i + 1));
             s->bind(2, int64_t{1 + i % kGroups});
         });
    fill(db,
         "INSERT INTO avp_ap_ssid_hour(time, app, port, ap_mac, ssid, uplink, downlink, "
         "group_id) VALUES(?, ?, 443, ?, ?, ?, ?, ?)",
         kApSsidRows * kBuckets, [](sql_stmt *s, int i) {
             const int ap = 1 + i % kAps;
             s->bind(1, int64_t{kNow - 300 * (i / kApSsidRows)});
             s->bind(2, app(i / 7));
             s->bind(3, int64_t{ap});
             s->bind(4, int64_t{1 + (i / kAps) % kSsids});
             s->bind(5, bytes(i) % 4294967296);
             s->bind(6, bytes(i + 1) % 4294967296);
             s->bind(7, int64_t{1 + ap % kGroups});
         });
    fill(db,
         "INSERT INTO avp_all_group_hour(time, app, port, uplink, downlink, group_id) "
         "VALUES(?, ?, 443, ?, ?, ?)",
         kAllGroupRows * kBuckets, [](sql_stmt *s, int i) {
             s->bind(1, int64_t{kNow - 300 * (i / kAllGroupRows)});
             s->bind(2, app(i));
             s->bind(3, bytes(i));
             s->bind(4, bytes(i + 3));
             s->bind(5, int64_t{1 + (i / kApps) % kGroups});
         });
    const char *top_client =
        "INSERT INTO %s(time, client_mac, ap_mac, ssid, total) VALUES(?, ?, ?, ?, ?)";
    for (auto [table, runs, step] : {std::tuple{"avp_top_client_hour", kBuckets, 300},
                                     std::tuple{"avp_top_client_day", kDayRuns, 7217}}) {
        char sql[128];
        std::snprintf(sql, sizeof sql, top_client, table);
        fill(db, sql, kTopClientRows * runs, [step](sql_stmt *s, int i) {
            s->bind(1, int64_t{kNow - step * (i / kTopClientRows)});
            s->bind(2, mac12(i % kClients));
            s->bind(3, int64_t{1 + i % kAps});
            s->bind(4, int64_t{1 + i % kSsids});
            s->bind(5, bytes(i));
        });
    }
    fill_ssid_runs(db, "avp_ssid_day", kDayRuns, 7217);
}

void fill_others(tallyd_db_set_t &set) {
    fill_ssid_runs(set.backup_hour_db, "avp_ssid_backup", kBackupRuns, 3587);
    fill(set.temp_db,
         "INSERT INTO avp_base(time, app, port, client_mac, ap_mac, ssid, uplink, downlink, "
         "total, category, group_id) VALUES(?, ?, 443, ?, ?, ?, ?, ?, ?, 'Streaming', ?)",
         kBaseRows, [](sql_stmt *s, int i) {
             s->bind(1, int64_t{kNow});
             s->bind(2, app(i));
             s->bind(3, mac("02:5c:00:00", i % kClients));
             s->bind(4, int64_t{1 + i % kAps});
             s->bind(5, int64_t{1 + i % kSsids});
             s->bind(6, bytes(i));
             s->bind(7, bytes(i + 1));
             s->bind(8, bytes(i) + bytes(i + 1));
             s->bind(9, int64_t{1 + i % kGroups});
         });
    fill(set.statistic_db,
         "INSERT INTO statis_client_info_h(time, client_mac, dvcinfo_id, host_name, ap_id, "
         "ssid_id, active) VALUES(?, ?, 273, 'host', 1, 1, 1)",
         kClients, [](sql_stmt *s, int i) {
             s->bind(1, int64_t{kNow});
             s->bind(2, mac("02:5c:00:00", i));
         });
    fill(set.statistic_db,
         "INSERT INTO statis_client_h(time, client_mac, ap_id, apgroup_id, ssid_id, "
         "wlangroup_id, rssi, tx_pkts, rx_pkts, total_pkts, tx_bytes, rx_bytes, total_bytes) "
         "VALUES(?, ?, 1, 1, 1, 1, -50, 500, 400, 900, 600000, 300000, 900000)",
         kStations * kCounterMinutes, [](sql_stmt *s, int i) {
             s->bind(1, int64_t{kNow - 60 * (i / kStations)});
             s->bind(2, mac("02:5c:00:00", i % kStations));
         });
}

// tallyctl metrics as an operator runs it: its output and the wall time.
std::string run_metrics(double *seconds) {
    const std::string cmd =
        std::string(TALLYD_BIN_DIR) + "/tallyctl --root '" + tallyd_root() + "' metrics";
    bench_timer timer;
    tallyd_pipe p(popen(cmd.c_str(), "r"));
    std::string out;
    char buf[65536];
    while (p && !std::feof(p.get())) out.append(buf, std::fread(buf, 1, sizeof buf, p.get()));
    const int status = p ? pclose(p.release()) : -1;
    *seconds = timer.seconds();
    return WIFEXITED(status) && WEXITSTATUS(status) == 0 ? out : "";
}

// The bare side: every row of every table of the same files read once.
int64_t read_every_row() {
    int64_t rows = 0;
    for (const char *dir : {"/tmp/tallyd", "/etc/corvane-images/tallyd"}) {
        std::error_code ec;
        for (const auto &e : std::filesystem::directory_iterator(tallyd_path(dir), ec)) {
            if (e.path().extension() != ".db") continue;
            sql_conn conn;
            tallyd_db_open(e.path().string(), SQLITE_OPEN_READONLY, conn);
            std::vector<std::string> tables;
            sql_stmt names =
                sql_prepare(conn.get(), "SELECT name FROM sqlite_master WHERE type='table'");
            while (names && names.step() == SQLITE_ROW)
                tables.emplace_back(
                    reinterpret_cast<const char *>(sqlite3_column_text(names.get(), 0)));
            for (const std::string &t : tables) {
                sql_stmt s = sql_prepare(conn.get(), ("SELECT * FROM " + t).c_str());
                while (s && s.step() == SQLITE_ROW) ++rows;
            }
        }
    }
    return rows;
}

}  // namespace

int main() {
    bench_root root;
    tallyd_clock_set(kNow);
    std::filesystem::create_directories(tallyd_path("/proc/zvt_hw_info"));
    std::ofstream(tallyd_path(TALLYD_PLATFORM_FILE)) << "VX8810R";
    std::filesystem::create_directories(tallyd_path(TALLYD_XREPO_DIR));
    write_list("avpap-list", "avpap", "ap", kAps, [](int i) { return mac("00:1a:2b:00", i); });
    write_list("avpssid-list", "avpssid", "ssid", kSsids,
               [](int i) { return "ssid-" + std::to_string(i); });
    write_list("avpapgroup-list", "avpapgroup", "apgroup", kGroups,
               [](int i) { return "group-" + std::to_string(i); });
    write_list("avpdvcinfo-list", "avpdvcinfo", "dvcinfo", 200,
               [](int i) { return "device-" + std::to_string(i); });
    if (tallyd_init_avp_db(&tallyd_db_set) != 0) {
        std::fprintf(stderr, "metrics_bench: cannot open the databases\n");
        return 1;
    }
    bench_timer fill_timer;
    fill_main(tallyd_db_set.db);
    fill_others(tallyd_db_set);
    tallyd_db_set.close_all();
    std::printf("metrics: tables filled in %.1fs\n", fill_timer.seconds());

    std::vector<double> times;
    std::string out;
    for (int r = 0; r < kRuns; ++r) {
        double s = 0;
        out = run_metrics(&s);
        times.push_back(s);
    }
    std::sort(times.begin(), times.end());
    rusage children{};
    getrusage(RUSAGE_CHILDREN, &children);

    bench_timer bare_timer;
    const int64_t rows = read_every_row();
    const double bare = bare_timer.seconds();

    size_t series = 0;
    for (size_t p = 0; p < out.size(); p = out.find('\n', p) + 1)
        if (out[p] != '#') ++series;
    const bool small = !out.empty() && out.size() < kMaxOutput;
    std::printf("metrics: %zu bytes of output (%zu lines of samples) [<%zu bytes %s]\n", out.size(),
                series, kMaxOutput, small ? "ok" : "MISSED");
    const int rc =
        bench_print({"metrics", rows, times[kRuns / 2], bare, children.ru_maxrss, 0, 0.5});
    return rc == 0 && small ? 0 : 1;
}
