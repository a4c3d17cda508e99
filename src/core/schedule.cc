#include "core/schedule.h"

#include <cstdio>

#include "base/clock.h"
#include "base/log.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "flow/backup_task.h"
#include "flow/day_task.h"
#include "flow/hour_task.h"
#include "flow/ingest.h"
#include "flow/statis_task.h"
#include "flow/tasks.h"

namespace {

// Kinds 2 and 3 are accepted, though no task uses them.
constexpr int32_t kWeekPeriod = 43243;
constexpr int32_t kMonthPeriod = 172879;

int32_t period_of(int32_t kind) {
    switch (kind) {
        case TALLYD_PERIOD_HOUR:
            return tallyd_task_period(tallyd_task::hour);
        case TALLYD_PERIOD_DAY:
            return tallyd_task_period(tallyd_task::day);
        case TALLYD_PERIOD_WEEK:
            return kWeekPeriod;
        case TALLYD_PERIOD_MONTH:
            return kMonthPeriod;
        case TALLYD_PERIOD_BACKUP:
            return tallyd_task_period(tallyd_task::backup);
        case TALLYD_PERIOD_STATIS:
            return tallyd_task_period(tallyd_task::statis);
        default:
            return 0;
    }
}

// One task as the schedule arms it: the first run after a fixed delay (its
// period) or, for the rollups, after the remanent time of the newest row of
// a table, so that a restart keeps the phase of the stored buckets.
struct schedule_entry {
    tallyd_task task;
    eloop_timeout_handler run;
    int32_t kind;                   // period kind; -1 for a fixed first delay
    sql_conn tallyd_db_set_t::*db;  // where the newest row is
    tallyd_table newest;
};

// Registration order.
constexpr schedule_entry kSchedule[] = {
    {tallyd_task::flow, tallyd_pre_handle_flow, -1, nullptr, tallyd_table::avp_base},
    {tallyd_task::hour, tallyd_pre_handle_hour, TALLYD_PERIOD_HOUR, &tallyd_db_set_t::db,
     tallyd_table::avp_top_client_hour},
    {tallyd_task::backup, tallyd_pre_backup_day, TALLYD_PERIOD_BACKUP,
     &tallyd_db_set_t::backup_hour_db, tallyd_table::avp_top_client_backup},
    {tallyd_task::statis, tallyd_pre_handle_statis, TALLYD_PERIOD_STATIS,
     &tallyd_db_set_t::statistic_db, tallyd_table::statis_client_d},
    {tallyd_task::day, tallyd_pre_handle_day, TALLYD_PERIOD_DAY, &tallyd_db_set_t::db,
     tallyd_table::avp_top_client_day},
};

// A remanent time of 0 (unknown kind) would fire at once; the full period is
// used instead. -1 (database not open) is deliberately kept as it is: the
// task fires in the first pass and finds its database missing.
int32_t first_delay(const schedule_entry &e) {
    if (e.kind < 0) return tallyd_task_period(e.task);
    int32_t t = tallyd_get_remanent_time(e.kind, tallyd_db_set.*e.db, e.newest);
    return t == 0 ? period_of(e.kind) : t;
}

}  // namespace

int32_t tallyd_get_remanent_time(int32_t kind, sql_conn &conn, tallyd_table table) {
    if (!conn) return -1;
    uint32_t now = tallyd_now();

    char sql[128];
    std::snprintf(sql, sizeof sql, "SELECT time FROM %s ORDER by time DESC LIMIT 1",
                  tallyd_table_name(table));
    sql_table result;
    sql_error err;
    if (sql_get_table(conn.get(), sql, result, &err) != SQLITE_OK)
        tallyd_log(LOG_ERR, "tallyd, get remanent aErrMsg = %s\n", err.text.c_str());

    int32_t period = period_of(kind);
    if (period == 0) return 0;
    if (result.rows() < 1 || !result.at(0, 0)) return period;

    // In 32-bit signed arithmetic: a clock that went back behind the newest
    // row gives a negative difference, a negative remainder and a first delay
    // of up to 2P - 1.
    uint32_t newest = result.u32_at(0, 0);
    int32_t diff = static_cast<int32_t>(now - newest);
    return period - diff % period;
}

int tallyd_register_eloop_timer() {
    for (const schedule_entry &e : kSchedule)
        eloop_register_timeout(first_delay(e), 0, e.run, nullptr, nullptr);
    return 0;
}
