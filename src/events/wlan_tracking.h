// WLAN group tracking: which WLANs each AP group, and each AP, offered
// through which WLAN group, and when (statis_ap_wlan, statistic database).
//
// A row (time, ap_id, wlan_id, apgrp_id, wlangrp_id) says that WLAN wlan_id,
// as a member of WLAN group wlangrp_id, is or was offered in AP group
// apgrp_id by the AP ap_id, or by the group as a whole when ap_id is 0. time
// 0 marks a current row, any other value the moment it ended. Rows are
// closed and reopened, never deleted, so one association keeps one row.
//
// Every handler does nothing while the repository has no "wlangroup-list";
// WLAN group membership comes from that list (ap_wlan_seed.h). Statements
// run one by one (no transaction); SELECT failures are logged as "tallyd,
// value = %s, aErrMsg = %s \n" and end the handling, UPDATE and INSERT
// failures as "tallyd, value = %s, aErrMsg = %s\n" where the handler says
// so.
#pragma once

#include "events/events_wire.h"

// An AP joined (second handler of TALLYD_MSG_AP_ADD). An AP with rows gets
// every one of them reopened, even those of groups it has left since (the
// next AP WLAN update closes them); an AP without rows gets one per WLAN of
// its radios' WLAN groups (radio 1 only when its group differs).
void tallyd_add_wlan_ap(const events_wire::ap_add &m);

// An AP's radios or group changed: rows of another AP group or of neither
// radio's WLAN group are closed, rows of WLANs still offered are reopened,
// and the WLANs without a row get one.
void tallyd_update_ap_wlan_statis(const events_wire::ap_wlan_update &m);

// An AP group was added (0), deleted (1) or updated (2), with the WLAN groups
// of its two radio slots. Deleting closes the group-level rows; updating
// closes them and then adds as adding does: reopen the group's closed rows of
// each WLAN group (whether or not the WLAN is still in it) and insert the
// WLANs without a row. The AP rows of the group are left as they are. A WLAN
// group 65535 in either slot makes the message do nothing.
void tallyd_update_apgrp_statis(const events_wire::apgroup_update &m);

// A WLAN joined (action 0) or left a WLAN group. Leaving closes the WLAN's
// current rows in that WLAN group; joining reopens its earlier rows, and
// only a WLAN that never had one gets new rows for the AP groups and APs
// that use the WLAN group.
void tallyd_update_wlangrp_statis(const events_wire::wlan_group_update &m);
