// tallyctl ap-stats, ssid-stats, client-summary, ap-chart, client-chart,
// client-chart1 and clients: the wireless statistics reports, requests from
// named options and replies decoded with the daemon's layouts.
#include <cstdio>
#include <string>
#include <vector>

#include "ipc/msg_ids.h"
#include "report_cmd.h"
#include "reports/statis_wire.h"

using namespace report_wire;

namespace {

// Options shared by the summaries and the charts.
struct scope_options {
    bool day = false;
    bool has_group = false;
    uint32_t apgroup = 0;
    std::vector<std::string> aps;
    std::string ssid;
    uint32_t top = 0;
    uint8_t bytes = 0;
};

// Reads one scope option (its value included); false when name is none of
// them or its value was bad (in.status() then says so).
bool scope_option(option_reader &in, const std::string &name, scope_options *s) {
    if (name == "--day") return s->day = true;
    std::string v;
    if (name == "--apgroup") {
        if (!in.value(name, &v)) return false;
        if (!tallyctl_parse_u32(v, &s->apgroup) || s->apgroup > 0xffff)
            return in.fail("bad AP group id " + v), false;
        return s->has_group = true;
    }
    if (name == "--ap" || name == "--ssid") {
        if (!in.value(name, &v)) return false;
        if (v.size() > 31) return in.fail(v + " is longer than 31 characters"), false;
        if (name == "--ssid") return s->ssid = v, true;
        s->aps.push_back(v);
        return true;
    }
    if (name == "--top") {
        if (!in.value(name, &v)) return false;
        if (!tallyctl_parse_u32(v, &s->top) || s->top > 255) return in.fail("bad top " + v), false;
        return true;
    }
    if (name == "--bytes") {
        if (!in.value(name, &v)) return false;
        const int b = tallyctl_word_index(v, {"total", "tx", "rx"});
        if (b < 0) return in.fail("bad bytes " + v + " (tx, rx, total)"), false;
        s->bytes = static_cast<uint8_t>(b);
        return true;
    }
    return in.fail("unknown option " + name), false;
}

// Reads every option; 0, or the usage status.
int read_options(option_reader &in, scope_options *s, report_output *o) {
    std::string name;
    while (in.next(&name) && !in.status())
        if (!in.output(name, o)) scope_option(in, name, s);
    if (in.status()) return in.status();
    if (s->aps.size() > kStatisApListMax) return in.fail("at most 20 --ap");
    if (s->has_group && !s->aps.empty()) return in.fail("--apgroup or --ap, not both");
    return 0;
}

uint8_t ap_type_of(const scope_options &s) {
    return s.has_group ? kApTypeGroup : s.aps.empty() ? 0 : kApTypeList;
}

int summary(const tallyctl_ctx &ctx, const char *cmd, uint32_t id, const layout &l,
            const std::vector<std::string> &args) {
    option_reader in(cmd, args);
    scope_options s;
    report_output o;
    if (const int rc = read_options(in, &s, &o)) return rc;
    if (o.picture) return in.fail("draws no picture");
    statis_request r{.period = s.day ? kStatisDay : uint8_t{0},
                     .ssid = s.ssid,
                     .ap_type = ap_type_of(s),
                     .apgroup_id = static_cast<uint16_t>(s.apgroup),
                     .top_num = static_cast<uint8_t>(s.top),
                     .bytes_type = s.bytes};
    for (const std::string &ap : s.aps) r.aps.push_back(ap);
    return tallyctl_show_report(ctx, id, build_statis(r), l, o, nullptr, "");
}

// The step texts of a decoded chart as lines: bytes as bits per second over
// each five minutes, clients as they are.
std::vector<tallyctl_line> step_lines(const nlohmann::json &d, const layout &l) {
    std::vector<tallyctl_line> lines;
    for (const field &f : l.fields) {
        if (!unit_is_steps(f.shown)) continue;
        const bool pairs = f.shown == unit::byte_pairs;
        const double scale = f.shown == unit::count_steps ? 1.0 : 8.0 / kChartStep;
        for (size_t i = 1; i < (pairs ? 3u : 2u); ++i) {
            tallyctl_line line{pairs ? (i == 1 ? "uplink" : "downlink") : f.wire.name, {}};
            for (const auto &p : d["fields"][f.wire.name])
                line.points.emplace_back(p[0].get<double>(), p[i].get<double>() * scale);
            lines.push_back(std::move(line));
        }
    }
    return lines;
}

template <const layout &L>
bool draw_chart(const nlohmann::json &d, const report_output &o, const std::string &title,
                std::string *error) {
    const bool counts = &L == &kClientChart;
    return tallyctl_draw_lines(o.picture_path, *o.picture, title, step_lines(d, L), error,
                               counts ? tallyctl_axis::count : tallyctl_axis::rate);
}

int chart(const tallyctl_ctx &ctx, const char *cmd, bool clients,
          const std::vector<std::string> &args) {
    option_reader in(cmd, args);
    scope_options s;
    report_output o;
    if (const int rc = read_options(in, &s, &o)) return rc;
    if (s.aps.size() > 1 || !s.ssid.empty() || s.top || (clients && s.bytes))
        return in.fail("takes --day, --apgroup ID or one --ap MAC" +
                       std::string(clients ? "" : ", --bytes"));
    const chart_request r{.period = s.day ? kStatisDay : uint8_t{0},
                          .ap_type = ap_type_of(s),
                          .apgroup_id = static_cast<uint16_t>(s.apgroup),
                          .ap_mac = s.aps.empty() ? std::string_view() : s.aps[0],
                          .bytes_type = s.bytes};
    const std::string title = std::string(clients ? "Clients of " : "Traffic of ") +
                              (s.has_group       ? "AP group " + std::to_string(s.apgroup)
                               : r.ap_mac.size() ? "AP " + s.aps[0]
                                                 : std::string("all APs"));
    if (clients)
        return tallyctl_show_report(ctx, TALLYD_MSG_STATIS_CLIENT_CHART, build_chart(r),
                                    kClientChart, o, draw_chart<kClientChart>, title);
    return tallyctl_show_report(ctx, TALLYD_MSG_STATIS_AP_CHART, build_chart(r), kApChart, o,
                                draw_chart<kApChart>, title);
}

// "aa:bb:cc:dd:ee:ff" into six bytes.
bool parse_mac(const std::string &text, uint8_t out[6]) {
    unsigned b[6];
    char end;
    if (std::sscanf(text.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x%c", &b[0], &b[1], &b[2], &b[3], &b[4],
                    &b[5], &end) != 6)
        return false;
    for (int i = 0; i < 6; ++i) out[i] = static_cast<uint8_t>(b[i]);
    return text.size() == 17;
}

// The single positional word of a command (with --raw, --png, --svg).
int one_word(option_reader &in, report_output *o, std::string *word) {
    std::string name;
    while (in.next(&name) && !in.status()) {
        if (in.output(name, o)) continue;
        if (!name.empty() && name[0] == '-') return in.fail("unknown option " + name);
        if (!word->empty()) return in.fail("one MAC only");
        *word = name;
    }
    return in.status();
}

}  // namespace

