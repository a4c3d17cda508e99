// The hourly client identity rows carried into the daily table once an hour.
#include "flow/client_statis.h"

#include <cstdio>

#include "base/log.h"
#include "db/recover.h"
#include "db/sql.h"
#include "flow/rollup_limits.h"
#include "flow/rollup_sql.h"

namespace {

constexpr uint32_t kMaskStatistic = TALLYD_RECOVER_STATISTIC;
constexpr const char *kValueFail = "tallyd, value = %s, aErrMsg = %s\n";

constexpr const char *kSelect =
    "SELECT client_mac, ap_id, ssid_id, dvcinfo_id, apgroup_id, wlangroup_id, ip, ip6, \n"
    "host_name, vlan, channel, radio, status, auth_type, user_name, active \n"
    "FROM %s GROUP by client_mac, ap_id, ssid_id \nLIMIT %d";

// Column numbers of the SELECT above.
enum : int {
    kMac,
    kApId,
    kSsidId,
    kDvcinfoId,
    kApgroupId,
    kWlangroupId,
    kIp,
    kIp6,
    kHostName,
    kVlan,
    kChannel,
    kRadio,
    kStatus,
    kAuthType,
    kUserName,
    kActive
};

// The per-row statements, each run prepared with its values bound and
// printed with them into a failure log.
constexpr sql_form kLookup(
    "SELECT client_mac FROM %s \nWHERE client_mac='%s' AND ap_id=%d AND ssid_id=%d AND "
    "apgroup_id=%d");
constexpr sql_form kInsert(
    "INSERT INTO %s(\ntime, client_mac, ap_id, ssid_id, dvcinfo_id, apgroup_id, wlangroup_id, "
    "\nip, ip6, host_name, vlan, channel, radio, \nstatus, auth_type, user_name, active) "
    "\nVALUES(%lu, '%s', %d, %d, %d, %d, %d, \n'%s', '%s', '%s', %d, %d, %d, \n%d, '%s', '%s', "
    "%d)");
constexpr sql_form kUpdate(
    "UPDATE %s SET time=%lu \nWHERE client_mac='%s' AND ap_id=%d AND ssid_id=%d AND "
    "apgroup_id=%d");

// The key of a daily row. A NULL value keeps what the previous row had.
struct client_key {
    char mac[32] = {};
    int32_t ap_id = 0;
    int32_t ssid_id = 0;
    int32_t apgroup_id = 0;

    void take(const sql_table &rows, int r) {
        if (const char *v = rows.at(r, kMac)) std::snprintf(mac, sizeof(mac), "%s", v);
        if (rows.at(r, kApId)) ap_id = rows.int_at(r, kApId);
        if (rows.at(r, kSsidId)) ssid_id = rows.int_at(r, kSsidId);
        if (rows.at(r, kApgroupId)) apgroup_id = rows.int_at(r, kApgroupId);
    }
    void bind(sql_stmt &s, int first) const {
        s.bind_static(first, mac);
        s.bind(first + 1, int64_t{ap_id});
        s.bind(first + 2, int64_t{ssid_id});
        s.bind(first + 3, int64_t{apgroup_id});
    }
};

// One run: the target, its time, and the last SQLite failure seen.
class client_run {
   public:
    client_run(sql_conn &conn, tallyd_table table, uint32_t now)
        : conn_(conn), table_(table), name_(tallyd_table_name(table)), now_(now) {}

    void row(const sql_table &rows, int r);
    void note(const sql_error &err) { last_ = err; }
    const sql_error &last() const { return last_; }

   private:
    bool exists();
    void insert(const sql_table &rows, int r);
    void update();
    void failed(const char *text, const sql_error &err) {
        tallyd_log(LOG_ERR, kValueFail, text, err.text.c_str());
        last_ = err;
    }
    // The prepared statement of fmt behind *slot, looked up on first use
    // rather than formatted and looked up again for every row.
    sql_stmt *stmt(sql_stmt **slot, const char *fmt, sql_error *err) {
        if (!*slot) *slot = rollup_stmt(conn_, fmt, table_, err);
        return *slot;
    }

