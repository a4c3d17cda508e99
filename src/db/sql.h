// The SQL layer: every SQLite call of the daemon goes through here.
//
// RAII owners for statements, result tables, error texts and transactions;
// helpers that run a statement and log its failure in the daemon's own words;
// the one place that recognises a corrupt database. Nothing here throws.
//
// Logging convention: a helper given a log format calls
// tallyd_log(LOG_ERR, fmt, <statement text>, <SQLite message>) when, and only
// when, SQLite reports an error; formats therefore take "%s" twice in that
// order ("tallyd, value = %s, aErrMsg = %s\n"). Helpers whose format takes only
// the message say so.
#pragma once

#include <sqlite3.h>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

inline constexpr std::string_view TALLYD_ERR_MALFORMED = "database disk image is malformed";
inline constexpr std::string_view TALLYD_ERR_LOCKED = "database is locked";
// What an open connection meets once its file's header was overwritten.
inline constexpr std::string_view TALLYD_ERR_NOT_A_DB = "file is not a database";

// True for the exact SQLite texts that ask for a rebuild: a malformed
// database, or a file whose header no longer reads as a database.
bool tallyd_sql_is_malformed(std::string_view err);

// The error text of the last failed call, as sqlite3_exec would have handed
// it out; empty after success.
struct sql_error {
    int rc = SQLITE_OK;
    std::string text;
    bool failed() const { return rc != SQLITE_OK; }
    bool malformed() const { return failed() && tallyd_sql_is_malformed(text); }
};

// sqlite3_exec of one or more statements. Returns the SQLite code and fills
// err (optional).
int sql_exec(sqlite3 *db, const char *sql, sql_error *err = nullptr);

// sql_exec, then on failure logs fmt with (sql, message). Returns the code.
int sql_exec_log(sqlite3 *db, const char *sql, const char *fmt, sql_error *err = nullptr);

// sql_exec, then on failure logs fmt with the message alone.
int sql_exec_log_msg(sqlite3 *db, const char *sql, const char *fmt, sql_error *err = nullptr);

// The result of a query as sqlite3_get_table gives it: every value as text
// (null for NULL), at(r, c) counting data rows from 0. The texts are kept
// end to end in one buffer, each found by its offset, rather than one heap
// block per value: a rollup reads thousands of rows at once, and the
// per-value blocks of sqlite3_get_table would cost several times the text.
class sql_table {
   public:
    int rows() const { return nrow_; }
    int cols() const { return ncol_; }
    const char *at(int r, int c) const {
        const uint32_t off =
            offsets_[static_cast<size_t>(r) * static_cast<size_t>(ncol_) + static_cast<size_t>(c)];
        return off == kNull ? nullptr : text_.data() + off;
    }
    // Parsers of stored texts: atoi, "%llu", and "%lu" of a 32-bit long.
    int32_t int_at(int r, int c) const;
    uint64_t u64_at(int r, int c) const;
    uint32_t u32_at(int r, int c) const;

   private:
    friend int sql_get_table(sqlite3 *, const char *, sql_table &, sql_error *);
    static constexpr uint32_t kNull = UINT32_MAX;
    // One row of sqlite3_exec's callback; false (with err_) for a row whose
    // column count differs from the first one's.
    bool add_row(int n, char **values);

    std::string text_;
    std::vector<uint32_t> offsets_;
    int nrow_ = 0;
    int ncol_ = 0;
    const char *err_ = nullptr;
};

// What sqlite3_get_table does: runs the statements of sql and keeps the rows
// they return (on failure none). Returns the SQLite code; fills err (optional).
int sql_get_table(sqlite3 *db, const char *sql, sql_table &out, sql_error *err = nullptr);

// Doubles every single quote of text in place, never writing past size bytes
// of the caller's buffer (the result is cut rather than overflow it). Always
// returns 0.
int tallyd_sql_escape(char *text, int32_t size);

// What SQLite stores from the literal '<escaped>' of a text whose quotes were
// doubled (tallyd_sql_escape): every doubled quote read back as one. A view of
// escaped itself when it holds no quote, else of out (size bytes, cut to fit).
std::string_view sql_literal_value(const char *escaped, char *out, size_t size);

// One statement written once, as the daemon prints it: "... VALUES(%lu,
// '%s', %d)". printed() is that format, for the text a failure log shows;
// bound() is the same statement with one ? for every value (a quoted '%s'
// and every number conversion: %d, %u, %lu, %llu), for preparing. A bare %s,
// a table name, stays in both for the caller to print in first. Built at
// compile time from the literal: sql_form kInsert("INSERT ...");
template <size_t N>
class sql_form {
   public:
    consteval sql_form(const char (&printed)[N]) {
        for (size_t i = 0; i < N; ++i) printed_[i] = printed[i];
        size_t out = 0;
        for (size_t i = 0; i < N; ++i) {
            const char c = printed[i];
            const char next = i + 1 < N ? printed[i + 1] : '\0';
            if (c == '\'' && next == '%' && i + 3 < N && printed[i + 2] == 's' &&
                printed[i + 3] == '\'') {
                bound_[out++] = '?';  // a quoted text
                i += 3;
            } else if (c == '%' && (next == '%' || next == 's')) {
                bound_[out++] = c;  // "%%", or a table name
                bound_[out++] = next;
                ++i;
            } else if (c == '%') {
                while (i + 1 < N && printed[i + 1] == 'l') ++i;  // %lu, %llu
                ++i;                                             // the conversion
                bound_[out++] = '?';
            } else {
                bound_[out++] = c;
            }
        }
    }
    constexpr const char *printed() const { return printed_; }
    constexpr const char *bound() const { return bound_; }

