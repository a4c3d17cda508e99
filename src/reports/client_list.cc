#include "reports/client_list.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "db/db_set.h"
#include "db/recover.h"
#include "entity/dict.h"
#include "entity/hostname.h"
#include "ipc/msg_layout.h"
#include "ipc/reply.h"
#include "reports/report_reply.h"
#include "reports/report_sql.h"
#include "reports/statis_wire.h"
#include "reports/top_lists.h"

using namespace report_wire;

namespace {

constexpr size_t kShown = 1024;

constexpr const char *kAllClients =
    "SELECT time, client_mac, ip, ip6, ap_id, dvcinfo_id, \nhost_name, ssid_id, vlan, channel, "
    "radio, status, auth_type, user_name \nFROM statis_client_info_h \nWHERE time>%lu \nGROUP by "
    "client_mac \nORDER by time DESC \nLIMIT %d";
constexpr const char *kOneClient =
    "SELECT time, client_mac, ip, ip6, ap_id, dvcinfo_id, \nhost_name, ssid_id, vlan, channel, "
    "radio, status, \nauth_type, user_name \nFROM statis_client_info_h \nWHERE client_mac='%s' "
    "AND time>%lu";
constexpr const char *kTrafficOfAll =
    "SELECT SUM(tx_bytes), SUM(rx_bytes) \nFROM statis_client_h WHERE client_mac='%s' ";
constexpr const char *kTrafficOfOne =
    "SELECT SUM(tx_bytes), SUM(rx_bytes) \nFROM statis_client_h WHERE client_mac='%s'";
constexpr const char *kAllTotal = "SELECT SUM(%s) FROM %s ";

// Columns of both client queries.
enum col : int {
    c_time,
    c_mac,
    c_ip,
    c_ip6,
    c_ap,
    c_dvcinfo,
    c_host,
    c_ssid,
    c_vlan,
    c_channel,
    c_radio,
    c_status,
    c_auth,
    c_user
};

sql_conn &statistic() {
    return tallyd_db_set.statistic_db;
}

uint64_t all_client_total() {
    report_query q(statistic(), kShown, kAllTotal, "total_bytes", "statis_ap_h");
    report_rows rows;
    if (!statistic() || !report_select(q, &rows, TALLYD_RECOVER_STATISTIC) || !rows.rows())
        return 0;
    return rows.u64_at(0, 0);
}

// Uplink and downlink of a client into its record; false when the query
// failed (logged with fail_fmt).
bool read_traffic(std::span<uint8_t> rec, const char *fmt, const char *fail_fmt) {
    const std::string mac(wire_get_text(rec, kStaMac));
    report_query q(statistic(), kShown, fmt, mac.c_str());
    report_rows rows;
    if (!report_select(q, &rows, TALLYD_RECOVER_DB, fail_fmt)) return false;
    wire_put_num(rec, kStaUp, rows.rows() ? rows.u64_at(0, 0) : 0);
    wire_put_num(rec, kStaDown, rows.rows() ? rows.u64_at(0, 1) : 0);
    return true;
}

void put_text(std::span<uint8_t> rec, const wire_field &f, const char *v, const char *def = "") {
    wire_put_text(rec, f, v ? v : def);
}

void put_small(std::span<uint8_t> rec, const wire_field &f, const report_rows &rows, int r, int c,
               uint32_t def) {
    wire_put_num(rec, f, rows.at(r, c) ? static_cast<uint32_t>(rows.int_at(r, c)) : def);
}

// Every column of row r but the traffic.
void fill_identity(std::span<uint8_t> rec, const report_rows &rows, int r) {
    put_text(rec, kStaIp, rows.at(r, c_ip));
    put_text(rec, kStaIp6, rows.at(r, c_ip6));
    put_text(rec, kStaAp, tallyd_avp_ap_lookup_id(rows.int_at(r, c_ap)));
    if (const int32_t id = rows.int_at(r, c_dvcinfo))
        put_text(rec, kStaDevice, tallyd_avp_dvcinfo_lookup_id(id));
    const char *host = rows.at(r, c_host);
    char renamed[64] = {};
    if (host && std::strcmp(host, "#") == 0) {
        const std::string mac(wire_get_text(rec, kStaMac));
        if (tallyd_get_sta_hostname(mac.c_str(), renamed, sizeof renamed) <= 0) renamed[0] = 0;
        host = renamed;
    }
    put_text(rec, kStaHost, host);
    put_text(rec, kStaSsid, tallyd_avp_ssid_lookup_id(rows.int_at(r, c_ssid)));
    put_small(rec, kStaVlan, rows, r, c_vlan, 1);
    put_small(rec, kStaChannel, rows, r, c_channel, 1);
    put_small(rec, kStaRadio, rows, r, c_radio, 1);
    put_small(rec, kStaStatus, rows, r, c_status, 0);
    put_text(rec, kStaAuth, rows.at(r, c_auth), "Open");
    put_text(rec, kStaUser, rows.at(r, c_user));
}

bool has_traffic(std::span<const uint8_t> rec) {
    return wire_get_num(rec, kStaUp) || wire_get_num(rec, kStaDown);
}

void finish(std::span<uint8_t> rec, uint64_t all_total) {
    const uint64_t total = wire_get_num(rec, kStaUp) + wire_get_num(rec, kStaDown);
    wire_put_num(rec, kStaTotal, total);
    wire_put_num(rec, kStaShare, tallyd_report_share(total, all_total));
}

// All clients: returns the bytes of the records kept.
size_t all_clients(std::span<uint8_t> data, uint64_t all_total) {
    const unsigned long since = tallyd_now() - 3600u;
    report_query q(statistic(), kShown, kAllClients, since, static_cast<int>(kListMaxClients));
    report_rows rows;
    if (!report_select(q, &rows, TALLYD_RECOVER_STATISTIC)) return 0;
    size_t kept = 0;
    for (int r = 0; r < rows.rows(); ++r) {
        std::span<uint8_t> rec = record(data, kClientList.records, kept);
        if (r > 0 && has_traffic(rec)) {
            finish(rec, all_total);
            rec = record(data, kClientList.records, ++kept);
        }
        std::fill(rec.begin(), rec.end(), uint8_t{0});
        wire_put_num(rec, kStaTime, static_cast<uint32_t>(rows.int_at(r, c_time)));
        put_text(rec, kStaMac, rows.at(r, c_mac));
        if (!read_traffic(rec, kTrafficOfAll, "tallyd, value_c = %s, aErrMsg = %s\n"))
            return kept * kStaSize;
        fill_identity(rec, rows, r);
    }
    if (rows.rows() == 0) return 0;
    // Only the last record is also judged by its addresses.
    std::span<uint8_t> last = record(data, kClientList.records, kept);
    const bool addressed =
        wire_get_text(last, kStaIp) != "0.0.0.0" || wire_get_text(last, kStaIp6) != "::";
    if (has_traffic(last) && addressed) {
        finish(last, all_total);
        ++kept;
    }
    return kept * kStaSize;
}

// One client: returns the record's size, or 0 when it could not be read.
size_t one_client(std::span<uint8_t> data, const char *mac, uint64_t all_total) {
    const unsigned long since = tallyd_now() - 3600u;
    report_query q(statistic(), kShown, kOneClient, mac, since);
    report_rows rows;
    if (!report_select(q, &rows, TALLYD_RECOVER_STATISTIC)) return 0;
    std::span<uint8_t> rec = record(data, kClientList.records, 0);
    for (int r = 0; r < rows.rows(); ++r) {
        wire_put_num(rec, kStaTime, static_cast<uint32_t>(rows.int_at(r, c_time)));
        put_text(rec, kStaMac, rows.at(r, c_mac));
        fill_identity(rec, rows, r);
    }
    // The traffic of the MAC asked for, found in the directory or not.
    report_query t(statistic(), kShown, kTrafficOfOne, mac);
    if (!report_select(t, &rows, TALLYD_RECOVER_DB)) return 0;
    wire_put_num(rec, kStaUp, rows.rows() ? rows.u64_at(0, 0) : 0);
    wire_put_num(rec, kStaDown, rows.rows() ? rows.u64_at(0, 1) : 0);
    finish(rec, all_total);
    tallyd_log(LOG_DEBUG, "tallyd, One STA, up = %llu, down = %llu\n",
               static_cast<unsigned long long>(wire_get_num(rec, kStaUp)),
               static_cast<unsigned long long>(wire_get_num(rec, kStaDown)));
    return kStaSize;
}

}  // namespace

