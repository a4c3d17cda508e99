// Small helpers of the end-to-end tests: whole-file text I/O, running a tool
// of the build, reading the daemon's databases, and waiting for a condition
// that a running daemon makes true.
#pragma once

#include <sys/wait.h>

#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "base/file.h"
#include "db/db_files.h"
#include "db/sql.h"
#include "support/launch.h"

inline std::string read_text(const std::string &path) {
    std::ifstream in(path);
    return std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
}

// Writes text to path, creating the parent directories.
inline void write_text(const std::string &path, const std::string &text) {
    std::filesystem::create_directories(std::filesystem::path(path).parent_path());
    std::ofstream(path) << text;
}

// Runs a tool of the build through the shell, e.g. run_tool("tallyctl --root
// /tmp/x ids"): the tool named by the first word is started the way
// support/launch.h says. Its standard output and exit status (-1 when it did
// not exit).
inline std::pair<std::string, int> run_tool(const std::string &command) {
    const size_t space = command.find(' ');
    std::string cmd = tallyd_test_command(command.substr(0, space));
    if (space != std::string::npos) cmd += command.substr(space);
    tallyd_pipe p(popen(cmd.c_str(), "r"));
    if (!p) return {"", -1};
    std::string out;
    char buf[512];
    while (size_t n = std::fread(buf, 1, sizeof buf, p.get())) out.append(buf, n);
    int status = pclose(p.release());
    return {out, WIFEXITED(status) ? WEXITSTATUS(status) : -1};
}

// Every row of a statement run on a database file the daemon keeps open,
// through a connection of the test's own that waits for the daemon's writes;
// NULL reads "NULL". *error (optional) gets SQLite's message, or "open", when
// it fails.
inline std::vector<std::vector<std::string>> e2e_rows(const std::string &file,
                                                      const std::string &statement,
                                                      std::string *error = nullptr) {
    std::vector<std::vector<std::string>> rows;
    sql_conn db;
    sql_error err{SQLITE_CANTOPEN, "open"};
    if (tallyd_db_open(file, SQLITE_OPEN_READWRITE, db) == SQLITE_OK) {
        sqlite3_busy_timeout(db.get(), 3000);
        sql_stmt s = sql_prepare(db.get(), statement.c_str(), &err);
        while (s && s.step(&err) == SQLITE_ROW) {
            rows.emplace_back();
            for (int c = 0; c < sqlite3_column_count(s.get()); ++c) {
                auto t = reinterpret_cast<const char *>(sqlite3_column_text(s.get(), c));
                rows.back().push_back(t ? t : "NULL");
            }
        }
    }
    if (error) *error = err.failed() ? err.text : "";
    return rows;
}

// The same rows as one text: "a|b" per row, rows joined with ','; "ERROR:
// <message>" when the statement fails.
inline std::string e2e_sql(const std::string &file, const std::string &statement) {
    std::string error, out;
    bool first = true;
    for (const auto &row : e2e_rows(file, statement, &error)) {
        if (!first) out += ',';
        first = false;
        for (size_t c = 0; c < row.size(); ++c) out += (c ? "|" : "") + row[c];
    }
    return error.empty() ? out : "ERROR: " + error;
}

// Polls done every 50 ms until it holds or timeout_ms (stretched for a slow
// launcher) have passed; the result of a last look.
inline bool eventually(const std::function<bool()> &done, int timeout_ms = 5000) {
    auto end = std::chrono::steady_clock::now() +
               std::chrono::milliseconds(tallyd_test_timeout(timeout_ms));
    while (std::chrono::steady_clock::now() < end) {
        if (done()) return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(50));
    }
    return done();
}
