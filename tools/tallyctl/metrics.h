// tallyctl metrics: the state of the daemon's databases as OpenMetrics text,
// for Prometheus (through node exporter's textfile collector).
//
// Everything is read from files under the root, read-only, without asking
// the daemon: the database files, the dictionaries' repository lists (ids in
// the tables become `ap`, `ssid` and `apgroup` labels), the platform file
// (through the daemon's own sizing) and the pid file. Traffic and client
// families are capped: the largest `top` series, then one other="true"
// series holding the sum of the rest, so a busy controller cannot flood the
// collector.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

// Series per capped family unless --top says otherwise.
inline constexpr size_t TALLYCTL_METRICS_TOP = 100;

// The whole export, ending in "# EOF". What cannot be read is left out of it:
// each such failure adds one line to *errors and counts in
// tallyd_metrics_read_errors.
std::string tallyctl_metrics_text(size_t top, std::vector<std::string> *errors);
