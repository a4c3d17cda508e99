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

namespace {

// The periods are odd on purpose, so that the rollups rarely fall due in the
// same loop pass; they must stay exactly these values.
int32_t period_of(int32_t kind) {
    switch (kind) {
        case TALLYD_PERIOD_HOUR:
            return 300;
        case TALLYD_PERIOD_DAY:
            return 7217;
        case TALLYD_PERIOD_WEEK:
            return 43243;
        case TALLYD_PERIOD_MONTH:
            return 172879;
        case TALLYD_PERIOD_BACKUP:
            return 3587;
        case TALLYD_PERIOD_STATIS:
            return 3595;
        default:
            return 0;
    }
}

// A remanent time of 0 (unknown kind) would fire at once; the full period is
// used instead. -1 (database not open) is deliberately kept as it is.
int32_t first_delay(int32_t kind, sql_conn &conn, const char *table) {
    int32_t t = tallyd_get_remanent_time(kind, conn, table);
    return t == 0 ? period_of(kind) : t;
}

}  // namespace

int32_t tallyd_get_remanent_time(int32_t kind, sql_conn &conn, const char *table) {
    if (!conn || !table) return -1;
    uint32_t now = tallyd_now();

    char sql[128];
    std::snprintf(sql, sizeof sql, "SELECT time FROM %s ORDER by time DESC LIMIT 1", table);
    sql_table result;
    sql_error err;
    if (sql_get_table(conn.get(), sql, result, &err) != SQLITE_OK)
        tallyd_log(LOG_ERR, "tallyd, get remanent aErrMsg = %s\n", err.text.c_str());

    int32_t period = period_of(kind);
    if (period == 0) return 0;
    if (result.rows() < 1 || !result.at(0, 0)) return period;

    // The device computes this in 32-bit signed arithmetic: a clock that went
    // back behind the newest row gives a negative difference, a negative
    // remainder and a first delay of up to 2P - 1.
    uint32_t newest = result.u32_at(0, 0);
    int32_t diff = static_cast<int32_t>(now - newest);
    return period - diff % period;
}

int tallyd_register_eloop_timer() {
    eloop_register_timeout(59, 0, tallyd_pre_handle_flow, nullptr, nullptr);
    eloop_register_timeout(first_delay(TALLYD_PERIOD_HOUR, tallyd_db_set.db, "avp_top_client_hour"),
                           0, tallyd_pre_handle_hour, nullptr, nullptr);
    eloop_register_timeout(
        first_delay(TALLYD_PERIOD_BACKUP, tallyd_db_set.backup_hour_db, "avp_top_client_backup"), 0,
        tallyd_pre_backup_day, nullptr, nullptr);
    eloop_register_timeout(
        first_delay(TALLYD_PERIOD_STATIS, tallyd_db_set.statistic_db, "statis_client_d"), 0,
        tallyd_pre_handle_statis, nullptr, nullptr);
    eloop_register_timeout(first_delay(TALLYD_PERIOD_DAY, tallyd_db_set.db, "avp_top_client_day"),
                           0, tallyd_pre_handle_day, nullptr, nullptr);
    return 0;
}
