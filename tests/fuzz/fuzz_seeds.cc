// tallyd-fuzz-seeds OUTDIR: the seed corpora of the fuzz targets and the
// dictionary of message ids, built with the daemon's own layouts and the
// controller simulator rather than written by hand.
//
// OUTDIR/control, stat, monitor: datagrams as a controller sends them (the
// simulator's minutes of events and counters, every report request kind,
// the settings, the probe, and a header-only datagram of every known id);
// OUTDIR/flow: the simulator's flow files; OUTDIR/xrepo: a selector byte
// and a list file, for the configuration lists of the simulated controller
// and the dictionary lists the daemon saved while it took in those minutes;
// OUTDIR/msg_ids.dict: every message id as libFuzzer dictionary entries.
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>
#include <string>
#include <vector>

#include "base/path.h"
#include "core/routes.h"
#include "entity/entity_wire.h"
#include "events/events_wire.h"
#include "flow/ingest.h"
#include "fuzz_daemon.h"
#include "ipc/msg_ids.h"
#include "ipc/msg_layout.h"
#include "reports/report_wire.h"
#include "sim_world.h"

namespace fs = std::filesystem;

namespace {

struct corpus {
    fs::path dir;
    size_t count = 0;

    void add(const std::vector<uint8_t> &bytes) {
        uint64_t h = 14695981039346656037ULL;
        for (uint8_t b : bytes) h = (h ^ b) * 1099511628211ULL;
        char name[32];
        std::snprintf(name, sizeof name, "seed-%016llx", static_cast<unsigned long long>(h));
        std::ofstream(dir / name, std::ios::binary)
            .write(reinterpret_cast<const char *>(bytes.data()),
                   static_cast<std::streamsize>(bytes.size()));
        ++count;
    }
    // A message as sent: header filled in for msg's payload.
    void add_msg(uint32_t id, std::vector<uint8_t> msg) {
        if (msg.size() < TALLYD_MSG_HDR_LEN) msg.resize(TALLYD_MSG_HDR_LEN);
        tallyd_msg_header_put(msg, 0, id, static_cast<uint32_t>(msg.size() - TALLYD_MSG_HDR_LEN));
        add(msg);
    }
};

corpus make_corpus(const fs::path &out, const char *name) {
    fs::create_directories(out / name);
    return corpus{out / name};
}

std::vector<uint8_t> file_bytes(const fs::path &p) {
    std::ifstream in(p, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

void report_requests(corpus &c) {
    using namespace report_wire;
    for (uint32_t flag : {kFlagApps, kFlagClients, kFlagAps, kFlagSsids})
        for (uint32_t period : {kPeriodHour, kPeriodDay})
            for (uint32_t type : {0u, kTypeTopClients})
                c.add_msg(TALLYD_MSG_GET_TOP_SUMMARY, build_top({type, period, flag}));
    for (uint32_t client : {kClientAll, kClientOne, kClientAp, kClientApgroup, kClientPie})
        for (uint32_t period : {0u, kUsageDay, kUsageWeek, kUsageMonth})
            for (uint32_t usage : {kUsageSeries, kUsageDetail}) {
                usage_request r;
                r.client_type = client;
                r.period = period;
                r.usage = usage;
                r.mac = client == kClientAp ? "00:1A:2B:00:00:01" : "00:11:22:33:44:55";
                r.apgroup_id = 1;
                c.add_msg(TALLYD_MSG_GET_CLIENTS_SUMMARY, build_usage(r));
            }
    c.add_msg(TALLYD_MSG_GET_APP_CLIENT, build_app_client({"HTTP", kByApp, 0}));
    c.add_msg(TALLYD_MSG_GET_APP_CLIENT, build_app_client({"443", 0, 0}));
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: tallyd-fuzz-seeds OUTDIR\n");
        return 2;
    }
    const fs::path out = argv[1];
    corpus control = make_corpus(out, "control"), stat = make_corpus(out, "stat"),
           monitor = make_corpus(out, "monitor"), flow = make_corpus(out, "flow"),
           xrepo = make_corpus(out, "xrepo");

    // Every id on its own socket with an empty payload; the probe as sent.
    for (const tallyd_msg_name &m : tallyd_msg_names) {
        corpus &c = m.socket == tallyd_socket_kind::control ? control
                    : m.socket == tallyd_socket_kind::stat  ? stat
                                                            : monitor;
        c.add_msg(m.id, {});
    }
    report_requests(control);
    control.add_msg(TALLYD_MSG_SET_STA_HOSTNAME,
                    entity_wire::build_set_hostname("00:11:22:33:44:55", "laptop"));
    control.add_msg(TALLYD_MSG_ARC_QPX_INTERFACE, entity_wire::build_arc(1));

    // A few minutes of a small controller, played against the daemon state
    // so that its dictionary lists fill as a device's do.
    fuzz_daemon_start();
    sim_world world(sim_world_config{4, 12, 2, 2, 7});
    std::vector<std::pair<std::string, uint32_t>> ap_values;
    sim_minute minute;
    for (uint32_t m = 0; m < 4; ++m) {
        world.play(m, &minute);
        for (sim_message &msg : minute.control) {
            control.add(sim_sealed(msg));
            tallyd_msg_dispatch(&tallyd_ctrl_routes, msg.bytes);
        }
        stat.add_msg(TALLYD_MSG_CLIENT_STATS,
                     events_wire::build_client_stats(1700000000 + 60 * m, minute.counters));
        for (const events_wire::station &s : minute.counters)
            ap_values.emplace_back(std::string(s.ap_mac), 40 + ap_values.size() % 7);
        for (const auto &[name, bytes] : minute.flow_files) {
            flow.add(bytes);
            fuzz_write_file(tallyd_path(TALLYD_SPOOL_DIR) + "/" + name, bytes.data(), bytes.size());
        }
        tallyd_handle_flow(1700000000 + 60 * m);
    }
    ap_values.resize(std::min<size_t>(ap_values.size(), 4));
    stat.add_msg(TALLYD_MSG_STAT_0A, entity_wire::build_stat_0a(ap_values));

    for (size_t i = 0; i < std::size(fuzz_xrepo_lists); ++i) {
        std::vector<uint8_t> doc =
            file_bytes(tallyd_path(TALLYD_XREPO_DIR) + "/" + fuzz_xrepo_lists[i] + ".xml");
        doc.insert(doc.begin(), static_cast<uint8_t>(i));
        xrepo.add(doc);
    }

    std::ofstream dict(out / "msg_ids.dict");
    for (const tallyd_msg_name &m : tallyd_msg_names) {
        char entry[64];
        std::snprintf(entry, sizeof entry, "%s=\"\\x%02x\\x%02x\\x%02x\\x%02x\"\n",
                      std::string(m.name).c_str(), m.id >> 24, (m.id >> 16) & 0xff,
                      (m.id >> 8) & 0xff, m.id & 0xff);
        dict << entry;
    }
    std::printf("tallyd-fuzz-seeds: control %zu, stat %zu, monitor %zu, flow %zu, xrepo %zu\n",
                control.count, stat.count, monitor.count, flow.count, xrepo.count);
    return 0;
}
