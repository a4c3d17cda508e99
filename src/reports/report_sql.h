// Statements of the reports: logged as the device prints them, run with
// every value bound.
//
// A report statement is written as the device has always formatted it: a
// printf format with "%s" for table names, "'%s'" for texts between quotes
// and "%d", "%u", "%lu", "%llu" for numbers. report_query keeps the printed
// text for the log lines (cut to the statement buffer of the report) and
// runs the same statement with each quoted text and each number bound as a
// parameter of the storage class its literal would have had. So a quote in
// an SSID, MAC or application name matches literally and can never change
// the statement, and the statement text, free of values, is prepared once
// per connection. (sql_form in db/sql.h derives the bound text of a
// statement fixed at compile time; report statements are put together from
// pieces at run time, so the same derivation happens here as they are
// written.)
//
// Results are read whole before the caller looks at them, as
// sqlite3_get_table reads them: every value as text (null for NULL), and no
// rows at all when the statement fails.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "db/sql.h"

// The rows of one SELECT.
class report_rows {
   public:
    int rows() const { return ncol_ ? static_cast<int>(null_.size()) / ncol_ : 0; }
    int cols() const { return ncol_; }
    // The value as text, null for NULL.
    const char *at(int r, int c) const;
    // Parsed as the device parses get_table values: atoi, "%llu".
    int32_t int_at(int r, int c) const;
    uint64_t u64_at(int r, int c) const;

   private:
    friend class report_query;
    int ncol_ = 0;
    std::vector<std::string> cells_;
    std::vector<char> null_;
};

class report_query;

// Runs q's SELECT into *rows. On failure logs fail_fmt with the statement as
// printed and SQLite's message, and starts the rebuild when q's database is
// damaged (tallyd_recover_damaged: mask, if it names that database); false.
bool report_select(report_query &q, report_rows *rows, uint32_t mask,
                   const char *fail_fmt = "tallyd, value = %s, aErrMsg = %s\n");

class report_query {
   public:
    // Formats fmt: the printed text cut to shown_size - 1 characters (at most
    // 1,023), and the statement to run. Quoted texts must stay valid until
    // the statement has run.
    report_query(sql_conn &conn, size_t shown_size, const char *fmt, ...)
        __attribute__((format(printf, 4, 5)));
    // An empty statement, written piece by piece with add().
    report_query(sql_conn &conn, size_t shown_size);
    report_query(const report_query &) = delete;
    report_query &operator=(const report_query &) = delete;

    // Appends a formatted piece, as if the whole statement had been one
    // format.
    report_query &add(const char *fmt, ...) __attribute__((format(printf, 2, 3)));

    // The statement as the device prints it.
    const char *shown() const { return shown_; }
    // The connection it runs on.
    sql_conn &conn() const { return *conn_; }

    // Runs a SELECT and reads every row into *out. false on failure (err()
    // filled, *out empty); a closed connection fails as SQLITE_MISUSE.
    bool select(report_rows *out);
    // Runs a statement that returns no rows. false on failure.
    bool exec();

    const sql_error &err() const { return err_; }

   private:
    enum class bind_kind : uint8_t { i64, u64, text };
    struct bind_value {
        bind_kind kind;
        int64_t i;
        uint64_t u;
        const char *text;
    };
    static constexpr size_t kMaxBinds = 32;  // an AP list of twenty and a few more

    void vadd(const char *fmt, va_list ap);
    sql_stmt *prepare();

    sql_conn *conn_;
    size_t shown_size_;
    size_t shown_len_ = 0;  // untruncated length printed so far
    char shown_[1024] = {};
    std::string run_;
    bind_value binds_[kMaxBinds] = {};
    size_t nbinds_ = 0;
    bool bad_format_ = false;
    sql_error err_;
};
