#include "reports/top_summary.h"

#include "base/log.h"
#include "base/sys_info.h"
#include "db/top_list.h"
#include "reports/report_reply.h"
#include "reports/report_wire.h"
#include "reports/top_lists.h"

using namespace report_wire;

namespace {

// The parts of a period's grand total, by source.
struct period_totals {
    uint64_t hour = 0, day = 0, backup = 0;
    uint64_t grand() const { return hour + day + backup; }
};

period_totals totals_of(uint32_t period) {
    period_totals t;
    if (period == kPeriodHour) {
        t.hour = tallyd_top_period_total(kTopSourceHour.code, tallyd_db_set.db, 0);
        tallyd_log(LOG_DEBUG, "tallyd, hour total = %llu\n",
                   static_cast<unsigned long long>(t.hour));
    } else if (period == kPeriodDay) {
        t.day = tallyd_top_period_total(kTopSourceDay.code, tallyd_db_set.db, 0);
        t.hour = tallyd_top_period_total(kTopSourceHour.code, tallyd_db_set.db,
                                         tallyd_sys_info.last_backup_time);
        t.backup = tallyd_top_period_total(kTopSourceBackup.code, tallyd_db_set.backup_hour_db, 0);
        tallyd_log(LOG_DEBUG, "tallyd, day total_d = %llu, total_h = %llu, total_bk = %llu\n",
                   static_cast<unsigned long long>(t.day), static_cast<unsigned long long>(t.hour),
                   static_cast<unsigned long long>(t.backup));
    }
    return t;
}

struct top_list {
    uint32_t bit;
    void (*fill)(sql_conn &, uint32_t, uint32_t);
    void (*build)(uint64_t, uint32_t, report_reply &);
};

// The order in which the lists are built: with several bits set the last
// one built is what the reply carries.
constexpr top_list kLists[] = {
    {kFlagApps, tallyd_top_fill_apps, tallyd_top_build_apps},
    {kFlagAps, tallyd_top_fill_aps, tallyd_top_build_aps},
    {kFlagSsids, tallyd_top_fill_ssids, tallyd_top_build_ssids},
    {kFlagClients, tallyd_top_fill_clients, tallyd_top_build_clients},
};

// The day's sources that hold traffic, copied into the list's scratch table.
void fill_day(const top_list &l, const period_totals &t) {
    if (t.hour) l.fill(tallyd_db_set.db, kTopSourceHour.code, tallyd_sys_info.last_backup_time);
    if (t.day) l.fill(tallyd_db_set.db, kTopSourceDay.code, 0);
    if (t.backup) l.fill(tallyd_db_set.backup_hour_db, kTopSourceBackup.code, 0);
}

}  // namespace

int tallyd_get_top_summary(std::span<const uint8_t> msg) {
    report_reply reply(msg);
    const uint32_t period = static_cast<uint32_t>(wire_get_num(msg, kTopPeriod));
    const uint32_t flag = static_cast<uint32_t>(wire_get_num(msg, kTopFlag));
    const uint32_t type = static_cast<uint32_t>(wire_get_num(msg, kTopType));
    tallyd_log(LOG_DEBUG, "tallyd, get top summary, period = %d, flag = 0X%x, type = %d\n",
               static_cast<int32_t>(period), flag, static_cast<int32_t>(type));

    const period_totals totals = totals_of(period);
    const uint64_t grand = totals.grand();
    if (grand == 0) return reply.send();
    if (tallyd_create_top_list_table(flag) != 0) {
        tallyd_log(LOG_ERR, "tallyd, failed to create table...\n");
        return reply.send();
    }
    for (const top_list &l : kLists) {
        if (!(flag & l.bit)) continue;
        if (period == kPeriodDay) fill_day(l, totals);
        l.build(grand, period, reply);
    }
    tallyd_drop_top_list_table(flag);
    tallyd_log(LOG_DEBUG, "tallyd, sending top clients to vexd...");
    return reply.send();
}

int tallyd_get_top_clients_hour(std::span<const uint8_t> msg) {
    tallyd_log(LOG_DEBUG, "tallyd, received msg to get clients summary, type=%d\n",
               static_cast<int32_t>(wire_get_num(msg, kUsageType)));
    report_reply reply(msg);
    const uint64_t total = tallyd_top_period_total(kTopSourceHour.code, tallyd_db_set.db, 0);
    if (total) tallyd_top_build_clients(total, kPeriodHour, reply);
    tallyd_log(LOG_DEBUG, "tallyd, sending get clients summary to vexd...");
    return reply.send();
}
