// The flow workload of the benchmarks: one 50-entry report for each of the
// 1,024 APs of the largest platform, from the traffic simulator with a fixed
// seed, as compact rows and (optionally) as encoded spool files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

inline constexpr uint32_t kBenchAps = 1024;
inline constexpr uint32_t kBenchEntries = 50;

// One flow entry as the simulator wrote it (texts and numbers, no ids).
struct bench_flow_row {
    uint32_t ap;  // 0-based AP index of the report
    std::string app, client_mac, ap_mac, ssid, category;
    uint32_t port;
    uint64_t uplink, downlink, total;
};

struct bench_spool_file {
    std::string name;  // "<ap mac>-1"
    std::vector<uint8_t> bytes;
};

// Fills *rows (51,200 entries) and, when files is not null, one encoded
// spool file per AP.
void bench_flow_workload(std::vector<bench_flow_row> *rows, std::vector<bench_spool_file> *files);
