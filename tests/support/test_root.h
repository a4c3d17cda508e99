// Shared test fixture: every test runs in a temporary root of its own, with
// the daemon's log captured and the wall clock pinned.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "base/log.h"

// A fresh directory under $TMPDIR, removed with everything in it on destruction.
class temp_dir {
   public:
    temp_dir();
    ~temp_dir();
    temp_dir(const temp_dir &) = delete;
    temp_dir &operator=(const temp_dir &) = delete;
    const std::string &path() const { return path_; }

   private:
    std::string path_;
};

class root_test : public ::testing::Test {
   protected:
    // Sets the root to a new temporary directory, captures the log and pins
    // the clock to kStartTime.
    void SetUp() override;
    void TearDown() override;

    static constexpr uint32_t kStartTime = 1700000000;

    // Root-prefixed path of a device path ("/tmp/tallyd" -> <root>/tmp/tallyd).
    std::string path(std::string_view device_path) const;
    // Creates the parent directories and writes the file.
    void write_file(std::string_view device_path, std::string_view content) const;
    std::string read_file(std::string_view device_path) const;
    bool exists(std::string_view device_path) const;

    // True when some captured line at this priority equals text exactly.
    bool logged(int priority, std::string_view text) const;
    // Number of captured lines containing the fragment.
    int log_count(std::string_view fragment) const;
    std::string log_dump() const;

    std::vector<tallyd_log_line> log_;
    temp_dir *root_ = nullptr;
};