int tallyctl_cmd_ap_stats(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return summary(ctx, "ap-stats", TALLYD_MSG_STATIS_AP, kApStats, args);
}

int tallyctl_cmd_ssid_stats(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return summary(ctx, "ssid-stats", TALLYD_MSG_STATIS_SSID, kSsidStats, args);
}

int tallyctl_cmd_client_summary(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return summary(ctx, "client-summary", TALLYD_MSG_STATIS_CLIENT, kClientStats, args);
}

int tallyctl_cmd_ap_chart(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return chart(ctx, "ap-chart", false, args);
}

int tallyctl_cmd_client_chart(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return chart(ctx, "client-chart", true, args);
}

int tallyctl_cmd_client_chart1(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    option_reader in("client-chart1", args);
    report_output o;
    std::string mac;
    if (const int rc = one_word(in, &o, &mac)) return rc;
    if (mac.empty() || mac.size() > 31)
        return in.fail("needs one client MAC (at most 31 characters)");
    return tallyctl_show_report(ctx, TALLYD_MSG_STATIS_SINGLE_CLIENT, build_single_chart(mac),
                                kSingleChart, o, draw_chart<kSingleChart>, "Traffic of " + mac);
}

int tallyctl_cmd_clients(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    option_reader in("clients", args);
    report_output o;
    std::string mac;
    if (const int rc = one_word(in, &o, &mac)) return rc;
    if (o.picture) return in.fail("draws no picture");
    uint8_t raw[6];
    if (!mac.empty() && !parse_mac(mac, raw)) return in.fail("bad MAC " + mac);
    return tallyctl_show_report(
        ctx, TALLYD_MSG_GET_CLIENT_LIST,
        build_client_list(mac.empty() ? std::span<const uint8_t>() : std::span<const uint8_t>(raw)),
        kClientList, o, nullptr, "");
}
