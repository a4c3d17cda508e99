#include "fuzz_daemon.h"

#include <fcntl.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <filesystem>

#include "base/path.h"
#include "base/sys_info.h"
#include "core/tallyd.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "entity/dict.h"
#include "platform/xrepo_file.h"
#include "sim_world.h"

namespace fs = std::filesystem;

namespace {

std::string scratch_root;
size_t inputs;

void remove_root() {
    tallyd_db_set.close_all();
    std::error_code ec;
    if (!scratch_root.empty()) fs::remove_all(scratch_root, ec);
}

// The lists a controller of 8 APs in two AP groups holds, plus empty
// dictionary lists, as tallyd-sim writes them before a daemon starts.
void write_repository() {
    const std::string dir = tallyd_path(TALLYD_XREPO_DIR);
    sim_world world(sim_world_config{});
    for (const auto &[name, xml] : world.repository())
        xrepo_file_replace(dir + "/" + name + ".xml", xml);
    for (const char *name :
         {"avpap-list", "avpssid-list", "avpapgroup-list", "avpdvcinfo-list", "sta-rename-list"})
        xrepo_file_replace(dir + "/" + name + ".xml", std::string("<") + name + "/>\n");
}

// The fuzzer is the only process using the databases, so every connection
// takes its file lock once and keeps it: a transaction then costs no lock and
// unlock calls and no check for another process's journal, and a commit
// clears its journal rather than creating and deleting the file, which
// together were some ten system calls of every input. The statements and the
// rows they store are what they are with shared locking.
void keep_locks() {
    for (sql_conn *c :
         {&tallyd_db_set.db, &tallyd_db_set.db_flash, &tallyd_db_set.temp_db,
          &tallyd_db_set.backup_hour_db, &tallyd_db_set.top_list_db, &tallyd_db_set.statistic_db})
        if (*c) sql_exec(c->get(), "PRAGMA locking_mode=EXCLUSIVE");
}

void load() {
    write_repository();
    fs::create_directories(tallyd_path(TALLYD_SPOOL_DIR));
    fs::create_directories(tallyd_path(TALLYD_RUN_DIR));
    tallyd_load_state();
    keep_locks();
}

}  // namespace

void fuzz_daemon_start() {
    if (!scratch_root.empty()) return;
    const char *base = fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp";
    std::string tmpl = std::string(base) + "/tallyd-fuzz-XXXXXX";
    if (!mkdtemp(tmpl.data())) fuzz_fail("cannot make a scratch root");
    scratch_root = tmpl;
    tallyd_root_set(scratch_root);
    std::atexit(remove_root);
    load();
}

bool fuzz_daemon_tick(size_t period) {
    if (++inputs % period != 0) return false;
    tallyd_db_set.close_all();
    tallyd_dict_reset(&tallyd_sys_info);
    std::error_code ec;
    for (const fs::directory_entry &e : fs::directory_iterator(scratch_root, ec))
        fs::remove_all(e.path(), ec);
    load();
    return true;
}

bool fuzz_write_file(const std::string &path, const void *bytes, size_t size) {
    int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644);
    if (fd < 0) return false;
    bool ok = write(fd, bytes, size) == static_cast<ssize_t>(size);
    close(fd);
    return ok;
}

void fuzz_fail(const char *what) {
    std::fprintf(stderr, "fuzz: %s\n", what);
    std::fflush(stderr);
    std::abort();
}
