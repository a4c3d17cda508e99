// The SQL of one flow run: the AP group lookup in db and the avp_base insert
// into temp_db.
//
// Each statement is prepared once per run on first use and reused with bound
// values for every file and entry of the run; it is dropped before the
// database under it is rebuilt and prepared again on the new connection.
// The group lookups of a run share one read transaction on db (one shared
// lock rather than one per file), ended when the run's flow_sql goes away;
// nothing writes db while a flow run is under way.
// Stored values are those the daemon's formatted statements would store
// (integers for numbers, texts for quoted values); failure logs show those
// formatted statements.
#pragma once

#include <sqlite3.h>

#include <cstdint>

#include "db/sql.h"

// One avp_base row. app and category are the statement forms: texts holding a
// quote arrive already escaped (quotes doubled, as the caller logged them).
struct flow_row {
    uint32_t time;
    const char *app;
    uint32_t port;
    const char *client_mac;
    int32_t ap_id;
    int32_t ssid_id;
    uint64_t uplink;
    uint64_t downlink;
    uint64_t total;
    const char *category;
    int32_t group_id;
};

// A statement prepared on demand for whichever connection is current.
struct flow_stmt {
    sqlite3 *conn = nullptr;
    sql_stmt stmt;
    sql_error err;

    // The statement on db, prepared when missing or made for another
    // connection; null when preparing fails (err holds SQLite's message).
    sql_stmt *get(sqlite3 *db, const char *sql);
    void drop() {
        stmt = sql_stmt();
        conn = nullptr;
    }
};

class flow_sql {
   public:
    flow_sql() = default;
    ~flow_sql();
    flow_sql(const flow_sql &) = delete;
    flow_sql &operator=(const flow_sql &) = delete;

    // AP group id of the AP whose MAC text is the first 17 characters of a
    // spool file name; 1 (the default group) when avp_ap does not know it or
    // the lookup fails. A failure is logged as "tallyd, value = %s, aErrMsg =
    // %s\n"; a malformed db is rebuilt (recovery mask 1).
    int32_t group_id(const char *file_name);

    // Inserts one row into avp_base of the current temp_db. 0, or -1 after
    // logging "tallyd, value = %s, aErrMsg = %s\n"; a malformed temp_db is
    // then rebuilt empty, and later rows go into the new one.
    int insert(const flow_row &row);

   private:
    void begin_read(sqlite3 *db);
    void end_read();

    // The db connection on which this run began its read transaction.
    sqlite3 *read_txn_ = nullptr;
    flow_stmt group_;
    flow_stmt insert_;
    // The stored forms of escaped texts (doubled quotes made single again).
    char app_[64];
    char category_[64];
};
