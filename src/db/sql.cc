#include "db/sql.h"

#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "base/log.h"

namespace {

void take_error(int rc, char *msg, sqlite3 *db, sql_error *err) {
    if (err) {
        err->rc = rc;
        if (rc == SQLITE_OK)
            err->text.clear();
        else
            err->text = msg ? msg : (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
    }
    sqlite3_free(msg);
}

}  // namespace

bool tallyd_sql_is_malformed(std::string_view err) {
    return err == TALLYD_ERR_MALFORMED || err == TALLYD_ERR_NOT_A_DB;
}

int sql_exec(sqlite3 *db, const char *sql, sql_error *err) {
    char *msg = nullptr;
    int rc = db ? sqlite3_exec(db, sql, nullptr, nullptr, &msg) : SQLITE_MISUSE;
    take_error(rc, msg, db, err);
    return rc;
}

int sql_exec_log(sqlite3 *db, const char *sql, const char *fmt, sql_error *err) {
    sql_error local;
    sql_error &e = err ? *err : local;
    int rc = sql_exec(db, sql, &e);
    if (rc != SQLITE_OK) tallyd_log(LOG_ERR, fmt, sql, e.text.c_str());
    return rc;
}

int sql_exec_log_msg(sqlite3 *db, const char *sql, const char *fmt, sql_error *err) {
    sql_error local;
    sql_error &e = err ? *err : local;
    int rc = sql_exec(db, sql, &e);
    if (rc != SQLITE_OK) tallyd_log(LOG_ERR, fmt, e.text.c_str());
    return rc;
}

// The output stops once size - 2 characters are written; a doubled quote
// that starts just below that limit is completed, so the result holds at most
// size - 1 characters and fits the caller's buffer with its zero. The working
// area is as large as the caller's buffer: callers pass up to 148 bytes.
int tallyd_sql_escape(char *text, int32_t size) {
    if (!text || size <= 0) return 0;
    char fixed[256];
    std::string big;
    char *work = fixed;
    if (static_cast<size_t>(size) > sizeof fixed) {
        big.assign(static_cast<size_t>(size), '\0');
        work = big.data();
    }
    const int32_t len = static_cast<int32_t>(std::strlen(text));
    int32_t out = 0;
    for (int32_t in = 0; in < len && out < size - 2; ++in) {
        if (text[in] == '\'') {
            work[out++] = '\'';
            work[out++] = '\'';
        } else {
            work[out++] = text[in];
        }
    }
    work[out] = '\0';
    std::snprintf(text, static_cast<size_t>(size), "%s", work);
    return 0;
}

std::string_view sql_literal_value(const char *escaped, char *out, size_t size) {
    if (!std::strchr(escaped, '\'') || size == 0) return escaped;
    size_t n = 0;
    for (const char *p = escaped; *p && n < size - 1; ++p) {
        out[n++] = *p;
        if (p[0] == '\'' && p[1] == '\'') ++p;
    }
    out[n] = '\0';
    return {out, n};
}

bool sql_table::add_row(int n, char **values) {
    if (nrow_ == 0) {
        ncol_ = n;
    } else if (n != ncol_) {
        err_ = "sqlite3_get_table() called with two or more incompatible queries";
        return false;
    }
    for (int c = 0; c < n; ++c) {
        if (!values[c]) {
            offsets_.push_back(kNull);
            continue;
        }
        offsets_.push_back(static_cast<uint32_t>(text_.size()));
        text_.append(values[c]);
        text_.push_back('\0');
    }
    ++nrow_;
    return true;
}

int32_t sql_table::int_at(int r, int c) const {
    const char *v = at(r, c);
    return v ? std::atoi(v) : 0;
}

uint64_t sql_table::u64_at(int r, int c) const {
    unsigned long long v = 0;
    const char *s = at(r, c);
    if (s) std::sscanf(s, "%llu", &v);
    return v;
}

uint32_t sql_table::u32_at(int r, int c) const {
    // "%lu" of a 32-bit long: the value wraps to 32 bits.
    return static_cast<uint32_t>(u64_at(r, c));
}

int sql_get_table(sqlite3 *db, const char *sql, sql_table &out, sql_error *err) {
    out = sql_table();
    auto row = [](void *table, int n, char **values, char **) {
        return static_cast<sql_table *>(table)->add_row(n, values) ? 0 : 1;
    };
    char *msg = nullptr;
    int rc = db ? sqlite3_exec(db, sql, row, &out, &msg) : SQLITE_MISUSE;
    if (out.err_) {
        sqlite3_free(msg);
        msg = sqlite3_mprintf("%s", out.err_);
        rc = SQLITE_ERROR;
    }
    if (rc != SQLITE_OK) out = sql_table();
    take_error(rc, msg, db, err);
    return rc;
}

sql_stmt &sql_stmt::operator=(sql_stmt &&o) noexcept {
    if (this != &o) {
        sqlite3_finalize(s_);
        s_ = o.s_;
        bind_rc_ = o.bind_rc_;
        o.s_ = nullptr;
    }
    return *this;
}

int sql_stmt::step(sql_error *err) {
    if (bind_rc_ != SQLITE_OK) {
        // A value that could not be bound: the statement would run with a
        // NULL in its place, so it is not run at all.
        int rc = bind_rc_;
        bind_rc_ = SQLITE_OK;
        if (err) *err = {rc, sqlite3_errstr(rc)};
        return rc;
    }
    int rc = sqlite3_step(s_);
    if (rc != SQLITE_ROW && rc != SQLITE_DONE && err) {
        err->rc = rc;
        err->text = sqlite3_errmsg(sqlite3_db_handle(s_));
    }
    return rc;
}

int sql_stmt::run(sql_error *err) {
    int rc;
    while ((rc = step(err)) == SQLITE_ROW) {
    }
    sqlite3_reset(s_);
    if (rc == SQLITE_DONE) {
        if (err) *err = sql_error{};
        return SQLITE_OK;
    }
    return rc;
}

sql_stmt sql_prepare(sqlite3 *db, const char *sql, sql_error *err) {
    sqlite3_stmt *s = nullptr;
    int rc = db ? sqlite3_prepare_v2(db, sql, -1, &s, nullptr) : SQLITE_MISUSE;
    if (err) {
        err->rc = rc;
        err->text = rc == SQLITE_OK ? "" : (db ? sqlite3_errmsg(db) : sqlite3_errstr(rc));
    }
    return sql_stmt(s);
}

sql_conn::sql_conn(sqlite3 *db) : db_(db) {
    static uint64_t opened = 0;
    if (db_) serial_ = ++opened;
}

sql_conn::sql_conn(sql_conn &&o) noexcept
    : db_(o.db_), serial_(o.serial_), stmts_(std::move(o.stmts_)) {
    o.db_ = nullptr;
    o.serial_ = 0;
    o.stmts_.clear();
}

sql_conn &sql_conn::operator=(sql_conn &&o) noexcept {
    if (this != &o) {
        close();
        db_ = o.db_;
        serial_ = o.serial_;
        stmts_ = std::move(o.stmts_);
        o.db_ = nullptr;
        o.serial_ = 0;
        o.stmts_.clear();
    }
    return *this;
}

sql_stmt *sql_conn::cached(std::string_view sql, sql_error *err) {
    if (!db_) {
        if (err) *err = {SQLITE_MISUSE, sqlite3_errstr(SQLITE_MISUSE)};
        return nullptr;
    }
    auto it = stmts_.find(sql);
    if (it != stmts_.end()) {
        it->second.reset();
        return &it->second;
    }
    sql_stmt s = sql_prepare(db_, std::string(sql).c_str(), err);
    if (!s) return nullptr;
    return &stmts_.emplace(std::string(sql), std::move(s)).first->second;
}

void sql_conn::close() {
    // Statements first: a handle closed under live statements would linger
    // as a zombie until they were finalized.
    stmts_.clear();
    if (db_) sqlite3_close_v2(db_);
    db_ = nullptr;
    serial_ = 0;
}

sql_txn::sql_txn(sqlite3 *db, sql_error *err) : db_(db) {
    open_ = sql_exec(db, "BEGIN TRANSACTION", err) == SQLITE_OK;
}

sql_txn::~sql_txn() {
    if (open_) sql_exec(db_, "ROLLBACK TRANSACTION");
}

int sql_txn::commit(sql_error *err) {
    int rc = sql_exec(db_, "COMMIT TRANSACTION", err);
    if (rc == SQLITE_OK) open_ = false;
    return rc;
}
