#include "events/ap_events.h"

#include <string>

#include "base/clock.h"
#include "base/fixed_text.h"
#include "base/log.h"
#include "db/sql_shown.h"
#include "entity/dict.h"
#include "events/event_db.h"
#include "platform/xrepo.h"

namespace {

constexpr sql_form kSelectAp("SELECT ap_mac, group_id FROM avp_ap WHERE ap_mac='%s'");
constexpr sql_form kUpdateAp(
    "UPDATE avp_ap SET time=%lu, model='%s', group_id=%d WHERE ap_mac='%s'");
constexpr sql_form kInsertAp(
    "INSERT INTO avp_ap(time, ap_mac, model, group_id) VALUES(%lu, '%s', '%s', %d)");
constexpr sql_form kStampAp("UPDATE avp_ap SET time=%lu WHERE ap_mac='%s'");
constexpr sql_form kCloseApWlan("UPDATE statis_ap_wlan SET time=%lu WHERE ap_id=%d AND time=0");
constexpr sql_form kSyncGroup("UPDATE avp_ap SET time=%lu, group_id=%d WHERE ap_mac='%s'");

constexpr size_t kStatementSize = 256;
constexpr uint32_t kPresent = 0;

bool has_quote(std::string_view text) {
    return text.find('\'') != std::string_view::npos;
}

// The first row the add's SELECT returned.
struct ap_row {
    bool found = false;
    bool complete = false;  // ap_mac and group_id both non-null
    std::string mac;
    int32_t group = 0;
};

}  // namespace

void tallyd_add_ap(const events_wire::ap_add &m) {
    sql_conn &db = events_main_db();
    fixed_text<events_wire::kApAddMac.width> mac(m.mac);
    fixed_text<events_wire::kApAddModel.width> model(m.model);

    ap_row row;
    sql_error err;
    auto first_row = [&](sqlite3_stmt *st) {
        if (row.found) return;
        row.found = true;
        row.complete = !sql_col_null(st, 0) && !sql_col_null(st, 1);
        row.mac = sql_col_text(st, 0);
        row.group = sql_col_int(st, 1);
    };
    if (sql_shown_query(db, kSelectAp, err, first_row, mac.c_str()) != SQLITE_OK) {
        tallyd_log(LOG_ERR, "tallyd, add-ap select aErrMsg = %s \n", err.text.c_str());
        return;
    }
    if (mac.has('\'')) return;
    if (model.has('\'')) tallyd_sql_escape(model.data(), events_wire::kApAddModel.width);
    char model_value[sizeof model.text];
    const sql_text model_arg{model.c_str(),
                             sql_literal_value(model.c_str(), model_value, sizeof model_value)};

    int rc;
    if (row.found && row.complete) {
        // Back with the same group: nothing changes, not even the time.
        if (row.group == m.apgroup) return;
        rc = sql_shown_run(db, kUpdateAp, err, kPresent, model_arg, m.apgroup, row.mac.c_str());
    } else {
        rc = sql_shown_run(db, kInsertAp, err, kPresent, mac.c_str(), model_arg, m.apgroup);
    }
    if (rc != SQLITE_OK)
        tallyd_log(LOG_ERR, "tallyd, add-ap INSERT aErrMsg = %s \n", err.text.c_str());
}

void tallyd_del_ap(std::string_view mac_view) {
    const uint32_t now = tallyd_now();
    if (has_quote(mac_view)) return;
    const std::string mac(mac_view);
    tallyd_log(LOG_NOTICE, "tallyd, del AP mac: %s\n", mac.c_str());
    sql_error err;
    sql_shown_run(events_main_db(), kStampAp, err, now, mac.c_str());
}

void tallyd_close_ap_wlan(std::string_view mac) {
    const uint32_t now = tallyd_now();
    const int32_t ap_id = tallyd_avp_ap_mapping(std::string(mac).c_str());
    tallyd_dict_flush();
    // No id (the dictionary is full): there is no AP row to close, and id 0
    // would name the AP groups' own rows.
    if (ap_id == 0) return;
    sql_error err;
    sql_shown_run(events_statistic_db(), kCloseApWlan, err, now, ap_id);
}

void tallyd_update_apgrp_id() {
    xconf_ptr aps(xGetConfImpl("tallyd_update_apgrp_id", __LINE__, "ap-list", 0));
    if (!aps) return;
    sql_conn &db = events_main_db();
    // One commit for the whole pass; each failure is still logged and
    // skipped on its own.
    sql_txn txn(db.get());
    sql_error err;
    for (xnode *ap = xGetFirstChild(aps.get()); ap; ap = xGetNextSibling(ap)) {
        const char *mac = xGetAttrString(ap, "mac", "");
        const int32_t group = xGetAttrInt(ap, "group-id", 0);
        if (group == 0) continue;
        if (sql_shown_run(db, kSyncGroup, err, kPresent, group, mac) == SQLITE_OK) continue;
        char statement[kStatementSize];
        sql_shown_format(statement, sizeof statement, kSyncGroup, kPresent, group, mac);
        tallyd_log(LOG_ERR, "tallyd, apgroup aErrMsg=%s, value=%s\n", err.text.c_str(), statement);
    }
    if (txn.ok()) txn.commit();
}
