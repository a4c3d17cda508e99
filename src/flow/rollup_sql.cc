#include "flow/rollup_sql.h"

#include <cstdio>
#include <cstring>
#include <string>
#include <unordered_set>

#include "entity/text.h"

sql_stmt *rollup_stmt(sqlite3 *conn, const char *fmt, const char *table, sql_error *err) {
    // The statement cache is keyed by the address of a text that lives as
    // long as the process; the texts per target table are few, so each is
    // kept once here. References into an unordered_set survive rehashing.
    static std::unordered_set<std::string> texts;
    char buf[1024];
    std::snprintf(buf, sizeof(buf), fmt, table);
    const std::string &text = *texts.emplace(buf).first;
    return sql_cached(conn, text.c_str(), err);
}

bool rollup_quoted::set(const char *text, int32_t size) {
    if (size > kMax) size = kMax;
    std::snprintf(sql_, static_cast<size_t>(size), "%s", rollup_text(text));
    const bool quoted = std::strchr(sql_, '\'') != nullptr;
    if (quoted) tallyd_sql_escape(sql_, size);
    value_ = sql_literal_value(sql_, plain_, sizeof(plain_));
    return quoted;
}
