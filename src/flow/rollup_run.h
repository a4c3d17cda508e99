// The walk shared by the rollups: read the source into memory, then write
// one prepared INSERT per row inside one transaction on the target.
//
// The transaction is begun whatever BEGIN answers (a transaction that a
// failed run left open simply goes on) and is deliberately neither committed
// nor rolled back when an INSERT fails: a later COMMIT on that connection
// commits what it holds. A damaged database starts the rebuild (the given
// mask, see rollup_result) and makes the result -1; every other failure is
// logged and the result is 0.
#pragma once

#include <cstdint>

#include "base/log.h"
#include "db/sql.h"
#include "flow/rollup_sql.h"

// Log formats of one rollup; each takes SQLite's message as its only "%s"
// (a format without one just ignores it).
struct rollup_msgs {
    const char *select_fail;
    const char *insert_fail;
    const char *commit_fail;
};

// Runs select on src and inserts its rows with insert_fmt (one "%s" for the
// table) into table on dst. The walk ends at the first row whose last column
// is NULL. keep(rows, r) may veto a row; bind(rows, r, stmt) binds it.
template <class Keep, class Bind>
int rollup_run(sql_conn &src, const char *select, sql_conn &dst, const char *insert_fmt,
               tallyd_table table, const rollup_msgs &msgs, uint32_t mask, Keep &&keep,
               Bind &&bind) {
    sql_error err;
    sql_table rows;
    if (sql_get_table(src.get(), select, rows, &err) != SQLITE_OK) {
        tallyd_log(LOG_ERR, msgs.select_fail, err.text.c_str());
        return rollup_result(src, err, mask);
    }
    sql_exec(dst.get(), "BEGIN TRANSACTION");
    const int last = rows.cols() - 1;
    sql_stmt *insert = nullptr;
    for (int r = 0; r < rows.rows() && rows.at(r, last); ++r) {
        if (!keep(rows, r)) continue;
        // Prepared at the first row that is written, so that a run without
        // rows behaves like one that never formatted an INSERT.
        if (!insert) insert = rollup_stmt(dst, insert_fmt, table, &err);
        if (insert) {
            bind(rows, r, *insert);
            if (insert->run(&err) == SQLITE_OK) continue;
        }
        tallyd_log(LOG_ERR, msgs.insert_fail, err.text.c_str());
        return rollup_result(dst, err, mask);
    }
    if (sql_exec(dst.get(), "COMMIT TRANSACTION", &err) != SQLITE_OK)
        tallyd_log(LOG_ERR, msgs.commit_fail, err.text.c_str());
    return rollup_result(dst, err, mask);
}
