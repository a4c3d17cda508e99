#include "events/wlan_tracking.h"

#include <vector>

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "db/sql_shown.h"
#include "entity/dict.h"
#include "events/ap_wlan_seed.h"
#include "events/event_db.h"
#include "platform/xrepo.h"

namespace {

using events_wire::kApAddMac;

constexpr size_t kStatementSize = 256;
constexpr const char *kSelectErr = "tallyd, value = %s, aErrMsg = %s \n";
constexpr const char *kWriteErr = "tallyd, value = %s, aErrMsg = %s\n";
constexpr uint32_t kOpen = 0;  // the time of a current row
constexpr int32_t kRefusedWlanGroup = 65535;

// ---- an AP's rows ----
constexpr sql_form kApRows(
    "SELECT wlan_id, apgrp_id, wlangrp_id FROM statis_ap_wlan WHERE ap_id=%d");
constexpr sql_form kApRowsTimed(
    "SELECT time, wlan_id, apgrp_id, wlangrp_id FROM statis_ap_wlan WHERE ap_id=%d");
// Closes (time = now) or reopens (time 0) one row.
constexpr sql_form kSetRow(
    "UPDATE statis_ap_wlan SET time=%lu WHERE ap_id=%d AND wlan_id=%d AND apgrp_id=%d AND "
    "wlangrp_id=%d");

// ---- an AP group's own rows ----
constexpr sql_form kCloseGroup(
    "UPDATE statis_ap_wlan SET time=%lu WHERE time=0 AND ap_id=0 AND apgrp_id=%d");
constexpr sql_form kGroupRows(
    "SELECT time, wlan_id FROM statis_ap_wlan WHERE ap_id=0 AND apgrp_id=%d AND wlangrp_id=%d");
constexpr sql_form kSetGroupRow(
    "UPDATE statis_ap_wlan SET time=%lu WHERE ap_id=0 AND apgrp_id=%d AND wlangrp_id=%d AND "
    "wlan_id=%d");

// ---- a WLAN leaves its WLAN group ----
constexpr sql_form kLeavingGroups(
    "SELECT apgrp_id FROM statis_ap_wlan WHERE wlangrp_id=%d AND ap_id=0 AND wlan_id=%d AND "
    "time=0 GROUP by apgrp_id");
constexpr sql_form kLeavingAps(
    "SELECT ap_id, apgrp_id FROM statis_ap_wlan WHERE wlangrp_id=%d AND ap_id>0 AND time=0 AND "
    "wlan_id=%d GROUP by ap_id");

// ---- a WLAN joins a WLAN group ----
constexpr sql_form kJoiningGroups(
    "SELECT apgrp_id FROM statis_ap_wlan WHERE wlangrp_id=%d AND ap_id=0 AND wlan_id=%d GROUP by "
    "apgrp_id");
constexpr sql_form kReopenGroupWlan(
    "UPDATE statis_ap_wlan SET time=0 WHERE ap_id=0 AND wlan_id=%d AND apgrp_id=%d AND "
    "wlangrp_id=%d");
constexpr sql_form kGroupsUsing(
    "SELECT apgrp_id FROM statis_ap_wlan WHERE wlangrp_id=%d AND ap_id=0 GROUP by apgrp_id");
constexpr sql_form kJoiningAps(
    "SELECT ap_id, apgrp_id FROM statis_ap_wlan WHERE wlangrp_id=%d AND wlan_id=%d AND ap_id>0 "
    "GROUP by ap_id");
constexpr sql_form kReopenApWlan(
    "UPDATE statis_ap_wlan SET time=0 WHERE ap_id=%d AND wlan_id=%d AND apgrp_id=%d AND "
    "wlangrp_id=%d");
constexpr sql_form kApsServing(
    "SELECT ap_id, apgrp_id FROM statis_ap_wlan WHERE wlangrp_id=%d AND ap_id>0 AND time=0 GROUP "
    "by ap_id");

// A row of integers. When the first column is a time, current tells whether
// it is 0; a null time counts as closed.
struct int_row {
    bool current;
    int32_t v[4];
};

// Runs a SELECT and collects its rows; on failure logs it and returns false.
template <size_t N, class... A>
bool select_rows(const sql_form<N> &s, std::vector<int_row> &rows, const A &...args) {
    rows.clear();
    sql_error err;
    auto collect = [&](sqlite3_stmt *st) {
        int_row r{!sql_col_null(st, 0) && sqlite3_column_int64(st, 0) == 0, {0, 0, 0, 0}};
        for (int c = 0; c < sqlite3_column_count(st) && c < 4; ++c) r.v[c] = sql_col_int(st, c);
        rows.push_back(r);
    };
    if (sql_shown_query(events_statistic_db(), s, err, collect, args...) == SQLITE_OK) return true;
    sql_shown_log(kSelectErr, err, kStatementSize, s, args...);
    return false;
}

// Runs an UPDATE; logs a failure when asked to. true on success.
template <size_t N, class... A>
bool write(const sql_form<N> &s, bool log, const A &...args) {
    sql_error err;
    if (sql_shown_run(events_statistic_db(), s, err, args...) == SQLITE_OK) return true;
    if (log) sql_shown_log(kWriteErr, err, kStatementSize, s, args...);
    return false;
}

xconf_ptr wlan_groups(const char *caller) {
    return xconf_ptr(xGetConfImpl(caller, __LINE__, "wlangroup-list", 0));
}

// Radio slot r brings rows of its own: slot 0 with a WLAN group, slot 1 with
// a WLAN group that slot 0 does not already bring.
bool slot_used(const int32_t (&wlangroup)[2], int r) {
    return r == 0 ? wlangroup[0] > 0 : wlangroup[1] >= 1 && wlangroup[1] != wlangroup[0];
}

void clear_wlan(tallyd_wlan_set &set, int32_t w) {
    if (tallyd_wlan_in(set, w)) set[static_cast<size_t>(w - 1)] = 0;
}

void insert_slots(int32_t ap_id, int32_t apgrp_id, const int32_t (&wlangroup)[2],
                  const tallyd_wlan_set (&sets)[2]) {
    for (int r = 0; r < 2; ++r)
        if (slot_used(wlangroup, r))
            tallyd_insert_ap_wlan_rows(events_statistic_db(), ap_id, apgrp_id, sets[r],
                                       wlangroup[r]);
}

// The AP's id with its new entry (if any) made durable; 0 when the
// dictionary cannot give one, and then the caller stops: id 0 would name the
// AP group's own rows.
int32_t ap_id_of(std::string_view mac) {
    fixed_text<kApAddMac.width> key(mac);
    int32_t id = tallyd_avp_ap_mapping(key.c_str());
    tallyd_dict_flush();
    return id;
}

}  // namespace

