// Period totals and the fillers of the top summary's scratch lists.
#include <cstdio>

#include "base/log.h"
#include "db/recover.h"
#include "reports/report_sql.h"
#include "reports/top_lists.h"

namespace {

constexpr int kTop = 10;

constexpr const char *kTotalAll = "SELECT SUM(total) FROM %s";
constexpr const char *kTotalSince = "SELECT SUM(total) FROM %s WHERE time>%lu";

// One filler: its SELECT without and with the time bound, its INSERT and
// its messages. A select message with two "%s" gets the statement too.
struct filler {
    const char *select_all;
    const char *select_since;
    const char *insert;
    const char *select_fail;
    bool select_fail_shows_sql;
    const char *insert_fail;
};

constexpr filler kApps{
    "SELECT app, SUM(uplink), SUM(downlink) FROM %s GROUP by app ORDER by "
    "(SUM(uplink)+SUM(downlink)) DESC LIMIT %d",
    "SELECT app, SUM(uplink), SUM(downlink) FROM %s WHERE time>%lu GROUP by app ORDER by "
    "(SUM(uplink)+SUM(downlink)) DESC LIMIT %d",
    "INSERT INTO %s(id, app, uplink, downlink) VALUES(%d, '%s', %llu, %llu)",
    "tallyd, top_app = %s, aErrMsg = %s\n",
    true,
    "tallyd, INSERT top_app, aErrMsg = %s\n",
};
constexpr filler kAps{
    "SELECT ap_mac, SUM(total) FROM %s GROUP by ap_mac ORDER by SUM(total) DESC LIMIT %d",
    "SELECT ap_mac, SUM(total) FROM %s WHERE time>%lu GROUP by ap_mac ORDER by SUM(total) DESC "
    "LIMIT %d",
    "INSERT INTO %s(id, ap_mac, total) VALUES(%d, %d, %llu)",
    "tallyd, ap_top_list = %s, aErrMsg = %s\n",
    true,
    "tallyd, INSERT top_ap_list, aErrMsg = %s\n",
};
constexpr filler kSsids{
    "SELECT ssid, SUM(uplink), SUM(downlink) FROM %s GROUP by ssid ORDER by "
    "(SUM(uplink)+SUM(downlink)) DESC LIMIT %d",
    "SELECT ssid, SUM(uplink), SUM(downlink) FROM %s WHERE time>%lu GROUP by ssid ORDER by "
    "(SUM(uplink)+SUM(downlink)) DESC LIMIT %d",
    "INSERT INTO %s(id, ssid, uplink, downlink) VALUES(%d, %d, %llu, %llu)",
    "tallyd, value = %s, aErrMsg = %s\n",
    true,
    "tallyd, INSERT top_ssid_list, aErrMsg = %s\n",
};
constexpr filler kClients{
    "SELECT client_mac, SUM(total) FROM %s GROUP by client_mac ORDER by SUM(total) DESC LIMIT "
    "%d",
    "SELECT client_mac, SUM(total) FROM %s WHERE time>%lu GROUP by client_mac ORDER by "
    "SUM(total) DESC LIMIT %d",
    "INSERT INTO %s(id, client_mac, total) VALUES(%d, '%s', %llu)",
    "tallyd, select top_client_list aErrMsg = %s\n",
    false,
    "tallyd, INSERT top_client_list aErrMsg = %s\n",
};

// Reads the source's groups; false (logged) when the SELECT failed.
bool select_groups(const filler &f, sql_conn &db, tallyd_table t, uint32_t bound,
                   report_rows *rows) {
    const unsigned long since = bound;
    const char *table = tallyd_table_name(t);
    report_query q = bound ? report_query(db, 512, f.select_since, table, since, kTop)
                           : report_query(db, 512, f.select_all, table, kTop);
    if (q.select(rows)) return true;
    if (f.select_fail_shows_sql)
        tallyd_log(LOG_ERR, f.select_fail, q.shown(), q.err().text.c_str());
    else
        tallyd_log(LOG_ERR, f.select_fail, q.err().text.c_str());
    tallyd_recover_if_damaged(q.conn(), q.err(), TALLYD_RECOVER_DB);
    return false;
}

// Inserts the groups whose traffic is not 0 with insert(row, sum); the first
// failure ends the walk.
template <class Insert>
void insert_groups(const filler &f, const report_rows &rows, bool two_sums, Insert insert) {
    for (int r = 0; r < rows.rows(); ++r) {
        const uint64_t sum = two_sums ? rows.u64_at(r, 1) + rows.u64_at(r, 2) : rows.u64_at(r, 1);
        if (sum == 0) continue;
        sql_error err;
        if (insert(r, &err)) continue;
        tallyd_log(LOG_ERR, f.insert_fail, err.text.c_str());
        tallyd_recover_if_damaged(tallyd_db_set.top_list_db, err, TALLYD_RECOVER_DB);
        return;
    }
}

// Runs q and hands its error out.
bool run(report_query &q, sql_error *err) {
    const bool ok = q.exec();
    *err = q.err();
    return ok;
}

sql_conn &top_list() {
    return tallyd_db_set.top_list_db;
}

}  // namespace

