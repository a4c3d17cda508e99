// Layouts of the messages the entity module handles, described once as data:
// the daemon's handlers read them and tallyctl builds them from the same
// tables. Offsets count from the first byte of the message (the 12-byte
// header included); numbers are big-endian.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/wire.h"

namespace entity_wire {

// Set host name: client MAC, then the new name up to the end of the message
// (only whether it is empty matters to the daemon).
inline constexpr wire_field kHostnameMac{"mac", 12, 32, wire_kind::text};
inline constexpr uint16_t kHostnameNameOffset = 44;

// ARC switch: one unsigned 32-bit value.
inline constexpr wire_field kArcValue{"value", 12, 4, wire_kind::be32};

// Per-AP values: a signed record count, then count records of 40 bytes.
inline constexpr wire_field kStat0aCount{"count", 16, 4, wire_kind::be32};
inline constexpr size_t kStat0aFirstRecord = 20;
inline constexpr size_t kStat0aRecordSize = 40;
// Fields of one record, offsets within the record.
inline constexpr wire_field kStat0aApMac{"ap_mac", 0, 36, wire_kind::text};
inline constexpr wire_field kStat0aValue{"value", 36, 4, wire_kind::be32};

// Builders of whole messages (for tallyctl and tests). The 12 header bytes
// are left zero for the sender to fill in; the message is as long as its
// fields need.
std::vector<uint8_t> build_set_hostname(std::string_view mac, std::string_view name);
std::vector<uint8_t> build_arc(uint32_t value);
// One record per (AP MAC, value) pair, the count set to the number of pairs.
std::vector<uint8_t> build_stat_0a(const std::vector<std::pair<std::string, uint32_t>> &records);

}  // namespace entity_wire
