// tallyd-identity: a fixed set of cases fed through the daemon's own entry
// points with the clock pinned, so that two builds of the daemon (the x86-64
// host and the 32-bit big-endian MIPS target under qemu) can be compared byte
// for byte. scripts/identity.sh runs it on both builds and compares the two
// output folders.
//
//   tallyd-identity OUT
//
// OUT/root is the daemon's sandbox root (databases, repository lists, port
// file); OUT/replies.txt holds every reply datagram in hex, one line each,
// and OUT/log.txt every log line, both prefixed with the case that caused
// them. Replies are captured on a socket pair that stands in for the
// requester's socket.
//
// Adding a case: write a function `void case_xyz(identity_run &run)` that
// builds its input with the layout tables and writers the daemon and its
// tools use, hands it over with run.control(), run.stat() or a task entry
// point, and moves the clock with run.advance(); then add {"xyz", case_xyz}
// to kCases. Cases run in table order on one daemon state, so a later case
// sees what the earlier ones stored.
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "base/clock.h"
#include "base/log.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "core/port_file.h"
#include "core/routes.h"
#include "core/sizing.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/schema.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "entity/dict.h"
#include "entity/entity_wire.h"
#include "events/ap_wlan_seed.h"
#include "events/events_wire.h"
#include "flow/backup_task.h"
#include "flow/day_task.h"
#include "flow/hour_task.h"
#include "flow/ingest.h"
#include "flow/statis_task.h"
#include "ipc/dispatch.h"
#include "ipc/msg_ids.h"
#include "ipc/msg_layout.h"
#include "ipc/reply.h"
#include "reports/report_wire.h"
#include "reports/statis_wire.h"
#include "sim/arc_writer.h"
#include "sim/flow_sim.h"

namespace fs = std::filesystem;

namespace {

// 2023-11-14 22:13:20 UTC; any fixed value would do.
constexpr uint32_t kStartTime = 1700000000;

class identity_run {
   public:
    // reply_sock: the daemon's end of the requester's socket pair; read_sock:
    // the requester's end, drained after every message (a datagram socket
    // queues only a few replies before the daemon's send would block).
    identity_run(int reply_sock, int read_sock) : reply_sock_(reply_sock), read_sock_(read_sock) {}

    // A datagram on the control or statistics socket: header filled in
    // (module 0, id, payload length), checked and dispatched from a zeroed
    // receive buffer as the socket handlers do. msg holds the header's 12
    // bytes and the payload.
    void control(uint32_t id, std::vector<uint8_t> msg) {
        deliver(&tallyd_ctrl_routes, id, std::move(msg));
    }
    void stat(uint32_t id, std::vector<uint8_t> msg) {
        deliver(&tallyd_stat_routes, id, std::move(msg));
    }
    // A probe (a bare header) on the monitor socket, answered on the reply
    // socket.
    void probe() {
        std::vector<uint8_t> msg(TALLYD_MSG_HDR_LEN);
        tallyd_msg_header_put(msg, 0, TALLYD_MSG_TAC_PROBE, 0);
        tallyd_tac_probe_reply(msg, reply_sock_, nullptr, 0);
        drain();
    }
    void advance(int32_t secs) { tallyd_clock_advance(secs); }
    // The replies received since the last call, oldest first.
    std::vector<std::vector<uint8_t>> take_replies() { return std::exchange(replies_, {}); }

   private:
    void deliver(const tallyd_route_table *routes, uint32_t id, std::vector<uint8_t> msg) {
        // What the receive call would leave: at most the buffer less one byte.
        msg.resize(std::min(msg.size(), TALLYD_RECV_BUF_SIZE - 1));
        std::vector<uint8_t> buf(TALLYD_RECV_BUF_SIZE);
        std::copy(msg.begin(), msg.end(), buf.begin());
        tallyd_msg_header_put(buf, 0, id, static_cast<uint32_t>(msg.size() - TALLYD_MSG_HDR_LEN));
        if (tallyd_msg_check(buf, static_cast<int32_t>(msg.size()), true) != 0) return;
        // The requester's address is the connected peer of the socket pair.
        tallyd_sys_info.reply_sock = reply_sock_;
        tallyd_sys_info.peer_addr = nullptr;
        tallyd_sys_info.peer_addr_len = nullptr;
        tallyd_msg_dispatch(routes, buf);
        drain();
    }

