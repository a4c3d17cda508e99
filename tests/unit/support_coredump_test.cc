// Core-dump settings by daemon name and platform, all under the test root.
#include <gtest/gtest.h>

#include <cstdlib>

#include "base/path.h"
#include "support/coredump.h"
#include "support/test_root.h"

namespace {

class SupportCoredump : public root_test {};

TEST_F(SupportCoredump, SettingsFollowTheDaemonNameAndThePlatform) {
    struct row {
        const char *name;
        const char *env;       // PLATFORM, or null for unset
        const char *env_file;  // /etc/ac_env_init, or null for none
        const char *hw;        // /proc/zvt_hw_info/platform, or null for none
        const char *pattern;   // written core_pattern; "" for untouched
    };
    const row rows[] = {
        // Nothing says which platform this is.
        {"tallyd", nullptr, nullptr, nullptr, ""},
        {"/usr/sbin/tallyd", "vxa8810", nullptr, nullptr, "/etc/corvane/dump/%e.core"},
        // The file's first PLATFORM... line counts; the environment wins.
        {"tallyd", nullptr, "HOSTPLATFORM=mq3312\nPLATFORM=tidewater-standard\nPLATFORM=x\n",
         nullptr, "/etc/corvane/dump/%e.core"},
        {"tallyd", "unknown", "PLATFORM=mq3312\n", nullptr, ""},
        // A vxa8810 with VX8810R hardware is the vxa8810lr, whatever the
        // case of either name; the table itself is case-sensitive.
        {"tallyd", "VXA8810", nullptr, "vx8810r\n", "/tmp/dump/%e.core"},
        {"tallyd", "VXA8810", nullptr, "KDL2206", ""},
        // Only the daemons of the list, by prefix, after the last '/'.
        {"vexd-worker", "mq3312", nullptr, nullptr, "/etc/corvane/dump/%e.core"},
        {"sshd", "mq3312", nullptr, nullptr, ""},
        {"/opt/tallyd/sshd", "mq3312", nullptr, nullptr, ""},
    };
    for (const row &r : rows) {
        SCOPED_TRACE(std::string(r.name) + " " + (r.env ? r.env : "-"));
        // The kernel files exist on a device; nothing creates them.
        write_file("/proc/sys/kernel/core_pattern", "");
        write_file("/proc/sys/kernel/core_uses_pid", "");
        std::remove(path("/etc/ac_env_init").c_str());
        std::remove(path(TALLYD_PLATFORM_FILE).c_str());
        if (r.env_file) write_file("/etc/ac_env_init", r.env_file);
        if (r.hw) write_file(TALLYD_PLATFORM_FILE, r.hw);
        r.env ? setenv("PLATFORM", r.env, 1) : unsetenv("PLATFORM");

        coredump_init(r.name);
        EXPECT_EQ(r.pattern, read_file("/proc/sys/kernel/core_pattern"));
        EXPECT_EQ(*r.pattern ? "0" : "", read_file("/proc/sys/kernel/core_uses_pid"));
    }
    unsetenv("PLATFORM");
}

}  // namespace
