// Report replies read with the daemon's own layouts (reports/report_wire.h).
//
// Used by tallyctl's report commands and by the end-to-end tests, so that a
// reply is decoded by the same description the daemon wrote it with.
// Decoded values stay raw: byte counts in bytes, shares in hundredths of a
// percent, rates in bits per second, times in seconds since 1970; how they
// are shown is the printer's business.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include "reports/report_wire.h"

// The reply's data area, cut to its data length and to the datagram.
std::span<const uint8_t> tallyctl_reply_data(std::span<const uint8_t> reply);

// A "time,rate,time,rate" series text as (time, rate) pairs; a trailing
// time without its rate is dropped.
std::vector<std::pair<uint32_t, uint64_t>> tallyctl_parse_series(std::string_view text);

// The numbers of a "v,v,..." text.
std::vector<uint64_t> tallyctl_parse_numbers(std::string_view text);

// The reply as one object:
//   {"report": <layout name>, "request_id": "0x...", "data_length": N,
//    "fields": {<name>: number | text | [[time, rate], ...]},
//    "records": [{<name>: number | text, ...}, ...],
//    <second array's name>: [...]}
// Records end where the array's count field says, else before the first
// all-zero record. Five-minute step texts become [[end time, value...], ...]
// from the reply's time field. A reply without data has no fields and no
// records.
nlohmann::json tallyctl_decode_report(std::span<const uint8_t> reply,
                                      const report_wire::layout &layout);
