#include <gtest/gtest.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <string>

#include "base/path.h"
#include "base/sys_info.h"
#include "core/instance.h"
#include "core/port_file.h"
#include "core/routes.h"
#include "core/signals.h"
#include "core/sizing.h"
#include "eloop/eloop.h"
#include "support/test_root.h"

namespace {

class Core : public root_test {
   protected:
    // Runs platform sizing on a fresh record; returns what it printed.
    std::string size_for(const char *platform_file_content) {
        if (platform_file_content) write_file(TALLYD_PLATFORM_FILE, platform_file_content);
        info_ = {};
        testing::internal::CaptureStdout();
        tallyd_set_platform_limits(&info_);
        return testing::internal::GetCapturedStdout();
    }
    tallyd_sys_info_t info_{};
};

TEST_F(Core, PlatformSizingByName) {
    struct row {
        const char *file;  // null: no platform file
        int32_t cls, db_max, row_limit;
        const char *printed;
    };
    const row rows[] = {
        // Only a file that was read sets the row limit.
        {nullptr, 0, 15000000, 0, "Database file max is 15MB\n"},
        {"VX8810R", 2, 300000000, 25000, "Database file max is 300MB\n"},
        {"vxa8810", 1, 150000000, 25000, "Database file max is 150MB\n"},
        {"KDL2206", 3, 150000000, 7500, "Database file max is 150MB\n"},
        // Only seven bytes are read, so a longer name counts as its prefix,
        // and case does not matter.
        {"vxa8810lr", 1, 150000000, 25000, "Database file max is 150MB\n"},
        {"VXA8810\n", 1, 150000000, 25000, "Database file max is 150MB\n"},
        {"vx8810r", 2, 300000000, 25000, "Database file max is 300MB\n"},
        // A shorter name is not a prefix match.
        {"KDL22", 0, 15000000, 7500, "Database file max is 15MB\n"},
        {"", 0, 15000000, 7500, "Database file max is 15MB\n"},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(r.file ? r.file : "no file");
        EXPECT_EQ(r.printed, size_for(r.file));
        EXPECT_EQ(r.cls, info_.platform_class);
        EXPECT_EQ(r.db_max, info_.db_max_size);
        EXPECT_EQ(r.db_max, info_.db_flash_max_size);
        EXPECT_EQ(r.row_limit, info_.platform_row_limit);
        EXPECT_EQ(r.cls ? 1024 : 56, info_.ap_max);
        EXPECT_EQ(r.cls ? 256 : 54, info_.ssid_max);
        EXPECT_EQ(256, info_.apgroup_max);
        EXPECT_EQ(256, info_.dvcinfo_max);
    }
}

TEST_F(Core, PidFileReading) {
    const std::string p = path("/var/run/tac/tallyd.pid");
    EXPECT_EQ(-1, tallyd_read_pid_file(nullptr));
    EXPECT_EQ(0, tallyd_read_pid_file(p.c_str()));  // no file
    struct {
        const char *content;
        int32_t pid;
    } cases[] = {{"1234", 1234}, {"1234\r\n", 1234}, {"77\n88\n", 77}, {"", 0},
                 {"0", 0},       {"tallyd", 0},      {"-5", -5},       {" 42x", 42}};
    for (const auto &c : cases) {
        write_file("/var/run/tac/tallyd.pid", c.content);
        EXPECT_EQ(c.pid, tallyd_read_pid_file(p.c_str())) << '"' << c.content << '"';
    }

    EXPECT_EQ(-1, tallyd_write_pid_file(nullptr));
    EXPECT_EQ(-1, tallyd_write_pid_file(path("/no/such/dir/pid").c_str()));
    if (access("/dev/full", W_OK) == 0) {
        EXPECT_EQ(-1, tallyd_write_pid_file("/dev/full"));  // fails at the write
    }
    ASSERT_EQ(0, tallyd_write_pid_file(p.c_str()));
    EXPECT_EQ(std::to_string(getpid()), read_file("/var/run/tac/tallyd.pid"));  // no line end
}

TEST_F(Core, OnlyARunningTallydCountsAsAnotherInstance) {
    EXPECT_EQ(0, tallyd_check_tallyd_existing());  // no pid file
    for (const char *text : {"0", "", "garbage", "-3"}) {
        write_file("/var/run/tac/tallyd.pid", text);
        EXPECT_EQ(0, tallyd_check_tallyd_existing()) << text;
    }
    // This test process runs, but is not a tallyd.
    write_file("/var/run/tac/tallyd.pid", std::to_string(getpid()));
    EXPECT_EQ(0, tallyd_check_tallyd_existing());

    // A child whose command line names tallyd does count.
    pid_t child = fork();
    if (child == 0) {
        execlp("sleep", "tallyd-lookalike", "5", static_cast<char *>(nullptr));
        _exit(127);
    }
    ASSERT_GT(child, 0);
    write_file("/var/run/tac/tallyd.pid", std::to_string(child));
    bool seen = false;
    for (int i = 0; i < 100 && !seen; ++i, usleep(10000)) seen = tallyd_pid_is_tallyd(child);
    EXPECT_TRUE(seen);
    EXPECT_EQ(1, tallyd_check_tallyd_existing());
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
    EXPECT_EQ(0, tallyd_check_tallyd_existing());
}

TEST_F(Core, PortFileIsProvidedOnceFromTheBestSource) {
    const std::string in_use = std::string(TALLYD_PORT_DIR) + "/uploadavpport_file_1.0";

    // Nothing to copy: the directory is made, no file appears.
    EXPECT_EQ(-1, tallyd_provision_port_file());
    EXPECT_TRUE(exists(TALLYD_PORT_DIR));
    EXPECT_FALSE(exists(in_use));

    write_file(TALLYD_PORT_FILE_FACTORY, "factory");
    EXPECT_EQ(0, tallyd_provision_port_file());
    EXPECT_EQ("factory", read_file(in_use));
    EXPECT_FALSE(exists(std::string(TALLYD_PORT_DIR) + "/uploadavpport_file"));

    // An existing file is never replaced, even by a customised one.
    write_file(TALLYD_PORT_FILE_CUSTOM, "custom");
    EXPECT_EQ(0, tallyd_provision_port_file());
    EXPECT_EQ("factory", read_file(in_use));

    // The customised file wins over the factory one.
    std::filesystem::remove(path(in_use));
    EXPECT_EQ(0, tallyd_provision_port_file());
    EXPECT_EQ("custom", read_file(in_use));
}

TEST_F(Core, EveryKnownIdIsRoutedOnItsOwnSocketOnly) {
    auto ids_of = [](const tallyd_route_table &t) {
        std::set<uint32_t> ids;
        for (const tallyd_route &r : t.routes) {
            EXPECT_TRUE(ids.insert(r.id).second) << "twice: " << r.name;
            EXPECT_EQ(tallyd_msg_find(r.id)->name, r.name);
        }
        return ids;
    };
    std::set<uint32_t> ctrl = ids_of(tallyd_ctrl_routes), stat = ids_of(tallyd_stat_routes);
    size_t listed = 0;
    for (const tallyd_msg_name &m : tallyd_msg_names) {
        SCOPED_TRACE(m.name);
        EXPECT_EQ(m.socket == tallyd_socket_kind::control, ctrl.count(m.id) == 1);
        EXPECT_EQ(m.socket == tallyd_socket_kind::stat, stat.count(m.id) == 1);
        ++listed;
    }
    EXPECT_EQ(24u, listed);
    EXPECT_EQ(listed - 1, ctrl.size() + stat.size());  // the probe is the monitor's
}

TEST_F(Core, TerminateSignalsEndTheLoopAndRemoveThePidFile) {
    write_file("/var/run/tac/tallyd.pid", "123");
    eloop_init(nullptr);
    tallyd_signal_handle(SIGPIPE, nullptr, nullptr);
    tallyd_signal_handle(SIGCHLD, nullptr, nullptr);  // no child: nothing to reap
    EXPECT_EQ(0, eloop_terminated());
    EXPECT_TRUE(exists("/var/run/tac/tallyd.pid"));
    tallyd_signal_handle(SIGTERM, nullptr, nullptr);
    EXPECT_EQ(1, eloop_terminated());
    EXPECT_FALSE(exists("/var/run/tac/tallyd.pid"));
    eloop_destroy();
}

}  // namespace
