#include "sim_world.h"

#include <algorithm>
#include <cstdio>
#include <iterator>
#include <unordered_map>

#include "ipc/msg_ids.h"
#include "ipc/msg_layout.h"
#include "sim/arc_writer.h"

using namespace events_wire;

namespace {

constexpr const char *kDevices[] = {"iPhone", "Android", "Windows", "MacBook", "Printer"};
constexpr const char *kNames[] = {"Ann's phone", "bob-laptop", "printer-2f", "Dana's tablet"};
constexpr uint32_t kOutageEvery = 10;  // minutes; an AP goes down at minute 5, 15, ...
constexpr uint32_t kWlanLeaves = 25;   // the last WLAN leaves WLAN group 1 ...
constexpr uint32_t kWlanReturns = 35;  // ... and comes back

}  // namespace

sim_world::sim_world(const sim_world_config &cfg)
    : cfg_(cfg), flows_({cfg.aps, cfg.clients, cfg.ssids, 50, cfg.seed}), rng_(cfg.seed ^ 0x5eed) {
    cfg_.aps = std::max<uint32_t>(cfg_.aps, 1);
    cfg_.clients = std::max<uint32_t>(cfg_.clients, 1);
    cfg_.ssids = std::clamp<uint32_t>(cfg_.ssids, 1, 2047);
    cfg_.apgroups = std::clamp<uint32_t>(cfg_.apgroups, 1, cfg_.aps);
    for (uint32_t a = 0; a < cfg_.aps; ++a) ap_macs_.push_back(flows_.ap_mac(a));
    for (uint32_t s = 0; s < cfg_.ssids; ++s) ssids_.push_back(flows_.ssid(s));
    down_until_.assign(cfg_.aps, 0);
    for (uint32_t c = 0; c < cfg_.clients; ++c) {
        client k;
        k.mac = flows_.client_mac(c);
        k.device = kDevices[c % std::size(kDevices)];
        k.host = c % 5 == 0   ? ""
                 : c % 7 == 0 ? kNames[c % std::size(kNames)]
                              : "host-" + std::to_string(c);
        k.user = c % 3 == 0 ? "" : "user" + std::to_string(c);
        // As the flow records have it: 10.<client bytes>.
        k.ip[0] = 10;
        k.ip[1] = static_cast<uint8_t>(c >> 16);
        k.ip[2] = static_cast<uint8_t>(c >> 8);
        k.ip[3] = static_cast<uint8_t>(c);
        clients_.push_back(std::move(k));
    }
}

std::string sim_world::wlangroup_list(bool full) const {
    std::string x = "<?xml version=\"1.0\"?>\n<wlangroup-list>\n";
    for (uint32_t g = 1; g <= cfg_.apgroups; ++g) {
        x += "  <wlangroup id=\"" + std::to_string(g) + "\" name=\"wlans-" + std::to_string(g) +
             "\">";
        for (uint32_t w = 1; w <= cfg_.ssids; ++w)
            if (full || g != 1 || w != cfg_.ssids) x += "<wlan id=\"" + std::to_string(w) + "\"/>";
        x += "</wlangroup>\n";
    }
    return x + "</wlangroup-list>\n";
}

std::vector<std::pair<std::string, std::string>> sim_world::repository() const {
    std::string aps = "<?xml version=\"1.0\"?>\n<ap-list>\n";
    for (uint32_t a = 0; a < cfg_.aps; ++a) {
        char line[200];
        std::snprintf(line, sizeof line,
                      "  <ap mac=\"%s\" group-id=\"%u\" devname=\"AP-%02u\" location=\"floor "
                      "%u\"/>\n",
                      ap_macs_[a].c_str(), group_of(a), a + 1, 1 + a / 4);
        aps += line;
    }
    std::string groups = "<?xml version=\"1.0\"?>\n<apgroup-list>\n";
    for (uint32_t g = 1; g <= cfg_.apgroups; ++g) {
        const std::string id = std::to_string(g);
        groups += "  <apgroup id=\"" + id + "\" name=\"group-" + id +
                  "\"><ap-property><radio radio-type=\"11ng\" wlangroup-id=\"" + id +
                  "\"/><radio radio-type=\"11na\" wlangroup-id=\"" + id +
                  "\"/></ap-property></apgroup>\n";
    }
    std::string svcs = "<?xml version=\"1.0\"?>\n<wlansvc-list>\n";
    for (uint32_t w = 1; w <= cfg_.ssids; ++w)
        svcs += "  <wlansvc id=\"" + std::to_string(w) + "\" ssid=\"" + ssids_[w - 1] +
                "\" encryption=\"" + (w % 2 ? "wpa2-psk" : "open") + "\"/>\n";
    return {{"ap-list", aps + "</ap-list>\n"},
            {"apgroup-list", groups + "</apgroup-list>\n"},
            {"wlangroup-list", wlangroup_list(true)},
            {"wlansvc-list", svcs + "</wlansvc-list>\n"}};
}

