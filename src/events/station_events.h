// Station events: the client directory statis_client_info_h (one row per
// client MAC, statistic database) and the counter rows of statis_client_h.
//
// Only the 17-character client MAC form is accepted; a message with another
// client MAC, or one holding a single quote, is dropped without a log. Host
// name, user name and authentication type are stored with their quotes as
// sent, cut where their escaped form (quotes doubled) passes the field size.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "events/events_wire.h"

// A station became active: active = 1 in its directory row; an unknown MAC
// is ignored. Logs "tallyd, update sta: %s, aErrMsg = %s\n" when the lookup
// fails and "tallyd, value=%s, aErrMsg = %s\n" when the update does.
void tallyd_sta_active(std::string_view mac);

// A station joined. A known client gets its addresses, names, VLAN and
// channel refreshed and active cleared; its time, AP, SSID, AP group, device
// type and radio stay as they were, deliberately. A new client is inserted
// with the dictionary ids of its SSID, AP and device type, active 0, or, when
// the SSID or the AP has no id, not at all ("tallyd, add sta, no ap_id or
// ssid_id\n"). A malformed statistic database is rebuilt.
void tallyd_sta_add(const events_wire::station &s);

// A counters batch (the whole message, header first): purges the hourly
// statistic tables against the batch time t - 3600, then, in one
// transaction, gives every listed station a directory row (ids 1, active 1;
// an empty stored host name is filled) and a counter row stamped t. In
// batches of 101 stations or more, stations that moved under 500,000 bytes
// are not recorded. Once a counter row is in and 12 s or more have passed
// since t (or t lies ahead), the batch stops. A malformed statistic
// database is rebuilt. Records past the end of msg are not read.
void tallyd_client_stats(std::span<const uint8_t> msg);
