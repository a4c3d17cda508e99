// Counters batches against bare SQLite: 300-station TALLYD_MSG_CLIENT_STATS
// datagrams sent through a real unix datagram socket and received by the
// statistics socket's own handler into a statistic database that already
// holds a day of rows, and the same statements (the hourly purge, the
// directory SELECT and the INSERTs, one transaction a batch) run bare with
// prepared statements on a database of the same schema and rows.
//
// The first batch purges the 23 older hours of the preloaded day; it is
// shown on its own line. The steady batches that follow are the measure:
// the median of each side, in stations per second, against a ratio target
// of 1.5 and 0.2 s a batch (a CPU 25 times slower then stays well inside
// the 12 s a batch may take).

#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "core/routes.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/schema.h"
#include "db/sql.h"
#include "entity/dict.h"
#include "events/events_wire.h"
#include "ipc/dispatch.h"
#include "ipc/msg_layout.h"
#include "ipc/unix_server.h"
#include "ipc/unix_sock.h"
#include "support/bench_util.h"

using namespace events_wire;

namespace {

constexpr int kStations = 300;
constexpr int kBatches = 15;
constexpr uint32_t kDay = 86400;
constexpr uint32_t kStart = 1700000000;  // the first batch; the day of rows ends here

std::string mac_of(int i) {
    char m[18];
    std::snprintf(m, sizeof m, "02:5c:00:00:%02x:%02x", i >> 8, i & 0xff);
    return m;
}

// A day of one-minute batches of the same clients, as the table holds it
// before a purge, and their directory rows.
void preload(sql_conn &conn) {
    sql_exec(conn.get(), "BEGIN TRANSACTION");
    sql_stmt *row = conn.cached(
        "INSERT INTO statis_client_h(time, client_mac, ap_id, apgroup_id, ssid_id, wlangroup_id, "
        "rssi, tx_pkts, rx_pkts, total_pkts, tx_bytes, rx_bytes, total_bytes) "
        "VALUES(?, ?, 1, 1, 1, 1, -50, 500, 400, 900, 600000, 300000, 900000)");
    for (uint32_t t = kStart - kDay; t < kStart; t += 60)
        for (int i = 0; i < kStations; ++i) {
            const std::string mac = mac_of(i);
            row->bind(1, int64_t{t});
            row->bind(2, mac);
            row->run();
        }
    sql_stmt *info = conn.cached(
        "INSERT INTO statis_client_info_h(time, client_mac, dvcinfo_id, host_name, ap_id, "
        "ssid_id, active) VALUES(?, ?, 0, 'host', 1, 1, 1)");
    for (int i = 0; i < kStations; ++i) {
        info->bind(1, int64_t{kStart - kDay});
        info->bind(2, mac_of(i));
        info->run();
    }
    sql_exec(conn.get(), "COMMIT TRANSACTION");
}

// The bare side of one batch: what the daemon's statements do, prepared.
void bare_batch(sql_conn &conn, uint32_t t, const std::vector<std::string> &macs) {
    for (const char *table : {"statis_ap_h", "statis_client_h", "statis_client_info_h"}) {
        sql_exec(conn.get(), "BEGIN TRANSACTION");
        sql_exec(conn.get(), ("DELETE FROM " + std::string(table) + " WHERE (time>0 AND time<" +
                              std::to_string(t - 3600) + ") OR time>" + std::to_string(t))
                                 .c_str());
        sql_exec(conn.get(), "COMMIT TRANSACTION");
    }
    sql_exec(conn.get(), "BEGIN TRANSACTION");
    for (const std::string &mac : macs) {
        sql_stmt *sel = conn.cached(
            "SELECT client_mac, host_name FROM statis_client_info_h WHERE client_mac=?");
        sel->bind_static(1, mac);
        const bool found = sel->step() == SQLITE_ROW;
        sel->reset();
        if (!found) {
            sql_stmt *info = conn.cached(
                "INSERT INTO statis_client_info_h(time, client_mac, dvcinfo_id, host_name, ap_id, "
                "ssid_id, active) VALUES(?, ?, ?, ?, ?, ?, ?)");
            info->bind(1, int64_t{t});
            info->bind_static(2, mac);
            info->bind(3, int64_t{273});
            info->bind_static(4, "host");
            for (int c = 5; c <= 7; ++c) info->bind(c, int64_t{1});
            info->run();
        }
        sql_stmt *ins = conn.cached(
            "INSERT INTO statis_client_h(time, client_mac, ap_id, apgroup_id, ssid_id, "
            "wlangroup_id, rssi, tx_pkts, rx_pkts, total_pkts, tx_bytes, rx_bytes, total_bytes) "
            "VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
        const int64_t v[] = {t, 0, 1, 1, 1, 1, -50, 500, 400, 900, 600000, 300000, 900000};
        for (int c = 1; c <= 13; ++c)
            if (c == 2)
                ins->bind_static(2, mac);
            else
                ins->bind(c, v[c - 1]);
        ins->run();
    }
    sql_exec(conn.get(), "COMMIT TRANSACTION");
}

double median(std::vector<double> v) {
    std::sort(v.begin(), v.end());
    return v[v.size() / 2];
}

}  // namespace

int main() {
    bench_root root;
    tallyd_sys_info.dvcinfo_max = 256;
    std::filesystem::create_directories(tallyd_path(TALLYD_XREPO_DIR));
    for (const char *list : {"avpdvcinfo-list", "avpssid-list", "avpap-list"})
        std::ofstream(tallyd_path(TALLYD_XREPO_DIR) + "/" + list + ".xml") << "<" << list << "/>";
    std::filesystem::create_directories(tallyd_path("/tmp/tallyd"));
    std::filesystem::create_directories(tallyd_path(TALLYD_RUN_DIR));
    tallyd_clock_set(kStart - kDay);
    tallyd_create_statistic_db(&tallyd_db_set);
    sql_conn bare = bench_open(tallyd_path("/tmp/tallyd/bare_statistic.db"));
    tallyd_create_statistic_tables(bare);
    if (!tallyd_db_set.statistic_db || !bare) {
        std::fprintf(stderr, "client_stats_bench: cannot open the databases\n");
        return 1;
    }
    preload(tallyd_db_set.statistic_db);
    preload(bare);

    // The statistics socket as the daemon opens it, and a sender beside it.
    const std::string path = tallyd_path(TALLYD_STAT_SOCKET);
    const int server = tallyd_open_unix_server(path.c_str());
    int rcvbuf = static_cast<int>(TALLYD_STAT_BUF_SIZE);
    setsockopt(server, SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf);
    std::filesystem::create_directories(tallyd_path("/tmp"));
    unix_sock client{};
    int sndbuf = static_cast<int>(batch_size(kStations) + 1024);
    if (server < 0 || unix_sock_open_client(path.c_str(), &client, 1) < 0 ||
        setsockopt(client.fd, SOL_SOCKET, SO_SNDBUF, &sndbuf, sizeof sndbuf) != 0) {
        std::fprintf(stderr, "client_stats_bench: cannot open the sockets\n");
        return 1;
    }

    std::vector<std::string> macs;
    std::vector<station> stations(kStations);
    for (int i = 0; i < kStations; ++i) macs.push_back(mac_of(i));
    for (int i = 0; i < kStations; ++i) {
        station &s = stations[i];
        s.client_mac = macs[i];
        s.ap_mac = "00:1a:2b:00:00:01";
        s.device = "iPhone";
        s.host_name = "host";
        s.ssid = "corp";
        s.apgroup = s.wlangroup = 1;
        s.rssi = -50;
        s.tx_pkts = 500, s.rx_pkts = 400, s.tx_bytes = 600000, s.rx_bytes = 300000;
    }

    std::vector<double> daemon, bare_s;
    double first_daemon = 0, first_bare = 0;
    int64_t rss = 0;
    for (int b = 0; b <= kBatches; ++b) {
        const uint32_t t = kStart + 60 * b;
        std::vector<uint8_t> msg = build_client_stats(t, stations);
        tallyd_msg_header_put(msg, 0, TALLYD_MSG_CLIENT_STATS,
                              static_cast<uint32_t>(msg.size() - kHeaderSize));
        tallyd_clock_set(t);
        bench_peak_rss_reset();
        bench_timer timer;
        if (send(client.fd, msg.data(), msg.size(), 0) != static_cast<ssize_t>(msg.size())) {
            std::fprintf(stderr, "client_stats_bench: send failed\n");
            return 1;
        }
        tallyd_stat_receive(server, const_cast<tallyd_route_table *>(&tallyd_stat_routes), nullptr);
        const double d = timer.seconds();
        rss = std::max(rss, bench_peak_rss_kib());
        timer.restart();
        bare_batch(bare, t, macs);
        const double s = timer.seconds();
        if (b == 0) {
            first_daemon = d, first_bare = s;
        } else {
            daemon.push_back(d);
            bare_s.push_back(s);
        }
    }
    const int64_t daemon_rows = bench_count(tallyd_db_set.statistic_db, "statis_client_h");
    const int64_t bare_rows = bench_count(bare, "statis_client_h");
    const double d = median(daemon), s = median(bare_s);
    std::printf(
        "counters batch: %d stations of %zu bytes a batch, %d batches after one that "
        "purged a day of %d-station minutes (daemon %.3fs, bare %.3fs)\n",
        kStations, batch_size(kStations), kBatches, kStations, first_daemon, first_bare);
    std::printf(
        "counters batch: %.0f stations/s through the socket, %.0f stations/s bare; "
        "statis_client_h holds %lld rows (bare %lld)\n",
        kStations / d, kStations / s, static_cast<long long>(daemon_rows),
        static_cast<long long>(bare_rows));
    const int rc = bench_print({"counters batch", kStations, d, s, rss, 1.5, 0.2});
    unix_sock_close(&client);
    close(server);
    tallyd_db_set.close_all();
    return rc == 0 && daemon_rows == bare_rows ? 0 : 1;
}
