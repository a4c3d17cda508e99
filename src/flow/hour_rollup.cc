#include "flow/hour_rollup.h"

#include <cstdio>

#include "db/recover.h"
#include "entity/text.h"
#include "flow/rollup_limits.h"
#include "flow/rollup_run.h"
#include "flow/tasks.h"

namespace {

constexpr uint32_t kMaskHour = TALLYD_RECOVER_TEMP | TALLYD_RECOVER_DB;

// Range start of the timed modes: one backup period before the stamp in
// mode 4.
uint32_t range_start(int32_t mode, uint32_t stamp) {
    return mode == TALLYD_MODE_BACKUP ? stamp - tallyd_task_period(tallyd_task::backup) : 0;
}

constexpr auto keep_all = [](const sql_table &, int) { return true; };

// --- per application and AP group -----------------------------------------

constexpr const char *kAppAllSelect =
    "SELECT app, port, SUM(uplink), SUM(downlink), group_id FROM %s GROUP by app, group_id "
    "ORDER by (SUM(uplink)+SUM(downlink)) DESC LIMIT %d";
constexpr const char *kAppAllInsert =
    "INSERT INTO %s(time, app, port, uplink, downlink, group_id) VALUES(?, ?, ?, ?, ?, ?)";
constexpr rollup_msgs kAppAllMsgs = {
    "tallyd, SELECT app_all aErrMsg = %s\n",
    "tallyd, INSERT app_all aErrMsg = %s\n",
    "tallyd, app_all commit aErrMsg = %s\n",
};

// --- per application, AP and SSID -------------------------------------------

constexpr const char *kApSsidSelectAll =
    "SELECT app, port, ap_mac, ssid, SUM(uplink), SUM(downlink), group_id FROM %s GROUP by "
    "ap_mac, app, ssid, group_id LIMIT %d";
constexpr const char *kApSsidSelectRange =
    "SELECT app, port, ap_mac, ssid, SUM(uplink), SUM(downlink), group_id FROM %s WHERE "
    "time>=%lu AND time<%lu GROUP by ap_mac, app, ssid, group_id ORDER by "
    "(SUM(uplink)+SUM(downlink)) DESC LIMIT %d";
constexpr const char *kApSsidInsert =
    "INSERT INTO %s(time, app, port, ap_mac, ssid, uplink, downlink, group_id) "
    "VALUES(?, ?, ?, ?, ?, ?, ?, ?)";
constexpr rollup_msgs kApSsidMsgs = {
    "tallyd, SELECT app_ap aErrMsg = %s\n",
    "tallyd, INSERT app_ap aErrMsg = %s\n",
    "tallyd, app_ap commit aErrMsg = %s \n",
};

// --- per client and AP -------------------------------------------------------

constexpr const char *kTopClientSelectAll =
    "SELECT client_mac, ap_mac, ssid, SUM(total) FROM %s GROUP by client_mac, ap_mac ORDER "
    "by SUM(total) DESC LIMIT %d";
constexpr const char *kTopClientSelectRange =
    "SELECT client_mac, ap_mac, ssid, SUM(total) FROM %s WHERE time>=%lu AND time<%lu GROUP "
    "by client_mac, ap_mac ORDER by SUM(total) DESC LIMIT %d";
constexpr const char *kTopClientInsert =
    "INSERT INTO %s(time, client_mac, ap_mac, ssid, total) VALUES(?, ?, ?, ?, ?)";
constexpr rollup_msgs kTopClientMsgs = {
    "tallyd, select top_client aErrMsg = %s\n",
    "tallyd, INSERT top_client aErrMsg = %s\n",
    "tallyd, top_client commit failed\n",
};

uint32_t top_client_mask(int32_t mode) {
    return mode == TALLYD_MODE_HOUR ? kMaskHour : TALLYD_RECOVER_BACKUP | TALLYD_RECOVER_DB;
}

}  // namespace

