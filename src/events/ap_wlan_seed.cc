#include "events/ap_wlan_seed.h"

#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "db/sql.h"
#include "db/sql_shown.h"

namespace {

constexpr sql_form kInsertRow(
    "INSERT INTO statis_ap_wlan(time, ap_id, wlan_id, apgrp_id, wlangrp_id) \n"
    "VALUES(%lu, %d, %d, %d, %d)");

constexpr const char *kCaller = "tallyd_get_wlan_from_apgrp";

xnode *find_wlan_group(xnode *wlangroup_list, int32_t wlangrp_id) {
    for (xnode *g = xGetFirstChild(wlangroup_list); g; g = xGetNextSibling(g))
        if (xGetAttrInt(g, "id", 0) == wlangrp_id) return g;
    return nullptr;
}

// The WLAN group of one radio of an AP group, or 0 when the radio adds
// nothing: not an 11ng/11na radio, no group, or the group the other radio
// type already brought. Remembers the group of its type in ng / na.
int32_t radio_wlan_group(xnode *radio, int32_t &ng, int32_t &na) {
    const char *type = xGetAttrString(radio, "radio-type", "");
    int32_t *mine = nullptr;
    int32_t other = 0;
    if (std::strcmp(type, "11ng") == 0) {
        mine = &ng;
        other = na;
    } else if (std::strcmp(type, "11na") == 0) {
        mine = &na;
        other = ng;
    } else {
        return 0;
    }
    *mine = xGetAttrInt(radio, "wlangroup-id", 0);
    if (*mine < 1 || *mine == other) return 0;
    return *mine;
}

void seed_group(sql_conn &statistic_db, xnode *apgroup, xnode *wlangroup_list,
                tallyd_wlan_set &set) {
    int32_t apgrp_id = xGetAttrInt(apgroup, "id", 0);
    xnode *property = xGetChild(apgroup, "ap-property");
    if (!property) return;
    int32_t ng = 0;
    int32_t na = 0;
    xiter_ptr radios(xFindChildrenImpl(property, "radio", 0));
    while (xnode *radio = xIterNext(radios.get())) {
        set.fill(0);
        int32_t wlangrp_id = radio_wlan_group(radio, ng, na);
        if (wlangrp_id == 0) continue;
        tallyd_fill_wlan_set(wlangroup_list, wlangrp_id, set);
        tallyd_insert_ap_wlan_rows(statistic_db, 0, apgrp_id, set, wlangrp_id);
    }
}

}  // namespace

void tallyd_fill_wlan_set(xnode *wlangroup_list, int32_t wlangrp_id, tallyd_wlan_set &set) {
    set.fill(0);
    xnode *group = find_wlan_group(wlangroup_list, wlangrp_id);
    for (xnode *w = xGetFirstChild(group); w; w = xGetNextSibling(w)) {
        int32_t id = xGetAttrInt(w, "id", 0);
        // A bad id ends the group: the WLANs after it are not read.
        if (id < 1 || id >= TALLYD_WLAN_MAX) break;
        set[static_cast<size_t>(id - 1)] = 1;
    }
}

int tallyd_insert_ap_wlan_row(sql_conn &statistic_db, int32_t ap_id, int32_t wlan_id,
                              int32_t apgrp_id, int32_t wlangrp_id) {
    sql_error err;
    return sql_shown_run_log(statistic_db, kInsertRow, 256, "tallyd, value = %s, aErrMsg = %s\n",
                             err, uint32_t{0}, ap_id, wlan_id, apgrp_id, wlangrp_id) == SQLITE_OK
               ? 0
               : -1;
}

int tallyd_insert_ap_wlan_rows(sql_conn &statistic_db, int32_t ap_id, int32_t apgrp_id,
                               const tallyd_wlan_set &set, int32_t wlangrp_id) {
    if (apgrp_id == 0) return 0;
    for (int32_t w = 1; w <= TALLYD_WLAN_MAX; ++w)
        if (set[static_cast<size_t>(w - 1)] &&
            tallyd_insert_ap_wlan_row(statistic_db, ap_id, w, apgrp_id, wlangrp_id) != 0)
            return -1;
    return 0;
}

void tallyd_get_wlan_from_apgrp(sql_conn &statistic_db) {
    xconf_ptr apgroups(xGetConfImpl(kCaller, __LINE__, "apgroup-list", 0));
    xconf_ptr wlangroups(xGetConfImpl(kCaller, __LINE__, "wlangroup-list", 0));
    if (!apgroups || !wlangroups) return;
    // One transaction for the whole seeding; a failed insert still keeps the
    // rows before it, as separate statements would.
    sql_txn txn(statistic_db.get());
    tallyd_wlan_set set;
    for (xnode *g = xGetFirstChild(apgroups.get()); g; g = xGetNextSibling(g))
        seed_group(statistic_db, g, wlangroups.get(), set);
    if (txn.ok()) txn.commit();
}
