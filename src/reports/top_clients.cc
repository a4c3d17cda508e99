// The client records of the top summary, client counts and client details.
#include <cstdio>
#include <cstring>

#include "base/log.h"
#include "db/recover.h"
#include "entity/dict.h"
#include "entity/hostname.h"
#include "entity/text.h"
#include "reports/report_reply.h"
#include "reports/report_sql.h"
#include "reports/report_wire.h"
#include "reports/top_lists.h"

using namespace report_wire;

namespace {

constexpr int kTop = 10;

constexpr const char *kClientsHour =
    "SELECT client_mac, SUM(total) FROM avp_top_client_hour GROUP by client_mac ORDER by "
    "SUM(total) DESC LIMIT %d";
constexpr const char *kClientsDay =
    "SELECT client_mac, SUM(total) FROM top_client_list GROUP by client_mac ORDER by SUM(total) "
    "DESC LIMIT %d";

constexpr const char *kCountBySsid = "SELECT COUNT(DISTINCT client_mac) FROM %s WHERE ssid=%d";
constexpr const char *kCountByAp = "SELECT COUNT(DISTINCT client_mac) FROM %s WHERE ap_mac=%d";
constexpr const char *kCountAll = "SELECT COUNT(DISTINCT client_mac) FROM %s";

constexpr const char *kCollectSsid = "SELECT DISTINCT client_mac FROM %s WHERE ssid=%d";
constexpr const char *kCollectAp = "SELECT DISTINCT client_mac FROM %s WHERE ap_mac=%d";
constexpr const char *kCollectSsidBefore =
    "SELECT DISTINCT client_mac FROM %s WHERE ssid=%d AND time<%lu";
constexpr const char *kCollectApBefore =
    "SELECT DISTINCT client_mac FROM %s WHERE ap_mac=%d AND time<%lu";
constexpr const char *kCollectInsert = "INSERT INTO %s(id, client_mac) VALUES(%d, '%s')";

constexpr const char *kDetails =
    "SELECT dvcinfo_id, host_name, ip, channel, ip6, user_name, active \nFROM %s \nWHERE "
    "client_mac='%s' \nORDER by time ASC \nLIMIT 1";

uint32_t count_of(report_query &q) {
    report_rows rows;
    if (!report_select(q, &rows, TALLYD_RECOVER_DB) || rows.rows() == 0) return 0;
    return static_cast<uint32_t>(rows.int_at(0, 0));
}

}  // namespace

uint32_t tallyd_top_count_clients(const char *column, int32_t id) {
    const bool ssid = std::strcmp(column, "ssid") == 0;
    report_query q(tallyd_db_set.db, 256, ssid ? kCountBySsid : kCountByAp,
                   tallyd_table_name(kTopSourceHour.clients), id);
    return count_of(q);
}

uint32_t tallyd_top_count_collected() {
    report_query q(tallyd_db_set.top_list_db, 256, kCountAll, "total_client_list");
    return count_of(q);
}

void tallyd_top_collect_clients(sql_conn &db, uint32_t source, uint32_t bound, int32_t ssid_id,
                                int32_t ap_id) {
    if (!db) return;
    const char *table = tallyd_table_name(tallyd_top_source(source).clients);
    const int32_t id = ssid_id ? ssid_id : ap_id;
    const unsigned long before = bound;
    report_query q = bound ? report_query(db, 256, ssid_id ? kCollectSsidBefore : kCollectApBefore,
                                          table, id, before)
                           : report_query(db, 256, ssid_id ? kCollectSsid : kCollectAp, table, id);
    report_rows macs;
    if (!q.select(&macs)) {
        tallyd_log(LOG_ERR, "tallyd, select total_client_list aErrMsg = %s\n",
                   q.err().text.c_str());
        tallyd_recover_if_damaged(q.conn(), q.err(), TALLYD_RECOVER_DB);
        return;
    }
    sql_conn &top = tallyd_db_set.top_list_db;
    // A transaction that an earlier failure left open simply goes on.
    sql_exec(top.get(), "BEGIN TRANSACTION");
    for (int r = 0; r < macs.rows(); ++r) {
        report_query ins(top, 256, kCollectInsert, "total_client_list", static_cast<int>(source),
                         macs.at(r, 0));
        if (ins.exec()) continue;
        // Left open, as the device leaves it; the next COMMIT takes it.
        tallyd_log(LOG_ERR, "tallyd, INSERT total_client_list aErrMsg = %s\n",
                   ins.err().text.c_str());
        tallyd_recover_if_damaged(top, ins.err(), TALLYD_RECOVER_DB);
        return;
    }
    if (sql_exec(top.get(), "COMMIT TRANSACTION") != SQLITE_OK)
        tallyd_log(LOG_ERR, "tallyd, total_client_list commit failed\n");
}

