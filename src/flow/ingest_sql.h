// The SQL of one flow run: the AP group lookup in db and the avp_base insert
// into temp_db.
//
// Both statements are cached on their connections (db and temp_db) and run
// with bound values for every file and entry; a rebuilt database prepares
// them again on its new connection.
// The group lookups of a run share one read transaction on db (one shared
// lock rather than one per file), ended when the run's flow_sql goes away;
// nothing writes db while a flow run is under way.
// Stored values are those the daemon's formatted statements would store
// (integers for numbers, texts for quoted values); failure logs show those
// formatted statements.
#pragma once

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

class flow_sql {
   public:
    flow_sql() = default;
    ~flow_sql();
    flow_sql(const flow_sql &) = delete;
    flow_sql &operator=(const flow_sql &) = delete;

    // AP group id of the AP whose MAC text is the first 17 characters of a
    // spool file name; 1 (the default group) when avp_ap does not know it or
    // the lookup fails. A failure is logged as "tallyd, value = %s, aErrMsg =
    // %s\n"; a malformed db is rebuilt.
    int32_t group_id(const char *file_name);

    // Inserts one row into avp_base of the current temp_db. 0, or -1 after
    // logging "tallyd, value = %s, aErrMsg = %s\n"; a malformed temp_db is
    // then rebuilt empty, and later rows go into the new one.
    int insert(const flow_row &row);

   private:
    void begin_read();
    void end_read();

    // This run began a read transaction on db that is still open.
    bool reading_ = false;
    // The insert cached on temp_db, looked up once per run rather than per
    // row; forgotten when this run rebuilds temp_db (nothing else replaces
    // temp_db while a flow run is under way).
    sql_stmt *insert_ = nullptr;
    // The stored forms of escaped texts (doubled quotes made single again).
    char app_[64];
    char category_[64];
};
