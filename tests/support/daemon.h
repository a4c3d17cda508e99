// End-to-end harness: the real tallyd binary in a sandbox root of its own.
//
//   tallyd_daemon d;                       // fresh temporary root
//   ASSERT_TRUE(d.start());                // runs the build's tallyd, waits for the probe
//   d.send(TALLYD_MSG_AP_ADD, payload);    // control socket, no reply expected
//   auto replies = d.request(TALLYD_MSG_GET_TOP_SUMMARY, payload);
//   EXPECT_TRUE(d.wait_log("tallyd, received invalid msg id"));
//   EXPECT_EQ(0, d.stop());                // SIGTERM, exit status
//
// The daemon runs with TALLYD_ROOT=<root> and TALLYD_LOG=stderr; its standard
// error and output are collected line by line in the background (so it never
// blocks on a full pipe). The harness points the test process's own root
// prefix (tallyd_root_set) at the daemon's root whenever it talks to it, so
// tallyctl_client calls and tallyd_path() name the daemon's files. Several
// harness objects may share one root (a second instance, a restart).
//
// Which binary runs, through which launcher, and how far every timeout below
// stretches for a slow one (an emulator): support/launch.h.
#pragma once

#include <gtest/gtest.h>
#include <sys/types.h>

#include <condition_variable>
#include <cstdint>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "ipc/msg_ids.h"

class temp_dir;

struct tallyd_daemon_options {
    std::string root;              // empty: a fresh temporary root, removed afterwards
    uint32_t time_scale = 0;       // TALLYD_TIME_SCALE when non-zero
    std::vector<std::string> env;  // extra "NAME=value" entries
    bool wait_ready = true;        // start() waits until the probe is answered
    int ready_timeout_ms = 15000;
};

class tallyd_daemon {
   public:
    explicit tallyd_daemon(tallyd_daemon_options options = {});
    // Kills a daemon still running (SIGKILL) and removes a root it created.
    ~tallyd_daemon();
    tallyd_daemon(const tallyd_daemon &) = delete;
    tallyd_daemon &operator=(const tallyd_daemon &) = delete;

    // Starts the daemon (again, after it ended: output lines keep
    // accumulating). false when it runs already or could not be started, or
    // (wait_ready) when it ended or did not answer the probe in time.
    bool start();
    // SIGTERM, then the exit status (see wait_exit).
    int stop(int timeout_ms = 15000);
    // Waits for the process to end: its exit status, 128 + signal when a
    // signal ended it, -1 when it is still running after timeout_ms.
    int wait_exit(int timeout_ms = 15000);
    bool running();
    pid_t pid() const { return pid_; }

    const std::string &root() const { return root_; }
    // <root> + device path, e.g. path("/var/run/tac/tallyd.pid").
    std::string path(std::string_view device_path) const;

    // Lines of standard error (log lines "<priority> <text>", perror texts)
    // and of standard output so far, without line ends.
    std::vector<std::string> log_lines();
    std::vector<std::string> out_lines();
    // Number of stderr lines containing fragment.
    int log_count(std::string_view fragment);
    // Waits until at least count stderr lines contain fragment.
    bool wait_log(std::string_view fragment, int timeout_ms = 5000, int count = 1);
    std::string log_text();  // all of stderr, for failure messages
    // Waits (as wait_log) for line, then checks that one stderr line is
    // exactly line; a failure carries all of stderr.
    ::testing::AssertionResult logs_line(const std::string &line, int count = 1,
                                         int timeout_ms = 5000);

    // The monitor probe; true when answered within timeout_ms.
    bool probe(int timeout_ms = 2000);
    // One datagram as given (header included) to a socket; true when sent.
    bool send_raw(tallyd_socket_kind socket, std::span<const uint8_t> datagram);
    // A message with a correct header; true when sent.
    bool send(uint32_t id, std::span<const uint8_t> payload = {},
              tallyd_socket_kind socket = tallyd_socket_kind::control);
    // Sends a message and returns every reply datagram: the first within
    // wait_ms, more while each follows within gap_ms.
    std::vector<std::vector<uint8_t>> request(uint32_t id, std::span<const uint8_t> payload = {},
                                              int wait_ms = 5000, int gap_ms = 500);

   private:
    void collect(int out_fd, int err_fd);
    void use_root() const;

    tallyd_daemon_options options_;
    std::unique_ptr<temp_dir> own_root_;
    std::string root_;
    pid_t pid_ = -1;
    int status_ = -1;
    std::thread reader_;
    std::mutex mu_;
    std::condition_variable cv_;
    std::vector<std::string> err_lines_, out_lines_;
};
