// The five-minute rollup task against bare SQLite: an avp_base of 1,024
// reports of 50 entries (one per AP of the largest platform, 51,200 rows)
// rolled up by tallyd_pre_handle_hour, and the same statements (hour purge,
// the three grouped SELECTs with their INSERTs, emptying avp_base) run bare
// with prepared statements on a database pair of the same schema. Both sides
// start every round from the same avp_base and empty hour tables.

#include <sqlite3.h>

#include <algorithm>
#include <cstdio>
#include <map>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_fresh.h"
#include "db/db_set.h"
#include "db/schema.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "flow/hour_task.h"
#include "support/bench_util.h"
#include "support/flow_workload.h"

namespace {

constexpr int kRounds = 5;
constexpr uint32_t kNow = 1700000000;

// The ids avp_base holds for the workload: APs numbered from 1, SSIDs in
// order of appearance, sixteen AP groups.
std::vector<bench_base_row> base_rows(const std::vector<bench_flow_row> &flows) {
    std::map<std::string, int32_t> ssid_ids;
    std::vector<bench_base_row> rows;
    for (const bench_flow_row &f : flows) {
        const int32_t ssid = ssid_ids.emplace(f.ssid, ssid_ids.size() + 1).first->second;
        rows.push_back(
            {&f, static_cast<int32_t>(f.ap + 1), ssid, static_cast<int32_t>(1 + f.ap % 16)});
    }
    return rows;
}

constexpr const char *kHourTables[] = {"avp_top_client_hour", "avp_ap_ssid_hour",
                                       "avp_all_group_hour"};

void clear_hour_tables(sql_conn &conn) {
    for (const char *t : kHourTables)
        sql_exec(conn.get(), (std::string("DELETE FROM ") + t).c_str());
}

int64_t hour_rows(const sql_conn &conn) {
    int64_t n = 0;
    for (const char *t : kHourTables) n += bench_count(conn, t);
    return n;
}

// --- the bare side ------------------------------------------------------------

void bare_exec_txn(sql_conn &conn, const std::string &sql) {
    sql_exec(conn.get(), "BEGIN TRANSACTION");
    sql_exec(conn.get(), sql.c_str());
    sql_exec(conn.get(), "COMMIT TRANSACTION");
}

// SELECT on src, each row bound by `bind` into one INSERT on dst, one
// transaction.
template <class Bind>
void bare_rollup(sql_conn &src, const char *select, sql_conn &dst, const char *insert, Bind bind) {
    sql_stmt &sel = *src.cached(select);
    sql_stmt &ins = *dst.cached(insert);
    sql_exec(dst.get(), "BEGIN TRANSACTION");
    while (sel.step() == SQLITE_ROW)
        if (bind(sel.get(), ins)) ins.run();
    sql_exec(dst.get(), "COMMIT TRANSACTION");
}

double bare_run(sql_conn &src, sql_conn &dst, uint32_t stamp) {
    bench_timer t;
    for (const char *table : kHourTables)
        bare_exec_txn(dst, std::string("DELETE FROM ") + table + " WHERE (time>0 AND time<" +
                               std::to_string(kNow - 3540) + ") OR time>" + std::to_string(kNow));
    const int64_t time = stamp;
    bare_rollup(src,
                "SELECT app, port, SUM(uplink), SUM(downlink), group_id FROM avp_base GROUP by "
                "app, group_id ORDER by (SUM(uplink)+SUM(downlink)) DESC LIMIT 8000",
                dst,
                "INSERT INTO avp_all_group_hour(time, app, port, uplink, downlink, group_id) "
                "VALUES(?, ?, ?, ?, ?, ?)",
                [&](sqlite3_stmt *r, sql_stmt &s) {
                    s.bind(1, time);
                    s.bind_static(2, reinterpret_cast<const char *>(sqlite3_column_text(r, 0)));
                    for (int c = 1; c < 5; ++c) s.bind(c + 2, sqlite3_column_int64(r, c));
                    return true;
                });
    bare_rollup(src,
                "SELECT app, port, ap_mac, ssid, SUM(uplink), SUM(downlink), group_id FROM "
                "avp_base GROUP by ap_mac, app, ssid, group_id LIMIT 80000",
                dst,
                "INSERT INTO avp_ap_ssid_hour(time, app, port, ap_mac, ssid, uplink, downlink, "
                "group_id) VALUES(?, ?, ?, ?, ?, ?, ?, ?)",
                [&](sqlite3_stmt *r, sql_stmt &s) {
                    s.bind(1, time);
                    s.bind_static(2, reinterpret_cast<const char *>(sqlite3_column_text(r, 0)));
                    for (int c = 1; c < 7; ++c) {
                        int64_t v = sqlite3_column_int64(r, c);
                        s.bind(c + 2, c == 4 || c == 5 ? int64_t{static_cast<uint32_t>(v)} : v);
                    }
                    return true;
                });
    char mac[32];
    bare_rollup(src,
                "SELECT client_mac, ap_mac, ssid, SUM(total) FROM avp_base GROUP by client_mac, "
                "ap_mac ORDER by SUM(total) DESC LIMIT 6000",
                dst,
                "INSERT INTO avp_top_client_hour(time, client_mac, ap_mac, ssid, total) "
                "VALUES(?, ?, ?, ?, ?)",
                [&](sqlite3_stmt *r, sql_stmt &s) {
                    const char *m = reinterpret_cast<const char *>(sqlite3_column_text(r, 0));
                    size_t n = 0;
                    for (; m && *m && n < sizeof mac - 1; ++m)
                        if (*m != ':') mac[n++] = *m;
                    mac[n] = '\0';
                    if (sqlite3_column_int64(r, 3) == 0) return false;
                    s.bind(1, time);
                    s.bind_static(2, mac);
                    for (int c = 1; c < 4; ++c) s.bind(c + 2, sqlite3_column_int64(r, c));
                    return true;
                });
    bare_exec_txn(src, "DELETE FROM avp_base");
    return t.seconds();
}

}  // namespace

