#include "support/flow_workload.h"

#include <memory>

#include "flow/ingest_sim.h"
#include "flow/ingest_writer.h"

void bench_flow_workload(std::vector<bench_flow_row> *rows, std::vector<bench_spool_file> *files) {
    flow_sim sim({.aps = kBenchAps,
                  .clients = kBenchAps * 8,
                  .ssids = 8,
                  .entries = kBenchEntries,
                  .seed = 7});
    // The reports are not held (35 KB each): a benchmark's peak RSS should be
    // the daemon's, not the workload's.
    auto msg = std::make_unique<ArcMessage>();
    for (uint32_t ap = 0; ap < kBenchAps; ++ap) {
        sim.report(ap, 1, msg.get());
        if (files) files->push_back({arc_spool_name(sim.ap_mac(ap), 1), arc_encode(*msg)});
        for (pb_size_t i = 0; i < msg->records_count; ++i) {
            const ArcFlowRecord &r = msg->records[i];
            rows->push_back({ap, r.app, r.client_mac, r.ap_mac, r.ssid, r.category, r.port,
                             r.uplink, r.downlink, r.total});
        }
    }
}
