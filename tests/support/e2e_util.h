// Small helpers of the end-to-end tests: whole-file text I/O and waiting for
// a condition that a running daemon makes true.
#pragma once

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>

inline std::string read_text(const std::string &path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Writes text to path, creating the parent directories.
inline void write_text(const std::string &path, const std::string &text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
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
