#include "flow/rollup_sql.h"

#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "db/recover.h"

int rollup_result(sql_conn &conn, const sql_error &err, uint32_t mask) {
    return tallyd_recover_if_damaged(conn, err, mask) ? -1 : 0;
}

sql_stmt *rollup_stmt(sql_conn &conn, const char *fmt, tallyd_table table, sql_error *err) {
    char buf[1024];
    std::snprintf(buf, sizeof(buf), fmt, tallyd_table_name(table));
    return conn.cached(buf, err);
}

bool rollup_quoted::set(const char *text, int32_t size) {
    if (size > kMax) size = kMax;
    std::snprintf(sql_, static_cast<size_t>(size), "%s", rollup_text(text));
    const bool quoted = std::strchr(sql_, '\'') != nullptr;
    if (quoted) tallyd_sql_escape(sql_, size);
    value_ = sql_literal_value(sql_, plain_, sizeof(plain_));
    return quoted;
}

void rollup_bind_app(sql_stmt &stmt, rollup_quoted &app, uint32_t stamp, const char *name,
                     int32_t port) {
    if (app.set(name, 128))
        tallyd_log(LOG_DEBUG, "tallyd, avp_ap_ssid escaped app = %s", app.sql());
    stmt.bind(1, int64_t{stamp});
    stmt.bind_static(2, app.value());
    stmt.bind(3, int64_t{port});
}
