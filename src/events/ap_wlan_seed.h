// WLAN membership from the configuration, and the group-level seeding of
// statis_ap_wlan.
//
// statis_ap_wlan records which WLANs each AP group (ap_id 0) or AP serves
// through which WLAN group; a row with time 0 is current. A newly created
// table is seeded here from "apgroup-list" and "wlangroup-list" so that it
// reflects the configuration before the first event arrives. The membership
// set and the row inserter are shared with the WLAN-tracking event handlers.
#pragma once

#include <array>
#include <cstdint>

#include "db/sql.h"
#include "platform/xrepo.h"

// WLAN ids 1..2047 are representable; the flag of WLAN w is at w - 1.
inline constexpr int32_t TALLYD_WLAN_MAX = 2048;
using tallyd_wlan_set = std::array<uint8_t, TALLYD_WLAN_MAX>;

// True when WLAN w is in set (false for any w outside 1..2048).
inline bool tallyd_wlan_in(const tallyd_wlan_set &set, int32_t w) {
    return w >= 1 && w <= TALLYD_WLAN_MAX && set[static_cast<size_t>(w - 1)];
}

// Clears set and marks the WLANs of WLAN group wlangrp_id as listed in
// wlangroup_list (a fetched "wlangroup-list"). The group's WLANs are read in
// order up to the first whose id is outside 1..2047; an unknown group leaves
// the set empty.
void tallyd_fill_wlan_set(xnode *wlangroup_list, int32_t wlangrp_id, tallyd_wlan_set &set);

// Inserts one current row (time 0) into statis_ap_wlan. A failure is logged
// as "tallyd, value = %s, aErrMsg = %s\n". 0 or -1.
int tallyd_insert_ap_wlan_row(sql_conn &statistic_db, int32_t ap_id, int32_t wlan_id,
                              int32_t apgrp_id, int32_t wlangrp_id);

// Inserts one current row (time 0) per WLAN in set into statis_ap_wlan.
// Nothing when apgrp_id is 0. The first failure is logged as
// "tallyd, value = %s, aErrMsg = %s\n" and ends the inserts. 0 or -1.
int tallyd_insert_ap_wlan_rows(sql_conn &statistic_db, int32_t ap_id, int32_t apgrp_id,
                               const tallyd_wlan_set &set, int32_t wlangrp_id);

// Seeds group-level rows (ap_id 0) for the 11ng and 11na radios of every AP
// group; a group whose two radio types use the same WLAN group gets its rows
// once. Does nothing when either list is absent.
void tallyd_get_wlan_from_apgrp(sql_conn &statistic_db);
