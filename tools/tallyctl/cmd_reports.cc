// tallyctl top, usage and app-clients: report requests built from named
// options, replies decoded with the daemon's layouts and printed as tables,
// JSON, raw bytes or pictures.
#include <string>
#include <vector>

#include "report_cmd.h"
#include "reports/report_wire.h"

using namespace report_wire;

namespace {

// The records of a decoded pie or list as slices.
std::vector<tallyctl_slice> slices_of(const nlohmann::json &d) {
    std::vector<tallyctl_slice> s;
    for (const auto &r : d["records"])
        s.push_back(
            {r["label"].get<std::string>(), static_cast<double>(r["bytes"].get<uint64_t>())});
    return s;
}

std::vector<tallyctl_line> lines_of(const nlohmann::json &d) {
    std::vector<tallyctl_line> lines;
    for (const char *name : {"uplink_series", "downlink_series"}) {
        tallyctl_line l{std::string(name, std::string_view(name).find('_')), {}};
        for (const auto &p : d["fields"][name])
            l.points.emplace_back(p[0].get<double>(), p[1].get<double>());
        lines.push_back(std::move(l));
    }
    return lines;
}

bool draw_pie(const nlohmann::json &d, const report_output &o, const std::string &title,
              std::string *error) {
    return tallyctl_draw_pie(o.picture_path, *o.picture, title, slices_of(d), error);
}

bool draw_lines(const nlohmann::json &d, const report_output &o, const std::string &title,
                std::string *error) {
    return tallyctl_draw_lines(o.picture_path, *o.picture, title, lines_of(d), error);
}

}  // namespace

int tallyctl_cmd_top(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    option_reader in("top", args);
    top_request r;
    report_output o;
    std::string name, v;
    while (in.next(&name) && !in.status()) {
        if (in.output(name, &o)) continue;
        if (!in.value(name, &v)) break;
        if (name == "--period") {
            const int p = tallyctl_word_index(v, {"hour", "day"});
            if (p < 0 && !tallyctl_parse_u32(v, &r.period)) return in.fail("bad period " + v);
            if (p >= 0) r.period = static_cast<uint32_t>(p);
        } else if (name == "--list") {
            static constexpr uint32_t kFlags[] = {kFlagApps, kFlagClients, kFlagAps, kFlagSsids};
            const int f = tallyctl_word_index(v, {"apps", "clients", "aps", "ssids"});
            if (f < 0) return in.fail("bad list " + v + " (apps, clients, aps, ssids)");
            r.flag = kFlags[f];
        } else if (name == "--flag") {
            if (!tallyctl_parse_u32(v, &r.flag)) return in.fail("bad flag " + v);
        } else {
            return in.fail("unknown option " + name);
        }
    }
    if (in.status()) return in.status();
    const layout *l = top_layout(r.flag);
    return tallyctl_show_report(ctx, TALLYD_MSG_GET_TOP_SUMMARY, build_top(r), l ? *l : kTopApps, o,
                                nullptr, "");
}

int tallyctl_cmd_usage(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    option_reader in("usage", args);
    usage_request r;
    r.usage = 0;
    report_output o;
    std::string name, v, ssid = "all", mac;
    bool pie = false;
    while (in.next(&name) && !in.status()) {
        if (in.output(name, &o)) continue;
        if (name == "--series") {
            r.usage |= kUsageSeries;
            continue;
        }
        if (!in.value(name, &v)) break;
        if (name == "--ssid") {
            ssid = v;
        } else if (name == "--client" || name == "--ap") {
            mac = v;
            r.client_type = name == "--client" ? kClientOne : kClientAp;
        } else if (name == "--apgroup") {
            if (!tallyctl_parse_u32(v, &r.apgroup_id)) return in.fail("bad AP group id " + v);
            r.client_type = kClientApgroup;
        } else if (name == "--period") {
            const int p = tallyctl_word_index(v, {"hour", "day", "week", "month"});
            if (p < 0) return in.fail("bad period " + v + " (hour, day, week, month)");
            r.period = static_cast<uint32_t>(p);
        } else if (name == "--pie" || name == "--list") {
            const int k = tallyctl_word_index(v, {"ports", "apps"});
            if (k < 0) return in.fail("bad " + name.substr(2) + " " + v + " (apps, ports)");
            r.type = static_cast<uint32_t>(k);
            r.usage |= kUsageDetail;
            pie = name == "--pie";
        } else {
            return in.fail("unknown option " + name);
        }
    }
    if (in.status()) return in.status();
    if (pie) r.client_type = kClientPie;
    if (r.usage == 0) r.usage = kUsageSeries;
    r.ssid = ssid;
    r.mac = mac;
    const bool as_pie = (r.usage & kUsageDetail) != 0;
    const std::string title = as_pie ? (r.type ? "Traffic by application" : "Traffic by port")
                                     : "Usage of " + (mac.empty() ? "SSID " + ssid : mac);
    return tallyctl_show_report(ctx, TALLYD_MSG_GET_CLIENTS_SUMMARY, build_usage(r), kUsage, o,
                                as_pie ? draw_pie : draw_lines, title);
}

int tallyctl_cmd_app_clients(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    option_reader in("app-clients", args);
    app_client_request r;
    report_output o;
    std::string name, v, target;
    while (in.next(&name) && !in.status()) {
        if (in.output(name, &o)) continue;
        if (!in.value(name, &v)) break;
        uint32_t port = 0;
        if (name == "--app") {
            target = v;
            r.by = kByApp;
        } else if (name == "--port") {
            if (!tallyctl_parse_u32(v, &port)) return in.fail("bad port " + v);
            target = std::to_string(port);
            r.by = 0;
        } else {
            return in.fail("unknown option " + name);
        }
    }
    if (in.status()) return in.status();
    if (target.empty()) return in.fail("needs --app NAME or --port N");
    if (o.picture) return in.fail("draws no picture");
    r.name = target;
    return tallyctl_show_report(ctx, TALLYD_MSG_GET_APP_CLIENT, build_app_client(r), kAppClients, o,
                                nullptr, "");
}
