// Simulated flow traffic for the simulator tool, the tests and the
// benchmarks: N APs, M clients spread over the APs and a set of SSIDs,
// applications with their categories and ports, and heavy-tailed byte
// counts with a few busy clients and applications, so that top lists mean
// something.
//
// Deterministic: the same configuration (seed included) yields the same
// reports in the same order.
#pragma once

#include <cstdint>
#include <random>
#include <span>
#include <string>

#include "arc.pb.h"

struct flow_sim_config {
    uint32_t aps = 20;
    uint32_t clients = 200;
    uint32_t ssids = 4;
    uint32_t entries = 50;  // per report, at most 50
    uint64_t seed = 1;
};

class flow_sim {
   public:
    explicit flow_sim(const flow_sim_config &cfg);

    const flow_sim_config &config() const { return cfg_; }

    // MAC text of AP i (0-based), colon form, as used in spool file names.
    std::string ap_mac(uint32_t i) const;
    std::string client_mac(uint32_t i) const;
    std::string ssid(uint32_t i) const;

    // Fills *msg with report `round` of AP i: config().entries entries of the
    // AP's clients, every one on that AP. Advances the random sequence.
    void report(uint32_t ap, uint32_t round, ArcMessage *msg);
    // The same for the clients listed (indexes as for client_mac), the first
    // ones the busiest: for a simulator that moves clients between APs.
    void report(uint32_t ap, uint32_t round, std::span<const uint32_t> clients, ArcMessage *msg);

   private:
    double uniform();                 // [0, 1)
    uint32_t skewed(uint32_t n);      // 0..n-1, small values far more likely
    uint64_t heavy_bytes();           // Pareto-distributed byte count
    uint32_t client_of(uint32_t ap);  // one of the AP's clients
    void fill(uint32_t ap, uint32_t round, std::span<const uint32_t> clients, ArcMessage *msg);

    flow_sim_config cfg_;
    std::mt19937_64 rng_;
};
