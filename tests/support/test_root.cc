#include "support/test_root.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "base/clock.h"
#include "base/path.h"

namespace fs = std::filesystem;

temp_dir::temp_dir() {
    const char *tmp = std::getenv("TMPDIR");
    // md5sum -c echoes the checked path, and the daemon counts any "OK" on
    // that line as verified: a root whose random name holds "OK" would make
    // every mismatch look verified, so such names are drawn again.
    for (int tries = 0; tries < 16 && path_.empty(); ++tries) {
        std::string tmpl = std::string(tmp && *tmp ? tmp : "/tmp") + "/tallyd-test-XXXXXX";
        char *p = mkdtemp(tmpl.data());
        if (!p) return;
        if (std::string_view(p).find("OK") == std::string_view::npos) {
            path_ = p;
        } else {
            rmdir(p);
        }
    }
}

temp_dir::~temp_dir() {
    std::error_code ec;
    if (!path_.empty()) fs::remove_all(path_, ec);
}

void root_test::SetUp() {
    root_ = new temp_dir();
    ASSERT_FALSE(root_->path().empty());
    tallyd_root_set(root_->path());
    tallyd_log_capture(&log_);
    tallyd_log_limit_reset();
    tallyd_clock_set(kStartTime);
}

void root_test::TearDown() {
    tallyd_log_capture(nullptr);
    tallyd_clock_release();
    tallyd_root_set("");
    delete root_;
    root_ = nullptr;
}

std::string root_test::path(std::string_view device_path) const {
    return tallyd_path(device_path);
}

void root_test::write_file(std::string_view device_path, std::string_view content) const {
    fs::path p = path(device_path);
    fs::create_directories(p.parent_path());
    std::ofstream(p, std::ios::binary) << content;
}

std::string root_test::read_file(std::string_view device_path) const {
    std::ifstream in(path(device_path), std::ios::binary);
    std::stringstream ss;
    ss << in.rdbuf();
    return ss.str();
}

bool root_test::exists(std::string_view device_path) const {
    return fs::exists(path(device_path));
}

bool root_test::logged(int priority, std::string_view text) const {
    for (const auto &l : log_)
        if (l.priority == priority && l.text == text) return true;
    return false;
}

int root_test::log_count(std::string_view fragment) const {
    int n = 0;
    for (const auto &l : log_)
        if (l.text.find(fragment) != std::string::npos) ++n;
    return n;
}

std::string root_test::log_dump() const {
    std::string s;
    for (const auto &l : log_) s += std::to_string(l.priority) + " " + l.text;
    return s;
}
