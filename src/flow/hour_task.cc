#include "flow/hour_task.h"

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

}  // namespace

void tallyd_pre_handle_hour(void *, void *) {
    eloop_register_timeout(kPeriod, 0, tallyd_pre_handle_hour, nullptr, nullptr);
    if (!tallyd_db_set.temp_db || !tallyd_db_set.db) return;

    const uint32_t now = tallyd_now();
    tallyd_sys_info.hour_stamp =
        rollup_next_stamp(tallyd_sys_info.hour_stamp, now, kPeriod, kStampDrift);

    tallyd_check_db_size(1, tallyd_path(TALLYD_DB_MAIN).c_str());
    tallyd_purge_hour(now - kHourKeep, tallyd_db_set.db);

    if (!roll_up(tallyd_pre_handle_avp_app_all, tallyd_table::avp_all_group_hour,
                 "tallyd, tallyd_pre_handle_avp_app_all was failed\n") ||
        !roll_up(tallyd_pre_handle_avp_ap_ssid, tallyd_table::avp_ap_ssid_hour,
                 "tallyd, tallyd_pre_handle_avp_ap_ssid was failed\n") ||
        !roll_up(tallyd_pre_handle_avp_top_client, tallyd_table::avp_top_client_hour,
                 "tallyd, tallyd_pre_handle_avp_top_client was failed\n"))
        return;
    tallyd_delete_by_time(tallyd_table::avp_base, 0, tallyd_db_set.temp_db, TALLYD_RECOVER_NONE);
}
