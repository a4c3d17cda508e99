// Small SQL helpers shared by the hourly, daily and client statistics rollups.
//
// The rollups store what their statements printed into fixed buffers would
// store ("%s" between single quotes, "%llu" and "%lu" numbers), but run the
// per-row ones as prepared statements. These helpers keep the two in step:
// texts bound as the printed literal would have stored them, and one prepared
// statement per (statement, table), cached on the target connection.
#pragma once

#include <cstdint>
#include <string_view>

#include "db/sql.h"
#include "db/tables.h"

// The text "%s" prints for a value of a result table: "(null)" for NULL.
inline const char *rollup_text(const char *v) {
    return v ? v : "(null)";
}

// The result of a rollup whose last statement ran on conn and left err:
// when err shows conn's file damaged the rebuild is started (mask, or conn's
// database alone when mask does not name it) and the result is -1; else 0.
int rollup_result(sql_conn &conn, const sql_error &err, uint32_t mask);

// The cached prepared statement of fmt (one "%s" for the table) on table, for
// conn. Null on failure with err filled, as running the statement would have
// filled it.
sql_stmt *rollup_stmt(sql_conn &conn, const char *fmt, tallyd_table table, sql_error *err);

// A text as the rollups put it between single quotes: copied into a buffer of
// `size` bytes (cut at size - 1) and, when it holds a quote, escaped in place
// with tallyd_sql_escape bounded by size. sql() is the text printed into the
// statement; value() is what SQLite stores from that literal.
class rollup_quoted {
   public:
    static constexpr int32_t kMax = 128;

    // Returns true when the text held a quote and was escaped (callers log).
    bool set(const char *text, int32_t size);
    const char *sql() const { return sql_; }
    std::string_view value() const { return value_; }

   private:
    char sql_[kMax] = {};
    char plain_[kMax] = {};
    std::string_view value_;
};

// Binds the leading (time, app, port) of an application row: the stamp, the
// application name quoted into a 128-byte buffer (its escape logged as
// "tallyd, avp_ap_ssid escaped app = %s", the text three rollups share) and
// the port as "%d" stores it. app must outlive the statement's run.
void rollup_bind_app(sql_stmt &stmt, rollup_quoted &app, uint32_t stamp, const char *name,
                     int32_t port);
