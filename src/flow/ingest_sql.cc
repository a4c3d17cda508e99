#include "flow/ingest_sql.h"

#include <cstdio>
#include <cstdlib>

#include "base/log.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/recover.h"

namespace {

constexpr sql_form kGroup("SELECT group_id FROM avp_ap WHERE ap_mac='%s'");
constexpr sql_form kInsert(
    "INSERT INTO avp_base(time, app, port, client_mac, ap_mac, ssid, uplink, downlink, total, "
    "category, group_id) VALUES(%lu, '%s', %d, '%s', %d, %d, %llu, %llu, %llu, '%s', %d)");

constexpr const char *kValueErr = "tallyd, value = %s, aErrMsg = %s\n";

void log_insert_failure(const flow_row &r, const char *err) {
    char sql[512];
    std::snprintf(sql, sizeof sql, kInsert.printed(), static_cast<unsigned long>(r.time), r.app,
                  static_cast<int32_t>(r.port), r.client_mac, r.ap_id, r.ssid_id,
                  static_cast<unsigned long long>(r.uplink),
                  static_cast<unsigned long long>(r.downlink),
                  static_cast<unsigned long long>(r.total), r.category, r.group_id);
    tallyd_log(LOG_ERR, kValueErr, sql, err);
}

}  // namespace

flow_sql::~flow_sql() {
    end_read();
}

// Opens the run's read transaction on db unless one is open already: this
// run's own, or one another task left open, which is not ours to end.
void flow_sql::begin_read() {
    sqlite3 *db = tallyd_db_set.db.get();
    if (!db || reading_ || !sqlite3_get_autocommit(db)) return;
    if (sql_exec(db, "BEGIN TRANSACTION") == SQLITE_OK) reading_ = true;
}

void flow_sql::end_read() {
    sqlite3 *db = tallyd_db_set.db.get();
    if (reading_ && db && !sqlite3_get_autocommit(db)) sql_exec(db, "COMMIT TRANSACTION");
    reading_ = false;
}

int32_t flow_sql::group_id(const char *file_name) {
    char ap_mac[18];
    std::snprintf(ap_mac, sizeof ap_mac, "%.17s", file_name);

    begin_read();
    sql_error err;
    sql_stmt *s = tallyd_db_set.db.cached(kGroup.bound(), &err);
    int rc = SQLITE_ERROR;
    int32_t group = 1;
    if (s) {
        s->bind_static(1, ap_mac);
        rc = s->step(&err);
        if (rc == SQLITE_ROW) {
            // Read as text and converted with atoi: a value that is not a
            // number gives group 0.
            auto text = reinterpret_cast<const char *>(sqlite3_column_text(s->get(), 0));
            group = text ? std::atoi(text) : 0;
        }
        s->reset();
    }
    if (rc == SQLITE_ROW || rc == SQLITE_DONE) return group;

    char sql[256];
    std::snprintf(sql, sizeof sql, kGroup.printed(), ap_mac);
    tallyd_log(LOG_ERR, kValueErr, sql, err.text.c_str());
    if (tallyd_db_damaged(tallyd_db_set.db, err)) {
        // The rebuild closes db, and with it the read transaction.
        end_read();
        tallyd_recover_damaged(tallyd_db_set.db, TALLYD_RECOVER_DB);
    }
    return 1;
}

int flow_sql::insert(const flow_row &r) {
    sql_error err;
    if (!insert_) insert_ = tallyd_db_set.temp_db.cached(kInsert.bound(), &err);
    if (sql_stmt *s = insert_) {
        s->bind(1, static_cast<int64_t>(r.time));
        s->bind_static(2, sql_literal_value(r.app, app_, sizeof app_));
        // "%d" of the 32-bit port: a value above 2^31 - 1 is stored negative.
        s->bind(3, static_cast<int64_t>(static_cast<int32_t>(r.port)));
        s->bind_static(4, r.client_mac);
        s->bind(5, r.ap_id);
        s->bind(6, r.ssid_id);
        s->bind_u64(7, r.uplink);
        s->bind_u64(8, r.downlink);
        s->bind_u64(9, r.total);
        s->bind_static(10, sql_literal_value(r.category, category_, sizeof category_));
        s->bind(11, r.group_id);
        if (s->run(&err) == SQLITE_OK) return 0;
    }
    log_insert_failure(r, err.text.c_str());
    if (tallyd_db_damaged(tallyd_db_set.temp_db, err)) {
        insert_ = nullptr;
        tallyd_create_avp_temp_db(&tallyd_db_set);
    }
    return -1;
}