int tallyd_top_client_details(std::span<uint8_t> rec, tallyd_table table) {
    const std::string mac(wire_get_text(rec, kClientMac));
    report_query q(tallyd_db_set.statistic_db, 512, kDetails, tallyd_table_name(table),
                   mac.c_str());
    report_rows rows;
    if (!tallyd_db_set.statistic_db || !report_select(q, &rows, TALLYD_RECOVER_STATISTIC) ||
        !rows.rows())
        return 0;
    // The columns in order, as the device walks them.
    const int32_t dvcinfo = rows.int_at(0, 0);
    if (dvcinfo == 0) {
        wire_put_text(rec, kClientDevice, "");
    } else {
        const char *device = tallyd_avp_dvcinfo_lookup_id(dvcinfo);
        if (!device) return 0;  // an unknown device type ends the walk
        wire_put_text(rec, kClientDevice, device);
    }
    int found = 0;
    if (const char *host = rows.at(0, 1)) {
        char renamed[64];
        const bool configured = std::strcmp(host, "#") == 0 &&
                                tallyd_get_sta_hostname(mac.c_str(), renamed, sizeof renamed) > 0;
        wire_put_text(rec, kClientHost, configured ? renamed : host);
        found = 1;
    }
    if (const char *ip = rows.at(0, 2)) wire_put_text(rec, kClientIp, ip);
    // Column 3, the channel, is not part of the record.
    if (const char *ip6 = rows.at(0, 4)) wire_put_text(rec, kClientIp6, ip6);
    if (const char *user = rows.at(0, 5)) wire_put_text(rec, kClientUser, user);
    wire_put_num(rec, kClientActive, static_cast<uint32_t>(rows.int_at(0, 6)));
    return found;
}

void tallyd_report_client(std::span<uint8_t> rec, const char *stored_mac, uint64_t bytes,
                          uint64_t total) {
    char mac[32] = {};
    tallyd_mac12_to_mac17(stored_mac ? stored_mac : "", mac);
    wire_put_text(rec, kClientMac, tallyd_str_tolower(mac));
    if (!tallyd_top_client_details(rec, tallyd_table::statis_client_info_h))
        tallyd_top_client_details(rec, tallyd_table::statis_client_info_d);
    wire_put_num(rec, kClientBytes, bytes);
    wire_put_num(rec, kClientShare, tallyd_report_share(bytes, total));
}

void tallyd_top_build_clients(uint64_t total, uint32_t period, report_reply &reply) {
    if (total == 0) return;
    std::span<uint8_t> data = reply.fill(kTopClients.data_size);
    const bool day = period == kPeriodDay;
    report_query q(day ? tallyd_db_set.top_list_db : tallyd_db_set.db, 512,
                   day ? kClientsDay : kClientsHour, kTop);
    report_rows rows;
    if (!report_select(q, &rows, TALLYD_RECOVER_DB)) return;
    for (int r = 0; r < rows.rows(); ++r) {
        std::span<uint8_t> rec = record(data, kTopClients.records, static_cast<size_t>(r));
        tallyd_report_client(rec, rows.at(r, 0), rows.u64_at(r, 1), total);
    }
    wire_put_num(data, kClientsTotal, total);
}
