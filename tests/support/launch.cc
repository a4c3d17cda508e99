#include "support/launch.h"

#include <cstdlib>
#include <sstream>

#ifndef TALLYD_TEST_LAUNCHER_DEFAULT
#define TALLYD_TEST_LAUNCHER_DEFAULT ""
#endif

namespace {

std::string env_or(const char *name, const char *fallback) {
    const char *v = std::getenv(name);
    return v && *v ? v : fallback;
}

std::vector<std::string> launcher_words() {
    std::istringstream in(env_or("TALLYD_TEST_LAUNCHER", TALLYD_TEST_LAUNCHER_DEFAULT));
    std::vector<std::string> words;
    for (std::string w; in >> w;) words.push_back(w);
    return words;
}

std::string bin_path(std::string_view name) {
    return env_or("TALLYD_TEST_BIN_DIR", TALLYD_BIN_DIR) + "/" + std::string(name);
}

}  // namespace

std::vector<std::string> tallyd_test_argv(std::string_view name) {
    std::vector<std::string> argv = launcher_words();
    argv.push_back(bin_path(name));
    return argv;
}

std::string tallyd_test_command(std::string_view name) {
    std::string cmd;
    for (const std::string &w : launcher_words()) cmd += w + " ";
    return cmd + "'" + bin_path(name) + "'";
}

bool tallyd_test_launched() {
    return !launcher_words().empty();
}

bool tallyd_test_emulated() {
    return TALLYD_TEST_LAUNCHER_DEFAULT[0] != '\0';
}

int tallyd_test_timeout(int ms) {
    long n = std::strtol(env_or("TALLYD_TEST_SLOWDOWN", "1").c_str(), nullptr, 10);
    return n > 1 && n <= 100 ? static_cast<int>(ms * n) : ms;
}
