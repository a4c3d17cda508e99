#include "flow/backup_task.h"

#include "base/clock.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "eloop/eloop.h"
#include "flow/day_ssid.h"
#include "flow/hour_rollup.h"
#include "flow/tasks.h"

namespace {

constexpr int32_t kPeriod = tallyd_task_period(tallyd_task::backup);

}  // namespace

void tallyd_pre_backup_day(void *, void *) {
    eloop_register_timeout(kPeriod, 0, tallyd_pre_backup_day, nullptr, nullptr);
    if (!tallyd_db_set.db || !tallyd_db_set.backup_hour_db) return;

    const uint32_t now = tallyd_now();
    tallyd_sys_info.last_backup_time = now;
    if (tallyd_pre_handle_avp_ssid(TALLYD_MODE_BACKUP, tallyd_table::avp_ap_ssid_hour,
                                   tallyd_table::avp_ssid_backup, now, tallyd_db_set.db,
                                   tallyd_db_set.backup_hour_db) == 0 &&
        tallyd_pre_handle_avp_top_client(TALLYD_MODE_BACKUP, tallyd_table::avp_top_client_hour,
                                         tallyd_table::avp_top_client_backup, now, tallyd_db_set.db,
                                         tallyd_db_set.backup_hour_db) == 0)
        return;
    tallyd_build_avp_backup_hour_db(&tallyd_db_set);
}
