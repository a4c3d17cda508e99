#include "flow/day_ssid.h"

#include <cstdio>

#include "base/log.h"
#include "db/recover.h"
#include "db/sql.h"
#include "flow/hour_rollup.h"
#include "flow/rollup_limits.h"
#include "flow/rollup_sql.h"
#include "flow/tasks.h"

namespace {

// Either mode reads or writes backup_hour_db, and db on the other side.
constexpr uint32_t kMask = TALLYD_RECOVER_BACKUP | TALLYD_RECOVER_DB;

// The range starts one period of the task that runs the mode before the stamp.
uint32_t span_of(int32_t mode) {
    return tallyd_task_period(mode == TALLYD_MODE_DAY ? tallyd_task::day : tallyd_task::backup);
}

constexpr const char *kCount = "SELECT COUNT(DISTINCT %s) FROM %s WHERE time>=%lu";
constexpr const char *kSsidsAll = "SELECT DISTINCT ssid FROM %s ";
constexpr const char *kSsidsRange = "SELECT DISTINCT ssid FROM %s WHERE time>=%lu AND time<%lu";
constexpr const char *kAppsAll =
    "SELECT app, port, ssid, SUM(uplink), SUM(downlink), group_id FROM %s WHERE ssid=%d GROUP "
    "by app, group_id ORDER by (SUM(uplink)+SUM(downlink)) DESC LIMIT %d";
constexpr const char *kAppsRange =
    "SELECT app, port, ssid, SUM(uplink), SUM(downlink), group_id FROM %s WHERE ssid=%d AND "
    "time>=%lu AND time<%lu GROUP by app, group_id ORDER by (SUM(uplink)+SUM(downlink)) DESC "
    "LIMIT %d";
constexpr const char *kInsert =
    "INSERT INTO %s(time, app, port, ssid, uplink, downlink, group_id) "
    "VALUES(?, ?, ?, ?, ?, ?, ?)";

// One run of the rollup: the arguments, and the connection whose file SQLite
// has shown damaged (which ends the walk).
struct ssid_run {
    int32_t mode;
    const char *src_table;
    tallyd_table dst_table;
    uint32_t start;
    uint32_t stamp;
    sql_conn &src;
    sql_conn &dst;
    int32_t limit;
    sql_stmt *insert = nullptr;
    sql_conn *damaged = nullptr;

    // Logs a failure of a statement on conn with fmt and notes damage.
    void failed(sql_conn &conn, const char *fmt, const sql_error &err) {
        tallyd_log(LOG_ERR, fmt, err.text.c_str());
        if (!damaged && tallyd_db_damaged(conn, err)) damaged = &conn;
    }
};

unsigned long lu(uint32_t v) {
    return v;
}

void insert_row(ssid_run &run, const sql_table &rows, int r, rollup_quoted &app) {
    sql_error err;
    if (!run.insert) run.insert = rollup_stmt(run.dst, kInsert, run.dst_table, &err);
    if (run.insert) {
        sql_stmt &s = *run.insert;
        rollup_bind_app(s, app, run.stamp, rows.at(r, 0), rows.int_at(r, 1));
        s.bind(4, int64_t{rows.int_at(r, 2)});
        s.bind_u64(5, rows.u64_at(r, 3));
        s.bind_u64(6, rows.u64_at(r, 4));
        s.bind(7, int64_t{rows.int_at(r, 5)});
        if (s.run(&err) == SQLITE_OK) return;
    }
    run.failed(run.dst, "tallyd, INSERT avp_ssid aErrMsg = %s\n", err);
}

// The application rows of one SSID.
void roll_up_ssid(ssid_run &run, int32_t ssid) {
    char sql[512];
    if (run.mode == TALLYD_MODE_DAY)
        std::snprintf(sql, sizeof(sql), kAppsAll, run.src_table, ssid, run.limit);
    else
        std::snprintf(sql, sizeof(sql), kAppsRange, run.src_table, ssid, lu(run.start),
                      lu(run.stamp), run.limit);
    sql_error err;
    sql_table rows;
    if (sql_get_table(run.src.get(), sql, rows, &err) != SQLITE_OK) {
        run.failed(run.src, "tallyd, SELECT avp-ssid aErrMsg = %s\n", err);
        return;
    }
    rollup_quoted app;
    for (int r = 0; r < rows.rows() && !run.damaged; ++r) insert_row(run, rows, r, app);
}

void roll_up_ssids(ssid_run &run) {
    char sql[512];
    if (run.mode == TALLYD_MODE_DAY)
        std::snprintf(sql, sizeof(sql), kSsidsAll, run.src_table);
    else
        std::snprintf(sql, sizeof(sql), kSsidsRange, run.src_table, lu(run.start), lu(run.stamp));
    sql_error err;
    sql_table ssids;
    if (sql_get_table(run.src.get(), sql, ssids, &err) != SQLITE_OK) {
        run.failed(run.src, "tallyd, DISTINCT ssid aErrMsg = %s\n", err);
        return;
    }
    for (int r = 0; r < ssids.rows() && ssids.at(r, 0) && !run.damaged; ++r)
        roll_up_ssid(run, ssids.int_at(r, 0));
}

}  // namespace

int32_t tallyd_get_attr_count(sql_conn &conn, tallyd_table table, tallyd_column column,
                              uint32_t since) {
    if (!conn) return 0;
    char sql[256];
    std::snprintf(sql, sizeof(sql), kCount, tallyd_column_name(column), tallyd_table_name(table),
                  lu(since));
    sql_error err;
    sql_table rows;
    if (sql_get_table(conn.get(), sql, rows, &err) != SQLITE_OK) {
        tallyd_log(LOG_ERR, "tallyd, value = %s, aErrMsg = %s\n", sql, err.text.c_str());
        return 0;
    }
    return rows.rows() > 0 ? rows.int_at(0, 0) : 0;
}

int tallyd_pre_handle_avp_ssid(int32_t mode, tallyd_table src_table, tallyd_table dst_table,
                               uint32_t stamp, sql_conn &src, sql_conn &dst) {
    const uint32_t start = stamp - span_of(mode);
    const int32_t count = tallyd_get_attr_count(src, src_table, tallyd_column::ssid, start);
    if (count <= 0) return 0;
    const int32_t budget = rollup_class_limit(16000, 32000, 3200, 800);
    ssid_run run{mode,          tallyd_table_name(src_table), dst_table, start, stamp, src, dst,
                 budget / count};

    sql_exec(dst.get(), "BEGIN TRANSACTION");
    roll_up_ssids(run);
    sql_error err;
    if (sql_exec(dst.get(), "COMMIT TRANSACTION", &err) != SQLITE_OK)
        run.failed(run.dst, "tallyd, avp_ssid commit aErrMsg = %s\n", err);
    if (!run.damaged) return 0;
    tallyd_recover_damaged(*run.damaged, kMask);
    return -1;
}
