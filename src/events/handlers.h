// Handlers of the network event messages, called by the dispatcher.
//
// msg spans the whole receive buffer: the 12-byte header first, the payload,
// and zeros past the received length. Each handler reads its message with
// the layouts of events_wire.h and hands the fields to the event functions
// (ap_events.h, wlan_tracking.h, station_events.h). None of them replies.
// Where an id runs two handlers, the second runs whatever the first did.
#pragma once

#include <cstdint>
#include <span>

// TALLYD_MSG_AP_ADD: the AP's avp_ap row, then its WLAN rows.
void tallyd_handle_ap_add(std::span<const uint8_t> msg);
void tallyd_handle_ap_add_wlans(std::span<const uint8_t> msg);

// TALLYD_MSG_AP_DEL: the AP's avp_ap row stamped, then its WLAN rows closed.
void tallyd_handle_ap_del(std::span<const uint8_t> msg);
void tallyd_handle_ap_del_wlans(std::span<const uint8_t> msg);

void tallyd_handle_ap_wlan_update(std::span<const uint8_t> msg);
void tallyd_handle_wlan_group_update(std::span<const uint8_t> msg);

// TALLYD_MSG_APGROUP_UPDATE: the group's WLAN rows, then every configured
// AP's group id from the repository.
void tallyd_handle_apgroup_update_wlans(std::span<const uint8_t> msg);
void tallyd_handle_apgroup_update_ids(std::span<const uint8_t> msg);

void tallyd_handle_sta_active(std::span<const uint8_t> msg);
void tallyd_handle_sta_add(std::span<const uint8_t> msg);

// Statistics socket: a counters batch.
void tallyd_handle_client_stats(std::span<const uint8_t> msg);
