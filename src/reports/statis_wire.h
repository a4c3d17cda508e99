// Layouts of the wireless statistics reports (AP, SSID and client
// summaries, the charts, the client list), described once as data in the
// style of report_wire.h, whose types they use.
//
// Request offsets count from the first byte of the message; reply offsets
// from the start of the data area (message offset 28). Numbers are
// big-endian, texts zero-terminated within their field.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "reports/report_wire.h"

namespace report_wire {

// --- TALLYD_MSG_STATIS_AP, _SSID and _CLIENT: the summary request ---------

inline constexpr wire_field kStatisPeriod{"period", 12, 1, wire_kind::u8};  // 1 = day
inline constexpr wire_field kStatisSsidType{"ssid_type", 13, 1, wire_kind::u8};
inline constexpr wire_field kStatisSsid{"ssid", 14, 32, wire_kind::text};
inline constexpr wire_field kStatisApType{"ap_type", 46, 1, wire_kind::u8};
inline constexpr wire_field kStatisApgroup{"apgroup_id", 48, 2, wire_kind::be16};
inline constexpr wire_field kStatisApCount{"ap_count", 50, 1, wire_kind::u8};
inline constexpr wire_field kStatisTopNum{"top_num", 691, 1, wire_kind::u8};
inline constexpr wire_field kStatisBytesType{"bytes_type", 692, 1, wire_kind::u8};
inline constexpr size_t kStatisRequestSize = 693;
// The AP list: twenty MAC texts of 32 bytes from message offset 51.
inline constexpr wire_field kStatisApMac{"ap_mac", 0, 32, wire_kind::text};
inline constexpr size_t kStatisApListOffset = 51;
inline constexpr size_t kStatisApListMax = 20;

inline constexpr uint8_t kStatisDay = 1;   // period; anything else: the hour
inline constexpr uint8_t kSsidOne = 1;     // ssid_type
inline constexpr uint8_t kApTypeList = 1;  // ap_type; anything else: all APs
inline constexpr uint8_t kApTypeGroup = 2;
inline constexpr uint8_t kBytesTx = 1;  // bytes_type; anything else: both
inline constexpr uint8_t kBytesRx = 2;
inline constexpr uint8_t kStatisTopMax = 50;  // top_num 0 or above: 50

// The summary replies. Byte records (a key text and its bytes) from 8, the
// client-count records (a key text and its clients) from 2,018.
inline constexpr wire_field kStatisByteCount{"byte_records", 0, 4, wire_kind::be32};
inline constexpr wire_field kStatisTotal{"total", 2008, 8, wire_kind::be64};
inline constexpr wire_field kStatisClientCount{"count_records", 2016, 1, wire_kind::u8};
inline constexpr wire_field kStatisClients{"clients", 3720, 8, wire_kind::be64};
inline constexpr wire_field kStatisAps{"aps", 3728, 2, wire_kind::be16};
inline constexpr wire_field kStatisWlans{"wlans", 3728, 2, wire_kind::be16};
inline constexpr wire_field kStatisClientClients{"clients", 5318, 2, wire_kind::be16};

inline constexpr wire_field kByteKey{"name", 0, 32, wire_kind::text};
inline constexpr wire_field kByteBytes{"bytes", 32, 8, wire_kind::be64};
inline constexpr wire_field kCountKey{"name", 0, 32, wire_kind::text};
inline constexpr wire_field kCountClients{"clients", 32, 2, wire_kind::be16};
inline constexpr wire_field kDeviceName{"device", 0, 64, wire_kind::text};
inline constexpr wire_field kDeviceClients{"clients", 64, 2, wire_kind::be16};

extern const layout kApStats;      // 3,736 bytes
extern const layout kSsidStats;    // 3,736 bytes
extern const layout kClientStats;  // 5,328 bytes

// --- TALLYD_MSG_STATIS_AP_CHART, _CLIENT_CHART and _SINGLE_CLIENT ----------

inline constexpr wire_field kChartPeriod{"period", 12, 1, wire_kind::u8};  // 1 = day
inline constexpr wire_field kChartApType{"ap_type", 13, 1, wire_kind::u8};
inline constexpr wire_field kChartApgroup{"apgroup_id", 14, 2, wire_kind::be16};
inline constexpr wire_field kChartApMac{"ap_mac", 16, 32, wire_kind::text};
inline constexpr wire_field kChartBytesType{"bytes_type", 48, 1, wire_kind::u8};
inline constexpr size_t kChartRequestSize = 49;
// The single client chart: the client MAC as the counters store it.
inline constexpr wire_field kChartClientMac{"client_mac", 12, 32, wire_kind::text};
inline constexpr size_t kChartClientRequestSize = 44;

inline constexpr size_t kChartStepsHour = 13;
inline constexpr size_t kChartStepsDay = 288;
inline constexpr uint32_t kChartStep = 300;

inline constexpr wire_field kChartTime{"time", 0, 4, wire_kind::be32};
inline constexpr wire_field kApChartText{"bytes", 4, 8192, wire_kind::text};
inline constexpr wire_field kClientChartText{"clients", 4, 2048, wire_kind::text};
inline constexpr wire_field kSingleChartText{"bytes", 4, 2048, wire_kind::text};

extern const layout kApChart;      // 8,196 bytes
extern const layout kClientChart;  // 2,052 bytes
extern const layout kSingleChart;  // 2,052 bytes

// --- TALLYD_MSG_GET_CLIENT_LIST ---------------------------------------------

inline constexpr wire_field kListMac{"mac", 12, 6, wire_kind::bytes};       // ff x 6: all
inline constexpr wire_field kListFlag{"flag", 32, 2, wire_kind::be16};      // must be 0
inline constexpr wire_field kListPeriod{"period", 36, 4, wire_kind::be32};  // 0: the hour
inline constexpr uint32_t kListPayload = 28;
inline constexpr size_t kListMaxClients = 100;

// Client record (504 bytes).
inline constexpr wire_field kStaMac{"client_mac", 0, 32, wire_kind::text};
inline constexpr wire_field kStaDevice{"device", 32, 64, wire_kind::text};
inline constexpr wire_field kStaHost{"host_name", 96, 64, wire_kind::text};
inline constexpr wire_field kStaIp{"ip", 160, 32, wire_kind::text};
inline constexpr wire_field kStaIp6{"ip6", 192, 46, wire_kind::text};
inline constexpr wire_field kStaUser{"user_name", 238, 148, wire_kind::text};
inline constexpr wire_field kStaAp{"ap_mac", 386, 32, wire_kind::text};
inline constexpr wire_field kStaSsid{"ssid", 418, 32, wire_kind::text};
inline constexpr wire_field kStaTime{"time", 452, 4, wire_kind::be32};
inline constexpr wire_field kStaVlan{"vlan", 456, 2, wire_kind::be16};
inline constexpr wire_field kStaChannel{"channel", 458, 1, wire_kind::u8};
inline constexpr wire_field kStaRadio{"radio", 459, 1, wire_kind::u8};
inline constexpr wire_field kStaStatus{"status", 460, 1, wire_kind::u8};
inline constexpr wire_field kStaAuth{"auth_type", 461, 8, wire_kind::text};
inline constexpr wire_field kStaUp{"uplink", 472, 8, wire_kind::be64};
inline constexpr wire_field kStaDown{"downlink", 480, 8, wire_kind::be64};
inline constexpr wire_field kStaTotal{"bytes", 488, 8, wire_kind::be64};
inline constexpr wire_field kStaShare{"share", 496, 4, wire_kind::be32};
inline constexpr uint16_t kStaSize = 504;

extern const layout kClientList;  // up to 100 records; the data length counts them

// --- request builders (tallyctl, tests) ------------------------------------

struct statis_request {
    uint8_t period = 0;
    std::string_view ssid = {};  // non-empty: ssid_type 1
    uint8_t ap_type = 0;
    uint16_t apgroup_id = 0;
    std::vector<std::string_view> aps = {};  // AP list; ap_count is its size (cut at 255)
    uint8_t top_num = 0;
    uint8_t bytes_type = 0;
};

struct chart_request {
    uint8_t period = 0;
    uint8_t ap_type = 0;
    uint16_t apgroup_id = 0;
    std::string_view ap_mac = {};
    uint8_t bytes_type = 0;
};

// Whole messages with the 12 header bytes left zero for the sender. An AP
// list longer than twenty MACs sends the first twenty with the full count.
std::vector<uint8_t> build_statis(const statis_request &r);
std::vector<uint8_t> build_chart(const chart_request &r);
std::vector<uint8_t> build_single_chart(std::string_view client_mac);
// mac: six raw bytes, or empty for all clients.
std::vector<uint8_t> build_client_list(std::span<const uint8_t> mac, uint32_t period = 0);

}  // namespace report_wire
