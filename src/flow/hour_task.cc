#include "flow/hour_task.h"

#include <string>

#include "base/clock.h"
#include "base/log.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "db/db_set.h"
#include "db/retention.h"
#include "eloop/eloop.h"
#include "flow/hour_rollup.h"
#include "flow/rollup_stamp.h"

namespace {

constexpr int32_t kPeriod = 300;
constexpr uint32_t kHourKeep = 3540;  // 59 minutes: with the new bucket, twelve
constexpr int32_t kStampDrift = 61;

// Runs one rollup of avp_base into its hour table; false (after logging
// which) when it failed.
using rollup_fn = int (*)(int32_t, const char *, const char *, uint32_t, sql_conn &, sql_conn &);
bool roll_up(rollup_fn fn, const char *table, const char *failed) {
    if (fn(TALLYD_MODE_HOUR, "avp_base", table, tallyd_sys_info.hour_stamp, tallyd_db_set.temp_db,
           tallyd_db_set.db) == 0)
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

    const std::string main_db = tallyd_path(TALLYD_RAM_DIR) + "/avp_1.0.db";
    tallyd_check_db_size(1, main_db.c_str());
    tallyd_purge_hour(now - kHourKeep, tallyd_db_set.db);

    if (!roll_up(tallyd_pre_handle_avp_app_all, "avp_all_group_hour",
                 "tallyd, tallyd_pre_handle_avp_app_all was failed\n") ||
        !roll_up(tallyd_pre_handle_avp_ap_ssid, "avp_ap_ssid_hour",
                 "tallyd, tallyd_pre_handle_avp_ap_ssid was failed\n") ||
        !roll_up(tallyd_pre_handle_avp_top_client, "avp_top_client_hour",
                 "tallyd, tallyd_pre_handle_avp_top_client was failed\n"))
        return;
    tallyd_delete_by_time("avp_base", 0, tallyd_db_set.temp_db, 0);
}
