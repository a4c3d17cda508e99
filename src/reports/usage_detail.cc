// The usage detail: the application or port pie, or the filtered
// application or port list.
#include <cstdlib>

#include "base/log.h"
#include "db/db_set.h"
#include "db/recover.h"
#include "entity/port_name.h"
#include "reports/report_sql.h"
#include "reports/report_wire.h"
#include "reports/top_lists.h"
#include "reports/usage.h"

using namespace report_wire;

namespace {

// "SELECT app|port, SUM(uplink), SUM(downlink) FROM table [WHERE cond]
// GROUP by ... LIMIT n". The port list of one client is written with no
// blank between the quoted MAC and GROUP, as it always was.
void add_grouped(report_query &q, bool by_app, const usage_table &t, const usage_cond &c,
                 int limit) {
    const char *col = by_app ? "app" : "port";
    q.add("SELECT %s, SUM(uplink), SUM(downlink) FROM %s", col, tallyd_table_name(t.table));
    const bool glued = !by_app && c.kind == usage_cond_kind::client;
    if (c.kind != usage_cond_kind::all) {
        q.add(" WHERE ");
        tallyd_usage_cond_add(q, c);
    }
    q.add("%sGROUP by %s ORDER by (SUM(uplink)+SUM(downlink)) DESC LIMIT %d", glued ? "" : " ", col,
          limit);
}

// The label of a pie or list row: the application ("Miscellaneous" for an
// empty name) or the port's label ("dynamic" for port 0).
void put_label(std::span<uint8_t> rec, bool by_app, const char *value) {
    if (by_app) {
        wire_put_text(rec, kDetailLabel, value && *value ? value : "Miscellaneous");
        return;
    }
    const int32_t port = value ? std::atoi(value) : 0;
    char label[TALLYD_PORT_NAME_SIZE] = "dynamic";
    if (port != 0) tallyd_port_to_name(port, label);
    wire_put_text(rec, kDetailLabel, label);
}

// Runs the grouped query and writes one record per row from data offset
// 8,216, shares taken of total.
void put_groups(report_query &q, bool by_app, uint64_t total, uint32_t mask,
                std::span<uint8_t> data) {
    report_rows rows;
    if (!report_select(q, &rows, mask)) return;
    for (int r = 0; r < rows.rows(); ++r) {
        std::span<uint8_t> rec = record(data, kUsage.records, static_cast<size_t>(r));
        put_label(rec, by_app, rows.at(r, 0));
        const uint64_t up = rows.u64_at(r, 1), down = rows.u64_at(r, 2);
        wire_put_num(rec, kDetailUplink, up);
        wire_put_num(rec, kDetailDownlink, down);
        wire_put_num(rec, kDetailBytes, up + down);
        wire_put_num(rec, kDetailShare, tallyd_report_share(up + down, total));
    }
}

void pie(const usage_filter &f, std::span<uint8_t> data) {
    // The pie's recovery mask follows the period asked for, whatever table
    // answers.
    const uint32_t mask = f.period == kUsageWeek || f.period == kUsageMonth ? TALLYD_RECOVER_FLASH
                                                                            : TALLYD_RECOVER_DB;
    const usage_cond all{usage_cond_kind::all, "", 0, 0, 0};
    usage_table t{tallyd_table::avp_ssid_day, &tallyd_db_set.db, false};
    uint64_t total = tallyd_avp_detail_total(t, all, mask);
    tallyd_log(LOG_DEBUG, "tallyd, day pie total = %llu\n", static_cast<unsigned long long>(total));
    if (total == 0) {
        t = {tallyd_table::avp_all_group_hour, &tallyd_db_set.db, false};
        total = tallyd_avp_detail_total(t, all, mask);
        tallyd_log(LOG_DEBUG, "tallyd, hour pie total = %llu\n",
                   static_cast<unsigned long long>(total));
    }
    if (total == 0 || !*t.db) return;
    wire_put_num(data, kUsageTotal, total);
    const bool by_app = f.type != 0;
    report_query q(*t.db, 512);
    add_grouped(q, by_app, t, all, static_cast<int>(kPieRecords));
    put_groups(q, by_app, total, mask, data);
}

void list(const usage_filter &f, std::span<uint8_t> data) {
    const usage_table t = tallyd_usage_table(f, tallyd_usage_period_of(f.period));
    const usage_cond c = tallyd_usage_cond(f);
    const uint32_t mask = tallyd_usage_mask(t);
    const bool by_app = f.type != 0;
    const uint64_t total = tallyd_avp_detail_total(t, c, mask);
    // "APP0"/"PORT0": the lists over every client (client type 0).
    const bool all_clients = f.client_type == kClientAll;
    tallyd_log(
        LOG_DEBUG,
        by_app ? (all_clients ? "tallyd, APP0 total = %llu \n" : "tallyd, APP total = %llu \n")
               : (all_clients ? "tallyd, PORT0 total = %llu \n" : "tallyd, PORT total = %llu \n"),
        static_cast<unsigned long long>(total));
    if (total == 0 || !*t.db) return;
    wire_put_num(data, kUsageTotal, total);
    report_query q(*t.db, 512);
    add_grouped(q, by_app, t, c, static_cast<int>(kListRecords));
    put_groups(q, by_app, total, mask, data);
}

}  // namespace

uint64_t tallyd_avp_detail_total(const usage_table &t, const usage_cond &c, uint32_t mask) {
    if (!*t.db) return 0;
    report_query q(*t.db, 512, "SELECT SUM(uplink), SUM(downlink) FROM %s",
                   tallyd_table_name(t.table));
    if (c.kind != usage_cond_kind::all) {
        q.add(" WHERE ");
        tallyd_usage_cond_add(q, c);
    }
    report_rows rows;
    if (!report_select(q, &rows, mask)) return 0;
    return rows.rows() ? rows.u64_at(0, 0) + rows.u64_at(0, 1) : 0;
}

void tallyd_avp_client_detail(const usage_filter &f, std::span<uint8_t> data) {
    if (f.client_type == kClientPie)
        pie(f, data);
    else
        list(f, data);
}
