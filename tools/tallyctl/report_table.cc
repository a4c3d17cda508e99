#include "report_table.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <ctime>
#include <map>
#include <vector>

using namespace report_wire;

namespace {

std::string scaled(uint64_t v, double base, const char *const *units, size_t nunits) {
    double x = static_cast<double>(v);
    size_t u = 0;
    while (x >= base && u + 1 < nunits) {
        x /= base;
        ++u;
    }
    char b[48];
    if (u == 0)
        std::snprintf(b, sizeof b, "%" PRIu64 " %s", v, units[0]);
    else
        std::snprintf(b, sizeof b, "%.1f %s", x, units[u]);
    return b;
}

std::string shown(const nlohmann::json &v, unit u) {
    if (v.is_string()) return v.get<std::string>();
    if (!v.is_number()) return "";
    const uint64_t n = v.get<uint64_t>();
    switch (u) {
        case unit::bytes:
            return tallyctl_human_bytes(n);
        case unit::share:
            return tallyctl_percent(n);
        case unit::time:
            return n ? tallyctl_local_time(n) : "";
        default:
            return std::to_string(n);
    }
}

// Rows of cells printed in columns two blanks apart; numbers to the right.
std::string columns(const std::vector<std::vector<std::string>> &rows,
                    const std::vector<bool> &right) {
    std::vector<size_t> width(rows.empty() ? 0 : rows[0].size(), 0);
    for (const auto &r : rows)
        for (size_t c = 0; c < r.size(); ++c) width[c] = std::max(width[c], r[c].size());
    std::string out;
    for (const auto &r : rows) {
        std::string line;
        for (size_t c = 0; c < r.size(); ++c) {
            const std::string pad(width[c] - r[c].size(), ' ');
            line += c ? "  " : "";
            line += right[c] ? pad + r[c] : r[c] + pad;
        }
        while (!line.empty() && line.back() == ' ') line.pop_back();
        out += line + "\n";
    }
    return out;
}

std::string records_table(const nlohmann::json &records, const array &a) {
    std::vector<const field *> cols;
    for (const field &f : a.fields) {
        const bool any = std::any_of(records.begin(), records.end(), [&](const nlohmann::json &r) {
            const auto &v = r[f.wire.name];
            return v.is_string() ? !v.get<std::string>().empty() : v.is_number();
        });
        if (any) cols.push_back(&f);
    }
    std::vector<std::vector<std::string>> rows{{"#"}};
    std::vector<bool> right{true};
    for (const field *f : cols) {
        rows[0].push_back(f->wire.name);
        right.push_back(f->wire.kind != wire_kind::text);
    }
    size_t n = 0;
    for (const auto &r : records) {
        std::vector<std::string> row{std::to_string(++n)};
        for (const field *f : cols) row.push_back(shown(r[f->wire.name], f->shown));
        rows.push_back(std::move(row));
    }
    return columns(rows, right);
}

// The series fields merged by time, most recent first as the daemon sends.
std::string series_table(const nlohmann::json &fields, const layout &l) {
    std::vector<const field *> series;
    for (const field &f : l.fields)
        if (f.shown == unit::series && fields.contains(f.wire.name) && !fields[f.wire.name].empty())
            series.push_back(&f);
    if (series.empty()) return "";
    std::vector<std::vector<std::string>> rows{{"time"}};
    std::vector<bool> right{false};
    std::map<uint64_t, std::vector<std::string>, std::greater<>> by_time;
    for (size_t s = 0; s < series.size(); ++s) {
        rows[0].push_back(series[s]->wire.name);
        right.push_back(true);
        for (const auto &p : fields[series[s]->wire.name]) {
            auto &cells = by_time[p[0].get<uint64_t>()];
            cells.resize(series.size());
            cells[s] = tallyctl_human_rate(p[1].get<uint64_t>());
        }
    }
    for (auto &[t, cells] : by_time) {
        std::vector<std::string> row{tallyctl_local_time(t)};
        row.insert(row.end(), cells.begin(), cells.end());
        rows.push_back(std::move(row));
    }
    return columns(rows, right);
}

// Five-minute step fields as a table of end times and values.
std::string steps_table(const nlohmann::json &fields, const layout &l) {
    std::string out;
    for (const field &f : l.fields) {
        const bool pairs = f.shown == unit::byte_pairs;
        if (!unit_is_steps(f.shown)) continue;
        if (!fields.contains(f.wire.name) || fields[f.wire.name].empty()) continue;
        std::vector<std::vector<std::string>> rows{{"until"}};
        if (pairs)
            rows[0].insert(rows[0].end(), {"uplink", "downlink"});
        else
            rows[0].push_back(f.wire.name);
        const unit each = f.shown == unit::count_steps ? unit::count : unit::bytes;
        for (const auto &p : fields[f.wire.name]) {
            std::vector<std::string> row{tallyctl_local_time(p[0].get<uint64_t>())};
            for (size_t i = 1; i < p.size(); ++i) row.push_back(shown(p[i], each));
            rows.push_back(std::move(row));
        }
        out += columns(rows, std::vector<bool>(rows[0].size(), true));
    }
    return out;
}

}  // namespace

std::string tallyctl_human_bytes(uint64_t bytes) {
    static constexpr const char *kUnits[] = {"B", "KiB", "MiB", "GiB", "TiB", "PiB", "EiB"};
    return scaled(bytes, 1024, kUnits, std::size(kUnits));
}

std::string tallyctl_human_rate(uint64_t bps) {
    static constexpr const char *kUnits[] = {"bit/s",  "kbit/s", "Mbit/s", "Gbit/s",
                                             "Tbit/s", "Pbit/s", "Ebit/s"};
    return scaled(bps, 1000, kUnits, std::size(kUnits));
}

std::string tallyctl_percent(uint64_t share) {
    char b[32];
    std::snprintf(b, sizeof b, "%" PRIu64 ".%02" PRIu64 "%%", share / 100, share % 100);
    return b;
}

std::string tallyctl_local_time(uint64_t t) {
    const time_t tt = static_cast<time_t>(t);
    struct tm tm {};
    localtime_r(&tt, &tm);
    char b[32];
    std::strftime(b, sizeof b, "%Y-%m-%d %H:%M:%S", &tm);
    return b;
}

std::string tallyctl_report_text(const nlohmann::json &d, const layout &l) {
    std::string out = std::string(l.name) + " (reply to " + d["request_id"].get<std::string>() +
                      ", " + std::to_string(d["data_length"].get<uint64_t>()) + " bytes of data)\n";
    if (d["data_length"].get<uint64_t>() == 0) return out + "no data\n";
    for (const field &f : l.fields)
        if (f.shown != unit::series && !unit_is_steps(f.shown) && d["fields"].contains(f.wire.name))
            out +=
                std::string(f.wire.name) + ": " + shown(d["fields"][f.wire.name], f.shown) + "\n";
    bool any = false;
    for (const array *a : {&l.records, &l.more}) {
        const char *key = a == &l.records ? "records" : a->name;
        if (!a->count || !d.contains(key) || d[key].empty()) continue;
        if (l.more.count) out += std::string(a->name) + ":\n";
        out += records_table(d[key], *a);
        any = true;
    }
    const std::string series = series_table(d["fields"], l) + steps_table(d["fields"], l);
    if (!series.empty()) out += series;
    if (!any && series.empty()) out += "no records\n";
    return out;
}
