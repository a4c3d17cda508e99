// Helpers shared by the benchmarks: a scratch root, wall-clock timing, the
// process's peak resident set, and the one result line every benchmark prints.
//
// A benchmark measures the daemon's path and bare SQLite doing the same work
// in the same process, so the ratio holds on any machine; the absolute times
// only tell how far a slower target is from its budget.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <cstdint>
#include <string>

#include "db/sql.h"

// A fresh directory made the daemon's root (TALLYD_ROOT) for the life of the
// object; removed with everything in it afterwards.
class bench_root {
   public:
    bench_root();
    ~bench_root();
    bench_root(const bench_root &) = delete;
    bench_root &operator=(const bench_root &) = delete;
    const std::string &path() const { return path_; }

   private:
    std::string path_;
};

// Seconds of wall time since construction or the last restart().
class bench_timer {
   public:
    bench_timer() { restart(); }
    void restart() { start_ = std::chrono::steady_clock::now(); }
    double seconds() const {
        return std::chrono::duration<double>(std::chrono::steady_clock::now() - start_).count();
    }

   private:
    std::chrono::steady_clock::time_point start_;
};

// A database file of the bare side, opened read-write (created when
// missing); closed when it cannot be opened.
sql_conn bench_open(const std::string &path);

// Number of rows of table on conn (0 when it cannot be counted).
int64_t bench_count(const sql_conn &conn, const std::string &table);

// Peak resident set of this process in KiB (VmHWM). bench_peak_rss_reset()
// restarts the peak from the current resident set, so that a later reading
// covers only what ran in between; it returns -1 where the kernel refuses.
int64_t bench_peak_rss_kib();
int bench_peak_rss_reset();

// Starts the build's tallyd as a child process in the bench root (its output
// to <root>/tallyd.log) and waits up to 20 s for its probe to be answered.
// Its pid, or -1 (then killed). The root must be the process's own as well
// (bench_root makes it so): the probe goes to its monitor socket.
pid_t bench_start_daemon(const std::string &root);

struct bench_result {
    const char *name;      // what was measured, e.g. "ingest steady"
    int64_t rows;          // rows written by each side
    double daemon_s;       // the daemon's path
    double bare_s;         // bare SQLite, same rows, same schema
    int64_t peak_rss_kib;  // peak RSS of the daemon's path
    double max_ratio;      // target for daemon_s / bare_s (0: none)
    double max_daemon_s;   // target for daemon_s (0: none)
};

// Prints one line per result ("name: rows=... daemon=...s bare=...s
// ratio=... peak_rss=...KiB") with the targets and whether they were met.
// Returns 0 when every target is met, 1 otherwise.
int bench_print(const bench_result &r);
