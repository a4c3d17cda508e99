// tallyd-save: writes the flash copies the daemon takes back at start-up.
//
// For avp_1.0, avp_backup_hour and statistic it copies /tmp/tallyd/N.db into
// the flash directory through SQLite's online backup (a consistent snapshot
// even while the daemon writes), and writes N.md5 beside it naming the
// database by the path it will have once restored (/tmp/tallyd/N.db,
// root-prefixed), so that "md5sum -c" checks it from any directory. Each file
// is written under a hidden temporary name, synced and renamed into place;
// hidden names are never taken by the daemon's "N.*" restore.
//
// Usage: tallyd-save [--root DIR]   (default: $TALLYD_ROOT, else /)
// Exit status 0 when all three copies are in place, 1 on bad usage or a
// missing database, 2 when the flash directory cannot be written.
#include <fcntl.h>
#include <sqlite3.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <string_view>

#include "base/file.h"
#include "base/path.h"
#include "db/db_files.h"
#include "db/db_fs.h"
#include "db/sql.h"

namespace fs = std::filesystem;

namespace {

constexpr const char *kBases[] = {"avp_1.0", "avp_backup_hour", "statistic"};

bool sync_path(const std::string &path, int flags) {
    unique_fd f(open(path.c_str(), flags));
    return f && fsync(f.get()) == 0;
}

// Copies src into a new file dest page by page under SQLite's locks.
bool backup_db(const std::string &src_path, const std::string &dest_path) {
    sql_conn src, dest;
    if (tallyd_db_open(src_path, SQLITE_OPEN_READONLY, src) != SQLITE_OK ||
        tallyd_db_open(dest_path, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, dest) != SQLITE_OK)
        return false;
    // The daemon may hold a write lock for a moment; wait for it.
    sqlite3_busy_timeout(src.get(), 5000);
    sqlite3_backup *b = sqlite3_backup_init(dest.get(), "main", src.get(), "main");
    if (!b) {
        std::fprintf(stderr, "tallyd-save: %s: %s\n", dest_path.c_str(),
                     sqlite3_errmsg(dest.get()));
        return false;
    }
    int rc;
    int retries = 100;
    while ((rc = sqlite3_backup_step(b, -1)) == SQLITE_BUSY || rc == SQLITE_LOCKED) {
        if (--retries == 0) break;
        sqlite3_sleep(50);
    }
    sqlite3_backup_finish(b);
    if (rc != SQLITE_DONE) {
        std::fprintf(stderr, "tallyd-save: backup of %s failed: %s\n", src_path.c_str(),
                     sqlite3_errstr(rc));
        return false;
    }
    return true;
}

// The hex digest "md5sum FILE" prints for path; empty on failure.
std::string md5_of(const std::string &path) {
    std::string cmd = "md5sum " + db_fs_shell_quote(path);
    tallyd_pipe p(popen(cmd.c_str(), "r"));
    if (!p) return {};
    char line[512] = {};
    if (!std::fgets(line, sizeof line, p.get())) return {};
    size_t n = std::strspn(line, "0123456789abcdef");
    return n == 32 ? std::string(line, n) : std::string();
}

bool write_text(const std::string &path, std::string_view text) {
    tallyd_file f(std::fopen(path.c_str(), "w"));
    if (!f) return false;
    bool ok = std::fwrite(text.data(), 1, text.size(), f.get()) == text.size();
    ok = std::fflush(f.get()) == 0 && ok;
    ok = fsync(fileno(f.get())) == 0 && ok;
    // fclose reports a write error that fflush did not see yet.
    return std::fclose(f.release()) == 0 && ok;
}

bool rename_into_place(const std::string &from, const std::string &to) {
    std::error_code ec;
    fs::rename(from, to, ec);
    if (ec) std::fprintf(stderr, "tallyd-save: %s: %s\n", to.c_str(), ec.message().c_str());
    return !ec;
}

// One database: copy, checklist, both renamed into place.
bool save_one(std::string_view base, const std::string &flash_dir) {
    std::string name(base);
    std::string src = db_fs_db_path(TALLYD_RAM_DIR, base);
    std::string tmp_db = flash_dir + "/." + name + ".db.tmp";
    std::string tmp_md5 = flash_dir + "/." + name + ".md5.tmp";
    db_fs_rm_rf(tmp_db);
    bool ok = backup_db(src, tmp_db) && sync_path(tmp_db, O_RDONLY);
    std::string digest = ok ? md5_of(tmp_db) : std::string();
    if (ok && digest.empty()) {
        std::fprintf(stderr, "tallyd-save: md5sum of %s failed\n", tmp_db.c_str());
        ok = false;
    }
    // The format "md5sum -c" reads: digest, two blanks, file name.
    ok = ok && write_text(tmp_md5, digest + "  " + src + "\n");
    ok = ok && rename_into_place(tmp_db, flash_dir + "/" + name + ".db") &&
         rename_into_place(tmp_md5, flash_dir + "/" + name + ".md5");
    if (!ok) {
        db_fs_rm_rf(tmp_db);
        db_fs_rm_rf(tmp_md5);
    }
    return ok;
}

int usage() {
    std::fprintf(stderr, "usage: tallyd-save [--root DIR]\n");
    return 1;
}

}  // namespace

int main(int argc, char **argv) {
    for (int i = 1; i < argc; ++i) {
        std::string_view arg = argv[i];
        if (arg == "--root" && i + 1 < argc)
            tallyd_root_set(argv[++i]);
        else
            return usage();
    }
    // The checklists name absolute paths so that md5sum -c works from the
    // daemon's working directory, whatever the caller's is.
    std::error_code ec;
    if (!tallyd_root().empty()) tallyd_root_set(fs::absolute(tallyd_root(), ec).string());
    // Check every source first: a partial set in flash would make the
    // daemon throw away the copies it has (a missing avp_1.0 copy empties
    // the whole flash directory at start-up).
    for (const char *base : kBases) {
        std::string src = db_fs_db_path(TALLYD_RAM_DIR, base);
        if (!db_fs_exists(src)) {
            std::fprintf(stderr, "tallyd-save: database %s is missing; nothing saved\n",
                         src.c_str());
            return 1;
        }
    }
    std::string flash_dir = tallyd_path(TALLYD_FLASH_DIR);
    db_fs_mkdir_p(flash_dir);
    int err = !fs::is_directory(flash_dir, ec)              ? ENOTDIR
              : access(flash_dir.c_str(), W_OK | X_OK) != 0 ? errno
                                                            : 0;
    if (err != 0) {
        std::fprintf(stderr, "tallyd-save: flash directory %s is not writable: %s\n",
                     flash_dir.c_str(), std::strerror(err));
        return 2;
    }
    for (const char *base : kBases)
        if (!save_one(base, flash_dir)) return 2;
    if (!sync_path(flash_dir, O_RDONLY | O_DIRECTORY)) {
        std::fprintf(stderr, "tallyd-save: cannot sync %s\n", flash_dir.c_str());
        return 2;
    }
    return 0;
}
