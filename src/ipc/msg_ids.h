// Message ids of the daemon's three sockets, with their names.
//
// The ids are the controller's: 0x0300xxxx requests and replies of the
// management daemon, 0x1200xxxx network events and statistics, 0x0800xxxx
// the liveness probe. tallyd_msg_names lists every id the daemon knows, on
// the socket it is accepted on; the dispatcher, tallyctl and the tests share
// it, so a name is spelled in one place only.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

// The module id this daemon puts in byte 1 of what it sends.
inline constexpr uint8_t TALLYD_MODULE_ID = 18;

// Control socket: report requests and settings from the management daemon.
inline constexpr uint32_t TALLYD_MSG_GET_CLIENTS_SUMMARY = 0x03000044;
inline constexpr uint32_t TALLYD_MSG_GET_TOP_SUMMARY = 0x03000045;
inline constexpr uint32_t TALLYD_MSG_GET_CLIENT_LIST = 0x03000046;
inline constexpr uint32_t TALLYD_MSG_IGNORED_49 = 0x03000049;
inline constexpr uint32_t TALLYD_MSG_GET_APP_CLIENT = 0x0300004a;
inline constexpr uint32_t TALLYD_MSG_STATIS_SINGLE_CLIENT = 0x0300004e;
inline constexpr uint32_t TALLYD_MSG_STATIS_AP = 0x03000054;
inline constexpr uint32_t TALLYD_MSG_STATIS_SSID = 0x03000055;
inline constexpr uint32_t TALLYD_MSG_STATIS_CLIENT = 0x03000056;
inline constexpr uint32_t TALLYD_MSG_STATIS_AP_CHART = 0x0300005a;
inline constexpr uint32_t TALLYD_MSG_STATIS_CLIENT_CHART = 0x0300005b;
inline constexpr uint32_t TALLYD_MSG_SET_STA_HOSTNAME = 0x0300005c;
inline constexpr uint32_t TALLYD_MSG_ARC_QPX_INTERFACE = 0x0300005d;

// Control socket: network events.
inline constexpr uint32_t TALLYD_MSG_EVT_IGNORED_01 = 0x12000001;
inline constexpr uint32_t TALLYD_MSG_AP_ADD = 0x12000002;
inline constexpr uint32_t TALLYD_MSG_AP_DEL = 0x12000003;
inline constexpr uint32_t TALLYD_MSG_STA_ACTIVE = 0x12000004;
inline constexpr uint32_t TALLYD_MSG_STA_ADD = 0x12000005;
inline constexpr uint32_t TALLYD_MSG_AP_WLAN_UPDATE = 0x12000007;
inline constexpr uint32_t TALLYD_MSG_WLAN_GROUP_UPDATE = 0x12000008;
inline constexpr uint32_t TALLYD_MSG_APGROUP_UPDATE = 0x12000009;

// Statistics socket.
inline constexpr uint32_t TALLYD_MSG_CLIENT_STATS = 0x12000006;
inline constexpr uint32_t TALLYD_MSG_STAT_0A = 0x1200000a;

// Monitor socket.
inline constexpr uint32_t TALLYD_MSG_TAC_PROBE = 0x08000001;

// What the daemon sends.
inline constexpr uint32_t TALLYD_MSG_REPLY = 0x03000003;  // every report reply
inline constexpr uint32_t TALLYD_MSG_TAC_PROBE_REPLY = 0x08000002;

enum class tallyd_socket_kind : uint8_t { control, stat, monitor };

struct tallyd_msg_name {
    uint32_t id;
    std::string_view name;
    tallyd_socket_kind socket;  // the one socket it is accepted on
};

