#include "reports/statis_summary.h"

#include <algorithm>
#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "db/db_set.h"
#include "db/recover.h"
#include "entity/dict.h"
#include "platform/xrepo.h"
#include "reports/report_reply.h"
#include "reports/statis_scope.h"
#include "reports/statis_wire.h"

using namespace report_wire;

namespace {

constexpr size_t kShown = 1024;
constexpr uint32_t kRecover = TALLYD_RECOVER_STATISTIC;

// The tables of one period.
struct period_tables {
    const char *ap;           // AP traffic: statis_ap_h or _d
    const char *client;       // client traffic: statis_client_h or _d
    const char *client_info;  // client identities: statis_client_info_h or _d
};
constexpr period_tables kHourTables{"statis_ap_h", "statis_client_h", "statis_client_info_h"};
constexpr period_tables kDayTables{"statis_ap_d", "statis_client_d", "statis_client_info_d"};

// The key of a list and how it becomes the record's text.
struct list_key {
    const char *column;
    const char *(*name)(const report_rows &rows, int r);
};

const char *ap_name(const report_rows &rows, int r) {
    return tallyd_avp_ap_lookup_id(rows.int_at(r, 0));
}
const char *ssid_name(const report_rows &rows, int r) {
    return tallyd_avp_ssid_lookup_id(rows.int_at(r, 0));
}
const char *stored_name(const report_rows &rows, int r) {
    return rows.at(r, 0);
}
const char *device_name(const report_rows &rows, int r) {
    return tallyd_avp_dvcinfo_lookup_id(rows.int_at(r, 0));
}

constexpr list_key kApKey{"ap_id", ap_name};
constexpr list_key kSsidKey{"ssid_id", ssid_name};
constexpr list_key kClientKey{"client_mac", stored_name};
constexpr list_key kDeviceKey{"dvcinfo_id", device_name};

enum class count_kind : uint8_t { aps, wlans, none };

// What sets the three summaries apart.
struct summary_kind {
    const char *start_log;
    const char *send_log;
    const layout *shape;
    list_key bytes_key;
    bool bytes_on_clients;  // byte list from the client traffic table
    list_key count_key;
    bool lists_by_ssid;  // the SSID family: lists take no SSID condition
    count_kind count;
};

constexpr summary_kind kAp{
    "tallyd, ap static period=%d, ssid_type=%d, ap_type=%d, apgroup_id=%d, top_num=%d, "
    "bytes_type=%d\n",
    "tallyd, sending ap statis summary vexd...",
    &kApStats,
    kApKey,
    false,
    kApKey,
    false,
    count_kind::aps};
constexpr summary_kind kSsid{
    "tallyd, ssid statis period=%d, ssid_type=%d, ap_type=%d, apgroup_id=%d, top_num=%d, "
    "bytes_type=%d\n",
    "tallyd, sending ssid statis summary to vexd...",
    &kSsidStats,
    kSsidKey,
    false,
    kSsidKey,
    true,
    count_kind::wlans};
constexpr summary_kind kClient{
    "tallyd, client statis period=%d, ssid_type = %d, ap_type=%d, apgroup_id=%d, top_num=%d, "
    "bytes_type=%d",
    "tallyd, sending client statis summary to vexd...",
    &kClientStats,
    kClientKey,
    true,
    kDeviceKey,
    false,
    count_kind::none};

sql_conn &statistic() {
    return tallyd_db_set.statistic_db;
}

// One number from a one-row SELECT; 0 when it fails or finds nothing.
uint64_t scalar(report_query &q) {
    report_rows rows;
    if (!statistic() || !report_select(q, &rows, kRecover) || rows.rows() == 0) return 0;
    return rows.u64_at(0, 0);
}

const char *bytes_column(uint8_t bytes_type) {
    if (bytes_type == kBytesTx) return "tx_bytes";
    if (bytes_type == kBytesRx) return "rx_bytes";
    return "total_bytes";
}

uint64_t bytes_total(const char *table, const char *column, const statis_scope &s) {
    report_query q(statistic(), kShown, "SELECT SUM(%s) FROM %s WHERE ", column, table);
    tallyd_statis_condition(q, s, true);
    return scalar(q);
}

int32_t distinct_clients(const char *table, const statis_scope &s) {
    report_query q(statistic(), kShown, "SELECT COUNT(DISTINCT client_mac) FROM %s WHERE ", table);
    tallyd_statis_condition(q, s, true);
    return static_cast<int32_t>(scalar(q));
}

// The id of the configured WLAN serving the request's SSID; 0 if none.
int32_t wlan_id_of(const char *ssid) {
    xconf_ptr wlans(xGetConfImpl("tallyd_statis_wlan_id", __LINE__, "wlansvc-list", 0));
    for (xnode *w = xGetFirstChild(wlans.get()); w; w = xGetNextSibling(w))
        if (std::strcmp(xGetAttrString(w, "ssid", ""), ssid) == 0) return xGetAttrInt(w, "id", 0);
    return 0;
}

// APs (or WLANs) of the request in statis_ap_wlan: rows current now, or
// closed within the period.
uint16_t ap_wlan_count(count_kind kind, const statis_scope &s) {
    const unsigned long since = s.since;
    constexpr const char *kTable = "statis_ap_wlan";
    const bool ssid = s.ssid_type == kSsidOne;
    report_query q(statistic(), kShown);
    if (kind == count_kind::aps) {
        q.add("SELECT COUNT(DISTINCT ap_id) FROM %s \nWHERE ", kTable);
        if (ssid) q.add("wlan_id=%d AND ", wlan_id_of(s.ssid));
        if (s.ap_type == kApTypeGroup) q.add("apgrp_id=%d AND ", s.apgroup_id);
        q.add("(time=0 OR time>=%lu)", since);
    } else {
        q.add("SELECT COUNT(DISTINCT wlan_id) FROM %s \nWHERE ", kTable);
        if (s.ap_type == kApTypeGroup)
            q.add("ap_id=0 AND apgrp_id=%d AND (time=0 OR time>=%lu)", s.apgroup_id, since);
        else if (s.ap_type == kApTypeList)
            q.add("(time=0 OR time>=%lu)", since);
        else
            q.add("ap_id=0 AND (time=0 OR time>=%lu)", since);
    }
    if (s.ap_type == kApTypeList) {
        q.add(" AND (");
        tallyd_statis_ap_list(q, s);
        q.add(")");
    }
    return static_cast<uint16_t>(scalar(q));
}

// Writes one list's records (key text, then the number of write_value) and
// returns how many there are.
template <class Write>
uint32_t write_list(report_query &q, const array &a, const list_key &key, std::span<uint8_t> data,
                    Write write_value) {
    report_rows rows;
    if (!statistic() || !report_select(q, &rows, kRecover)) return 0;
    const int n = std::min<int>(rows.rows(), a.count);
    for (int r = 0; r < n; ++r) {
        std::span<uint8_t> rec = record(data, a, static_cast<size_t>(r));
        const char *name = key.name(rows, r);
        wire_put_text(rec, a.fields[0].wire, name ? name : "");
        write_value(rec, a.fields[1].wire, rows, r);
    }
    return static_cast<uint32_t>(n);
}

uint32_t top_bytes(const list_key &key, const char *table, const char *column,
                   const statis_scope &s, bool with_ssid, int limit, std::span<uint8_t> data) {
    report_query q(statistic(), kShown);
    if (std::strcmp(key.column, "ap_id") == 0 && s.ap_type != kApTypeGroup &&
        s.ap_type != kApTypeList && !(with_ssid && s.ssid_type == kSsidOne)) {
        // The all-APs form, laid out as the device has always printed it.
        q.add(
            "SELECT ap_id, SUM(%s) FROM %s \nWHERE time>=%lu GROUP by ap_id ORDER by SUM(%s) "
            "DESC \nLIMIT %d",
            column, table, static_cast<unsigned long>(s.since), column, limit);
    } else {
        q.add("SELECT %s, SUM(%s) FROM %s \nWHERE ", key.column, column, table);
        tallyd_statis_condition(q, s, with_ssid);
        q.add(" \nGROUP by %s \nORDER by SUM(%s) DESC \nLIMIT %d", key.column, column, limit);
    }
    const array &a = kApStats.records;
    const uint32_t n = write_list(q, a, key, data, [](auto rec, auto &f, auto &rows, int r) {
        wire_put_num(rec, f, rows.u64_at(r, 1));
    });
    wire_put_num(data, kStatisByteCount, n);
    return n;
}

void top_clients(const list_key &key, const array &a, const char *table, const statis_scope &s,
                 bool with_ssid, int limit, std::span<uint8_t> data) {
    report_query q(statistic(), kShown, "SELECT %s, COUNT(DISTINCT client_mac) FROM %s \nWHERE ",
                   key.column, table);
    tallyd_statis_condition(q, s, with_ssid);
    q.add(" \nGROUP by %s \nORDER by COUNT(DISTINCT client_mac) DESC \nLIMIT %d", key.column,
          limit);
    const uint32_t n = write_list(q, a, key, data, [](auto rec, auto &f, auto &rows, int r) {
        wire_put_num(rec, f, static_cast<uint16_t>(rows.int_at(r, 1)));
    });
    wire_put_num(data, kStatisClientCount, n);
}

void log_request(const summary_kind &k, std::span<const uint8_t> msg) {
    auto num = [&](const wire_field &f) { return static_cast<int32_t>(wire_get_num(msg, f)); };
    tallyd_log(LOG_DEBUG, k.start_log, num(kStatisPeriod), num(kStatisSsidType), num(kStatisApType),
               num(kStatisApgroup), num(kStatisTopNum), num(kStatisBytesType));
    const int32_t ap_count = num(kStatisApCount);
    if (ap_count) tallyd_log(LOG_DEBUG, "tallyd, ap_count = %d\n", ap_count);
    for (size_t i = 0; i < std::min<size_t>(static_cast<size_t>(ap_count), kStatisApListMax); ++i) {
        const std::string_view mac =
            wire_text(msg, kStatisApListOffset + i * kStatisApMac.width, kStatisApMac.width);
        tallyd_log(LOG_DEBUG, "tallyd, mac = %.*s  ", static_cast<int>(mac.size()), mac.data());
    }
    if (num(kStatisSsidType) == kSsidOne) {
        const std::string_view ssid = wire_get_text(msg, kStatisSsid);
        tallyd_log(LOG_DEBUG, "tallyd, ssid = %.*s", static_cast<int>(ssid.size()), ssid.data());
    }
}

int summary(const summary_kind &k, std::span<const uint8_t> msg) {
    log_request(k, msg);
    report_reply reply(msg);
    const bool client = k.count == count_kind::none;
    std::span<uint8_t> data =
        client ? reply.data().first(k.shape->data_size) : reply.fill(k.shape->data_size);
    statis_scope s = tallyd_statis_scope_read(msg, tallyd_now());
    const uint8_t top_num = static_cast<uint8_t>(wire_get_num(msg, kStatisTopNum));
    const int limit = top_num == 0 || top_num > kStatisTopMax ? kStatisTopMax : top_num;
    const char *column = bytes_column(static_cast<uint8_t>(wire_get_num(msg, kStatisBytesType)));

    if (k.count == count_kind::aps) wire_put_num(data, kStatisAps, ap_wlan_count(k.count, s));
    if (k.count == count_kind::wlans) wire_put_num(data, kStatisWlans, ap_wlan_count(k.count, s));

    period_tables t = s.period == kStatisDay ? kDayTables : kHourTables;
    uint64_t total = bytes_total(t.ap, column, s);
    if (total == 0 && s.period == kStatisDay) {
        t = kHourTables;  // nothing rolled into the day yet: the same 24 hours from the hours
        total = bytes_total(t.ap, column, s);
    }
    int32_t clients = 0;
    if (total != 0) {
        if (client) {
            clients = distinct_clients(t.client_info, s);
            data = reply.fill(k.shape->data_size);
        }
        top_bytes(k.bytes_key, k.bytes_on_clients ? t.client : t.ap, column, s, !k.lists_by_ssid,
                  limit, data);
    }
    if (total == 0) {
        tallyd_log(LOG_DEBUG, "tallyd, total byte is 0\n");
        return reply.send();
    }
    if (client)
        wire_put_num(data, kStatisClientClients, static_cast<uint16_t>(clients));
    else
        wire_put_num(data, kStatisClients,
                     static_cast<uint64_t>(int64_t{distinct_clients(t.client_info, s)}));
    top_clients(k.count_key, k.shape->more, t.client_info, s, !k.lists_by_ssid, limit, data);
    wire_put_num(data, kStatisTotal, total);
    tallyd_log(LOG_DEBUG, "%s", k.send_log);
    return reply.send();
}

}  // namespace

int tallyd_statis_ap(std::span<const uint8_t> msg) {
    return summary(kAp, msg);
}

int tallyd_statis_ssid(std::span<const uint8_t> msg) {
    return summary(kSsid, msg);
}

int tallyd_statis_client(std::span<const uint8_t> msg) {
    return summary(kClient, msg);
}
