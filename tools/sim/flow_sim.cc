#include "sim/flow_sim.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <iterator>

namespace {

struct sim_app {
    const char *name;
    const char *category;
    uint32_t port;
};

// Ordered from the most to the least used; one name carries a quote, as
// real application names sometimes do.
constexpr sim_app kApps[] = {
    {"YouTube", "Streaming", 443},
    {"Netflix", "Streaming", 443},
    {"HTTPS", "Web", 443},
    {"Zoom", "Conferencing", 8801},
    {"Microsoft Teams", "Conferencing", 3478},
    {"HTTP", "Web", 80},
    {"WhatsApp", "Messaging", 5222},
    {"Spotify", "Streaming", 4070},
    {"Steam", "Gaming", 27015},
    {"Dropbox", "File Sharing", 443},
    {"iCloud", "File Sharing", 443},
    {"DNS", "Network Service", 53},
    {"SSH", "Remote Access", 22},
    {"Tom's Guide", "Web", 80},
    {"BitTorrent", "P2P", 6881},
    {"NTP", "Network Service", 123},
};

constexpr const char *kSsids[] = {"corp", "guest", "iot", "lab", "voice", "lobby"};

void copy_text(char *dst, size_t size, const std::string &src) {
    std::snprintf(dst, size, "%s", src.c_str());
}

}  // namespace

flow_sim::flow_sim(const flow_sim_config &cfg) : cfg_(cfg), rng_(cfg.seed) {
    cfg_.aps = std::max<uint32_t>(cfg_.aps, 1);
    cfg_.clients = std::max<uint32_t>(cfg_.clients, 1);
    cfg_.ssids = std::max<uint32_t>(cfg_.ssids, 1);
    cfg_.entries = std::clamp<uint32_t>(cfg_.entries, 1, 50);
}

std::string flow_sim::ap_mac(uint32_t i) const {
    char buf[18];
    std::snprintf(buf, sizeof buf, "00:1a:2b:%02x:%02x:%02x", (i >> 16) & 0xff, (i >> 8) & 0xff,
                  i & 0xff);
    return buf;
}

std::string flow_sim::client_mac(uint32_t i) const {
    char buf[18];
    std::snprintf(buf, sizeof buf, "02:5c:%02x:%02x:%02x:%02x", (i >> 24) & 0xff, (i >> 16) & 0xff,
                  (i >> 8) & 0xff, i & 0xff);
    return buf;
}

std::string flow_sim::ssid(uint32_t i) const {
    if (i < std::size(kSsids)) return kSsids[i];
    return "ssid-" + std::to_string(i);
}

double flow_sim::uniform() {
    return static_cast<double>(rng_() >> 11) * 0x1.0p-53;
}

uint32_t flow_sim::skewed(uint32_t n) {
    // Cubing a uniform number piles the mass near 0: index 0 is drawn about
    // n^(2/3) times as often as the last one.
    double u = uniform();
    return std::min(n - 1, static_cast<uint32_t>(u * u * u * n));
}

uint64_t flow_sim::heavy_bytes() {
    // Pareto with shape 1.2 from 2 KB: most flows are small, a few are huge.
    double u = 1.0 - uniform();  // (0, 1]
    double v = 2048.0 / std::pow(u, 1.0 / 1.2);
    return static_cast<uint64_t>(std::min(v, 4.0e12));
}

uint32_t flow_sim::client_of(uint32_t ap) {
    // Clients are spread round-robin: client c lives on AP c mod N.
    uint32_t per_ap = (cfg_.clients + cfg_.aps - 1 - ap) / cfg_.aps;
    if (per_ap == 0) return static_cast<uint32_t>(rng_() % cfg_.clients);
    return ap + skewed(per_ap) * cfg_.aps;
}

void flow_sim::report(uint32_t ap, uint32_t round, ArcMessage *msg) {
    fill(ap, round, {}, msg);
}

void flow_sim::report(uint32_t ap, uint32_t round, std::span<const uint32_t> clients,
                      ArcMessage *msg) {
    fill(ap, round, clients, msg);
}

void flow_sim::fill(uint32_t ap, uint32_t round, std::span<const uint32_t> clients,
                    ArcMessage *msg) {
    *msg = ArcMessage_init_zero;
    std::string mac = ap_mac(ap);
    msg->has_serial = true;
    std::snprintf(msg->serial, sizeof msg->serial, "SIM%08X", ap);
    msg->has_model = true;
    copy_text(msg->model, sizeof msg->model, "VX-AP320");
    msg->has_version = true;
    copy_text(msg->version, sizeof msg->version, "7.2.1");
    msg->has_timestamp = true;
    msg->timestamp = 1700000000ULL + round * 60ULL;

    msg->records_count = static_cast<pb_size_t>(cfg_.entries);
    for (uint32_t e = 0; e < cfg_.entries; ++e) {
        ArcFlowRecord &r = msg->records[e];
        uint32_t client = clients.empty() ? client_of(ap)
                                          : clients[skewed(static_cast<uint32_t>(clients.size()))];
        const sim_app &app = kApps[skewed(std::size(kApps))];
        copy_text(r.app, sizeof r.app, app.name);
        r.port = app.port;
        copy_text(r.client_mac, sizeof r.client_mac, client_mac(client));
        copy_text(r.ap_mac, sizeof r.ap_mac, mac);
        copy_text(r.ssid, sizeof r.ssid, ssid(client % cfg_.ssids));
        r.downlink = heavy_bytes();
        r.uplink = r.downlink / (4 + rng_() % 12);
        r.total = r.uplink + r.downlink;
        r.has_category = true;
        copy_text(r.category, sizeof r.category, app.category);
        r.has_protocol = true;
        r.protocol = app.port == 53 || app.port == 123 ? 17 : 6;
        r.start_time = static_cast<uint32_t>(msg->timestamp) - 60;
        r.end_time = static_cast<uint32_t>(msg->timestamp);
        r.has_client_ip = true;
        std::snprintf(r.client_ip, sizeof r.client_ip, "10.%u.%u.%u", (client >> 16) & 0xff,
                      (client >> 8) & 0xff, client & 0xff);
    }
}
