// Layouts of the network event messages and of the station record, described
// once as data: the daemon's handlers read them, and tallyctl, the controller
// simulator and the tests build them, from the tables below.
//
// Offsets count from the first byte of the message (the 12-byte header
// included); station record offsets count from the first byte of the record.
// Numbers are big-endian, the controller's own order; texts are zero-
// terminated within their field. The read_* functions take the whole receive
// buffer and read every field with the bounded readers, so a short message
// reads zeros and empty texts. The build_* functions leave the 12 header
// bytes zero for the sender to fill in.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "base/wire.h"

namespace events_wire {

inline constexpr size_t kHeaderSize = 12;

// ---- AP joins (TALLYD_MSG_AP_ADD) ----
inline constexpr wire_field kApAddMac{"mac", 12, 32, wire_kind::text};
inline constexpr wire_field kApAddModel{"model", 44, 32, wire_kind::text};
inline constexpr wire_field kApAddGroup{"apgroup", 76, 4, wire_kind::be32};
inline constexpr wire_field kApAddRadios{"radios", 80, 4, wire_kind::be32};
inline constexpr wire_field kApAddWlanGroup0{"wlangroup0", 84, 4, wire_kind::be32};
inline constexpr wire_field kApAddWlanGroup1{"wlangroup1", 88, 4, wire_kind::be32};
inline constexpr wire_field kApAddFields[] = {kApAddMac,    kApAddModel,      kApAddGroup,
                                              kApAddRadios, kApAddWlanGroup0, kApAddWlanGroup1};
inline constexpr size_t kApAddSize = 92;

// ---- AP leaves (TALLYD_MSG_AP_DEL): the MAC runs to the end of the message ----
inline constexpr size_t kApDelMacOffset = 12;

// ---- An AP's radios changed WLAN group (TALLYD_MSG_AP_WLAN_UPDATE) ----
// Bytes 56..87 are not read.
inline constexpr wire_field kApWlanMac{"mac", 12, 32, wire_kind::text};
inline constexpr wire_field kApWlanRadios{"radios", 44, 4, wire_kind::be32};
inline constexpr wire_field kApWlanGroup0{"wlangroup0", 48, 4, wire_kind::be32};
inline constexpr wire_field kApWlanGroup1{"wlangroup1", 52, 4, wire_kind::be32};
inline constexpr wire_field kApWlanApGroup{"apgroup", 88, 4, wire_kind::be32};
inline constexpr wire_field kApWlanFields[] = {kApWlanMac, kApWlanRadios, kApWlanGroup0,
                                               kApWlanGroup1, kApWlanApGroup};
inline constexpr size_t kApWlanSize = 92;

// ---- An AP group was added (0), deleted (1) or updated (2) (TALLYD_MSG_APGROUP_UPDATE) ----
inline constexpr wire_field kApGroupAction{"action", 12, 4, wire_kind::be32};
inline constexpr wire_field kApGroupWlanGroup0{"wlangroup0", 16, 4, wire_kind::be32};
inline constexpr wire_field kApGroupWlanGroup1{"wlangroup1", 20, 4, wire_kind::be32};
inline constexpr wire_field kApGroupId{"apgroup", 24, 4, wire_kind::be32};
inline constexpr wire_field kApGroupFields[] = {kApGroupAction, kApGroupWlanGroup0,
                                                kApGroupWlanGroup1, kApGroupId};
inline constexpr size_t kApGroupSize = 28;

// ---- A WLAN joins (action 0) or leaves a WLAN group (TALLYD_MSG_WLAN_GROUP_UPDATE) ----
inline constexpr wire_field kWlanGroupAction{"action", 12, 4, wire_kind::be32};
inline constexpr wire_field kWlanGroupWlan{"wlan", 16, 4, wire_kind::be32};
inline constexpr wire_field kWlanGroupName{"name", 20, 64, wire_kind::text};
inline constexpr wire_field kWlanGroupId{"wlangroup", 84, 4, wire_kind::be32};
inline constexpr wire_field kWlanGroupFields[] = {kWlanGroupAction, kWlanGroupWlan, kWlanGroupName,
                                                  kWlanGroupId};
inline constexpr size_t kWlanGroupSize = 88;

// ---- A station is active (TALLYD_MSG_STA_ACTIVE): the MAC runs to the end ----
inline constexpr size_t kStaActiveMacOffset = 12;

// ---- The station record (560 bytes) ----
// One in TALLYD_MSG_STA_ADD at offset 12, an array in TALLYD_MSG_CLIENT_STATS.
// Bytes not described here are not read.
inline constexpr size_t kStationSize = 560;
inline constexpr wire_field kStaClientMac{"client_mac", 0, 32, wire_kind::text};
inline constexpr wire_field kStaIp{"ip", 32, 4, wire_kind::be32};  // a.b.c.d as a<<24|..|d
inline constexpr wire_field kStaIp6{"ip6", 36, 16, wire_kind::bytes};
inline constexpr wire_field kStaApMac{"ap_mac", 52, 32, wire_kind::text};
inline constexpr wire_field kStaDevice{"device", 84, 64, wire_kind::text};
inline constexpr wire_field kStaHostName{"host_name", 148, 64, wire_kind::text};
inline constexpr wire_field kStaSsid{"ssid", 212, 36, wire_kind::text};
inline constexpr wire_field kStaVlan{"vlan", 248, 2, wire_kind::be16};
inline constexpr wire_field kStaAuthType{"auth_type", 251, 16, wire_kind::text};
inline constexpr wire_field kStaRadio{"radio", 267, 1, wire_kind::u8};
inline constexpr wire_field kStaUserName{"user_name", 268, 148, wire_kind::text};
inline constexpr wire_field kStaApGroup{"apgroup", 416, 2, wire_kind::be16};
inline constexpr wire_field kStaWlanGroup{"wlangroup", 434, 2, wire_kind::be16};
inline constexpr wire_field kStaRxPkts{"rx_pkts", 456, 8, wire_kind::be64};
inline constexpr wire_field kStaTxPkts{"tx_pkts", 464, 8, wire_kind::be64};
inline constexpr wire_field kStaRxBytes{"rx_bytes", 472, 8, wire_kind::be64};
inline constexpr wire_field kStaTxBytes{"tx_bytes", 480, 8, wire_kind::be64};
inline constexpr wire_field kStaRssi{"rssi", 536, 1, wire_kind::u8};  // signed
inline constexpr wire_field kStaChannel{"channel", 554, 1, wire_kind::u8};
inline constexpr wire_field kStationFields[] = {
    kStaClientMac, kStaIp,       kStaIp6,     kStaApMac,    kStaDevice,  kStaHostName,  kStaSsid,
    kStaVlan,      kStaAuthType, kStaRadio,   kStaUserName, kStaApGroup, kStaWlanGroup, kStaRxPkts,
    kStaTxPkts,    kStaRxBytes,  kStaTxBytes, kStaRssi,     kStaChannel};

// ---- A station joined (TALLYD_MSG_STA_ADD) ----
inline constexpr size_t kStaAddRecordOffset = 12;
inline constexpr size_t kStaAddSize = kStaAddRecordOffset + kStationSize;

// ---- Counters of many stations (TALLYD_MSG_CLIENT_STATS, statistics socket) ----
inline constexpr wire_field kBatchTime{"time", 12, 4, wire_kind::be32};
inline constexpr wire_field kBatchCount{"count", 16, 4, wire_kind::be32};  // signed
inline constexpr size_t kBatchFirstRecord = 20;

// Size of a batch of n stations (a batch of 300 is 168,020 bytes).
constexpr size_t batch_size(size_t n) {
    return kBatchFirstRecord + n * kStationSize;
}
// Stations a datagram of at most bytes can hold.
constexpr size_t batch_capacity(size_t bytes) {
    return bytes < kBatchFirstRecord ? 0 : (bytes - kBatchFirstRecord) / kStationSize;
}

// ---- Decoded messages ----
// Texts are views into the message, cut at their field width.

struct ap_add {
    std::string_view mac;
    std::string_view model;
    int32_t apgroup = 0;
    int32_t radios = 0;
    int32_t wlangroup[2] = {0, 0};
};

struct ap_wlan_update {
    std::string_view mac;
    int32_t radios = 0;
    int32_t wlangroup[2] = {0, 0};
    int32_t apgroup = 0;
};

struct apgroup_update {
    int32_t action = 0;
    int32_t wlangroup[2] = {0, 0};
    int32_t apgroup = 0;
};

struct wlan_group_update {
    int32_t action = 0;
    int32_t wlan = 0;
    std::string_view name;
    int32_t wlangroup = 0;
};

struct station {
    std::string_view client_mac;
    uint8_t ip[4] = {0, 0, 0, 0};  // network order
    uint8_t ip6[16] = {};
    std::string_view ap_mac;
    std::string_view device;
    std::string_view host_name;
    std::string_view ssid;
    uint16_t vlan = 0;
    std::string_view auth_type;
    uint8_t radio = 0;
    std::string_view user_name;
    uint16_t apgroup = 0;
    uint16_t wlangroup = 0;
    uint64_t rx_pkts = 0;
    uint64_t tx_pkts = 0;
    uint64_t rx_bytes = 0;
    uint64_t tx_bytes = 0;
    int8_t rssi = 0;
    uint8_t channel = 0;
};

ap_add read_ap_add(std::span<const uint8_t> msg);
ap_wlan_update read_ap_wlan_update(std::span<const uint8_t> msg);
apgroup_update read_apgroup_update(std::span<const uint8_t> msg);
wlan_group_update read_wlan_group_update(std::span<const uint8_t> msg);
// The MAC of AP delete and station active: from offset 12 to the first zero
// or the end of msg.
std::string_view read_tail_mac(std::span<const uint8_t> msg);
// One station record; rec starts at the record's first byte.
station read_station(std::span<const uint8_t> rec);

// The batch header: timestamp and the signed station count.
uint32_t read_batch_time(std::span<const uint8_t> msg);
int32_t read_batch_count(std::span<const uint8_t> msg);
// Record i of a batch, as far as msg holds it (empty past its end).
std::span<const uint8_t> batch_record(std::span<const uint8_t> msg, size_t i);

std::vector<uint8_t> build_ap_add(const ap_add &m);
std::vector<uint8_t> build_ap_del(std::string_view mac);
std::vector<uint8_t> build_ap_wlan_update(const ap_wlan_update &m);
std::vector<uint8_t> build_apgroup_update(const apgroup_update &m);
std::vector<uint8_t> build_wlan_group_update(const wlan_group_update &m);
std::vector<uint8_t> build_sta_active(std::string_view mac);
std::vector<uint8_t> build_sta_add(const station &s);
// A batch stamped time holding the given stations, count = stations.size().
std::vector<uint8_t> build_client_stats(uint32_t time, std::span<const station> stations);
// Writes one station record into rec (at least kStationSize bytes).
void put_station(std::span<uint8_t> rec, const station &s);

}  // namespace events_wire
