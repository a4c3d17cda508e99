#include "cmd_tables.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <nlohmann/json.hpp>
#include <optional>
#include <string_view>
#include <vector>

#include "base/path.h"
#include "commands.h"
#include "db/db_files.h"
#include "db/sql.h"

namespace {

namespace fs = std::filesystem;

struct table_info {
    std::string name;
    int64_t rows = -1;              // -1: could not be counted
    std::optional<int64_t> newest;  // absent: no `time` column or no row
    std::string error;
};

struct db_info {
    std::string file;
    std::vector<table_info> tables;
    std::string error;
};

// Runs sql and calls row(stmt) per result row; SQLite's message on failure.
template <typename F>
std::string query(sqlite3 *conn, const std::string &sql, F row) {
    sql_error err;
    sql_stmt s = sql_prepare(conn, sql.c_str(), &err);
    if (!s) return err.text;
    int rc;
    while ((rc = s.step(&err)) == SQLITE_ROW) row(s.get());
    return rc == SQLITE_DONE ? "" : err.text;
}

std::string quoted_name(const std::string &name) {
    std::string q = "\"";
    for (char c : name) q += c == '"' ? std::string("\"\"") : std::string(1, c);
    return q + "\"";
}

table_info describe_table(sqlite3 *conn, const std::string &name) {
    table_info t;
    t.name = name;
    std::string from = " FROM " + quoted_name(name);
    t.error = query(conn, "SELECT count(*)" + from,
                    [&](sqlite3_stmt *s) { t.rows = sqlite3_column_int64(s, 0); });
    if (!t.error.empty()) return t;

    bool has_time = false;
    query(conn, "PRAGMA table_info(" + quoted_name(name) + ")", [&](sqlite3_stmt *s) {
        auto col = reinterpret_cast<const char *>(sqlite3_column_text(s, 1));
        if (col && std::string_view(col) == "time") has_time = true;
    });
    if (has_time) {
        t.error = query(conn, "SELECT max(time)" + from, [&](sqlite3_stmt *s) {
            if (sqlite3_column_type(s, 0) != SQLITE_NULL) t.newest = sqlite3_column_int64(s, 0);
        });
    }
    return t;
}

db_info describe_db(const std::string &file) {
    db_info d;
    d.file = file;
    sql_conn db;
    if (tallyd_db_open(file, SQLITE_OPEN_READONLY, db) != SQLITE_OK) {
        d.error = "cannot open";
        return d;
    }
    // The daemon may be writing; wait a moment rather than fail.
    sqlite3_busy_timeout(db.get(), 2000);
    std::vector<std::string> names;
    d.error =
        query(db.get(), "SELECT name FROM sqlite_master WHERE type='table' ORDER BY name",
              [&](sqlite3_stmt *s) {
                  names.emplace_back(reinterpret_cast<const char *>(sqlite3_column_text(s, 0)));
              });
    for (const std::string &n : names) d.tables.push_back(describe_table(db.get(), n));
    return d;
}

std::vector<std::string> database_files() {
    std::vector<std::string> files;
    for (std::string_view dir : {TALLYD_RAM_DIR, TALLYD_FLASH_DIR}) {
        std::error_code ec;
        std::vector<std::string> here;
        for (const auto &e : fs::directory_iterator(tallyd_path(dir), ec)) {
            if (e.path().extension() == ".db" && e.is_regular_file(ec))
                here.push_back(e.path().string());
        }
        std::sort(here.begin(), here.end());
        files.insert(files.end(), here.begin(), here.end());
    }
    return files;
}

std::string utc(int64_t t) {
    time_t tt = static_cast<time_t>(static_cast<uint32_t>(t));
    tm parts{};
    gmtime_r(&tt, &parts);
    char buf[32];
    std::strftime(buf, sizeof buf, "%Y-%m-%d %H:%M:%S", &parts);
    return buf;
}

void print_text(const std::vector<db_info> &dbs, std::string *out) {
    char line[512];
    for (const db_info &d : dbs) {
        *out += d.file + (d.error.empty() ? "" : "  (" + d.error + ")") + "\n";
        for (const table_info &t : d.tables) {
            std::string newest =
                t.newest ? utc(*t.newest) + " UTC (" + std::to_string(*t.newest) + ")" : "-";
            if (!t.error.empty()) newest = "error: " + t.error;
            std::snprintf(line, sizeof line, "  %-24s %9" PRId64 "  %s\n", t.name.c_str(), t.rows,
                          newest.c_str());
            *out += line;
        }
    }
}

void print_json(const std::vector<db_info> &dbs, std::string *out) {
    nlohmann::json list = nlohmann::json::array();
    for (const db_info &d : dbs) {
        nlohmann::json db = {{"file", d.file}};
        if (!d.error.empty()) db["error"] = d.error;
        nlohmann::json tables = nlohmann::json::array();
        for (const table_info &t : d.tables) {
            nlohmann::json tj = {{"name", t.name}, {"rows", t.rows}};
            tj["newest_time"] = t.newest ? nlohmann::json(*t.newest) : nlohmann::json(nullptr);
            if (!t.error.empty()) tj["error"] = t.error;
            tables.push_back(std::move(tj));
        }
        db["tables"] = std::move(tables);
        list.push_back(std::move(db));
    }
    // Bytes that are not UTF-8 (a table name is the database's own text)
    // come out replaced rather than ending the dump.
    *out += nlohmann::json{{"databases", std::move(list)}}.dump(
                -1, ' ', false, nlohmann::json::error_handler_t::replace) +
            "\n";
}

}  // namespace

int tallyctl_print_tables(bool json, std::string *out, std::string *error) {
    std::vector<db_info> dbs;
    for (const std::string &f : database_files()) dbs.push_back(describe_db(f));
    if (json)
        print_json(dbs, out);
    else
        print_text(dbs, out);
    if (dbs.empty()) {
        *error = "no database files under " + tallyd_path(TALLYD_RAM_DIR) + " or " +
                 tallyd_path(TALLYD_FLASH_DIR);
        return 1;
    }
    return 0;
}

int tallyctl_cmd_tables(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    if (!args.empty()) {
        std::fprintf(stderr, "tallyctl: tables takes no arguments (only --json)\n");
        return 2;
    }
    std::string out, error;
    int rc = tallyctl_print_tables(ctx.json, &out, &error);
    std::fputs(out.c_str(), stdout);
    if (rc != 0) std::fprintf(stderr, "tallyctl: %s\n", error.c_str());
    return rc;
}
