// Layouts of the application-visibility report requests and replies,
// described once as data.
//
// The daemon's handlers read the requests and its builders write the
// records through these tables; tallyctl and the tests build requests and
// decode replies from the same tables, so every byte is spelled in one
// place. Numbers are big-endian, the controller's own memory order, which
// is how the management daemon has always read these replies. Texts are
// fixed-width fields, zero-terminated and zero-padded (a text is cut so
// that its field always ends in a zero).
//
// Request offsets count from the first byte of the message (header
// included). Reply offsets count from the start of the data area, which
// follows the 16-byte reply sub-header at message offset 28.
//
// Two points the management daemon leaves to this side, settled here:
// - Filtered application and port lists (usage detail for client types 0 to
//   3) write the total their shares are taken of at data offset 0, as the
//   pies write their grand total; the series area (8 to 8,215) is theirs
//   only when the series bit is also set. The total is uplink + downlink of
//   the same table and filter without a time bound.
// - The clients of one application or port (TALLYD_MSG_GET_APP_CLIENT) are
//   sent in the top-client layout: ten 408-byte client records and the
//   total of that application or port at data offset 4,080 (4,088 bytes),
//   the client details taken from the client directory as the top list
//   does. The application name travels in the request's first text field
//   (offset 12, where the summary carries the SSID); a port travels there as
//   its decimal number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>
#include <vector>

#include "base/wire.h"