    void drain() {
        std::vector<uint8_t> buf(TALLYD_REPLY_BUF_SIZE);
        for (ssize_t n; (n = recv(read_sock_, buf.data(), buf.size(), MSG_DONTWAIT)) >= 0;)
            replies_.emplace_back(buf.begin(), buf.begin() + n);
    }

    int reply_sock_;
    int read_sock_;
    std::vector<std::vector<uint8_t>> replies_;
};

void case_probe(identity_run &run) {
    run.probe();
}

// A client the station events would have stored, renamed and set back.
void case_set_hostname(identity_run &run) {
    sql_exec(tallyd_db_set.statistic_db.get(),
             "INSERT INTO statis_client_info_h(time, client_mac, host_name) "
             "VALUES(1699999000, '02:00:00:00:00:21', 'laptop')");
    run.control(TALLYD_MSG_SET_STA_HOSTNAME,
                entity_wire::build_set_hostname("02:00:00:00:00:21", "kitchen"));
    run.advance(7);
    run.control(TALLYD_MSG_SET_STA_HOSTNAME,
                entity_wire::build_set_hostname("02:00:00:00:00:21", ""));
}

// Per-AP values: new MACs take dictionary ids (saved to the repository); a
// zero value is skipped.
void case_stat_0a(identity_run &run) {
    run.stat(TALLYD_MSG_STAT_0A, entity_wire::build_stat_0a({{"00:aa:bb:cc:dd:01", 5},
                                                             {"00:aa:bb:cc:dd:02", 0},
                                                             {"00:aa:bb:cc:dd:03", 4294967295U}}));
}

// The controller's configuration lists the network events read: two WLAN
// groups, an AP group using both, one AP and two WLAN services.
void write_network_lists() {
    const std::string dir = tallyd_path(TALLYD_XREPO_DIR);
    const std::pair<const char *, const char *> lists[] = {
        {"wlangroup-list",
         "<wlangroup-list><wlangroup id=\"1\"><wlan id=\"1\"/><wlan id=\"2\"/></wlangroup>"
         "<wlangroup id=\"2\"><wlan id=\"3\"/><wlan id=\"2048\"/><wlan id=\"4\"/></wlangroup>"
         "</wlangroup-list>"},
        {"apgroup-list",
         "<apgroup-list><apgroup id=\"7\"><ap-property>"
         "<radio radio-type=\"11ng\" wlangroup-id=\"1\"/>"
         "<radio radio-type=\"11na\" wlangroup-id=\"2\"/></ap-property></apgroup>"
         "</apgroup-list>"},
        {"ap-list",
         "<ap-list><ap mac=\"00:aa:bb:cc:dd:01\" group-id=\"7\" devname=\"lobby\" "
         "location=\"hall 1\"/></ap-list>"},
        {"wlansvc-list",
         "<wlansvc-list><wlansvc id=\"1\" ssid=\"guest\" encryption=\"wpa2\"/>"
         "<wlansvc id=\"3\" ssid=\"it's\" encryption=\"wpa3\"/></wlansvc-list>"},
    };
    for (const auto &[name, xml] : lists)
        std::ofstream(dir + "/" + name + ".xml") << "<?xml version=\"1.0\"?>\n" << xml << "\n";
}

events_wire::station identity_station(std::string_view mac, uint8_t last) {
    events_wire::station s;
    s.client_mac = mac;
    s.ip[0] = 10, s.ip[3] = last;
    s.ip6[0] = 0xfe, s.ip6[1] = 0x80, s.ip6[15] = last;
    s.ap_mac = "00:aa:bb:cc:dd:01";
    s.device = "phone";
    s.host_name = last == 2 ? "o'neil" : "host";
    s.ssid = "guest";
    s.vlan = 10, s.radio = 1, s.apgroup = 7, s.wlangroup = 1, s.channel = 36;
    s.auth_type = "wpa2", s.user_name = "user";
    s.rx_pkts = 1000ull * last, s.tx_pkts = 2000ull * last;
    s.rx_bytes = 3000000000ull * last, s.tx_bytes = 5000000000ull + last;
    s.rssi = static_cast<int8_t>(-40 - last);
    return s;
}

// An AP joins, its group and WLAN groups change, stations join and report
// counters, and the AP leaves: every network event once.
void case_network_events(identity_run &run) {
    using namespace events_wire;
    write_network_lists();
    run.control(TALLYD_MSG_AP_ADD, build_ap_add({.mac = "00:aa:bb:cc:dd:01",
                                                 .model = "ap-5",
                                                 .apgroup = 7,
                                                 .radios = 2,
                                                 .wlangroup = {1, 2}}));
    run.control(TALLYD_MSG_APGROUP_UPDATE,
                build_apgroup_update({.action = 2, .wlangroup = {1, 2}, .apgroup = 7}));
    run.advance(5);
    run.control(TALLYD_MSG_WLAN_GROUP_UPDATE,
                build_wlan_group_update({.action = 1, .wlan = 2, .name = "lab", .wlangroup = 1}));
    run.control(TALLYD_MSG_WLAN_GROUP_UPDATE,
                build_wlan_group_update({.action = 0, .wlan = 5, .name = "new", .wlangroup = 1}));
    run.control(TALLYD_MSG_AP_WLAN_UPDATE,
                build_ap_wlan_update(
                    {.mac = "00:aa:bb:cc:dd:01", .radios = 1, .wlangroup = {2, 0}, .apgroup = 7}));
    const station stations[] = {identity_station("02:00:00:00:00:01", 1),
                                identity_station("02:00:00:00:00:02", 2),
                                identity_station("02:00:00:00:00:03", 3)};
    run.control(TALLYD_MSG_STA_ADD, build_sta_add(stations[0]));
    run.control(TALLYD_MSG_STA_ADD, build_sta_add(stations[1]));
    run.control(TALLYD_MSG_STA_ACTIVE, build_sta_active("02:00:00:00:00:01"));
    run.stat(TALLYD_MSG_CLIENT_STATS, build_client_stats(kStartTime + 5, stations));
    run.advance(60);
    run.control(TALLYD_MSG_AP_DEL, build_ap_del("00:aa:bb:cc:dd:01"));
}

// One round of simulated reports from three APs and two broken files, through
// the flow task.
void case_flow_files(identity_run &run) {
    const std::string spool = tallyd_path(TALLYD_SPOOL_DIR);
    fs::create_directories(spool);
    flow_sim sim({.aps = 3, .clients = 12, .ssids = 2, .entries = 10, .seed = 11});
    auto msg = std::make_unique<ArcMessage>();
    for (uint32_t ap = 0; ap < 3; ++ap) {
        sim.report(ap, 1, msg.get());
        arc_write_file(spool, arc_spool_name(sim.ap_mac(ap), 1), arc_encode(*msg));
    }
    for (arc_bad bad : {arc_bad::truncated, arc_bad::oversize}) {
        sim.report(0, 2, msg.get());
        arc_write_file(spool, arc_spool_name(sim.ap_mac(0), 2 + static_cast<uint32_t>(bad), bad),
                       arc_encode(*msg, bad));
    }
    run.advance(59);
    tallyd_pre_handle_flow(nullptr, nullptr);
}

void case_hour_rollup(identity_run &run) {
    run.advance(300);
    tallyd_pre_handle_hour(nullptr, nullptr);
}

void case_day_rollup(identity_run &run) {
    run.advance(3587);
    tallyd_pre_backup_day(nullptr, nullptr);
    run.advance(7217 - 3587);
    tallyd_pre_handle_day(nullptr, nullptr);
}

// Every application-visibility report over what the rollups stored: the top
// lists of both periods, the hour client summary, usage series of every
// period and scope, pies, filtered lists and the app-client lists.
void case_app_reports(identity_run &run) {
    using namespace report_wire;
    for (uint32_t period : {kPeriodHour, kPeriodDay})
        for (uint32_t flag : {kFlagApps, kFlagClients, kFlagAps, kFlagSsids})
            run.control(TALLYD_MSG_GET_TOP_SUMMARY, build_top({.period = period, .flag = flag}));
    run.control(TALLYD_MSG_GET_CLIENTS_SUMMARY, build_usage({.type = kTypeTopClients}));
    for (uint32_t period : {0u, kUsageDay, kUsageWeek, kUsageMonth}) {
        run.control(TALLYD_MSG_GET_CLIENTS_SUMMARY, build_usage({.period = period}));
        run.control(
            TALLYD_MSG_GET_CLIENTS_SUMMARY,
            build_usage({.ssid = "it's", .period = period, .usage = kUsageSeries | kUsageDetail}));
    }
    run.control(TALLYD_MSG_GET_CLIENTS_SUMMARY,
                build_usage({.mac = "00:aa:bb:cc:dd:01",
                             .client_type = kClientAp,
                             .usage = kUsageSeries | kUsageDetail}));
    run.control(TALLYD_MSG_GET_CLIENTS_SUMMARY, build_usage({.client_type = kClientApgroup,
                                                             .type = 0,
                                                             .usage = kUsageSeries | kUsageDetail,
                                                             .apgroup_id = 1}));
    for (uint32_t type : {0u, 1u})
        run.control(TALLYD_MSG_GET_CLIENTS_SUMMARY,
                    build_usage({.client_type = kClientPie, .type = type, .usage = kUsageDetail}));
    run.control(TALLYD_MSG_GET_APP_CLIENT, build_app_client({.name = "http"}));
    run.control(TALLYD_MSG_GET_APP_CLIENT, build_app_client({.name = "443", .by = 0}));
}

// The statistics reports over what the stations' counters stored (two
// batches a minute apart, then the statistics task's rollup): the summaries
// and charts of both periods, one client's chart and the client list, whole
// and for one client.
void case_statis_reports(identity_run &run) {
    using namespace report_wire;
    run.control(TALLYD_MSG_AP_ADD, events_wire::build_ap_add({.mac = "00:aa:bb:cc:dd:01",
                                                              .model = "ap-5",
                                                              .apgroup = 7,
                                                              .radios = 2,
                                                              .wlangroup = {1, 2}}));
    events_wire::station stations[] = {identity_station("02:00:00:00:00:01", 1),
                                       identity_station("02:00:00:00:00:02", 2)};
    for (const events_wire::station &s : stations)
        run.control(TALLYD_MSG_STA_ADD, events_wire::build_sta_add(s));
    for (int batch = 0; batch < 2; ++batch) {
        if (batch) run.advance(60);
        run.stat(TALLYD_MSG_CLIENT_STATS, events_wire::build_client_stats(tallyd_now(), stations));
        for (events_wire::station &s : stations) s.rx_bytes += 7000, s.tx_bytes += 9000;
    }
    tallyd_pre_handle_statis(nullptr, nullptr);
    // No task of the daemon fills the AP tables (other programs of the
    // controller do): rows of theirs, so that the summaries share out traffic.
    const std::string t = std::to_string(tallyd_now() - 60);
    for (const char *table : {"statis_ap_h", "statis_ap_d"})
        sql_exec(tallyd_db_set.statistic_db.get(),
                 (std::string("INSERT INTO ") + table +
                  "(time, ap_id, ssid_id, apgroup_id, wlangroup_id, tx_bytes, rx_bytes, "
                  "total_bytes) VALUES(" +
                  t + ", 1, 1, 7, 1, 9000, 7000, 16000)")
                     .c_str());
    sql_exec(tallyd_db_set.statistic_db.get(),
             ("INSERT INTO statis_ap_chart VALUES(" + t + ", 1, 7, 9000, 7000, 2)").c_str());
    for (uint8_t period : {0, 1}) {
        run.control(TALLYD_MSG_STATIS_AP, build_statis({.period = period, .top_num = 10}));
        run.control(TALLYD_MSG_STATIS_SSID, build_statis({.period = period, .ssid = "it's"}));
        run.control(
            TALLYD_MSG_STATIS_CLIENT,
            build_statis({.period = period, .aps = {"00:aa:bb:cc:dd:01"}, .bytes_type = 1}));
        run.control(TALLYD_MSG_STATIS_AP_CHART, build_chart({.period = period}));
        run.control(TALLYD_MSG_STATIS_CLIENT_CHART,
                    build_chart({.period = period, .ap_mac = "00:aa:bb:cc:dd:01"}));
    }
    run.control(TALLYD_MSG_STATIS_SINGLE_CLIENT, build_single_chart("02:00:00:00:00:01"));
    run.control(TALLYD_MSG_GET_CLIENT_LIST, build_client_list({}));
    const uint8_t mac[] = {0x02, 0, 0, 0, 0, 0x01};
    run.control(TALLYD_MSG_GET_CLIENT_LIST, build_client_list(mac));
}

struct identity_case {
    const char *name;
    void (*run)(identity_run &);
};

constexpr identity_case kCases[] = {
    {"probe", case_probe},
    {"set_hostname", case_set_hostname},
    {"stat_0a", case_stat_0a},
    {"network_events", case_network_events},
    {"flow_files", case_flow_files},
    {"hour_rollup", case_hour_rollup},
    {"day_rollup", case_day_rollup},
    {"app_reports", case_app_reports},
    {"statis_reports", case_statis_reports},
};

std::string hex(std::span<const uint8_t> bytes) {
    static const char digits[] = "0123456789abcdef";
    std::string s;
    for (uint8_t b : bytes) {
        s += digits[b >> 4];
        s += digits[b & 15];
    }
    return s;
}

// Log text with the sandbox root named "<root>" and line ends shown, so that
// the two builds' lines compare whatever folder each ran in.
std::string log_text(std::string text, const std::string &root) {
    for (size_t at; (at = text.find(root)) != std::string::npos;)
        text.replace(at, root.size(), "<root>");
    for (size_t at; (at = text.find('\n')) != std::string::npos;) text.replace(at, 1, "\\n");
    return text;
}

// A fresh install: the root with the empty seed lists of the repository.
void make_root(const std::string &root) {
    fs::remove_all(root);
    const fs::path xrepo = fs::path(root + std::string(TALLYD_XREPO_DIR));
    fs::create_directories(xrepo);
    for (const auto &e : fs::directory_iterator(fs::path(TALLYD_SOURCE_DIR) / "tools/xrepo-seed"))
        if (e.path().extension() == ".xml") fs::copy_file(e.path(), xrepo / e.path().filename());
}

// What start-up (core/tallyd.cc) does before the event loop runs, less the
// instance check, the crash handler and the pid file.
void start_daemon_state() {
    tallyd_init_sys_info(&tallyd_sys_info);
    tallyd_set_platform_limits(&tallyd_sys_info);
    tallyd_provision_port_file();
    tallyd_set_ap_wlan_seeder(tallyd_get_wlan_from_apgrp);
    tallyd_init_avp_db(&tallyd_db_set);
    tallyd_load_dictionaries(&tallyd_sys_info);
    eloop_init(&tallyd_sys_info);
}

}  // namespace

