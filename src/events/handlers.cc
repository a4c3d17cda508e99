#include "events/handlers.h"

#include <algorithm>

#include "events/ap_events.h"
#include "events/events_wire.h"
#include "events/station_events.h"
#include "events/wlan_tracking.h"

using namespace events_wire;

void tallyd_handle_ap_add(std::span<const uint8_t> msg) {
    tallyd_add_ap(read_ap_add(msg));
}

void tallyd_handle_ap_add_wlans(std::span<const uint8_t> msg) {
    tallyd_add_wlan_ap(read_ap_add(msg));
}

void tallyd_handle_ap_del(std::span<const uint8_t> msg) {
    tallyd_del_ap(read_tail_mac(msg));
}

void tallyd_handle_ap_del_wlans(std::span<const uint8_t> msg) {
    tallyd_close_ap_wlan(read_tail_mac(msg));
}

void tallyd_handle_ap_wlan_update(std::span<const uint8_t> msg) {
    tallyd_update_ap_wlan_statis(read_ap_wlan_update(msg));
}

void tallyd_handle_wlan_group_update(std::span<const uint8_t> msg) {
    tallyd_update_wlangrp_statis(read_wlan_group_update(msg));
}

void tallyd_handle_apgroup_update_wlans(std::span<const uint8_t> msg) {
    tallyd_update_apgrp_statis(read_apgroup_update(msg));
}

void tallyd_handle_apgroup_update_ids(std::span<const uint8_t>) {
    tallyd_update_apgrp_id();
}

void tallyd_handle_sta_active(std::span<const uint8_t> msg) {
    tallyd_sta_active(read_tail_mac(msg));
}

void tallyd_handle_sta_add(std::span<const uint8_t> msg) {
    tallyd_sta_add(read_station(msg.subspan(std::min(kStaAddRecordOffset, msg.size()))));
}

void tallyd_handle_client_stats(std::span<const uint8_t> msg) {
    tallyd_client_stats(msg);
}
