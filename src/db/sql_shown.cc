#include "db/sql_shown.h"

#include <cstdlib>

#include "base/log.h"

sql_stmt *sql_shown_detail::prepare(sql_conn &db, const char *bound, sql_error &err) {
    if (!db) {
        // What sqlite3_exec answers for a closed database.
        err.rc = SQLITE_MISUSE;
        err.text = sqlite3_errstr(SQLITE_MISUSE);
        return nullptr;
    }
    return db.cached(bound, &err);
}

void sql_shown_log_text(int priority, const char *log_fmt, const char *statement,
                        const sql_error &err) {
    tallyd_log(priority, log_fmt, statement, err.text.c_str());
}

int32_t sql_col_int(sqlite3_stmt *st, int col) {
    auto text = reinterpret_cast<const char *>(sqlite3_column_text(st, col));
    return text ? std::atoi(text) : 0;
}

bool sql_col_null(sqlite3_stmt *st, int col) {
    return sqlite3_column_type(st, col) == SQLITE_NULL;
}

std::string_view sql_col_text(sqlite3_stmt *st, int col) {
    auto text = reinterpret_cast<const char *>(sqlite3_column_text(st, col));
    if (!text) return {};
    return {text, static_cast<size_t>(sqlite3_column_bytes(st, col))};
}