int main() {
    bench_root root;
    tallyd_clock_set(kNow);
    tallyd_sys_info.platform_class = 2;  // the largest platform and its limits
    tallyd_sys_info.db_max_size = 300000000;
    tallyd_sys_info.db_flash_max_size = 300000000;
    eloop_init(nullptr);
    tallyd_create_avp_db(&tallyd_db_set);
    tallyd_create_avp_temp_db(&tallyd_db_set);

    const std::string dir = tallyd_path("/tmp/tallyd");
    sql_conn bare_src = bench_open(dir + "/bare_temp.db");
    sql_conn bare_dst = bench_open(dir + "/bare_main.db");
    tallyd_create_temp_tables(bare_src);
    tallyd_set_db_pragmas(bare_dst);
    tallyd_create_main_tables(bare_dst);
    if (!tallyd_db_set.db || !tallyd_db_set.temp_db || !bare_src || !bare_dst) {
        std::fprintf(stderr, "hour_bench: cannot open the databases\n");
        return 1;
    }

    std::vector<bench_flow_row> flows;
    bench_flow_workload(&flows, nullptr);
    const std::vector<bench_base_row> rows = base_rows(flows);
    double daemon_s = 1e9, bare_s = 1e9;
    int64_t rss = 0, daemon_out = 0, bare_out = 0;
    for (int i = 0; i < kRounds; ++i) {
        bench_insert_avp_base(tallyd_db_set.temp_db, rows, kNow);
        clear_hour_tables(tallyd_db_set.db);
        bench_peak_rss_reset();
        bench_timer t;
        tallyd_pre_handle_hour(nullptr, nullptr);
        daemon_s = std::min(daemon_s, t.seconds());
        rss = std::max(rss, bench_peak_rss_kib());
        daemon_out = hour_rows(tallyd_db_set.db);

        bench_insert_avp_base(bare_src, rows, kNow);
        clear_hour_tables(bare_dst);
        bare_s = std::min(bare_s, bare_run(bare_src, bare_dst, tallyd_sys_info.hour_stamp));
        bare_out = hour_rows(bare_dst);
    }
    std::printf("hour task: %lld avp_base rows -> %lld bucket rows (bare: %lld)\n",
                static_cast<long long>(rows.size()), static_cast<long long>(daemon_out),
                static_cast<long long>(bare_out));
    int rc = bench_print(
        {"hour task", static_cast<int64_t>(rows.size()), daemon_s, bare_s, rss, 1.3, 0});

    tallyd_db_set.close_all();
    eloop_destroy();
    return rc == 0 && daemon_out == bare_out ? 0 : 1;
}
