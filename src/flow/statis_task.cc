#include "flow/statis_task.h"

#include "base/clock.h"
#include "base/sys_info.h"
#include "db/db_set.h"
#include "db/retention.h"
#include "eloop/eloop.h"
#include "flow/client_statis.h"
#include "flow/tasks.h"

namespace {

constexpr int32_t kPeriod = tallyd_task_period(tallyd_task::statis);
constexpr uint32_t kDay = 86400;

}  // namespace

void tallyd_pre_handle_statis(void *, void *) {
    if (!tallyd_db_set.statistic_db) return;
    eloop_register_timeout(kPeriod, 0, tallyd_pre_handle_statis, nullptr, nullptr);
    const uint32_t now = tallyd_now();
    tallyd_sys_info.last_statis_time = now;
    tallyd_purge_statistic(now - kDay, tallyd_db_set.statistic_db, kDay);
    tallyd_pre_handle_client_statis_info(1, tallyd_table::statis_client_info_h,
                                         tallyd_table::statis_client_info_d,
                                         tallyd_db_set.statistic_db, now);
}
