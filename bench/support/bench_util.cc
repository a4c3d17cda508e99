#include "support/bench_util.h"

#include <signal.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <string_view>

#include "base/path.h"
#include "client.h"
#include "db/db_files.h"
#include "db/sql.h"

bench_root::bench_root() {
    std::string tmpl = (std::filesystem::temp_directory_path() / "tallyd-bench-XXXXXX").string();
    if (mkdtemp(tmpl.data())) path_ = tmpl;
    tallyd_root_set(path_);
}

bench_root::~bench_root() {
    tallyd_root_set("");
    std::error_code ec;
    if (!path_.empty()) std::filesystem::remove_all(path_, ec);
}

sql_conn bench_open(const std::string &path) {
    sql_conn conn;
    tallyd_db_open(path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, conn);
    return conn;
}

int64_t bench_count(const sql_conn &conn, const std::string &table) {
    sql_table t;
    sql_get_table(conn.get(), ("SELECT count(*) FROM " + table).c_str(), t);
    return t.rows() ? t.int_at(0, 0) : 0;
}

int64_t bench_peak_rss_kib() {
    std::ifstream status("/proc/self/status");
    std::string line;
    constexpr std::string_view key = "VmHWM:";
    while (std::getline(status, line)) {
        if (line.compare(0, key.size(), key) == 0)
            return std::strtoll(line.c_str() + key.size(), nullptr, 10);
    }
    return -1;
}

int bench_peak_rss_reset() {
    // Writing 5 to clear_refs resets the high-water mark (Linux 4.0 and later).
    std::ofstream clear("/proc/self/clear_refs");
    clear << "5" << std::flush;
    return clear.good() ? 0 : -1;
}

int bench_print(const bench_result &r) {
    double ratio = r.bare_s > 0 ? r.daemon_s / r.bare_s : 0;
    bool ratio_ok = r.max_ratio <= 0 || ratio <= r.max_ratio;
    bool time_ok = r.max_daemon_s <= 0 || r.daemon_s <= r.max_daemon_s;
    std::printf("%s: rows=%lld daemon=%.3fs bare=%.3fs ratio=%.2f peak_rss=%lldKiB", r.name,
                static_cast<long long>(r.rows), r.daemon_s, r.bare_s, ratio,
                static_cast<long long>(r.peak_rss_kib));
    if (r.max_ratio > 0) std::printf(" [ratio<=%.2f %s]", r.max_ratio, ratio_ok ? "ok" : "MISSED");
    if (r.max_daemon_s > 0)
        std::printf(" [daemon<=%.2fs %s]", r.max_daemon_s, time_ok ? "ok" : "MISSED");
    std::printf("\n");
    std::fflush(stdout);
    return ratio_ok && time_ok ? 0 : 1;
}

pid_t bench_start_daemon(const std::string &root) {
    const pid_t pid = fork();
    if (pid == 0) {
        setenv("TALLYD_ROOT", root.c_str(), 1);
        std::freopen("/dev/null", "w", stdout);
        std::freopen((root + "/tallyd.log").c_str(), "w", stderr);
        execl(TALLYD_BIN_DIR "/tallyd", "tallyd", static_cast<char *>(nullptr));
        _exit(127);
    }
    tallyctl_bytes reply;
    std::string error;
    // Asked every 10 ms until the monitor socket is there, so that a start
    // can be timed to within a few milliseconds.
    for (bench_timer t; t.seconds() < 20;) {
        if (tallyctl_probe(100, &reply, &error)) return pid;
        usleep(10000);
    }
    kill(pid, SIGKILL);
    return -1;
}