const top_source &tallyd_top_source(uint32_t code) {
    if (code == kTopSourceDay.code) return kTopSourceDay;
    if (code == kTopSourceBackup.code) return kTopSourceBackup;
    return kTopSourceHour;
}

uint32_t tallyd_report_share(uint64_t bytes, uint64_t total) {
    return total ? static_cast<uint32_t>(bytes * 10000 / total) : 0;
}

uint64_t tallyd_top_period_total(uint32_t source, sql_conn &db, uint32_t bound) {
    if (!db) return 0;
    const char *table = tallyd_table_name(tallyd_top_source(source).clients);
    const unsigned long since = bound;
    report_query q = bound ? report_query(db, 256, kTotalSince, table, since)
                           : report_query(db, 256, kTotalAll, table);
    report_rows rows;
    if (!q.select(&rows)) {
        tallyd_log(LOG_ERR, "tallyd, value = %s, aErrMsg = %s\n", q.shown(), q.err().text.c_str());
        tallyd_recover_if_damaged(q.conn(), q.err(), TALLYD_RECOVER_DB);
        return 0;
    }
    return rows.rows() ? rows.u64_at(0, 0) : 0;
}

void tallyd_top_fill_apps(sql_conn &db, uint32_t source, uint32_t bound) {
    report_rows rows;
    if (!select_groups(kApps, db, tallyd_top_source(source).apps, bound, &rows)) return;
    insert_groups(kApps, rows, true, [&](int r, sql_error *err) {
        report_query q(top_list(), 512, kApps.insert, "top_app_list", static_cast<int>(source),
                       rows.at(r, 0), static_cast<unsigned long long>(rows.u64_at(r, 1)),
                       static_cast<unsigned long long>(rows.u64_at(r, 2)));
        return run(q, err);
    });
}

void tallyd_top_fill_aps(sql_conn &db, uint32_t source, uint32_t bound) {
    report_rows rows;
    if (!select_groups(kAps, db, tallyd_top_source(source).clients, bound, &rows)) return;
    insert_groups(kAps, rows, false, [&](int r, sql_error *err) {
        report_query q(top_list(), 512, kAps.insert, "top_ap_list", static_cast<int>(source),
                       rows.int_at(r, 0), static_cast<unsigned long long>(rows.u64_at(r, 1)));
        return run(q, err);
    });
}

void tallyd_top_fill_ssids(sql_conn &db, uint32_t source, uint32_t bound) {
    report_rows rows;
    if (!select_groups(kSsids, db, tallyd_top_source(source).ssids, bound, &rows)) return;
    insert_groups(kSsids, rows, true, [&](int r, sql_error *err) {
        report_query q(top_list(), 512, kSsids.insert, "top_ssid_list", static_cast<int>(source),
                       rows.int_at(r, 0), static_cast<unsigned long long>(rows.u64_at(r, 1)),
                       static_cast<unsigned long long>(rows.u64_at(r, 2)));
        return run(q, err);
    });
}

void tallyd_top_fill_clients(sql_conn &db, uint32_t source, uint32_t bound) {
    report_rows rows;
    if (!select_groups(kClients, db, tallyd_top_source(source).clients, bound, &rows)) return;
    insert_groups(kClients, rows, false, [&](int r, sql_error *err) {
        report_query q(top_list(), 512, kClients.insert, "top_client_list",
                       static_cast<int>(source), rows.at(r, 0),
                       static_cast<unsigned long long>(rows.u64_at(r, 1)));
        return run(q, err);
    });
}
