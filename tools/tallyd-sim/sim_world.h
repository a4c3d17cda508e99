// The controller that tallyd-sim plays: APs in AP groups offering WLANs
// through WLAN groups, and clients that join, roam between APs and leave,
// described once and turned minute by minute into what the controller's
// managers send the daemon (event messages, a counters batch) and what its
// flow collector writes (one flow report per AP with clients).
//
// The APs, clients and SSIDs are those of the flow traffic simulator
// (flow_sim), with the same MAC texts in events and flow files, so the
// dictionaries give a client's AP and SSID one id whichever path names them.
// Deterministic: the same configuration (seed included) plays the same
// minutes, whatever time the batches are stamped with.
#pragma once

#include <cstdint>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "arc.pb.h"
#include "events/events_wire.h"
#include "sim/flow_sim.h"

struct sim_world_config {
    uint32_t aps = 8;
    uint32_t clients = 60;
    uint32_t ssids = 3;     // WLAN ids 1..ssids, SSIDs as flow_sim names them
    uint32_t apgroups = 2;  // AP group g uses WLAN group g on both radios
    uint64_t seed = 1;
};

// One event message: its id and the message as built (header bytes zero).
struct sim_message {
    uint32_t id;
    std::vector<uint8_t> bytes;
};

// Fills in the header of msg (its id, the length of what follows the header)
// and returns its bytes, ready to send.
std::vector<uint8_t> &sim_sealed(sim_message &msg);

// What one minute produces.
struct sim_minute {
    std::vector<sim_message> control;  // in order
    // The counters of the minute, sent when it is over (stamped then): by
    // that time the daemon has handled the joins of the minute. The texts
    // are the world's and live as long as it does.
    std::vector<events_wire::station> counters;
    std::vector<std::pair<std::string, std::vector<uint8_t>>> flow_files;  // spool name, bytes
    // Repository lists rewritten this minute (name, document), written
    // before the messages that announce the change.
    std::vector<std::pair<std::string, std::string>> lists;
    uint32_t aps_up = 0;
    uint32_t stations = 0;
};

class sim_world {
   public:
    explicit sim_world(const sim_world_config &cfg);

    const sim_world_config &config() const { return cfg_; }

    // The configuration lists a controller holds for this world: ap-list,
    // apgroup-list, wlangroup-list and wlansvc-list (name, XML document).
    std::vector<std::pair<std::string, std::string>> repository() const;

    // Plays minute m (0-based): APs join at minute 0; APs go down and come
    // back; clients join, roam and leave; flows and counters of the minute.
    void play(uint32_t m, sim_minute *out);

   private:
    struct client {
        std::string mac, host, user, device;
        int32_t ap = -1;  // index of the AP it is on; -1 while away
        uint8_t ip[4];
    };

    uint32_t group_of(uint32_t ap) const { return 1 + ap % cfg_.apgroups; }
    std::string wlangroup_list(bool full) const;
    double uniform();
    uint32_t pick_up_ap(uint32_t c);
    void join(uint32_t c, uint32_t ap, sim_minute *out);
    void ap_events(uint32_t m, sim_minute *out);
    void client_events(sim_minute *out);
    void traffic(uint32_t m, sim_minute *out);

    sim_world_config cfg_;
    flow_sim flows_;
    std::mt19937_64 rng_;
    std::vector<std::string> ap_macs_;
    std::vector<std::string> ssids_;
    std::vector<uint32_t> down_until_;  // per AP: minute it comes back; 0 while up
    std::vector<client> clients_;
    bool wlan_left_ = false;
    ArcMessage msg_;
};