inline constexpr tallyd_msg_name tallyd_msg_names[] = {
    {TALLYD_MSG_GET_CLIENTS_SUMMARY, "TALLYD_MSG_GET_CLIENTS_SUMMARY", tallyd_socket_kind::control},
    {TALLYD_MSG_GET_TOP_SUMMARY, "TALLYD_MSG_GET_TOP_SUMMARY", tallyd_socket_kind::control},
    {TALLYD_MSG_GET_CLIENT_LIST, "TALLYD_MSG_GET_CLIENT_LIST", tallyd_socket_kind::control},
    {TALLYD_MSG_IGNORED_49, "TALLYD_MSG_IGNORED_49", tallyd_socket_kind::control},
    {TALLYD_MSG_GET_APP_CLIENT, "TALLYD_MSG_GET_APP_CLIENT", tallyd_socket_kind::control},
    {TALLYD_MSG_STATIS_SINGLE_CLIENT, "TALLYD_MSG_STATIS_SINGLE_CLIENT",
     tallyd_socket_kind::control},
    {TALLYD_MSG_STATIS_AP, "TALLYD_MSG_STATIS_AP", tallyd_socket_kind::control},
    {TALLYD_MSG_STATIS_SSID, "TALLYD_MSG_STATIS_SSID", tallyd_socket_kind::control},
    {TALLYD_MSG_STATIS_CLIENT, "TALLYD_MSG_STATIS_CLIENT", tallyd_socket_kind::control},
    {TALLYD_MSG_STATIS_AP_CHART, "TALLYD_MSG_STATIS_AP_CHART", tallyd_socket_kind::control},
    {TALLYD_MSG_STATIS_CLIENT_CHART, "TALLYD_MSG_STATIS_CLIENT_CHART", tallyd_socket_kind::control},
    {TALLYD_MSG_SET_STA_HOSTNAME, "TALLYD_MSG_SET_STA_HOSTNAME", tallyd_socket_kind::control},
    {TALLYD_MSG_ARC_QPX_INTERFACE, "TALLYD_MSG_ARC_QPX_INTERFACE", tallyd_socket_kind::control},
    {TALLYD_MSG_EVT_IGNORED_01, "TALLYD_MSG_EVT_IGNORED_01", tallyd_socket_kind::control},
    {TALLYD_MSG_AP_ADD, "TALLYD_MSG_AP_ADD", tallyd_socket_kind::control},
    {TALLYD_MSG_AP_DEL, "TALLYD_MSG_AP_DEL", tallyd_socket_kind::control},
    {TALLYD_MSG_STA_ACTIVE, "TALLYD_MSG_STA_ACTIVE", tallyd_socket_kind::control},
    {TALLYD_MSG_STA_ADD, "TALLYD_MSG_STA_ADD", tallyd_socket_kind::control},
    {TALLYD_MSG_AP_WLAN_UPDATE, "TALLYD_MSG_AP_WLAN_UPDATE", tallyd_socket_kind::control},
    {TALLYD_MSG_WLAN_GROUP_UPDATE, "TALLYD_MSG_WLAN_GROUP_UPDATE", tallyd_socket_kind::control},
    {TALLYD_MSG_APGROUP_UPDATE, "TALLYD_MSG_APGROUP_UPDATE", tallyd_socket_kind::control},
    {TALLYD_MSG_CLIENT_STATS, "TALLYD_MSG_CLIENT_STATS", tallyd_socket_kind::stat},
    {TALLYD_MSG_STAT_0A, "TALLYD_MSG_STAT_0A", tallyd_socket_kind::stat},
    {TALLYD_MSG_TAC_PROBE, "TALLYD_MSG_TAC_PROBE", tallyd_socket_kind::monitor},
};

// The entry of id, or null when the daemon does not know it.
constexpr const tallyd_msg_name *tallyd_msg_find(uint32_t id) {
    for (const auto &m : tallyd_msg_names)
        if (m.id == id) return &m;
    return nullptr;
}

// The name of id ("TALLYD_MSG_AP_ADD"), empty when the daemon does not know it.
constexpr std::string_view tallyd_msg_name_of(uint32_t id) {
    for (const auto &m : tallyd_msg_names)
        if (m.id == id) return m.name;
    return {};
}

// The entry named name ("TALLYD_MSG_AP_ADD"), or null.
constexpr const tallyd_msg_name *tallyd_msg_find(std::string_view name) {
    for (const auto &m : tallyd_msg_names)
        if (m.name == name) return &m;
    return nullptr;
}
