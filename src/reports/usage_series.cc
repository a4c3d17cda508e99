// The usage series: uplink and downlink rates of the steps of one period.
#include <algorithm>
#include <cstdio>

#include "base/clock.h"
#include "base/log.h"
#include "db/recover.h"
#include "reports/report_sql.h"
#include "reports/report_wire.h"
#include "reports/usage.h"

using namespace report_wire;

namespace {

// Steps of each effective period: a count and a length in seconds. The odd
// lengths are the periods of the rollup tasks and stay as they are.
struct steps {
    uint32_t count;
    uint32_t length;
};
constexpr steps kSteps[] = {{12, 300}, {12, 7217}, {14, 43243}, {15, 172879}};

usage_period shorter(usage_period p) {
    return p == usage_period::month  ? usage_period::week
           : p == usage_period::week ? usage_period::day
                                     : usage_period::hour;
}

// "SELECT SUM(downlink) FROM %s": whether a period's table holds anything.
uint64_t downlink_total(const usage_table &t) {
    if (!*t.db) return 0;
    report_query q(*t.db, 512, "SELECT SUM(downlink) FROM %s", tallyd_table_name(t.table));
    report_rows rows;
    if (!report_select(q, &rows, tallyd_usage_mask(t))) return 0;
    return rows.rows() ? rows.u64_at(0, 0) : 0;
}

// A text area of the series: "time,rate," pieces appended, the last comma
// turned into the terminating zero at the end.
class series_text {
   public:
    explicit series_text(std::span<uint8_t> area) : area_(area) {
        std::fill(area_.begin(), area_.end(), uint8_t{0});
    }
    void add(uint32_t end, uint64_t rate) {
        char piece[48];
        const int n =
            std::snprintf(piece, sizeof piece, "%lu,%llu,", static_cast<unsigned long>(end),
                          static_cast<unsigned long long>(rate));
        // Always room: 15 steps of at most 32 characters.
        for (int i = 0; i < n && len_ + 1 < area_.size(); ++i) area_[len_++] = piece[i];
    }
    void close() {
        if (len_) area_[len_ - 1] = 0;
    }

   private:
    std::span<uint8_t> area_;
    size_t len_ = 0;
};

std::span<uint8_t> area(std::span<uint8_t> data, const wire_field &f) {
    return data.subspan(f.offset, f.width);
}

}  // namespace

void tallyd_avp_client_usage(const usage_filter &f, std::span<uint8_t> data) {
    usage_period p = tallyd_usage_period_of(f.period);
    while (p != usage_period::hour && downlink_total(tallyd_usage_table(f, p)) == 0) p = shorter(p);
    const usage_table t = tallyd_usage_table(f, p);
    if (!*t.db) return;

    series_text up(area(data, kUsageUpSeries)), down(area(data, kUsageDownSeries));
    const usage_cond cond = tallyd_usage_cond(f);
    const steps s = kSteps[static_cast<int>(p)];
    const uint32_t now = tallyd_now();
    uint64_t up_sum = 0, down_sum = 0;
    for (uint32_t i = 0; i < s.count; ++i) {
        const uint32_t end = now - i * s.length, start = end - s.length;
        report_query q(*t.db, 512, "SELECT SUM(uplink), SUM(downlink) FROM %s WHERE ",
                       tallyd_table_name(t.table));
        tallyd_usage_cond_add(q, cond);
        if (cond.kind != usage_cond_kind::all) q.add(" AND ");
        q.add("time>=%lu AND time<%lu", static_cast<unsigned long>(start),
              static_cast<unsigned long>(end));
        report_rows rows;
        if (!q.select(&rows)) {
            tallyd_log(LOG_ERR, "tallyd, value = %s, aErrMsg = %s\n", q.shown(),
                       q.err().text.c_str());
            if (tallyd_recover_if_damaged(q.conn(), q.err(), tallyd_usage_mask(t)))
                break;  // the handle is a new one now
        }
        const uint64_t u = rows.rows() ? rows.u64_at(0, 0) : 0;
        const uint64_t d = rows.rows() ? rows.u64_at(0, 1) : 0;
        up_sum += u;
        down_sum += d;
        up.add(end, u * 8 / s.length);
        down.add(end, d * 8 / s.length);
    }
    up.close();
    down.close();
    wire_put_num(data, kUsageUplink, up_sum);
    wire_put_num(data, kUsageDownlink, down_sum);
    tallyd_log(LOG_DEBUG, "tallyd, uplink = %llu, downlink = %llu \n",
               static_cast<unsigned long long>(up_sum), static_cast<unsigned long long>(down_sum));
}
