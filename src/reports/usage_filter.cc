#include "reports/usage_filter.h"

#include <cstring>

#include "db/db_set.h"
#include "db/recover.h"
#include "entity/dict.h"
#include "reports/report_sql.h"
#include "reports/report_wire.h"

using namespace report_wire;

namespace {

bool all_ssids(const usage_filter &f) {
    return std::strcmp(f.ssid, "all") == 0;
}

}  // namespace

usage_filter tallyd_usage_filter_read(std::span<const uint8_t> msg) {
    usage_filter f{};
    wire_text_copy(f.ssid, sizeof f.ssid, msg, kUsageSsid.offset, kUsageSsid.width);
    wire_text_copy(f.mac, sizeof f.mac, msg, kUsageMac.offset, kUsageMac.width);
    f.client_type = static_cast<uint32_t>(wire_get_num(msg, kUsageClientType));
    f.period = static_cast<uint32_t>(wire_get_num(msg, kUsagePeriod));
    f.type = static_cast<uint32_t>(wire_get_num(msg, kUsageType));
    f.usage = static_cast<uint32_t>(wire_get_num(msg, kUsageBits));
    f.apgroup_id = static_cast<uint32_t>(wire_get_num(msg, kUsageApgroup));
    return f;
}

usage_period tallyd_usage_period_of(uint32_t period) {
    switch (period) {
        case kUsageDay:
            return usage_period::day;
        case kUsageWeek:
            return usage_period::week;
        case kUsageMonth:
            return usage_period::month;
        default:
            return usage_period::hour;
    }
}

const char *tallyd_usage_period_name(uint32_t period) {
    static constexpr const char *kNames[] = {"1-hour", "1-day", "1-week", "1-month"};
    return kNames[static_cast<int>(tallyd_usage_period_of(period))];
}

usage_table tallyd_usage_table(const usage_filter &f, usage_period p) {
    const bool ap = f.client_type == kClientAp;
    switch (p) {
        case usage_period::day:
            return {ap ? tallyd_table::avp_ap_day : tallyd_table::avp_ssid_day, &tallyd_db_set.db,
                    false};
        case usage_period::week:
            return {ap ? tallyd_table::avp_ap_week : tallyd_table::avp_ssid_week,
                    &tallyd_db_set.db_flash, true};
        case usage_period::month:
            return {ap ? tallyd_table::avp_ap_month : tallyd_table::avp_ssid_month,
                    &tallyd_db_set.db_flash, true};
        case usage_period::hour:
            break;
    }
    tallyd_table hour = tallyd_table::avp_ap_ssid_hour;
    if (f.client_type == kClientOne)
        hour = tallyd_table::avp_curve_client;
    else if (!ap && all_ssids(f))
        hour = tallyd_table::avp_all_group_hour;
    return {hour, &tallyd_db_set.db, false};
}

usage_cond tallyd_usage_cond(const usage_filter &f) {
    usage_cond c{usage_cond_kind::all, f.mac, 0, 0, static_cast<int32_t>(f.apgroup_id)};
    const bool all = all_ssids(f);
    if (!all) c.ssid_id = tallyd_avp_ssid_lookup_name(f.ssid);
    switch (f.client_type) {
        case kClientOne:
            c.kind = usage_cond_kind::client;
            break;
        case kClientAp:
            c.ap_id = tallyd_avp_ap_lookup_name(f.mac);
            c.kind = all ? usage_cond_kind::ap : usage_cond_kind::ssid_ap;
            break;
        case kClientApgroup:
            c.kind = all ? usage_cond_kind::group : usage_cond_kind::group_ssid;
            break;
        default:
            c.kind = all ? usage_cond_kind::all : usage_cond_kind::ssid;
            break;
    }
    return c;
}

void tallyd_usage_cond_add(report_query &q, const usage_cond &c) {
    switch (c.kind) {
        case usage_cond_kind::all:
            break;
        case usage_cond_kind::client:
            q.add("client_mac='%s'", c.mac);
            break;
        case usage_cond_kind::ssid:
            q.add("ssid=%d", c.ssid_id);
            break;
        case usage_cond_kind::ap:
            q.add("ap_mac=%d", c.ap_id);
            break;
        case usage_cond_kind::ssid_ap:
            q.add("ssid=%d AND ap_mac=%d", c.ssid_id, c.ap_id);
            break;
        case usage_cond_kind::group:
            q.add("group_id=%d", c.group_id);
            break;
        case usage_cond_kind::group_ssid:
            q.add("group_id=%d AND ssid=%d", c.group_id, c.ssid_id);
            break;
    }
}

uint32_t tallyd_usage_mask(const usage_table &t) {
    return t.flash ? TALLYD_RECOVER_FLASH : TALLYD_RECOVER_DB;
}
