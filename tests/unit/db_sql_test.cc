// The SQL layer: quote escaping, the connection owner and its statement
// cache, checked binds.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "db/db_files.h"
#include "db/sql.h"

namespace {

// Escapes text in a buffer of exactly size bytes followed by guard bytes, so
// that a write past the caller's size shows up.
std::string escape(const std::string &text, int32_t size) {
    std::string buf(static_cast<size_t>(size) + 16, '#');
    std::memcpy(buf.data(), text.c_str(), std::min(text.size() + 1, static_cast<size_t>(size)));
    buf[static_cast<size_t>(size) - 1] = '\0';
    EXPECT_EQ(0, tallyd_sql_escape(buf.data(), size));
    EXPECT_EQ(std::string(16, '#'), buf.substr(static_cast<size_t>(size))) << "wrote past size";
    return buf.c_str();
}

TEST(DbSql, EscapeDoublesQuotesWithinTheCallersBound) {
    EXPECT_EQ("it''s", escape("it's", 64));
    EXPECT_EQ("ab''", escape("ab'cd", 6));   // stops once size - 2 characters are out
    EXPECT_EQ("abc", escape("abc'd", 5));    // the limit is reached before the quote
    EXPECT_EQ("abc''", escape("abc'd", 6));  // a quote at size - 3 is never split
    EXPECT_EQ("abcdefghijklmn", escape("abcdefghijklmno", 16));
    EXPECT_EQ("", escape("'", 2));

    // The callers with 148-byte buffers: longer than any fixed 128-byte area.
    std::string quotes(147, '\'');
    std::string out = escape(quotes, 148);
    EXPECT_EQ(std::string(146, '\''), out);
    std::string mixed = "x" + std::string(146, '\'');
    EXPECT_EQ(147u, escape(mixed, 148).size());
}

sql_conn memory_db() {
    sql_conn conn;
    tallyd_db_open(":memory:", SQLITE_OPEN_READWRITE, conn);
    sql_exec(conn.get(), "CREATE TABLE t(a, b)");
    return conn;
}

int64_t rows(const sql_conn &conn) {
    sql_table t;
    sql_get_table(conn.get(), "SELECT count(*) FROM t", t);
    return t.rows() ? t.int_at(0, 0) : -1;
}

TEST(DbSql, CachedStatementsBelongToTheirConnection) {
    sql_conn conn = memory_db();
    ASSERT_TRUE(conn);
    sql_stmt *insert = conn.cached("INSERT INTO t VALUES(?, ?)");
    ASSERT_NE(insert, nullptr);
    insert->bind(1, int64_t{1});
    // Handed out again reset, with the half-bound values gone.
    EXPECT_EQ(conn.cached("INSERT INTO t VALUES(?, ?)"), insert);
    ASSERT_EQ(insert->run(), SQLITE_OK);
    EXPECT_EQ(rows(conn), 1);
    sql_table t;
    sql_get_table(conn.get(), "SELECT count(*) FROM t WHERE a IS NULL", t);
    EXPECT_EQ(t.int_at(0, 0), 1);

    sql_error err;
    EXPECT_EQ(conn.cached("INSERT INTO missing VALUES(1)", &err), nullptr);
    EXPECT_EQ(err.text, "no such table: missing");

    // Moved: the statements go with the handle; the old owner is closed.
    sql_conn moved = std::move(conn);
    EXPECT_FALSE(conn);
    EXPECT_EQ(conn.cached("INSERT INTO t VALUES(?, ?)"), nullptr);
    EXPECT_EQ(moved.cached("INSERT INTO t VALUES(?, ?)"), insert);

    // Replaced by a new connection: prepared afresh on the new handle.
    moved = memory_db();
    sql_stmt *fresh = moved.cached("INSERT INTO t VALUES(?, ?)");
    ASSERT_NE(fresh, nullptr);
    EXPECT_EQ(sqlite3_db_handle(fresh->get()), moved.get());
    moved.close();
    EXPECT_FALSE(moved);
    EXPECT_EQ(moved.cached("INSERT INTO t VALUES(?, ?)", &err), nullptr);
    EXPECT_EQ(err.rc, SQLITE_MISUSE);
}

TEST(DbSql, AFormIsPreparedWithOnePlaceholderPerValue) {
    constexpr sql_form form("INSERT INTO %s(a, b, c, d) VALUES(%lu, '%s', %d, %llu) -- 100%%");
    EXPECT_STREQ("INSERT INTO %s(a, b, c, d) VALUES(?, ?, ?, ?) -- 100%%", form.bound());
    EXPECT_STREQ("INSERT INTO %s(a, b, c, d) VALUES(%lu, '%s', %d, %llu) -- 100%%", form.printed());
}

TEST(DbSql, ARefusedBindFailsTheRunWithoutWritingTheRow) {
    sql_conn conn = memory_db();
    sql_stmt *insert = conn.cached("INSERT INTO t VALUES(?, ?)");
    ASSERT_NE(insert, nullptr);
    insert->bind(1, int64_t{1});
    insert->bind(3, std::string_view("no such parameter"));
    sql_error err;
    EXPECT_EQ(insert->run(&err), SQLITE_RANGE);
    EXPECT_EQ(err.rc, SQLITE_RANGE);
    EXPECT_FALSE(err.text.empty());
    EXPECT_EQ(rows(conn), 0);
    // The failure is reported once; the next row runs normally.
    insert->bind(1, int64_t{2});
    EXPECT_EQ(insert->run(&err), SQLITE_OK);
    EXPECT_EQ(rows(conn), 1);
}

}  // namespace

// The compact result table reads what sqlite3_get_table reads: every
// statement's rows as text, NULL as null, none when a statement fails.
TEST(DbSql, GetTableGivesWhatSqliteGetTableGives) {
    sql_conn conn = memory_db();
    ASSERT_TRUE(conn);
    sql_exec(conn.get(), "INSERT INTO t VALUES(1, 'one'), (NULL, 2.5), (-7, ''), (1e20, x'41')");
    for (const char *q :
         {"SELECT a, b FROM t", "SELECT a FROM t WHERE a > 100",
          "SELECT b, a FROM t; SELECT 'x', NULL", "SELECT a FROM t; SELECT a, b FROM t",
          "SELECT a FROM t; SELECT nothing FROM t", "SELECT max(rowid) FROM t"}) {
        SCOPED_TRACE(q);
        char **want = nullptr, *want_msg = nullptr;
        int want_rows = 0, want_cols = 0;
        const int want_rc =
            sqlite3_get_table(conn.get(), q, &want, &want_rows, &want_cols, &want_msg);
        sql_table got;
        sql_error err;
        EXPECT_EQ(sql_get_table(conn.get(), q, got, &err), want_rc);
        EXPECT_EQ(err.text, want_msg ? want_msg : "");
        ASSERT_EQ(got.rows(), want_rows);
        ASSERT_EQ(got.cols(), want_cols);
        // NULL as "~", which no value here holds.
        for (int i = 0; i < want_rows * want_cols; ++i) {
            const char *w = want[want_cols + i], *g = got.at(i / want_cols, i % want_cols);
            EXPECT_STREQ(g ? g : "~", w ? w : "~") << i;
        }
        sqlite3_free_table(want);
        sqlite3_free(want_msg);
    }
}
