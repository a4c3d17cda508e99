// Helpers of the end-to-end tests that drive a running daemon from outside:
// tallyctl run as a user would, messages made by the layout builders, a
// seeded repository, and its log checked for faults.
#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "base/path.h"
#include "support/daemon.h"
#include "support/e2e_util.h"

// What tallyctl prints for a datagram sent that has no reply.
inline bool sent(const std::string &out) {
    return out.rfind("sent 0x", 0) == 0 && out.find("no reply") != std::string::npos;
}

inline std::string tallyctl(const tallyd_daemon &d, const std::string &args) {
    auto [out, rc] = run_tool("tallyctl --root '" + d.root() + "' " + args);
    return rc == 0 ? out : "exit " + std::to_string(rc) + ": " + out;
}

// Sends a message made by an entity builder (which leaves the header zero).
inline bool send_built(tallyd_daemon &d, uint32_t id, const std::vector<uint8_t> &built,
                       tallyd_socket_kind socket = tallyd_socket_kind::control) {
    return d.send(id, std::span<const uint8_t>(built).subspan(12), socket);
}

// Nothing the sanitizers or a crash would leave behind.
inline void expect_no_fault(tallyd_daemon &d) {
    std::string log = d.log_text();
    for (const char *mark : {"AddressSanitizer", "runtime error", "LeakSanitizer", "Segmentation"})
        EXPECT_EQ(std::string::npos, log.find(mark)) << mark << " in:\n" << log;
}

inline void seed_repository(const tallyd_daemon &d) {
    std::filesystem::path to = d.path(TALLYD_XREPO_DIR);
    std::filesystem::create_directories(to);
    for (const auto &e : std::filesystem::directory_iterator(
             std::filesystem::path(TALLYD_SOURCE_DIR) / "tools/xrepo-seed"))
        if (e.path().extension() == ".xml")
            std::filesystem::copy_file(e.path(), to / e.path().filename(),
                                       std::filesystem::copy_options::overwrite_existing);
}

// The daemon and tallyd-sim on one clock: scale times real speed, counted
// from an origin of now, so that the simulator stamps what it sends with the
// daemon's time.
struct sim_clock {
    uint32_t scale;
    std::string origin = std::to_string(std::time(nullptr));

    tallyd_daemon_options daemon() const {
        tallyd_daemon_options o;
        o.time_scale = scale;
        o.env = {"TALLYD_TIME_ORIGIN=" + origin};
        return o;
    }
    // The daemon's wall clock now.
    uint32_t now() const {
        const double real =
            std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch())
                .count();
        const double start = std::stod(origin);
        return static_cast<uint32_t>(start + (real - start) * scale);
    }
    // tallyd-sim with args against d's root: its output and exit status.
    std::pair<std::string, int> run(const tallyd_daemon &d, const std::string &args) const {
        setenv("TALLYD_TIME_SCALE", std::to_string(scale).c_str(), 1);
        setenv("TALLYD_TIME_ORIGIN", origin.c_str(), 1);
        auto result = run_tool("tallyd-sim " + args + " --root '" + d.root() + "'");
        unsetenv("TALLYD_TIME_SCALE");
        unsetenv("TALLYD_TIME_ORIGIN");
        return result;
    }
};