namespace report_wire {

// How a reader shows a field (tallyctl's tables and pictures); the daemon
// ignores it.
enum class unit : uint8_t {
    plain,   // a number as it stands (ids, flags)
    text,    // a label, name or address
    bytes,   // a byte count
    share,   // hundredths of a percent (10000 = 100.00%)
    count,   // a count of clients
    series,  // "time,rate,time,rate" text: bits per second ending at each time
    time,    // seconds since 1970
    // Five-minute steps, the newest first, ending at the reply's time field:
    byte_steps,   // "v,v,..." bytes per step
    count_steps,  // "v,v,..." clients per step
    byte_pairs,   // "up,down;up,down;..." bytes per step
};

// Five-minute step texts (decoded into timed points by readers).
inline constexpr bool unit_is_steps(unit u) {
    return u == unit::byte_steps || u == unit::count_steps || u == unit::byte_pairs;
}

struct field {
    wire_field wire;
    unit shown;
};

// A fixed array of records inside the data area. Records after the last
// row stay all zero, unless a count field says how many are used.
struct array {
    const char *name;  // "apps", "clients", ...
    uint16_t offset;   // data offset of record 0
    uint16_t count;
    uint16_t size;                     // bytes per record
    std::span<const field> fields;     // offsets within one record
    const wire_field *used = nullptr;  // data field counting the records in use
};

// A reply's data area: single fields, at most two arrays of records, and the
// data length the daemon sets when it fills the area.
struct layout {
    const char *name;
    uint16_t data_size;
    std::span<const field> fields;  // data offsets
    array records;                  // records.count == 0: none
    array more = {};                // a second array; count 0: none
};

// Record i of a layout's array inside data (empty when it does not fit).
std::span<uint8_t> record(std::span<uint8_t> data, const array &a, size_t i);
std::span<const uint8_t> record(std::span<const uint8_t> data, const array &a, size_t i);

// --- TALLYD_MSG_GET_TOP_SUMMARY --------------------------------------------

inline constexpr wire_field kTopType{"type", 12, 4, wire_kind::be32};  // logged only
inline constexpr wire_field kTopPeriod{"period", 16, 4, wire_kind::be32};
inline constexpr wire_field kTopFlag{"flag", 20, 4, wire_kind::be32};
inline constexpr size_t kTopRequestSize = 24;

inline constexpr uint32_t kPeriodHour = 0;  // top summary periods
inline constexpr uint32_t kPeriodDay = 1;

// Flag bits: which list. Several bits: the last list built wins, in the
// order applications, APs, SSIDs, clients.
inline constexpr uint32_t kFlagApps = 0x1;
inline constexpr uint32_t kFlagClients = 0x10;
inline constexpr uint32_t kFlagAps = 0x100;
inline constexpr uint32_t kFlagSsids = 0x1000;

inline constexpr size_t kTopRecords = 10;

// Application record (144 bytes).
inline constexpr wire_field kAppName{"app", 0, 128, wire_kind::text};
inline constexpr wire_field kAppBytes{"bytes", 128, 8, wire_kind::be64};
inline constexpr wire_field kAppShare{"share", 136, 4, wire_kind::be32};

// Access point record (216 bytes).
inline constexpr wire_field kApMac{"ap_mac", 0, 64, wire_kind::text};
inline constexpr wire_field kApClients{"clients", 64, 4, wire_kind::be32};
inline constexpr wire_field kApBytes{"bytes", 72, 8, wire_kind::be64};
inline constexpr wire_field kApShare{"share", 80, 4, wire_kind::be32};
inline constexpr wire_field kApDevname{"devname", 84, 64, wire_kind::text};
inline constexpr wire_field kApLocation{"location", 148, 64, wire_kind::text};

// SSID record (64 bytes).
inline constexpr wire_field kSsidName{"ssid", 0, 32, wire_kind::text};
inline constexpr wire_field kSsidBytes{"bytes", 32, 8, wire_kind::be64};
inline constexpr wire_field kSsidShare{"share", 40, 4, wire_kind::be32};
inline constexpr wire_field kSsidClients{"clients", 44, 4, wire_kind::be32};
inline constexpr wire_field kSsidEncryption{"encryption", 48, 16, wire_kind::text};

// Client record (408 bytes), also the record of the application clients.
inline constexpr wire_field kClientMac{"client_mac", 0, 32, wire_kind::text};
inline constexpr wire_field kClientBytes{"bytes", 32, 8, wire_kind::be64};
inline constexpr wire_field kClientShare{"share", 40, 4, wire_kind::be32};
inline constexpr wire_field kClientDevice{"device", 44, 64, wire_kind::text};
inline constexpr wire_field kClientHost{"host_name", 108, 64, wire_kind::text};
inline constexpr wire_field kClientIp{"ip", 172, 32, wire_kind::text};
inline constexpr wire_field kClientActive{"active", 204, 4, wire_kind::be32};
inline constexpr wire_field kClientUser{"user_name", 208, 148, wire_kind::text};
inline constexpr wire_field kClientIp6{"ip6", 356, 46, wire_kind::text};
inline constexpr uint16_t kClientDetailFirst = 44;  // details fill 44..407
inline constexpr wire_field kClientsTotal{"total", 4080, 8, wire_kind::be64};

extern const layout kTopApps;     // 1,440 bytes
extern const layout kTopAps;      // 2,160 bytes
extern const layout kTopSsids;    // 640 bytes
extern const layout kTopClients;  // 4,088 bytes

// The layout of a top-summary reply for a flag word (the last list built
// wins); null for a flag without a list bit.
const layout *top_layout(uint32_t flag);

// --- TALLYD_MSG_GET_CLIENTS_SUMMARY and TALLYD_MSG_GET_APP_CLIENT ------------

// The usage filter record.
inline constexpr wire_field kUsageSsid{"ssid", 12, 64, wire_kind::text};  // "all": every SSID
inline constexpr wire_field kUsageMac{"mac", 76, 32, wire_kind::text};
inline constexpr wire_field kUsageClientType{"client_type", 108, 4, wire_kind::be32};
inline constexpr wire_field kUsagePeriod{"period", 112, 4, wire_kind::be32};
inline constexpr wire_field kUsageType{"type", 116, 4, wire_kind::be32};
inline constexpr wire_field kUsageBits{"usage", 120, 4, wire_kind::be32};
inline constexpr wire_field kUsageApgroup{"apgroup_id", 124, 4, wire_kind::be32};
inline constexpr size_t kUsageRequestSize = 128;
// TALLYD_MSG_GET_APP_CLIENT: the filter record, then two words.
inline constexpr wire_field kAppClientSkip{"skip", 144, 4, wire_kind::be32};
inline constexpr wire_field kAppClientBy{"by", 148, 4, wire_kind::be32};
inline constexpr size_t kAppClientRequestSize = 152;
// The application name (or decimal port) of TALLYD_MSG_GET_APP_CLIENT.
inline constexpr wire_field kAppClientName{"name", 12, 64, wire_kind::text};

inline constexpr uint32_t kTypeTopClients = 2;  // summary type word: the hour top clients

inline constexpr uint32_t kClientAll = 0;  // client types
inline constexpr uint32_t kClientOne = 1;
inline constexpr uint32_t kClientAp = 2;
inline constexpr uint32_t kClientApgroup = 3;
inline constexpr uint32_t kClientPie = 4;

inline constexpr uint32_t kUsageDay = 1;  // usage periods; any other value: the hour
inline constexpr uint32_t kUsageWeek = 2;
inline constexpr uint32_t kUsageMonth = 3;

inline constexpr uint32_t kUsageSeries = 0x1;  // usage bits
inline constexpr uint32_t kUsageDetail = 0x10;

inline constexpr uint32_t kByApp = 1;  // app-client "by" word; anything else: a port

// The usage summary data area.
inline constexpr wire_field kUsageTotal{"total", 0, 8, wire_kind::be64};  // pies and lists
inline constexpr wire_field kUsageUplink{"uplink", 8, 8, wire_kind::be64};
inline constexpr wire_field kUsageDownlink{"downlink", 16, 8, wire_kind::be64};
inline constexpr wire_field kUsageUpSeries{"uplink_series", 24, 4096, wire_kind::text};
inline constexpr wire_field kUsageDownSeries{"downlink_series", 4120, 4096, wire_kind::text};
inline constexpr size_t kPieRecords = 10;
inline constexpr size_t kListRecords = 25;

// Pie and list record (160 bytes).
inline constexpr wire_field kDetailLabel{"label", 0, 128, wire_kind::text};
inline constexpr wire_field kDetailUplink{"uplink", 128, 8, wire_kind::be64};
inline constexpr wire_field kDetailDownlink{"downlink", 136, 8, wire_kind::be64};
inline constexpr wire_field kDetailBytes{"bytes", 144, 8, wire_kind::be64};
inline constexpr wire_field kDetailShare{"share", 152, 4, wire_kind::be32};

extern const layout kUsage;       // 12,216 bytes
extern const layout kAppClients;  // 4,088 bytes, the top-client layout

// --- request builders (tallyctl, tests) ------------------------------------

struct top_request {
    uint32_t type = 0;
    uint32_t period = kPeriodHour;
    uint32_t flag = kFlagApps;
};

struct usage_request {
    std::string_view ssid = "all";  // or, for the app-client report, the name
    std::string_view mac = {};
    uint32_t client_type = kClientAll;
    uint32_t period = 0;
    uint32_t type = 1;
    uint32_t usage = kUsageSeries;
    uint32_t apgroup_id = 0;
};

struct app_client_request {
    std::string_view name = {};  // application name, or a port as decimal text
    uint32_t by = kByApp;
    uint32_t skip = 0;
};

// Whole messages with the 12 header bytes left zero for the sender.
std::vector<uint8_t> build_top(const top_request &r);
std::vector<uint8_t> build_usage(const usage_request &r);
std::vector<uint8_t> build_app_client(const app_client_request &r);

}  // namespace report_wire