int main(int argc, char **argv) {
    if (argc != 2) {
        std::fprintf(stderr, "usage: tallyd-identity OUT\n");
        return 2;
    }
    const std::string out = fs::absolute(argv[1]).string();
    const std::string root = out + "/root";
    fs::remove_all(out);
    make_root(root);
    tallyd_root_set(root);
    tallyd_clock_set(kStartTime);

    std::vector<tallyd_log_line> log;
    tallyd_log_capture(&log);
    int pair[2];
    if (socketpair(AF_UNIX, SOCK_DGRAM, 0, pair) != 0) {
        std::perror("socketpair");
        return 1;
    }
    std::ofstream replies(out + "/replies.txt"), log_file(out + "/log.txt");
    start_daemon_state();
    identity_run run(pair[0], pair[1]);

    const auto flush = [&](const char *name) {
        for (const std::vector<uint8_t> &reply : run.take_replies())
            replies << name << ' ' << hex(reply) << '\n';
        for (const tallyd_log_line &l : log)
            log_file << name << ' ' << l.priority << ' ' << log_text(l.text, root) << '\n';
        log.clear();
    };
    flush("start");
    for (const identity_case &c : kCases) {
        c.run(run);
        flush(c.name);
    }
    tallyd_log_capture(nullptr);
    tallyd_db_set.close_all();
    eloop_destroy();
    close(pair[0]);
    close(pair[1]);
    return replies && log_file ? 0 : 1;
}