   private:
    char printed_[N] = {};
    char bound_[N] = {};
};

// A prepared statement, finalized on destruction.
//
// A bind that SQLite refuses (an index out of range, a text too long) is
// remembered: the next step or run fails with that code and SQLite's text
// for it, without running, so a row is never written with a missing value.
class sql_stmt {
   public:
    sql_stmt() = default;
    explicit sql_stmt(sqlite3_stmt *s) : s_(s) {}
    ~sql_stmt() { sqlite3_finalize(s_); }
    sql_stmt(sql_stmt &&o) noexcept : s_(o.s_), bind_rc_(o.bind_rc_) { o.s_ = nullptr; }
    sql_stmt &operator=(sql_stmt &&o) noexcept;
    sql_stmt(const sql_stmt &) = delete;
    sql_stmt &operator=(const sql_stmt &) = delete;

    sqlite3_stmt *get() const { return s_; }
    explicit operator bool() const { return s_ != nullptr; }

    // Binding by 1-based index; texts are copied by SQLite (SQLITE_TRANSIENT).
    void bind(int i, int64_t v) { note(sqlite3_bind_int64(s_, i, v)); }
    void bind(int i, std::string_view v) {
        note(sqlite3_bind_text(s_, i, v.data(), static_cast<int>(v.size()), SQLITE_TRANSIENT));
    }
    void bind_null(int i) { note(sqlite3_bind_null(s_, i)); }
    // A text the caller keeps unchanged until the statement has run: bound
    // without a copy, for per-row inserts from fixed buffers.
    void bind_static(int i, std::string_view v) {
        note(sqlite3_bind_text(s_, i, v.data(), static_cast<int>(v.size()), SQLITE_STATIC));
    }
    // A counter as "%llu" puts it into a statement: an integer, or the real
    // number SQLite reads from a decimal literal beyond the signed 64-bit range.
    void bind_u64(int i, uint64_t v) {
        if (v > static_cast<uint64_t>(INT64_MAX))
            note(sqlite3_bind_double(s_, i, static_cast<double>(v)));
        else
            bind(i, static_cast<int64_t>(v));
    }
    // Runs to completion (SQLITE_DONE, rows discarded) and resets; fills err.
    int run(sql_error *err = nullptr);
    // One step: SQLITE_ROW, SQLITE_DONE or an error (err filled on error).
    int step(sql_error *err = nullptr);
    // Back to the start with every parameter NULL again.
    void reset() {
        sqlite3_reset(s_);
        sqlite3_clear_bindings(s_);
        bind_rc_ = SQLITE_OK;
    }

   private:
    void note(int rc) {
        if (bind_rc_ == SQLITE_OK) bind_rc_ = rc;
    }

    sqlite3_stmt *s_ = nullptr;
    int bind_rc_ = SQLITE_OK;  // the first refused bind since the last reset
};

// Prepares sql on db; an empty statement on failure (err filled).
sql_stmt sql_prepare(sqlite3 *db, const char *sql, sql_error *err = nullptr);

// One SQLite connection and the statements prepared on it.
//
// The connection owns its handle and every statement cached on it: closing
// it, replacing it (move-assignment) or destroying it finalises the
// statements first and then closes the handle, so no statement can outlive
// the connection it was prepared on. Empty (closed) by default.
class sql_conn {
   public:
    sql_conn() = default;
    explicit sql_conn(sqlite3 *db);
    ~sql_conn() { close(); }
    sql_conn(sql_conn &&o) noexcept;
    sql_conn &operator=(sql_conn &&o) noexcept;
    sql_conn(const sql_conn &) = delete;
    sql_conn &operator=(const sql_conn &) = delete;

    // Finalises the cached statements, then sqlite3_close_v2. A closed
    // connection is left alone.
    void close();

    sqlite3 *get() const { return db_; }
    explicit operator bool() const { return db_ != nullptr; }
    // A number no other connection of this process had (0 while closed): a
    // caller that remembers something about a database tells by it whether
    // the database was rebuilt since.
    uint64_t serial() const { return serial_; }

    // The statement of sql (matched by its text), prepared on first use and
    // kept for the life of the connection, returned reset with every
    // parameter NULL. Null with err filled when it cannot be prepared or the
    // connection is closed. The pointer stays valid until the connection is
    // closed or replaced.
    sql_stmt *cached(std::string_view sql, sql_error *err = nullptr);

   private:
    struct text_hash {
        using is_transparent = void;
        size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
    };

    sqlite3 *db_ = nullptr;
    uint64_t serial_ = 0;
    std::unordered_map<std::string, sql_stmt, text_hash, std::equal_to<>> stmts_;
};

// BEGIN TRANSACTION on construction. commit() runs COMMIT TRANSACTION; a
// transaction neither committed nor released is rolled back when the object
// goes. release() leaves it open, for the paths where the daemon deliberately
// does not roll back.
class sql_txn {
   public:
    explicit sql_txn(sqlite3 *db, sql_error *err = nullptr);
    ~sql_txn();
    sql_txn(const sql_txn &) = delete;
    sql_txn &operator=(const sql_txn &) = delete;

    bool ok() const { return open_; }
    int commit(sql_error *err = nullptr);
    void release() { open_ = false; }

   private:
    sqlite3 *db_;
    bool open_ = false;
};