double sim_world::uniform() {
    return static_cast<double>(rng_() >> 11) * 0x1.0p-53;
}

// An AP that is up for client c, most often its home AP; aps when none is.
// While the last WLAN is out of WLAN group 1, its clients avoid the APs of
// AP group 1.
uint32_t sim_world::pick_up_ap(uint32_t c) {
    const bool shunned = wlan_left_ && c % cfg_.ssids == cfg_.ssids - 1;
    auto usable = [&](uint32_t a) { return down_until_[a] == 0 && !(shunned && group_of(a) == 1); };
    const uint32_t home = c % cfg_.aps;
    if (usable(home) && uniform() < 0.7) return home;
    const uint32_t start = static_cast<uint32_t>(rng_() % cfg_.aps);
    for (uint32_t i = 0; i < cfg_.aps; ++i)
        if (usable((start + i) % cfg_.aps)) return (start + i) % cfg_.aps;
    return cfg_.aps;
}

// A client joins (or roams to) an AP: the station record, then its activity.
void sim_world::join(uint32_t c, uint32_t ap, sim_minute *out) {
    client &k = clients_[c];
    k.ap = static_cast<int32_t>(ap);
    station s;
    s.client_mac = k.mac;
    std::copy(k.ip, k.ip + 4, s.ip);
    s.ip6[0] = 0xfe, s.ip6[1] = 0x80, s.ip6[14] = k.ip[2], s.ip6[15] = k.ip[3];
    s.ap_mac = ap_macs_[ap];
    s.device = k.device;
    s.host_name = k.host;
    s.ssid = ssids_[c % cfg_.ssids];
    s.vlan = static_cast<uint16_t>(100 + c % cfg_.ssids);
    s.auth_type = c % 4 == 0 ? "802.1X" : "WPA2-PSK";
    s.radio = static_cast<uint8_t>(c % 2);
    s.user_name = k.user;
    s.apgroup = static_cast<uint16_t>(group_of(ap));
    s.wlangroup = s.apgroup;
    s.channel = static_cast<uint8_t>(c % 2 ? 36 + 4 * (ap % 4) : 1 + 5 * (ap % 3));
    out->control.push_back({TALLYD_MSG_STA_ADD, build_sta_add(s)});
    out->control.push_back({TALLYD_MSG_STA_ACTIVE, build_sta_active(k.mac)});
}

void sim_world::ap_events(uint32_t m, sim_minute *out) {
    auto ap_add = [&](uint32_t a) {
        const int32_t g = static_cast<int32_t>(group_of(a));
        out->control.push_back(
            {TALLYD_MSG_AP_ADD, build_ap_add({ap_macs_[a], "VX-AP320", g, 2, {g, g}})});
    };
    if (m == 0) {
        for (uint32_t g = 1; g <= cfg_.apgroups; ++g) {
            const int32_t id = static_cast<int32_t>(g);
            out->control.push_back(
                {TALLYD_MSG_APGROUP_UPDATE, build_apgroup_update({0, {id, id}, id})});
        }
        for (uint32_t a = 0; a < cfg_.aps; ++a) ap_add(a);
    }
    for (uint32_t a = 0; a < cfg_.aps; ++a) {
        if (down_until_[a] != m || m == 0) continue;
        down_until_[a] = 0;
        ap_add(a);
        const int32_t g = static_cast<int32_t>(group_of(a));
        out->control.push_back(
            {TALLYD_MSG_AP_WLAN_UPDATE, build_ap_wlan_update({ap_macs_[a], 2, {g, g}, g})});
    }
    if (cfg_.aps > 1 && m % kOutageEvery == kOutageEvery / 2) {
        const uint32_t a = static_cast<uint32_t>(rng_() % cfg_.aps);
        if (down_until_[a] == 0) {
            down_until_[a] = m + 3 + static_cast<uint32_t>(rng_() % 4);
            out->control.push_back({TALLYD_MSG_AP_DEL, build_ap_del(ap_macs_[a])});
            // Its clients roam to the APs still up, or wait.
            for (uint32_t c = 0; c < cfg_.clients; ++c) {
                if (clients_[c].ap != static_cast<int32_t>(a)) continue;
                const uint32_t to = pick_up_ap(c);
                clients_[c].ap = -1;
                if (to < cfg_.aps) join(c, to, out);
            }
        }
    }
    // The last WLAN leaves WLAN group 1 for a while: the list changes first,
    // then the controller tells the daemon; its clients there leave.
    if (cfg_.ssids > 1 && (m == kWlanLeaves || m == kWlanReturns)) {
        wlan_left_ = m == kWlanLeaves;
        out->lists.push_back({"wlangroup-list", wlangroup_list(!wlan_left_)});
        const int32_t w = static_cast<int32_t>(cfg_.ssids);
        out->control.push_back(
            {TALLYD_MSG_WLAN_GROUP_UPDATE,
             build_wlan_group_update({wlan_left_ ? 1 : 0, w, ssids_[cfg_.ssids - 1], 1})});
        for (uint32_t c = cfg_.ssids - 1; wlan_left_ && c < cfg_.clients; c += cfg_.ssids)
            if (clients_[c].ap >= 0 && group_of(static_cast<uint32_t>(clients_[c].ap)) == 1)
                clients_[c].ap = -1;
    }
}

