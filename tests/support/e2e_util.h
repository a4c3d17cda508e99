// Small helpers of the end-to-end tests: whole-file text I/O, running a tool
// of the build, and waiting for a condition that a running daemon makes true.
#pragma once

#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <utility>

#include "base/file.h"

inline std::string read_text(const std::string &path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Writes text to path, creating the parent directories.
inline void write_text(const std::string &path, const std::string &text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
}

// Runs a tool of the build (TALLYD_BIN_DIR/<command>, through the shell):
// its standard output and exit status (-1 when it did not exit).
inline std::pair<std::string, int> run_tool(const std::string &command) {
    std::string cmd = std::string(TALLYD_BIN_DIR) + "/" + command;
    tallyd_pipe p(popen(cmd.c_str(), "r"));
    if (!p) return {"", -1};
    std::string out;
    char buf[512];
    while (size_t n = std::fread(buf, 1, sizeof buf, p.get())) out.append(buf, n);
    int status = pclose(p.release());
    return {out, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

// Polls done every 50 ms until it holds or timeout_ms have passed; the
// result of a last look.
inline bool eventually(const std::function<bool()> &done, int timeout_ms = 5000) {
    auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeout_ms);
    while (std::chrono::steady_clock::now() < end) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return done();
}