void tallyd_add_wlan_ap(const events_wire::ap_add &m) {
    xconf_ptr groups = wlan_groups("tallyd_add_wlan_ap");
    if (!groups) return;
    const int32_t ap_id = ap_id_of(m.mac);
    if (ap_id == 0) return;

    std::vector<int_row> rows;
    if (!select_rows(kApRows, rows, ap_id)) return;
    if (!rows.empty()) {
        for (const int_row &r : rows) write(kSetRow, false, kOpen, ap_id, r.v[0], r.v[1], r.v[2]);
        return;
    }
    tallyd_wlan_set sets[2] = {};
    for (int r = 0; r < m.radios && r < 2; ++r)
        tallyd_fill_wlan_set(groups.get(), m.wlangroup[r], sets[r]);
    insert_slots(ap_id, m.apgroup, m.wlangroup, sets);
}

void tallyd_update_ap_wlan_statis(const events_wire::ap_wlan_update &m) {
    const uint32_t now = tallyd_now();
    xconf_ptr groups = wlan_groups("tallyd_update_ap_wlan_statis");
    if (!groups) return;
    const int32_t(&wg)[2] = m.wlangroup;
    fixed_text<kApAddMac.width> mac(m.mac);
    tallyd_log(LOG_DEBUG, "tallyd, mac=%s, num_radios=%d, wlangrp[0]=%d, wlangrp[1]=%d, apgrp=%d",
               mac.c_str(), m.radios, wg[0], wg[1], m.apgroup);

    tallyd_wlan_set sets[2] = {};
    for (int r = 0; r < m.radios && r < 2; ++r)
        if (wg[r] != 0) tallyd_fill_wlan_set(groups.get(), wg[r], sets[r]);
    const int32_t ap_id = ap_id_of(m.mac);
    if (ap_id == 0) return;

    std::vector<int_row> rows;
    if (!select_rows(kApRowsTimed, rows, ap_id)) return;
    for (const int_row &row : rows) {
        const int32_t w = row.v[1], g = row.v[2], rwg = row.v[3];
        const bool offered = g == m.apgroup && (rwg == wg[0] || rwg == wg[1]);
        tallyd_wlan_set &set = rwg == wg[0] ? sets[0] : sets[1];
        if (offered && tallyd_wlan_in(set, w)) {
            if (!row.current) write(kSetRow, false, kOpen, ap_id, w, g, rwg);
            clear_wlan(set, w);
        } else if (row.current) {
            write(kSetRow, false, now, ap_id, w, g, rwg);
        }
    }
    insert_slots(ap_id, m.apgroup, wg, sets);
}

