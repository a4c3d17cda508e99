#include "db/db_fresh.h"

#include <cstdio>

#include "base/clock.h"
#include "base/sys_info.h"
#include "db/sql.h"

namespace {

constexpr const char *kMarkerClient =
    "INSERT INTO %s(time, client_mac, ap_mac, ssid, total) VALUES(%lu, '%s', %d, %d, %llu)";
constexpr const char *kMarkerApp =
    "INSERT INTO %s(time, app, port, ssid, uplink, downlink, group_id) "
    "VALUES(%lu, '%s', %d, %d, %llu, %llu, %d)";
constexpr const char *kMarkerStatis = "INSERT INTO %s(time, client_mac) VALUES(%lu, '%s')";
constexpr const char *kMarkerKey = "---";

// Cache pages by platform: the larger controllers can afford more RAM.
int32_t cache_pages(int32_t platform_class) {
    switch (platform_class) {
        case 2:
            return 5000;
        case 1:
        case 3:
            return 2500;
        default:
            return 250;
    }
}

}  // namespace

void tallyd_set_db_pragmas(sql_conn &conn) {
    char sql[64];
    // auto_vacuum must precede the first table: only then do deletions give
    // pages back to the file system, which the size check relies on.
    std::snprintf(sql, sizeof sql, "PRAGMA auto_vacuum = %d", 1);
    sql_exec_log_msg(conn.get(), sql, "tallyd, PRAGMA auto_vacuum failed\n");
    std::snprintf(sql, sizeof sql, "PRAGMA cache_size=%d",
                  cache_pages(tallyd_sys_info.platform_class));
    sql_exec_log_msg(conn.get(), sql, "tallyd, PRAGMA set cache_size failed\n");
}

void tallyd_insert_timestamp(sql_conn &conn, tallyd_table table, int32_t kind) {
    if (!conn) return;
    const char *name = tallyd_table_name(table);
    // The marker holds what "%lu" of a 32-bit time and "%llu" of a zero
    // counter print.
    unsigned long now = tallyd_now();
    unsigned long long zero = 0;
    char sql[256];
    switch (kind) {
        case 1:
        case 4:
            std::snprintf(sql, sizeof sql, kMarkerClient, name, now, kMarkerKey, 0, 0, zero);
            break;
        case 2:
        case 3:
            std::snprintf(sql, sizeof sql, kMarkerApp, name, now, kMarkerKey, 0, 0, zero, zero, 0);
            break;
        case 5:
            std::snprintf(sql, sizeof sql, kMarkerStatis, name, now, kMarkerKey);
            break;
        default:
            return;
    }
    sql_exec_log_msg(conn.get(), sql, "tallyd, INSERT timestamp aErrMsg = %s\n");
}
