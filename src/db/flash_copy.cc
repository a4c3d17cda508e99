#include "db/flash_copy.h"

#include <cstdio>
#include <cstring>
#include <string>

#include "base/file.h"
#include "base/path.h"
#include "db/db_fs.h"

namespace {

// Runs "md5sum -c <path>" and judges its first output line: any line that
// holds "OK" anywhere counts as verified.
bool md5sum_check(const std::string &path) {
    std::string cmd = "md5sum -c " + db_fs_shell_quote(path);
    tallyd_pipe pipe(popen(cmd.c_str(), "r"));
    if (!pipe) return false;
    char line[256] = {};
    bool ok = false;
    if (std::fgets(line, sizeof line, pipe.get())) {
        line[std::strcspn(line, "\r\n")] = '\0';
        ok = std::strstr(line, "OK") != nullptr;
    }
    // Drain so that md5sum never dies of a broken pipe before pclose.
    while (std::fgets(line, sizeof line, pipe.get())) {
    }
    return ok;
}

}  // namespace

int tallyd_md5_verify(const char *md5_name) {
    if (!md5_name) return 0;
    std::string path = tallyd_path(TALLYD_RAM_DIR) + "/" + md5_name;
    if (!db_fs_exists(path)) return 0;
    bool ok = md5sum_check(path);
    // The checklist is consumed whatever it said.
    db_fs_rm_rf(path);
    return ok ? 1 : 0;
}
