#include "support/coredump.h"

#include <fcntl.h>
#include <strings.h>
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "base/file.h"
#include "base/path.h"
#include "support/proc_name.h"

namespace {

constexpr std::string_view kEnvFile = "/etc/ac_env_init";
constexpr std::string_view kCorePattern = "/proc/sys/kernel/core_pattern";
constexpr std::string_view kCoreUsesPid = "/proc/sys/kernel/core_uses_pid";

constexpr const char *kDaemons[] = {"apkeep",    "clikeep", "portald", "vexd",
                                    "pollstatd", "tallyd",  "rpushc"};

struct core_setting {
    const char *platform;  // compared exactly; null ends the search
    const char *pattern;
    const char *uses_pid;
    rlim_t limit;  // soft and hard core size limit
};

// The last row has no platform, so the search stops on it before it could
// apply: access points' settings that no controller platform uses. Kept as
// the table has always been.
constexpr core_setting kSettings[] = {
    {"mq3312", "/etc/corvane/dump/%e.core", "0", 2147483647},
    {"vxa8810", "/etc/corvane/dump/%e.core", "0", 2147483647},
    {"vxa8810lr", "/tmp/dump/%e.core", "0", 2147483647},
    {"tidewater-standard", "/etc/corvane/dump/%e.core", "0", 2147483647},
    {nullptr, "/tmp/ap-dump/%e.core", "0", 1048576},
};

// The list is searched from its end, each entry a prefix of the name.
bool is_known_daemon(std::string_view name) {
    for (size_t i = std::size(kDaemons); i-- > 0;)
        if (name.starts_with(kDaemons[i])) return true;
    return false;
}

// The value of the first "PLATFORM...=value" line of the environment file.
// Each line loses its last character as its line end.
bool platform_from_env_file(char (&value)[256]) {
    tallyd_file f(std::fopen(tallyd_path(kEnvFile).c_str(), "r"));
    if (!f) return false;
    char line[256];
    while (std::fgets(line, sizeof line, f.get())) {
        size_t len = std::strlen(line);
        if (len > 0) line[len - 1] = '\0';
        char key[256];
        if (std::sscanf(line, "%255[a-zA-Z]=%255s", key, value) == 2 &&
            std::strncmp(key, "PLATFORM", 8) == 0)
            return true;
    }
    return false;
}

// A vxa8810 whose hardware reports a VX8810R is the large-flash variant.
bool is_vxa8810lr() {
    tallyd_file f(std::fopen(tallyd_path(TALLYD_PLATFORM_FILE).c_str(), "r"));
    if (!f) return false;
    char hw[8] = {};
    if (std::fread(hw, 1, 7, f.get()) != 7) return false;
    return strncasecmp(hw, "VX8810R", 7) == 0;
}

const core_setting *find_setting(const char *platform) {
    for (const core_setting *row = kSettings; row->platform; ++row)
        if (std::strcmp(row->platform, platform) == 0) return row;
    return nullptr;
}

// The kernel files exist on the device; nothing is created where they don't.
void write_kernel_file(std::string_view file, const char *text) {
    unique_fd fd(open(tallyd_path(file).c_str(), O_WRONLY | O_CLOEXEC));
    if (fd.get() < 0) return;
    ssize_t n = write(fd.get(), text, std::strlen(text));
    (void)n;
}

}  // namespace

void coredump_init(std::string_view name) {
    if (!is_known_daemon(proc_base_name(name))) return;

    char platform[256];
    if (const char *env = std::getenv("PLATFORM"))
        std::snprintf(platform, sizeof platform, "%s", env);
    else if (!platform_from_env_file(platform))
        return;
    if (strcasecmp(platform, "vxa8810") == 0 && is_vxa8810lr())
        std::snprintf(platform, sizeof platform, "vxa8810lr");

    const core_setting *row = find_setting(platform);
    if (!row) return;
    rlimit limit{row->limit, row->limit};
    setrlimit(RLIMIT_CORE, &limit);
    write_kernel_file(kCorePattern, row->pattern);
    write_kernel_file(kCoreUsesPid, row->uses_pid);
}
