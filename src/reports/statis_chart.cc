#include "reports/statis_chart.h"

#include <vector>

#include "base/clock.h"
#include "base/log.h"
#include "db/db_set.h"
#include "db/recover.h"
#include "entity/dict.h"
#include "reports/report_reply.h"
#include "reports/report_sql.h"
#include "reports/statis_wire.h"

using namespace report_wire;

namespace {

constexpr size_t kShown = 512;
constexpr const char *kChartTable = "statis_ap_chart";

constexpr const char *kByGroup =
    "SELECT time, SUM(%s) FROM %s \nWHERE apgroup_id=%d GROUP by time ORDER by time DESC LIMIT %d";
constexpr const char *kByAp =
    "SELECT time, SUM(%s) FROM %s \nWHERE ap_id=%d GROUP by time ORDER by time DESC LIMIT %d";
constexpr const char *kAll =
    "SELECT time, SUM(%s) FROM %s \nGROUP by time ORDER by time DESC LIMIT %d";
constexpr const char *kOneClient =
    "SELECT time, tx_bytes, rx_bytes FROM %s \nWHERE client_mac='%s' GROUP by time ORDER by time "
    "DESC LIMIT %d";

const char *text_or_zero(const report_rows &rows, int r, int c) {
    const char *v = rows.at(r, c);
    return v ? v : "0";
}

// Runs q and writes the time and the series into data; on failure the
// text stays empty and the time unwritten.
void write_series(report_query &q, const chart_form &form, bool pairs, const wire_field &text,
                  std::span<uint8_t> data) {
    report_rows rows;
    if (!tallyd_db_set.statistic_db || !report_select(q, &rows, TALLYD_RECOVER_STATISTIC)) return;
    std::vector<chart_row> kept;
    for (int r = 0; r < rows.rows(); ++r) {
        std::string v = text_or_zero(rows, r, 1);
        if (pairs) v = v + "," + text_or_zero(rows, r, 2);
        kept.push_back({rows.int_at(r, 0), std::move(v)});
    }
    const uint32_t now = tallyd_now();
    wire_put_num(data, kChartTime, now);
    wire_put_text(data, text, tallyd_chart_series(kept, now, form));
}

// The AP and client charts: one request form, one table, a value column.
int scoped_chart(std::span<const uint8_t> msg, bool clients) {
    const uint8_t period = static_cast<uint8_t>(wire_get_num(msg, kChartPeriod));
    const uint8_t ap_type = static_cast<uint8_t>(wire_get_num(msg, kChartApType));
    const uint8_t bytes_type = static_cast<uint8_t>(wire_get_num(msg, kChartBytesType));
    const int32_t apgroup_id = static_cast<int32_t>(wire_get_num(msg, kChartApgroup));
    char mac[33];
    wire_text_copy(mac, sizeof mac, msg, kChartApMac.offset, kChartApMac.width);
    if (clients)
        tallyd_log(LOG_DEBUG, "tallyd, statis client chart, period = %d, ap_type = %d\n", period,
                   ap_type);
    else
        tallyd_log(LOG_DEBUG,
                   "tallyd, statis ap chart, period = %d, ap_type = %d, bytes_type = %d\n", period,
                   ap_type, bytes_type);
    if (ap_type == kApTypeGroup) tallyd_log(LOG_DEBUG, "tallyd, apgroup_id = %d", apgroup_id);
    if (ap_type == kApTypeList) tallyd_log(LOG_DEBUG, "tallyd, ap_mac = %s", mac);

    const layout &shape = clients ? kClientChart : kApChart;
    report_reply reply(msg);
    std::span<uint8_t> data = reply.fill(shape.data_size);
    const char *column = clients                  ? "client_count"
                         : bytes_type == kBytesTx ? "tx_bytes"
                         : bytes_type == kBytesRx ? "rx_bytes"
                                                  : "tx_bytes+rx_bytes";
    const int steps = period == kStatisDay ? kChartStepsDay : kChartStepsHour;
    sql_conn &db = tallyd_db_set.statistic_db;
    report_query q =
        ap_type == kApTypeGroup
            ? report_query(db, kShown, kByGroup, column, kChartTable, apgroup_id, steps)
        : ap_type == kApTypeList ? report_query(db, kShown, kByAp, column, kChartTable,
                                                tallyd_avp_ap_lookup_name(mac), steps)
                                 : report_query(db, kShown, kAll, column, kChartTable, steps);
    const wire_field &text = shape.fields[1].wire;
    write_series(q, {static_cast<size_t>(steps), text.width - 1u, ",", "0", true}, false, text,
                 data);
    tallyd_log(LOG_DEBUG, clients ? "tallyd, sending statis client chart to vexd..."
                                  : "tallyd, sending statis ap chart to vexd...");
    return reply.send();
}

}  // namespace

std::string tallyd_chart_series(std::span<const chart_row> rows, uint32_t now,
                                const chart_form &form) {
    std::string out;
    auto append = [&](const std::string &s) {
        out.append(s, 0, form.max_len - std::min(form.max_len, out.size()));
    };
    size_t k = 0;
    for (size_t i = 0; i < form.steps; ++i) {
        const int64_t upper = form.reanchor && k == 1 ? int64_t{rows[0].time} - 150
                                                      : int64_t{now} - int64_t(i) * kChartStep;
        const int64_t lower = upper - kChartStep;
        if (k < rows.size() && lower < rows[k].time && rows[k].time <= upper)
            append(rows[k++].value);
        else
            append(form.empty);
        if (i + 1 < form.steps) append(form.sep);
    }
    return out;
}

int tallyd_statis_ap_chart(std::span<const uint8_t> msg) {
    return scoped_chart(msg, false);
}

int tallyd_statis_client_chart(std::span<const uint8_t> msg) {
    return scoped_chart(msg, true);
}

int tallyd_statis_single_client(std::span<const uint8_t> msg) {
    char mac[33];
    wire_text_copy(mac, sizeof mac, msg, kChartClientMac.offset, kChartClientMac.width);
    tallyd_log(LOG_DEBUG, "tallyd, statis single client: %s\n", mac);
    report_reply reply(msg);
    std::span<uint8_t> data = reply.fill(kSingleChart.data_size);
    report_query q(tallyd_db_set.statistic_db, kShown, kOneClient, "statis_client_h", mac,
                   static_cast<int>(kChartStepsHour));
    write_series(q, {kChartStepsHour, kSingleChartText.width - 1u, ";", "0,0", false}, true,
                 kSingleChartText, data);
    tallyd_log(LOG_DEBUG, "tallyd, sending statis single client traffic to vexd...");
    return reply.send();
}
