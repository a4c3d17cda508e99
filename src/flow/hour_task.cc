#include "flow/hour_task.h"

#include <cstdio>
#include <cstdlib>

#include "base/clock.h"
#include "base/log.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/recover.h"
#include "db/retention.h"
#include "eloop/eloop.h"
#include "flow/hour_rollup.h"
#include "flow/rollup_stamp.h"
#include "flow/tasks.h"

namespace {

constexpr int32_t kPeriod = tallyd_task_period(tallyd_task::hour);
constexpr uint32_t kHourKeep = 3540;  // 59 minutes: with the new bucket, twelve
constexpr int32_t kStampDrift = 61;

// Runs one rollup of avp_base into its hour table; false (after logging
// which) when it failed.
using rollup_fn = int (*)(int32_t, tallyd_table, tallyd_table, uint32_t, sql_conn &, sql_conn &);
bool roll_up(rollup_fn fn, tallyd_table table, const char *failed) {
    if (fn(TALLYD_MODE_HOUR, tallyd_table::avp_base, table, tallyd_sys_info.hour_stamp,
           tallyd_db_set.temp_db, tallyd_db_set.db) == 0)
        return true;
    tallyd_log(LOG_ERR, "%s", failed);
    return false;
}

// Rows of avp_base that were rolled up but could not be deleted afterwards
// (another connection held avp_temp.db past the busy timeout): those up to
// rowid `through` of the connection `serial`. Newer rows have larger rowids.
struct rolled_up {
    uint64_t serial = 0;
    int64_t through = 0;
};
rolled_up pending_clear;

int64_t last_rowid(sql_conn &temp_db) {
    sql_table t;
    if (sql_get_table(temp_db.get(), "SELECT MAX(rowid) FROM avp_base", t) != SQLITE_OK ||
        t.rows() < 1 || !t.at(0, 0))
        return 0;
    return std::atoll(t.at(0, 0));
}

// Deletes the rows an earlier run rolled up and could not delete; true when
// none are left (a rebuilt avp_temp.db has none of them). While they stay, a
// rollup would count them twice.
bool clear_rolled_up(sql_conn &temp_db) {
    if (pending_clear.serial != temp_db.serial()) pending_clear = {};
    if (pending_clear.through == 0) return true;
    char sql[64];
    std::snprintf(sql, sizeof sql, "DELETE FROM avp_base WHERE rowid<=%lld",
                  static_cast<long long>(pending_clear.through));
    sql_error err;
    sql_txn txn(temp_db.get(), &err);
    if (!txn.ok() || sql_exec(temp_db.get(), sql, &err) != SQLITE_OK || txn.commit(&err) != 0) {
        tallyd_log(LOG_ERR, "tallyd, value = %s, aErrMsg = %s\n", sql, err.text.c_str());
        return false;
    }
    pending_clear = {};
    return true;
}

}  // namespace

void tallyd_pre_handle_hour(void *, void *) {
    eloop_register_timeout(kPeriod, 0, tallyd_pre_handle_hour, nullptr, nullptr);
    if (!tallyd_db_set.temp_db || !tallyd_db_set.db) return;

    const uint32_t now = tallyd_now();
    tallyd_sys_info.hour_stamp =
        rollup_next_stamp(tallyd_sys_info.hour_stamp, now, kPeriod, kStampDrift);

    tallyd_check_db_size(1, tallyd_path(TALLYD_DB_MAIN).c_str());
    tallyd_purge_hour(now - kHourKeep, tallyd_db_set.db);

    if (!clear_rolled_up(tallyd_db_set.temp_db)) return;  // the next run rolls up
    const int64_t through = last_rowid(tallyd_db_set.temp_db);
    if (!roll_up(tallyd_pre_handle_avp_app_all, tallyd_table::avp_all_group_hour,
                 "tallyd, tallyd_pre_handle_avp_app_all was failed\n") ||
        !roll_up(tallyd_pre_handle_avp_ap_ssid, tallyd_table::avp_ap_ssid_hour,
                 "tallyd, tallyd_pre_handle_avp_ap_ssid was failed\n") ||
        !roll_up(tallyd_pre_handle_avp_top_client, tallyd_table::avp_top_client_hour,
                 "tallyd, tallyd_pre_handle_avp_top_client was failed\n"))
        return;
    if (tallyd_delete_by_time(tallyd_table::avp_base, 0, tallyd_db_set.temp_db,
                              TALLYD_RECOVER_NONE) != 0 &&
        tallyd_db_set.temp_db)
        pending_clear = {tallyd_db_set.temp_db.serial(), through};
}
