// tallyctl top, usage and app-clients: report requests built from named
// options, replies decoded with the daemon's layouts and printed as tables,
// JSON, raw bytes or pictures.
#include <cstdio>
#include <optional>
#include <string>
#include <vector>

#include "commands.h"
#include "ipc/msg_layout.h"
#include "report_decode.h"
#include "report_picture.h"
#include "report_table.h"
#include "reports/report_wire.h"

using namespace report_wire;

namespace {

constexpr int kReportWaitMs = 10000;  // a day report over full tables takes a while
constexpr int kGapMs = 100;

struct report_output {
    bool raw = false;
    std::optional<tallyctl_picture_format> picture;
    std::string picture_path;
};

int usage_error(const char *cmd, const std::string &what) {
    std::fprintf(stderr, "tallyctl %s: %s\n", cmd, what.c_str());
    return 2;
}

// Options of the form --name VALUE or --flag, in any order.
class option_reader {
   public:
    option_reader(const char *cmd, const std::vector<std::string> &args) : cmd_(cmd), args_(args) {}
    bool next(std::string *name) {
        if (i_ >= args_.size()) return false;
        *name = args_[i_++];
        return true;
    }
    // The value after the current option; false (usage printed) if none.
    bool value(const std::string &name, std::string *v) {
        if (i_ >= args_.size()) {
            status_ = usage_error(cmd_, "missing value after " + name);
            return false;
        }
        *v = args_[i_++];
        return true;
    }
    int fail(const std::string &what) { return status_ = usage_error(cmd_, what); }
    int status() const { return status_; }

    // --raw, --png FILE, --svg FILE; true when name was one of them.
    bool output(const std::string &name, report_output *o) {
        if (name == "--raw") return o->raw = true;
        if (name != "--png" && name != "--svg") return false;
        o->picture = name == "--png" ? tallyctl_picture_format::png : tallyctl_picture_format::svg;
        value(name, &o->picture_path);
        return true;
    }

   private:
    const char *cmd_;
    const std::vector<std::string> &args_;
    size_t i_ = 0;
    int status_ = 0;
};

// A word out of a list of words; its index, or -1.
int word_index(const std::string &w, std::initializer_list<const char *> words) {
    int i = 0;
    for (const char *c : words) {
        if (w == c) return i;
        ++i;
    }
    return -1;
}

std::string hex_dump(std::span<const uint8_t> b) {
    std::string out;
    for (size_t off = 0; off < b.size(); off += 16) {
        char line[96];
        int n = std::snprintf(line, sizeof line, "%06zx ", off);
        for (size_t i = off; i < std::min(b.size(), off + 16); ++i)
            n += std::snprintf(line + n, sizeof line - static_cast<size_t>(n), " %02x", b[i]);
        out += std::string(line) + "\n";
    }
    return out;
}

// Sends the request (a builder's message, header bytes zero) and collects
// the reply; false (printed) when the daemon is not there or did not answer.
bool request(uint32_t id, const std::vector<uint8_t> &msg, tallyctl_bytes *reply) {
    std::vector<tallyctl_bytes> replies;
    std::string error;
    const tallyctl_bytes datagram =
        tallyctl_message(id, std::span(msg).subspan(TALLYD_MSG_HDR_LEN));
    if (!tallyctl_request(tallyd_socket_kind::control, datagram, kReportWaitMs, kGapMs, &replies,
                          &error)) {
        std::fprintf(stderr, "tallyctl: %s\n", error.c_str());
        return false;
    }
    if (replies.empty()) {
        std::fprintf(stderr, "tallyctl: tallyd did not answer within %d ms\n", kReportWaitMs);
        return false;
    }
    *reply = std::move(replies.front());
    return true;
}

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

// Prints (or dumps, or draws) one report reply. pie: draw the records as a
// pie rather than the series as lines.
int show(const tallyctl_ctx &ctx, uint32_t id, const std::vector<uint8_t> &msg, const layout &l,
         const report_output &o, bool pie, const std::string &title) {
    tallyctl_bytes reply;
    if (!request(id, msg, &reply)) return 1;
    if (o.raw) {
        std::fputs(hex_dump(reply).c_str(), stdout);
        return 0;
    }
    const nlohmann::json d = tallyctl_decode_report(reply, l);
    if (ctx.json)
        std::printf("%s\n", d.dump().c_str());
    else
        std::fputs(tallyctl_report_text(d, l).c_str(), stdout);
    if (!o.picture) return 0;
    std::string error;
    const bool ok =
        pie ? tallyctl_draw_pie(o.picture_path, *o.picture, title, slices_of(d), &error)
            : tallyctl_draw_lines(o.picture_path, *o.picture, title, lines_of(d), &error);
    if (!ok) {
        std::fprintf(stderr, "tallyctl: %s\n", error.c_str());
        return 1;
    }
    return 0;
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
            const int p = word_index(v, {"hour", "day"});
            if (p < 0 && !tallyctl_parse_u32(v, &r.period)) return in.fail("bad period " + v);
            if (p >= 0) r.period = static_cast<uint32_t>(p);
        } else if (name == "--list") {
            static constexpr uint32_t kFlags[] = {kFlagApps, kFlagClients, kFlagAps, kFlagSsids};
            const int f = word_index(v, {"apps", "clients", "aps", "ssids"});
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
    return show(ctx, TALLYD_MSG_GET_TOP_SUMMARY, build_top(r), l ? *l : kTopApps, o, false, "");
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
            const int p = word_index(v, {"hour", "day", "week", "month"});
            if (p < 0) return in.fail("bad period " + v + " (hour, day, week, month)");
            r.period = static_cast<uint32_t>(p);
        } else if (name == "--pie" || name == "--list") {
            const int k = word_index(v, {"ports", "apps"});
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
    const bool draw_pie = (r.usage & kUsageDetail) != 0;
    const std::string title = draw_pie ? (r.type ? "Traffic by application" : "Traffic by port")
                                       : "Usage of " + (mac.empty() ? "SSID " + ssid : mac);
    return show(ctx, TALLYD_MSG_GET_CLIENTS_SUMMARY, build_usage(r), kUsage, o, draw_pie, title);
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
    return show(ctx, TALLYD_MSG_GET_APP_CLIENT, build_app_client(r), kAppClients, o, false, "");
}
