#include "reports/report_sql.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "base/log.h"
#include "db/recover.h"

const char *report_rows::at(int r, int c) const {
    const size_t i = static_cast<size_t>(r) * static_cast<size_t>(ncol_) + static_cast<size_t>(c);
    return null_[i] ? nullptr : cells_[i].c_str();
}

int32_t report_rows::int_at(int r, int c) const {
    const char *v = at(r, c);
    return v ? std::atoi(v) : 0;
}

uint64_t report_rows::u64_at(int r, int c) const {
    unsigned long long v = 0;
    if (const char *s = at(r, c)) std::sscanf(s, "%llu", &v);
    return v;
}

report_query::report_query(sql_conn &conn, size_t shown_size)
    : conn_(&conn), shown_size_(std::min(shown_size, sizeof shown_)) {}

report_query::report_query(sql_conn &conn, size_t shown_size, const char *fmt, ...)
    : report_query(conn, shown_size) {
    va_list ap;
    va_start(ap, fmt);
    vadd(fmt, ap);
    va_end(ap);
}

report_query &report_query::add(const char *fmt, ...) {
    va_list ap;
    va_start(ap, fmt);
    vadd(fmt, ap);
    va_end(ap);
    return *this;
}

void report_query::vadd(const char *fmt, va_list ap_in) {
    va_list ap;
    va_copy(ap, ap_in);
    if (shown_len_ + 1 < shown_size_) {
        const int n = std::vsnprintf(shown_ + shown_len_, shown_size_ - shown_len_, fmt, ap);
        shown_len_ += n > 0 ? static_cast<size_t>(n) : 0;
    }
    va_end(ap);

    // The same format again, every value turned into a parameter.
    va_copy(ap, ap_in);
    for (const char *p = fmt; *p && !bad_format_; ++p) {
        if (*p != '%') {
            run_ += *p;
            continue;
        }
        if (*++p == '%') {
            run_ += '%';
            continue;
        }
        int longs = 0;
        for (; *p == 'l'; ++p) ++longs;
        bind_value v{};
        if (*p == 's') {
            const char *s = va_arg(ap, const char *);
            if (!s) s = "(null)";  // what printf puts there
            if (run_.empty() || run_.back() != '\'' || p[1] != '\'') {
                run_ += s;  // a table name: part of the statement
                continue;
            }
            run_.pop_back();  // the opening quote; the parameter replaces both
            ++p;
            v = {bind_kind::text, 0, 0, s};
        } else if (*p == 'd' && longs == 0) {
            v = {bind_kind::i64, va_arg(ap, int), 0, nullptr};
        } else if (*p == 'u' && longs == 0) {
            v = {bind_kind::i64, va_arg(ap, unsigned), 0, nullptr};
        } else if (*p == 'u' && longs == 1) {
            // "%lu" on the 32-bit device: 32 bits.
            v = {bind_kind::i64, static_cast<uint32_t>(va_arg(ap, unsigned long)), 0, nullptr};
        } else if (*p == 'u' && longs == 2) {
            v = {bind_kind::u64, 0, va_arg(ap, unsigned long long), nullptr};
        } else {
            bad_format_ = true;
            break;
        }
        if (nbinds_ == kMaxBinds) {
            bad_format_ = true;
            break;
        }
        binds_[nbinds_++] = v;
        run_ += '?';
    }
    va_end(ap);
}

sql_stmt *report_query::prepare() {
    if (bad_format_) {
        err_ = {SQLITE_MISUSE, sqlite3_errstr(SQLITE_MISUSE)};
        return nullptr;
    }
    sql_stmt *s = conn_->cached(run_, &err_);
    if (!s) return nullptr;
    for (size_t i = 0; i < nbinds_; ++i) {
        const int n = static_cast<int>(i + 1);
        const bind_value &b = binds_[i];
        if (b.kind == bind_kind::text)
            s->bind_static(n, b.text);
        else if (b.kind == bind_kind::i64)
            s->bind(n, b.i);
        else
            s->bind_u64(n, b.u);
    }
    return s;
}

bool report_query::select(report_rows *out) {
    *out = report_rows();
    sql_stmt *s = prepare();
    if (!s) return false;
    out->ncol_ = sqlite3_column_count(s->get());
    int rc;
    while ((rc = s->step(&err_)) == SQLITE_ROW) {
        for (int c = 0; c < out->ncol_; ++c) {
            const unsigned char *v = sqlite3_column_text(s->get(), c);
            out->null_.push_back(v == nullptr);
            out->cells_.emplace_back(v ? reinterpret_cast<const char *>(v) : "");
        }
    }
    if (rc != SQLITE_DONE) *out = report_rows();
    s->reset();
    return rc == SQLITE_DONE;
}

bool report_query::exec() {
    sql_stmt *s = prepare();
    if (!s) return false;
    const bool ok = s->run(&err_) == SQLITE_OK;
    s->reset();
    return ok;
}

bool report_select(report_query &q, report_rows *rows, uint32_t mask, const char *fail_fmt) {
    if (q.select(rows)) return true;
    tallyd_log(LOG_ERR, fail_fmt, q.shown(), q.err().text.c_str());
    tallyd_recover_if_damaged(q.conn(), q.err(), mask);
    return false;
}