void tallyd_update_apgrp_statis(const events_wire::apgroup_update &m) {
    static constexpr const char *kActions[] = {"adding", "deleting", "updating"};
    xconf_ptr groups = wlan_groups("tallyd_update_apgrp_statis");
    if (!groups || m.action < 0 || m.action > 2) return;
    const int32_t(&wg)[2] = m.wlangroup;
    tallyd_log(LOG_DEBUG, "tallyd, %s AP group: %d, wlangrp_id[0]=%d, wlangrp_id[1]=%d",
               kActions[m.action], m.apgroup, wg[0], wg[1]);
    if (wg[0] == kRefusedWlanGroup || wg[1] == kRefusedWlanGroup) return;

    const uint32_t now = tallyd_now();
    tallyd_wlan_set sets[2];
    tallyd_fill_wlan_set(groups.get(), wg[0], sets[0]);
    tallyd_fill_wlan_set(groups.get(), wg[1], sets[1]);
    if (m.action != 0) write(kCloseGroup, true, now, m.apgroup);
    if (m.action == 1) return;

    std::vector<int_row> rows;
    for (int r = 0; r < 2; ++r) {
        if (!slot_used(wg, r)) continue;
        if (!select_rows(kGroupRows, rows, m.apgroup, wg[r])) return;
        // Closed rows come back whether or not their WLAN is still in the
        // group, deliberately.
        for (const int_row &row : rows) {
            if (!row.current) write(kSetGroupRow, true, kOpen, m.apgroup, wg[r], row.v[1]);
            clear_wlan(sets[r], row.v[1]);
        }
        tallyd_insert_ap_wlan_rows(events_statistic_db(), 0, m.apgroup, sets[r], wg[r]);
    }
}

void tallyd_update_wlangrp_statis(const events_wire::wlan_group_update &m) {
    xconf_ptr groups = wlan_groups("tallyd_update_wlangrp_statis");
    if (!groups) return;
    const int32_t w = m.wlan, wg = m.wlangroup;
    fixed_text<events_wire::kWlanGroupName.width> name(m.name);
    tallyd_log(LOG_DEBUG, "tallyd, wlan[%d]:%s %s group %d", w, name.c_str(),
               m.action == 0 ? "joins" : "leases", wg);
    const uint32_t now = tallyd_now();
    sql_conn &db = events_statistic_db();
    std::vector<int_row> rows;

    if (m.action != 0) {
        if (!select_rows(kLeavingGroups, rows, wg, w)) return;
        for (const int_row &r : rows)
            if (!write(kSetRow, true, now, int32_t{0}, w, r.v[0], wg)) return;
        if (!select_rows(kLeavingAps, rows, wg, w)) return;
        for (const int_row &r : rows)
            if (!write(kSetRow, true, now, r.v[0], w, r.v[1], wg)) return;
        return;
    }

    // Earlier rows of the WLAN come back whether or not their AP group or AP
    // still uses the WLAN group; new rows only for a WLAN that had none.
    if (!select_rows(kJoiningGroups, rows, wg, w)) return;
    for (const int_row &r : rows)
        if (!write(kReopenGroupWlan, true, w, r.v[0], wg)) return;
    if (rows.empty()) {
        if (!select_rows(kGroupsUsing, rows, wg)) return;
        for (const int_row &r : rows)
            if (tallyd_insert_ap_wlan_row(db, 0, w, r.v[0], wg) != 0) break;
    }
    if (!select_rows(kJoiningAps, rows, wg, w)) return;
    for (const int_row &r : rows)
        if (!write(kReopenApWlan, true, r.v[0], w, r.v[1], wg)) return;
    if (rows.empty()) {
        if (!select_rows(kApsServing, rows, wg)) return;
        for (const int_row &r : rows)
            if (tallyd_insert_ap_wlan_row(db, r.v[0], w, r.v[1], wg) != 0) break;
    }
}
