#include "db/retention.h"

#include <sys/stat.h>

#include <cstdio>
#include <span>

#include "base/clock.h"
#include "base/log.h"
#include "base/sys_info.h"
#include "db/db_set.h"
#include "db/recover.h"
#include "db/sql.h"

namespace {

constexpr const char *kDeleteTimed = "DELETE FROM %s WHERE (time>0 AND time<%lu) OR time>%lu";
constexpr const char *kDeleteAll = "DELETE FROM %s";

// Not a published SQLite operation: a stock library answers SQLITE_NOTFOUND
// and does nothing; a library built to hand memory back after a purge acts
// on it.
constexpr int kPurgeFileControl = 230437;

using enum tallyd_table;
constexpr tallyd_table kClientCurve[] = {avp_curve_client, avp_app_client_hour};
constexpr tallyd_table kHour[] = {avp_top_client_hour, avp_ap_ssid_hour, avp_all_group_hour};
constexpr tallyd_table kDay[] = {avp_ap_day, avp_ssid_day, avp_top_client_day};
constexpr tallyd_table kWeek[] = {avp_ap_week, avp_ssid_week};
constexpr tallyd_table kMonth[] = {avp_ap_month, avp_ssid_month};
constexpr tallyd_table kBackup[] = {avp_top_client_backup, avp_ap_backup, avp_ssid_backup};
constexpr tallyd_table kStatisHourly[] = {statis_ap_h, statis_client_h, statis_client_info_h};
constexpr tallyd_table kStatisDaily[] = {statis_ap_d, statis_client_d, statis_client_info_d,
                                         statis_ap_wlan};

// A damaged table met by the hour, day or backup purges rebuilds nothing; one
// met by the week or month purges rebuilds db, not db_flash.
constexpr uint32_t kMaskFlashPurge = TALLYD_RECOVER_DB;

// Deletes from every table in order; stops at the first failure.
int purge_group(std::span<const tallyd_table> tables, uint32_t cut, sql_conn &conn, uint32_t mask) {
    if (!conn) return -1;
    for (tallyd_table table : tables) {
        int rc = tallyd_delete_by_time(table, cut, conn, mask);
        if (rc != 0) return rc;
    }
    sqlite3_file_control(conn.get(), "main", kPurgeFileControl, nullptr);
    return 0;
}

}  // namespace

int tallyd_delete_by_time(tallyd_table table, uint32_t cut, sql_conn &conn, uint32_t mask) {
    unsigned long now = tallyd_now();
    const char *name = tallyd_table_name(table);
    sql_error err;
    if (sql_exec_log_msg(conn.get(), "BEGIN TRANSACTION",
                         "tallyd, delete record BEGIN,  aErrMsg = %s\n", &err) != SQLITE_OK) {
        tallyd_recover_if_damaged(conn, err, mask);
        return -1;
    }
    char sql[128];
    if (cut != 0)
        std::snprintf(sql, sizeof sql, kDeleteTimed, name, static_cast<unsigned long>(cut), now);
    else
        std::snprintf(sql, sizeof sql, kDeleteAll, name);
    if (sql_exec_log(conn.get(), sql, "tallyd, value = %s, aErrMsg = %s\n", &err) == SQLITE_OK &&
        sql_exec_log_msg(conn.get(), "COMMIT TRANSACTION",
                         "tallyd, delete record COMMIT, aErrMsg = %s\n", &err) == SQLITE_OK)
        return 0;
    if (err.text == TALLYD_ERR_LOCKED) {
        // Another connection's lock, not damage: the delete is undone so that
        // the connection is free, and the next run deletes these rows.
        sql_exec(conn.get(), "ROLLBACK TRANSACTION");
    } else {
        tallyd_recover_if_damaged(conn, err, mask);
    }
    // Any other failure leaves the transaction open: nothing rolls back.
    return -1;
}

int tallyd_purge_client_curve(uint32_t cut, sql_conn &db) {
    return purge_group(kClientCurve, cut, db, TALLYD_RECOVER_NONE);
}

int tallyd_purge_hour(uint32_t cut, sql_conn &db) {
    return purge_group(kHour, cut, db, TALLYD_RECOVER_NONE);
}

int tallyd_purge_day(uint32_t cut, sql_conn &db) {
    return purge_group(kDay, cut, db, TALLYD_RECOVER_NONE);
}

int tallyd_purge_week(uint32_t cut, sql_conn &db_flash) {
    return purge_group(kWeek, cut, db_flash, kMaskFlashPurge);
}

int tallyd_purge_month(uint32_t cut, sql_conn &db_flash) {
    return purge_group(kMonth, cut, db_flash, kMaskFlashPurge);
}

int tallyd_purge_backup(uint32_t cut, sql_conn &backup_hour_db) {
    return purge_group(kBackup, cut, backup_hour_db, TALLYD_RECOVER_NONE);
}

int tallyd_purge_statistic(uint32_t cut, sql_conn &statistic_db, int32_t period) {
    if (period == 7200) return purge_group(kStatisHourly, cut, statistic_db, TALLYD_RECOVER_NONE);
    if (period == 86400) return purge_group(kStatisDaily, cut, statistic_db, TALLYD_RECOVER_NONE);
    return -1;
}

uint32_t tallyd_file_size(const char *path) {
    struct stat st;
    if (!path || stat(path, &st) != 0) return 0;
    return static_cast<uint32_t>(st.st_size);
}

namespace {

// db over its limit: day rows go in two-hour steps, oldest first, before any
// of the last hour's five-minute rows is touched.
int trim_main(uint32_t now, uint32_t limit, const char *path) {
    int rc = 0;
    uint32_t size = tallyd_file_size(path);
    for (int32_t i = 11; i >= 0 && size > limit; --i) {
        rc = tallyd_purge_day(now - static_cast<uint32_t>(i) * 7200, tallyd_db_set.db);
        if (rc != 0) return rc;
        size = tallyd_file_size(path);
    }
    for (int32_t j = 11; j >= 0 && size > limit; --j) {
        uint32_t cut = now - static_cast<uint32_t>(j) * 300;
        rc = tallyd_purge_client_curve(cut, tallyd_db_set.db);
        if (rc != 0) return rc;
        rc = tallyd_purge_hour(cut, tallyd_db_set.db);
        if (rc != 0) return rc;
        size = tallyd_file_size(path);
    }
    return rc;
}

// db_flash over its limit: month rows in week steps, then week rows in day
// steps.
int trim_flash(uint32_t now, uint32_t limit, const char *path) {
    int rc = 0;
    uint32_t size = tallyd_file_size(path);
    for (int32_t k = 3; k >= 0 && size > limit; --k) {
        rc = tallyd_purge_month(now - static_cast<uint32_t>(k) * 604800, tallyd_db_set.db_flash);
        if (rc != 0) return rc;
        size = tallyd_file_size(path);
    }
    for (int32_t m = 6; m >= 0 && size > limit; --m) {
        rc = tallyd_purge_week(now - static_cast<uint32_t>(m) * 86400, tallyd_db_set.db_flash);
        if (rc != 0) break;
        size = tallyd_file_size(path);
    }
    return rc;
}

}  // namespace

int tallyd_check_db_size(int32_t kind, const char *path) {
    uint32_t now = tallyd_now();
    // The limits are signed fields compared against an unsigned size, as in C.
    if (kind == 1) return trim_main(now, static_cast<uint32_t>(tallyd_sys_info.db_max_size), path);
    if (kind == 4)
        return trim_flash(now, static_cast<uint32_t>(tallyd_sys_info.db_flash_max_size), path);
    return 0;
}
