// Decoded reports (report_decode.h) as aligned text tables: sizes in human
// units, shares as percentages, rates in bits per second, times as local
// dates. tallyctl only.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "reports/report_wire.h"

// "0 B", "512 B", "1.5 KiB", "3.2 GiB" (powers of 1,024).
std::string tallyctl_human_bytes(uint64_t bytes);
// "950 bit/s", "1.2 kbit/s", "4.5 Mbit/s" (powers of 1,000).
std::string tallyctl_human_rate(uint64_t bits_per_second);
// Hundredths of a percent: 1234 -> "12.34%".
std::string tallyctl_percent(uint64_t share);
// Seconds since 1970 as a local date, "2026-11-23 00:53:48".
std::string tallyctl_local_time(uint64_t t);

// The whole report: a heading, the single fields as "name: value" lines,
// the records as a table (columns with nothing in any record left out) and
// the series as a table of time, uplink and downlink. "no data" when the
// reply carried none.
std::string tallyctl_report_text(const nlohmann::json &decoded, const report_wire::layout &layout);
