// The application, AP and SSID records of the top summary.
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "base/sys_info.h"
#include "db/recover.h"
#include "entity/dict.h"
#include "platform/xrepo.h"
#include "reports/report_reply.h"
#include "reports/report_sql.h"
#include "reports/report_wire.h"
#include "reports/top_lists.h"

using namespace report_wire;

namespace {

constexpr int kTop = 10;

// Period 0 reads the hour tables of db, period 1 the scratch lists.
struct builder_sql {
    const char *hour;
    const char *day;
};

constexpr builder_sql kAppsSql{
    "SELECT app, SUM(uplink), SUM(downlink) FROM avp_all_group_hour GROUP by app ORDER by "
    "(SUM(uplink)+SUM(downlink)) DESC LIMIT %d",
    "SELECT app, SUM(uplink), SUM(downlink) FROM top_app_list GROUP by app ORDER by "
    "(SUM(uplink)+SUM(downlink)) DESC LIMIT %d",
};
constexpr builder_sql kApsSql{
    "SELECT ap_mac, SUM(total) FROM avp_top_client_hour GROUP by ap_mac ORDER by SUM(total) DESC "
    "LIMIT %d",
    "SELECT ap_mac, SUM(total) FROM top_ap_list GROUP by ap_mac ORDER by SUM(total) DESC LIMIT %d",
};
constexpr builder_sql kSsidsSql{
    "SELECT ssid, SUM(uplink), SUM(downlink) FROM avp_ap_ssid_hour GROUP by ssid ORDER by "
    "(SUM(uplink)+SUM(downlink)) DESC LIMIT %d",
    "SELECT ssid, SUM(uplink), SUM(downlink) FROM top_ssid_list GROUP by ssid ORDER by "
    "(SUM(uplink)+SUM(downlink)) DESC LIMIT %d",
};

// The groups of one builder; false (logged) when the query failed.
bool select_groups(const builder_sql &sql, uint32_t period, report_rows *rows) {
    const bool day = period == kPeriodDay;
    report_query q(day ? tallyd_db_set.top_list_db : tallyd_db_set.db, 512,
                   day ? sql.day : sql.hour, kTop);
    return report_select(q, rows, TALLYD_RECOVER_DB);
}

// Client count of one SSID (by_ssid) or AP: in the hour, the hour table; in
// the day, the clients of the three sources gathered so far.
uint32_t client_count(uint32_t period, bool by_ssid, int32_t id) {
    if (period != kPeriodDay) return tallyd_top_count_clients(by_ssid ? "ssid" : "ap_mac", id);
    const int32_t ssid_id = by_ssid ? id : 0, ap_id = by_ssid ? 0 : id;
    tallyd_top_collect_clients(tallyd_db_set.db, kTopSourceHour.code,
                               tallyd_sys_info.last_backup_time, ssid_id, ap_id);
    tallyd_top_collect_clients(tallyd_db_set.db, kTopSourceDay.code, 0, ssid_id, ap_id);
    tallyd_top_collect_clients(tallyd_db_set.backup_hour_db, kTopSourceBackup.code, 0, ssid_id,
                               ap_id);
    return tallyd_top_count_collected();
}

// A dictionary text as the records hold it: at most 31 characters.
void put_name31(std::span<uint8_t> rec, const wire_field &f, const char *name) {
    char cut[32];
    std::snprintf(cut, sizeof cut, "%s", name ? name : "");
    wire_put_text(rec, f, cut);
}

// The first child of list (named `child`, or any name when null) whose
// attribute attr equals value; null if none.
xnode *find_child(xnode *list, const char *child, const char *attr, const char *value) {
    for (xnode *c = xGetFirstChild(list); c; c = xGetNextSibling(c))
        if ((!child || std::strcmp(xGetName(c), child) == 0) &&
            std::strcmp(xGetAttrString(c, attr, ""), value) == 0)
            return c;
    return nullptr;
}

}  // namespace

void tallyd_top_build_apps(uint64_t total, uint32_t period, report_reply &reply) {
    if (total == 0) return;
    std::span<uint8_t> data = reply.fill(kTopApps.data_size);
    report_rows rows;
    if (!select_groups(kAppsSql, period, &rows)) return;
    for (int r = 0; r < rows.rows(); ++r) {
        std::span<uint8_t> rec = record(data, kTopApps.records, static_cast<size_t>(r));
        const char *app = rows.at(r, 0);
        wire_put_text(rec, kAppName, app && *app ? app : "Miscellaneous");
        const uint64_t bytes = rows.u64_at(r, 1) + rows.u64_at(r, 2);
        wire_put_num(rec, kAppBytes, bytes);
        wire_put_num(rec, kAppShare, tallyd_report_share(bytes, total));
    }
}

void tallyd_top_build_aps(uint64_t total, uint32_t period, report_reply &reply) {
    if (total == 0) return;
    xconf_ptr aps(xGetConfImpl("tallyd_top_ap_list", __LINE__, "ap-list", 0));
    if (!aps) return;
    std::span<uint8_t> data = reply.fill(kTopAps.data_size);
    report_rows rows;
    if (!select_groups(kApsSql, period, &rows)) return;
    for (int r = 0; r < rows.rows(); ++r) {
        std::span<uint8_t> rec = record(data, kTopAps.records, static_cast<size_t>(r));
        const int32_t ap_id = rows.int_at(r, 0);
        put_name31(rec, kApMac, tallyd_avp_ap_lookup_id(ap_id));
        wire_put_num(rec, kApClients, client_count(period, false, ap_id));
        const uint64_t bytes = rows.u64_at(r, 1);
        wire_put_num(rec, kApBytes, bytes);
        wire_put_num(rec, kApShare, tallyd_report_share(bytes, total));
        const std::string mac(wire_get_text(rec, kApMac));
        if (xnode *ap = find_child(aps.get(), "ap", "mac", mac.c_str())) {
            wire_put_text(rec, kApDevname, xGetAttrString(ap, "devname", ""));
            wire_put_text(rec, kApLocation, xGetAttrString(ap, "location", ""));
        }
    }
}

void tallyd_top_build_ssids(uint64_t total, uint32_t period, report_reply &reply) {
    if (total == 0) return;
    // Not checked: without the list every SSID reads as open.
    xconf_ptr wlans(xGetConfImpl("tallyd_top_ssid_list", __LINE__, "wlansvc-list", 0));
    std::span<uint8_t> data = reply.fill(kTopSsids.data_size);
    report_rows rows;
    if (!select_groups(kSsidsSql, period, &rows)) return;
    for (int r = 0; r < rows.rows(); ++r) {
        if (!rows.at(r, 0) || !rows.at(r, 1) || !rows.at(r, 2)) break;
        std::span<uint8_t> rec = record(data, kTopSsids.records, static_cast<size_t>(r));
        const int32_t ssid_id = rows.int_at(r, 0);
        put_name31(rec, kSsidName, tallyd_avp_ssid_lookup_id(ssid_id));
        const std::string ssid(wire_get_text(rec, kSsidName));
        xnode *wlan = find_child(wlans.get(), nullptr, "ssid", ssid.c_str());
        wire_put_text(rec, kSsidEncryption, wlan ? xGetAttrString(wlan, "encryption", "") : "Open");
        wire_put_num(rec, kSsidClients, client_count(period, true, ssid_id));
        const uint64_t bytes = rows.u64_at(r, 1) + rows.u64_at(r, 2);
        wire_put_num(rec, kSsidBytes, bytes);
        wire_put_num(rec, kSsidShare, tallyd_report_share(bytes, total));
    }
}