    sql_conn &conn_;
    tallyd_table table_;
    const char *name_;
    uint32_t now_;
    client_key key_;
    rollup_quoted host_name_, auth_type_, user_name_;
    sql_stmt *lookup_ = nullptr, *insert_ = nullptr, *update_ = nullptr;
    sql_error last_;
};

void client_run::row(const sql_table &rows, int r) {
    key_.take(rows, r);
    if (exists())
        update();
    else
        insert(rows, r);
}

bool client_run::exists() {
    sql_error err;
    sql_stmt *s = stmt(&lookup_, kLookup.bound(), &err);
    int rc = SQLITE_ERROR;
    if (s) {
        key_.bind(*s, 1);
        rc = s->step(&err);
        s->reset();
    }
    if (rc == SQLITE_ROW || rc == SQLITE_DONE) return rc == SQLITE_ROW;
    char text[1024];
    std::snprintf(text, sizeof(text), kLookup.printed(), name_, key_.mac, key_.ap_id, key_.ssid_id,
                  key_.apgroup_id);
    failed(text, err);
    return false;
}

void client_run::insert(const sql_table &rows, int r) {
    host_name_.set(rows.at(r, kHostName), 64);
    auth_type_.set(rows.at(r, kAuthType), 64);
    user_name_.set(rows.at(r, kUserName), 64);
    const char *ip = rollup_text(rows.at(r, kIp));
    const char *ip6 = rollup_text(rows.at(r, kIp6));
    sql_error err;
    if (sql_stmt *s = stmt(&insert_, kInsert.bound(), &err)) {
        s->bind(1, int64_t{now_});
        s->bind_static(2, key_.mac);
        s->bind(3, int64_t{key_.ap_id});
        s->bind(4, int64_t{key_.ssid_id});
        s->bind(5, int64_t{rows.int_at(r, kDvcinfoId)});
        s->bind(6, int64_t{key_.apgroup_id});
        s->bind(7, int64_t{rows.int_at(r, kWlangroupId)});
        s->bind_static(8, ip);
        s->bind_static(9, ip6);
        s->bind_static(10, host_name_.value());
        s->bind(11, int64_t{rows.int_at(r, kVlan)});
        s->bind(12, int64_t{rows.int_at(r, kChannel)});
        s->bind(13, int64_t{rows.int_at(r, kRadio)});
        s->bind(14, int64_t{rows.int_at(r, kStatus)});
        s->bind_static(15, auth_type_.value());
        s->bind_static(16, user_name_.value());
        s->bind(17, int64_t{rows.int_at(r, kActive)});
        if (s->run(&err) == SQLITE_OK) return;
    }
    char text[1024];
    std::snprintf(text, sizeof(text), kInsert.printed(), name_, static_cast<unsigned long>(now_),
                  key_.mac, key_.ap_id, key_.ssid_id, rows.int_at(r, kDvcinfoId), key_.apgroup_id,
                  rows.int_at(r, kWlangroupId), ip, ip6, host_name_.sql(), rows.int_at(r, kVlan),
                  rows.int_at(r, kChannel), rows.int_at(r, kRadio), rows.int_at(r, kStatus),
                  auth_type_.sql(), user_name_.sql(), rows.int_at(r, kActive));
    failed(text, err);
}

void client_run::update() {
    sql_error err;
    if (sql_stmt *s = stmt(&update_, kUpdate.bound(), &err)) {
        s->bind(1, int64_t{now_});
        key_.bind(*s, 2);
        if (s->run(&err) == SQLITE_OK) return;
    }
    char text[1024];
    std::snprintf(text, sizeof(text), kUpdate.printed(), name_, static_cast<unsigned long>(now_),
                  key_.mac, key_.ap_id, key_.ssid_id, key_.apgroup_id);
    failed(text, err);
}

}  // namespace

int tallyd_pre_handle_client_statis_info(int32_t mode, tallyd_table src_table,
                                         tallyd_table dst_table, sql_conn &conn, uint32_t now) {
    if (mode != 1 || !conn) return 0;
    char select[1024];
    std::snprintf(select, sizeof(select), kSelect, tallyd_table_name(src_table),
                  rollup_class_limit(4000, 6000, 2000, 500));
    client_run run(conn, dst_table, now);
    sql_error err;
    sql_table rows;
    if (sql_get_table(conn.get(), select, rows, &err) != SQLITE_OK) {
        tallyd_log(LOG_ERR, kValueFail, select, err.text.c_str());
        run.note(err);
    } else {
        sql_exec(conn.get(), "BEGIN TRANSACTION");
        for (int r = 0; r < rows.rows() && rows.at(r, kActive); ++r) run.row(rows, r);
        if (sql_exec(conn.get(), "COMMIT TRANSACTION", &err) != SQLITE_OK) {
            tallyd_log(LOG_ERR, "tallyd, client_statis_info commit failed\n");
            run.note(err);
        }
    }
    return rollup_result(conn, run.last(), kMaskStatistic);
}