int tallyd_pre_handle_avp_app_all(int32_t, tallyd_table src_table, tallyd_table dst_table,
                                  uint32_t stamp, sql_conn &src, sql_conn &dst) {
    char select[256];
    std::snprintf(select, sizeof(select), kAppAllSelect, tallyd_table_name(src_table),
                  rollup_class_limit(4000, 8000, 2000, 800));
    rollup_quoted app;
    auto bind = [&](const sql_table &rows, int r, sql_stmt &s) {
        rollup_bind_app(s, app, stamp, rows.at(r, 0), rows.int_at(r, 1));
        s.bind_u64(4, rows.u64_at(r, 2));
        s.bind_u64(5, rows.u64_at(r, 3));
        s.bind(6, int64_t{rows.int_at(r, 4)});
    };
    return rollup_run(src, select, dst, kAppAllInsert, dst_table, kAppAllMsgs, kMaskHour, keep_all,
                      bind);
}

int tallyd_pre_handle_avp_ap_ssid(int32_t mode, tallyd_table src_table, tallyd_table dst_table,
                                  uint32_t stamp, sql_conn &src, sql_conn &dst) {
    const int32_t limit = rollup_class_limit(40000, 80000, 12000, 2000);
    char select[512];
    if (mode == TALLYD_MODE_HOUR)
        std::snprintf(select, sizeof(select), kApSsidSelectAll, tallyd_table_name(src_table),
                      limit);
    else
        std::snprintf(select, sizeof(select), kApSsidSelectRange, tallyd_table_name(src_table),
                      static_cast<unsigned long>(range_start(mode, stamp)),
                      static_cast<unsigned long>(stamp), 2 * limit);
    rollup_quoted app;
    auto bind = [&](const sql_table &rows, int r, sql_stmt &s) {
        rollup_bind_app(s, app, stamp, rows.at(r, 0), rows.int_at(r, 1));
        s.bind(4, int64_t{rows.int_at(r, 2)});
        s.bind(5, int64_t{rows.int_at(r, 3)});
        // These columns store "%lu" of a 32-bit long: the sums keep their
        // low 32 bits.
        s.bind(6, int64_t{rows.u32_at(r, 4)});
        s.bind(7, int64_t{rows.u32_at(r, 5)});
        s.bind(8, int64_t{rows.int_at(r, 6)});
    };
    return rollup_run(src, select, dst, kApSsidInsert, dst_table, kApSsidMsgs, kMaskHour, keep_all,
                      bind);
}

int tallyd_pre_handle_avp_top_client(int32_t mode, tallyd_table src_table, tallyd_table dst_table,
                                     uint32_t stamp, sql_conn &src, sql_conn &dst) {
    const int32_t limit = rollup_class_limit(4000, 6000, 2000, 500);
    char select[512];
    if (mode == TALLYD_MODE_HOUR || mode == TALLYD_MODE_DAY)
        std::snprintf(select, sizeof(select), kTopClientSelectAll, tallyd_table_name(src_table),
                      limit);
    else
        std::snprintf(select, sizeof(select), kTopClientSelectRange, tallyd_table_name(src_table),
                      static_cast<unsigned long>(range_start(mode, stamp)),
                      static_cast<unsigned long>(stamp), limit);
    // One MAC buffer for the whole walk: a colon MAC of the wrong length
    // leaves it as the previous row left it, and that row's MAC is stored.
    char mac[32] = {};
    auto keep = [&](const sql_table &rows, int r) {
        const char *text = rollup_text(rows.at(r, 0));
        if (mode == TALLYD_MODE_HOUR)
            tallyd_mac17_to_mac12(text, mac);
        else
            std::snprintf(mac, sizeof(mac), "%s", text);
        return rows.u64_at(r, 3) != 0;
    };
    auto bind = [&](const sql_table &rows, int r, sql_stmt &s) {
        s.bind(1, int64_t{stamp});
        s.bind_static(2, mac);
        s.bind(3, int64_t{rows.int_at(r, 1)});
        s.bind(4, int64_t{rows.int_at(r, 2)});
        s.bind_u64(5, rows.u64_at(r, 3));
    };
    return rollup_run(src, select, dst, kTopClientInsert, dst_table, kTopClientMsgs,
                      top_client_mask(mode), keep, bind);
}
