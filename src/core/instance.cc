#include "core/instance.h"

#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <string>

#include "base/file.h"
#include "base/path.h"

int32_t tallyd_read_pid_file(const char *path) {
    if (!path) return -1;
    tallyd_file f(fopen(path, "r"));
    if (!f) return 0;
    char line[128] = "";
    if (!fgets(line, sizeof line, f.get())) return 0;
    line[strcspn(line, "\r\n")] = '\0';
    return atoi(line);
}

int32_t tallyd_write_pid_file(const char *path) {
    if (!path) return -1;
    tallyd_file f(fopen(path, "w"));
    if (!f) return -1;
    // A full or read-only file system shows in the write or, buffered, only
    // in the close.
    bool written = fprintf(f.get(), "%d", static_cast<int>(getpid())) > 0;
    return fclose(f.release()) == 0 && written ? 0 : -1;
}

uint8_t tallyd_pid_is_tallyd(int32_t pid) {
    if (pid < 1) return 0;
    // A grep of the process list for "tallyd" sees a process as its command
    // line with the argument separators as spaces.
    std::ifstream in("/proc/" + std::to_string(pid) + "/cmdline", std::ios::binary);
    if (!in) return 0;
    std::string cmd((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    for (char &c : cmd)
        if (c == '\0') c = ' ';
    return cmd.find("tallyd") != std::string::npos ? 1 : 0;
}

uint8_t tallyd_check_tallyd_existing() {
    int32_t pid = tallyd_read_pid_file(tallyd_path(TALLYD_PID_FILE).c_str());
    if (pid < 1) return 0;
    return tallyd_pid_is_tallyd(pid);
}
