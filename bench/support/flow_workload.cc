#include "support/flow_workload.h"

#include <memory>

#include "db/sql.h"
#include "sim/arc_writer.h"
#include "sim/flow_sim.h"

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

void bench_insert_avp_base(sql_conn &conn, const std::vector<bench_base_row> &rows, uint32_t time) {
    sql_exec(conn.get(), "DELETE FROM avp_base");
    sql_exec(conn.get(), "BEGIN TRANSACTION");
    sql_stmt &s = *conn.cached(
        "INSERT INTO avp_base(time, app, port, client_mac, ap_mac, ssid, uplink, downlink, total, "
        "category, group_id) VALUES(?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    for (const bench_base_row &row : rows) {
        const bench_flow_row &f = *row.flow;
        s.bind(1, int64_t{time});
        s.bind_static(2, f.app);
        s.bind(3, int64_t{static_cast<int32_t>(f.port)});  // "%d" of the port
        s.bind_static(4, f.client_mac);
        s.bind(5, row.ap_id);
        s.bind(6, row.ssid_id);
        s.bind_u64(7, f.uplink);
        s.bind_u64(8, f.downlink);
        s.bind_u64(9, f.total);
        s.bind_static(10, f.category);
        s.bind(11, row.group_id);
        s.run();
    }
    sql_exec(conn.get(), "COMMIT TRANSACTION");
}
