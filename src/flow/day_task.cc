#include "flow/day_task.h"

#include "base/clock.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/recover.h"
#include "db/retention.h"
#include "eloop/eloop.h"
#include "flow/day_ssid.h"
#include "flow/hour_rollup.h"
#include "flow/rollup_stamp.h"
#include "flow/tasks.h"

namespace {

constexpr int32_t kPeriod = tallyd_task_period(tallyd_task::day);
constexpr uint32_t kDayKeep = 86100;
constexpr int32_t kStampDrift = 121;
constexpr uint32_t kMaskDayFailed = TALLYD_RECOVER_DB;

}  // namespace

void tallyd_pre_handle_day(void *, void *) {
    eloop_register_timeout(kPeriod, 0, tallyd_pre_handle_day, nullptr, nullptr);
    if (!tallyd_db_set.db) return;

    const uint32_t now = tallyd_now();
    const uint32_t stamp = rollup_next_stamp(tallyd_sys_info.day_stamp, now, kPeriod, kStampDrift);
    tallyd_sys_info.day_stamp = stamp;
    tallyd_purge_day(now - kDayKeep, tallyd_db_set.db);

    if (tallyd_pre_handle_avp_ssid(TALLYD_MODE_DAY, tallyd_table::avp_ssid_backup,
                                   tallyd_table::avp_ssid_day, stamp, tallyd_db_set.backup_hour_db,
                                   tallyd_db_set.db) == 0 &&
        tallyd_pre_handle_avp_top_client(TALLYD_MODE_DAY, tallyd_table::avp_top_client_backup,
                                         tallyd_table::avp_top_client_day, stamp,
                                         tallyd_db_set.backup_hour_db, tallyd_db_set.db) == 0) {
        tallyd_build_avp_backup_hour_db(&tallyd_db_set);
        tallyd_sys_info.last_backup_time = 0;
        return;
    }
    tallyd_recover_from_malformed(kMaskDayFailed);
}
