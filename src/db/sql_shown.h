// Running an sql_form (db/sql.h) with typed values.
//
// The daemon's log shows each failed statement printed from its form
// ("UPDATE avp_ap SET time=%lu WHERE ap_mac='%s'"); what runs is the form's
// bound statement, prepared once per connection (sql_conn::cached) and bound
// with values of the storage class the formatted literal would have had. So
// no text can change a statement, and another tool reading the file sees
// exactly what the formatted statement would have stored.
//
// Arguments are given in the order of the format's conversions; their C++
// type chooses both the conversion and the binding:
//   int32_t            "%d"             integer
//   uint32_t           "%lu" (times)    integer
//   uint64_t           "%llu"           integer (bind_u64)
//   const char *       "'%s'"           text, as it stands
//   sql_text           "'%s'"           text: shown escaped, stored as its value
#pragma once

#include <sqlite3.h>
#include <syslog.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string_view>

#include "db/sql.h"

// A text that went through tallyd_sql_escape: shown with its quotes doubled,
// stored with each doubled quote read back as one (sql_literal_value). The
// value must stay valid until the statement has run.
struct sql_text {
    const char *shown;
    std::string_view value;
};

namespace sql_shown_detail {

inline int fmt_arg(int32_t v) {
    return v;
}
inline unsigned long fmt_arg(uint32_t v) {
    return v;
}
inline unsigned long long fmt_arg(uint64_t v) {
    return v;
}
inline const char *fmt_arg(const char *v) {
    return v;
}
inline const char *fmt_arg(const sql_text &v) {
    return v.shown;
}

inline void bind_arg(sql_stmt &s, int i, int32_t v) {
    s.bind(i, int64_t{v});
}
inline void bind_arg(sql_stmt &s, int i, uint32_t v) {
    s.bind(i, int64_t{v});
}
inline void bind_arg(sql_stmt &s, int i, uint64_t v) {
    s.bind_u64(i, v);
}
inline void bind_arg(sql_stmt &s, int i, const char *v) {
    s.bind_static(i, v);
}
inline void bind_arg(sql_stmt &s, int i, const sql_text &v) {
    s.bind_static(i, v.value);
}

// The statement of db prepared and bound, or null with err filled.
sql_stmt *prepare(sql_conn &db, const char *bound, sql_error &err);

}  // namespace sql_shown_detail

// The statement printed with its values, cut at size - 1 bytes: the fixed
// buffer of the statement's size that a log line shows.
template <size_t N, class... A>
void sql_shown_format(char *buf, size_t size, const sql_form<N> &s, const A &...args) {
    std::snprintf(buf, size, s.printed(), sql_shown_detail::fmt_arg(args)...);
}

// The prepared statement with args bound, ready to step; null with err
// filled when it cannot be prepared. Reset it (sql_stmt::reset) when done.
template <size_t N, class... A>
sql_stmt *sql_shown_bind(sql_conn &db, const sql_form<N> &s, sql_error &err, const A &...args) {
    sql_stmt *st = sql_shown_detail::prepare(db, s.bound(), err);
    if (!st) return nullptr;
    int i = 0;
    (sql_shown_detail::bind_arg(*st, ++i, args), ...);
    return st;
}

// Runs the statement to its end. SQLITE_OK, or the error code with err filled.
template <size_t N, class... A>
int sql_shown_run(sql_conn &db, const sql_form<N> &s, sql_error &err, const A &...args) {
    sql_stmt *st = sql_shown_bind(db, s, err, args...);
    if (!st) return err.rc;
    int rc = st->run(&err);
    st->reset();
    return rc;
}

// sql_shown_run, then on failure logs log_fmt with (statement as formatted
// into size bytes, SQLite's message).
template <size_t N, class... A>
int sql_shown_run_log(sql_conn &db, const sql_form<N> &s, size_t size, const char *log_fmt,
                      sql_error &err, const A &...args);

// Steps the statement and calls row(stmt) for each row. SQLITE_OK, or the
// error code with err filled (rows before the error were delivered).
template <size_t N, class F, class... A>
int sql_shown_query(sql_conn &db, const sql_form<N> &s, sql_error &err, F &&row, const A &...args) {
    sql_stmt *st = sql_shown_bind(db, s, err, args...);
    if (!st) return err.rc;
    int rc;
    while ((rc = st->step(&err)) == SQLITE_ROW) row(st->get());
    st->reset();
    if (rc != SQLITE_DONE) return rc;
    err = sql_error{};
    return SQLITE_OK;
}

// Logs a failed statement at priority (LOG_ERR when not given): log_fmt
// with (statement formatted into size bytes, err's message).
template <size_t N, class... A>
void sql_shown_log(int priority, const char *log_fmt, const sql_error &err, size_t size,
                   const sql_form<N> &s, const A &...args);
template <size_t N, class... A>
void sql_shown_log(const char *log_fmt, const sql_error &err, size_t size, const sql_form<N> &s,
                   const A &...args) {
    sql_shown_log(LOG_ERR, log_fmt, err, size, s, args...);
}

// Column readers: integers as atoi reads their text (0 for NULL), so a value
// compares as the stored text does; texts as they are ("" for NULL).
int32_t sql_col_int(sqlite3_stmt *st, int col);
bool sql_col_null(sqlite3_stmt *st, int col);
std::string_view sql_col_text(sqlite3_stmt *st, int col);

// ---- implementation of the logging templates ----

void sql_shown_log_text(int priority, const char *log_fmt, const char *statement,
                        const sql_error &err);

template <size_t N, class... A>
void sql_shown_log(int priority, const char *log_fmt, const sql_error &err, size_t size,
                   const sql_form<N> &s, const A &...args) {
    char buf[1024];
    sql_shown_format(buf, size < sizeof buf ? size : sizeof buf, s, args...);
    sql_shown_log_text(priority, log_fmt, buf, err);
}

template <size_t N, class... A>
int sql_shown_run_log(sql_conn &db, const sql_form<N> &s, size_t size, const char *log_fmt,
                      sql_error &err, const A &...args) {
    int rc = sql_shown_run(db, s, err, args...);
    if (rc != SQLITE_OK) sql_shown_log(log_fmt, err, size, s, args...);
    return rc;
}
