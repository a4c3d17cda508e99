// The flow workload of the benchmarks: one 50-entry report for each of the
// 1,024 APs of the largest platform, from the traffic simulator with a fixed
// seed, as compact rows and (optionally) as encoded spool files.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "db/sql.h"

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

// A workload row with the ids avp_base holds for it.
struct bench_base_row {
    const bench_flow_row *flow;
    int32_t ap_id;
    int32_t ssid_id;
    int32_t group_id;
};

// Empties avp_base of conn, then inserts rows with `time` as the flow task
// stores them: one prepared statement, one transaction (the bare cost of
// ingestion, and the input of the rollup benchmarks).
void bench_insert_avp_base(sql_conn &conn, const std::vector<bench_base_row> &rows, uint32_t time);