int tallyd_get_client_list(std::span<const uint8_t> msg) {
    report_reply reply(msg, TALLYD_REPLY_BUF_SIZE);
    tallyd_log(LOG_DEBUG, "tallyd, received msg to get client list");
    const uint32_t len = wire_be32(msg, TALLYD_HDR_LENGTH.offset);
    if (len != kListPayload) {
        tallyd_log(LOG_WARNING,
                   "tallyd, invalid message len, expected len is %u, but received %u\n",
                   kListPayload, len);
        tallyd_reply_set_word(2);
        reply.send();
        return -1;
    }
    const uint32_t period = static_cast<uint32_t>(wire_get_num(msg, kListPeriod));
    if (period != 0) return reply.send();

    int rc = 0;
    const uint64_t all_total = all_client_total();
    tallyd_log(LOG_DEBUG, "tallyd, client total = %llu\n",
               static_cast<unsigned long long>(all_total));
    if (all_total == 0) {
        tallyd_log(LOG_DEBUG, "tallyd, total=0\n");
    } else if (wire_get_num(msg, kListFlag) == 0) {
        const std::span<const uint8_t> raw = wire_get_bytes(msg, kListMac);
        uint8_t b[6] = {};
        std::copy(raw.begin(), raw.end(), b);
        char mac[18];
        std::snprintf(mac, sizeof mac, "%02x:%02x:%02x:%02x:%02x:%02x", b[0], b[1], b[2], b[3],
                      b[4], b[5]);
        tallyd_log(LOG_DEBUG, "tallyd, receive a GET-STA mssage, id=%s, period=%d\n", mac,
                   static_cast<int32_t>(period));
        const bool all = std::all_of(b, b + 6, [](uint8_t v) { return v == 0xff; });
        const size_t n =
            all ? all_clients(reply.data(), all_total) : one_client(reply.data(), mac, all_total);
        if (!all && n == 0) rc = -1;
        reply.set_length(n);
    }
    tallyd_log(LOG_DEBUG, "tallyd, sending client list to vexd...");
    reply.send();
    return rc;
}
