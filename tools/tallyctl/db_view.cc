#include "db_view.h"

#include <algorithm>
#include <filesystem>

#include "base/path.h"
#include "db/db_files.h"

namespace {

namespace fs = std::filesystem;

// Long enough to wait out one of the daemon's write transactions.
constexpr int kBusyWaitMs = 2000;

tallyctl_table_info describe_table(sqlite3 *conn, const std::string &name) {
    tallyctl_table_info t;
    t.name = name;
    const std::string quoted = tallyctl_sql_name(name);
    bool has_time = false;
    t.error = tallyctl_query(conn, "PRAGMA table_info(" + quoted + ")", [&](sqlite3_stmt *s) {
        auto col = reinterpret_cast<const char *>(sqlite3_column_text(s, 1));
        if (col && std::string_view(col) == "time") has_time = true;
    });
    if (!t.error.empty()) return t;
    // Two statements: count(*) alone walks the b-tree without reading rows.
    t.error = tallyctl_query(conn, "SELECT count(*) FROM " + quoted,
                             [&](sqlite3_stmt *s) { t.rows = sqlite3_column_int64(s, 0); });
    if (!t.error.empty() || !has_time) return t;
    t.error = tallyctl_query(conn, "SELECT max(time) FROM " + quoted, [&](sqlite3_stmt *s) {
        if (sqlite3_column_type(s, 0) != SQLITE_NULL) t.newest = sqlite3_column_int64(s, 0);
    });
    return t;
}

}  // namespace

std::vector<tallyctl_db_file> tallyctl_db_files() {
    std::vector<tallyctl_db_file> files;
    for (std::string_view dir : {TALLYD_RAM_DIR, TALLYD_FLASH_DIR}) {
        std::error_code ec;
        std::vector<std::string> names;
        for (const auto &e : fs::directory_iterator(tallyd_path(dir), ec)) {
            if (e.path().extension() == ".db" && e.is_regular_file(ec))
                names.push_back(e.path().filename().string());
        }
        std::sort(names.begin(), names.end());
        for (const std::string &n : names) {
            std::string device = std::string(dir) + "/" + n;
            files.push_back({tallyd_path(device), device});
        }
    }
    return files;
}

bool tallyctl_db_open_ro(const std::string &path, sql_conn &conn) {
    // One thread: no mutex on every column read of the big scans.
    if (tallyd_db_open(path, SQLITE_OPEN_READONLY | SQLITE_OPEN_NOMUTEX, conn) != SQLITE_OK)
        return false;
    sqlite3_busy_timeout(conn.get(), kBusyWaitMs);
    return true;
}

std::string tallyctl_sql_name(std::string_view name) {
    std::string q = "\"";
    for (char c : name) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

uint64_t tallyctl_column_u64(sqlite3_stmt *s, int col) {
    switch (sqlite3_column_type(s, col)) {
        case SQLITE_INTEGER:
            return static_cast<uint64_t>(sqlite3_column_int64(s, col));
        case SQLITE_FLOAT: {
            double d = sqlite3_column_double(s, col);
            return d > 0 && d < 0x1p64 ? static_cast<uint64_t>(d) : 0;
        }
        default:
            return 0;
    }
}

tallyctl_db_info tallyctl_describe_db(const tallyctl_db_file &file) {
    tallyctl_db_info d;
    d.file = file;
    sql_conn db;
    if (!tallyctl_db_open_ro(file.host, db)) {
        d.error = "cannot open";
        return d;
    }
    std::vector<std::string> names;
    d.error =
        tallyctl_query(db.get(), "SELECT name FROM sqlite_master WHERE type='table' ORDER BY name",
                       [&](sqlite3_stmt *s) {
                           auto n = reinterpret_cast<const char *>(sqlite3_column_text(s, 0));
                           names.emplace_back(n ? n : "");
                       });
    for (const std::string &n : names) d.tables.push_back(describe_table(db.get(), n));
    return d;
}