void sim_world::client_events(sim_minute *out) {
    for (uint32_t c = 0; c < cfg_.clients; ++c) {
        const double u = uniform();
        if (clients_[c].ap < 0) {
            if (u < 0.25)
                if (uint32_t to = pick_up_ap(c); to < cfg_.aps) join(c, to, out);
        } else if (u < 0.02) {
            clients_[c].ap = -1;  // gone; the controller says nothing
        } else if (u < 0.07) {
            if (uint32_t to = pick_up_ap(c);
                to < cfg_.aps && static_cast<int32_t>(to) != clients_[c].ap)
                join(c, to, out);
        }
    }
}

void sim_world::traffic(uint32_t m, sim_minute *out) {
    std::vector<uint64_t> up(cfg_.clients, 0), down(cfg_.clients, 0);
    std::unordered_map<std::string_view, uint32_t> by_mac;
    for (uint32_t c = 0; c < cfg_.clients; ++c) by_mac.emplace(clients_[c].mac, c);

    std::vector<uint32_t> here;
    for (uint32_t a = 0; a < cfg_.aps; ++a) {
        if (down_until_[a] != 0) continue;
        ++out->aps_up;
        here.clear();
        for (uint32_t c = 0; c < cfg_.clients; ++c)
            if (clients_[c].ap == static_cast<int32_t>(a)) here.push_back(c);
        if (here.empty()) continue;
        flows_.report(a, m + 1, here, &msg_);
        for (pb_size_t e = 0; e < msg_.records_count; ++e) {
            auto it = by_mac.find(msg_.records[e].client_mac);
            if (it == by_mac.end()) continue;
            up[it->second] += msg_.records[e].uplink;
            down[it->second] += msg_.records[e].downlink;
        }
        out->flow_files.emplace_back(arc_spool_name(ap_macs_[a], m + 1), arc_encode(msg_));
    }

    for (uint32_t c = 0; c < cfg_.clients; ++c) {
        const client &k = clients_[c];
        if (k.ap < 0) continue;
        const uint32_t a = static_cast<uint32_t>(k.ap);
        station s;
        s.client_mac = k.mac;
        s.ap_mac = ap_macs_[a];
        s.device = k.device;
        s.host_name = k.host;
        s.ssid = ssids_[c % cfg_.ssids];
        s.user_name = k.user;
        s.apgroup = static_cast<uint16_t>(group_of(a));
        s.wlangroup = s.apgroup;
        // A station moves what its flows carried, and more that no
        // application report names: laptops megabytes a minute, phones and
        // printers far less (big batches keep only the busy ones).
        const bool laptop = c % std::size(kDevices) == 2 || c % std::size(kDevices) == 3;
        const uint64_t background = laptop ? 1000000 + rng_() % 2000000 : 20000 + rng_() % 300000;
        s.tx_bytes = up[c] + background / 4;
        s.rx_bytes = down[c] + background - background / 4;
        s.tx_pkts = s.tx_bytes / 1200 + 1;
        s.rx_pkts = s.rx_bytes / 1200 + 1;
        s.rssi = static_cast<int8_t>(-35 - static_cast<int>(rng_() % 50));
        s.channel = static_cast<uint8_t>(c % 2 ? 36 : 6);
        out->counters.push_back(s);
    }
    out->stations = static_cast<uint32_t>(out->counters.size());
}

void sim_world::play(uint32_t m, sim_minute *out) {
    *out = {};
    ap_events(m, out);
    client_events(out);
    traffic(m, out);
}

std::vector<uint8_t> &sim_sealed(sim_message &msg) {
    tallyd_msg_header_put(msg.bytes, 0, msg.id,
                          static_cast<uint32_t>(msg.bytes.size() - TALLYD_MSG_HDR_LEN));
    return msg.bytes;
}
