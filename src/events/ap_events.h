// AP and AP-group events: the avp_ap table of the main database.
//
// avp_ap holds one row per AP MAC with its model and AP group id; its time
// is 0 while the AP is present and the moment it left otherwise. Rows are
// never removed here. AP MAC texts are used verbatim as keys, in whatever
// form the AP manager sends them; a MAC holding a single quote makes the add
// and the delete do nothing.
#pragma once

#include <string_view>

#include "events/events_wire.h"

// An AP joined: inserts its row (time 0), or, when the row exists and the AP
// group differs, sets time 0, the model and the group. An AP that returns
// with its old group keeps its row untouched, deliberately: its time keeps
// the moment it left and its model stays. Logs "tallyd, add-ap select
// aErrMsg = %s \n" or "tallyd, add-ap INSERT aErrMsg = %s \n" on failures.
void tallyd_add_ap(const events_wire::ap_add &m);

// An AP left: stamps its row with the current time (failures unlogged) after
// logging "tallyd, del AP mac: %s\n" (notice).
void tallyd_del_ap(std::string_view mac);

// An AP left: closes its current statis_ap_wlan rows with the current time.
// The MAC is mapped to its AP id first, so an unknown MAC gets one here.
void tallyd_close_ap_wlan(std::string_view mac);

// Resynchronises every configured AP's group from the repository's "ap-list"
// (children with "mac" and "group-id"; group 0 skipped): each such AP gets
// its group and is set present (time 0), connected or not. Failures are
// logged as "tallyd, apgroup aErrMsg=%s, value=%s\n" and the next AP
// follows.
void tallyd_update_apgrp_id();
