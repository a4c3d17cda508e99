#include "cmd_events.h"

#include <arpa/inet.h>

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <span>

#include "base/clock.h"
#include "commands.h"
#include "events/events_wire.h"
#include "ipc/dispatch.h"
#include "ipc/msg_ids.h"

using namespace events_wire;

namespace {

// How an option's value is checked and written into its field.
enum class check : uint8_t {
    text,    // fits the field with its zero
    mac,     // exactly 17 characters
    number,  // fits the field's width (signed or unsigned for 32 bits)
    s8,      // -128..127
    ip,      // dotted IPv4 address
    ip6,     // IPv6 address
    action,  // one of the command's action words, or a number
};

struct option {
    const wire_field &field;
    const char *def;  // null: required
    check kind;
    const char *help;
};

enum class layout : uint8_t {
    fixed,     // the options are fields of the message
    tail_mac,  // one MAC running to the end of the message
    station,   // one station record at offset 12
    batch,     // a counters batch of station records
};

struct command {
    std::string_view name;
    uint32_t id;
    layout kind;
    size_t size;  // of a fixed message
    std::span<const option> opts;
    std::span<const std::string_view> actions;  // action word of value 0, 1, ...
    const char *what;
};

constexpr std::string_view kApGroupActions[] = {"add", "delete", "update"};
constexpr std::string_view kWlanActions[] = {"join", "leave"};

constexpr option kApAddOpts[] = {
    {kApAddMac, nullptr, check::mac, "AP MAC (the AP dictionary key)"},
    {kApAddModel, "VX-AP320", check::text, "AP model"},
    {kApAddGroup, "1", check::number, "AP group id"},
    {kApAddRadios, "2", check::number, "number of radios"},
    {kApAddWlanGroup0, "1", check::number, "WLAN group of radio 0"},
    {kApAddWlanGroup1, "0", check::number, "WLAN group of radio 1"},
};

// The MAC of AP delete and station active runs to the end of the message.
constexpr wire_field kTailMac{"mac", 12, 18, wire_kind::text};
constexpr option kTailMacOpts[] = {{kTailMac, nullptr, check::mac, "MAC"}};

constexpr option kApWlanOpts[] = {
    {kApWlanMac, nullptr, check::mac, "AP MAC"},
    {kApWlanRadios, "2", check::number, "number of radios"},
    {kApWlanGroup0, "1", check::number, "WLAN group of radio 0"},
    {kApWlanGroup1, "0", check::number, "WLAN group of radio 1"},
    {kApWlanApGroup, "1", check::number, "AP group id"},
};

constexpr option kApGroupOpts[] = {
    {kApGroupAction, "add", check::action, "add, delete or update (or 0, 1, 2)"},
    {kApGroupId, "1", check::number, "AP group id"},
    {kApGroupWlanGroup0, "1", check::number, "WLAN group of radio 0"},
    {kApGroupWlanGroup1, "0", check::number, "WLAN group of radio 1"},
};

constexpr option kWlanGroupOpts[] = {
    {kWlanGroupAction, "join", check::action, "join or leave (or 0, 1)"},
    {kWlanGroupWlan, nullptr, check::number, "WLAN id"},
    {kWlanGroupName, "", check::text, "WLAN name (only logged)"},
    {kWlanGroupId, "1", check::number, "WLAN group id"},
};

constexpr option kStationOpts[] = {
    {kStaClientMac, nullptr, check::mac, "client MAC"},
    {kStaIp, "0.0.0.0", check::ip, "IPv4 address"},
    {kStaIp6, "::", check::ip6, "IPv6 address"},
    {kStaApMac, "00:1a:2b:00:00:01", check::mac, "AP MAC"},
    {kStaDevice, "", check::text, "device type"},
    {kStaHostName, "", check::text, "host name"},
    {kStaSsid, "corp", check::text, "SSID"},
    {kStaVlan, "1", check::number, "VLAN"},
    {kStaAuthType, "open", check::text, "authentication type"},
    {kStaRadio, "0", check::number, "radio"},
    {kStaUserName, "", check::text, "user name"},
    {kStaApGroup, "1", check::number, "AP group id"},
    {kStaWlanGroup, "1", check::number, "WLAN group id"},
    {kStaRxPkts, "0", check::number, "received packets"},
    {kStaTxPkts, "0", check::number, "transmitted packets"},
    {kStaRxBytes, "0", check::number, "received bytes"},
    {kStaTxBytes, "0", check::number, "transmitted bytes"},
    {kStaRssi, "-50", check::s8, "RSSI"},
    {kStaChannel, "6", check::number, "channel"},
};

constexpr command kCommands[] = {
    {"ap-add", TALLYD_MSG_AP_ADD, layout::fixed, kApAddSize, kApAddOpts, {}, "an AP joined"},
    {"ap-del", TALLYD_MSG_AP_DEL, layout::tail_mac, 0, kTailMacOpts, {}, "an AP left"},
    {"ap-wlan-update",
     TALLYD_MSG_AP_WLAN_UPDATE,
     layout::fixed,
     kApWlanSize,
     kApWlanOpts,
     {},
     "an AP's radios changed WLAN group or AP group"},
    {"apgroup-update", TALLYD_MSG_APGROUP_UPDATE, layout::fixed, kApGroupSize, kApGroupOpts,
     kApGroupActions, "an AP group was added, deleted or updated"},
    {"wlan-group", TALLYD_MSG_WLAN_GROUP_UPDATE, layout::fixed, kWlanGroupSize, kWlanGroupOpts,
     kWlanActions, "a WLAN joined or left a WLAN group"},
    {"sta-add", TALLYD_MSG_STA_ADD, layout::station, 0, kStationOpts, {}, "a station joined"},
    {"sta-active",
     TALLYD_MSG_STA_ACTIVE,
     layout::tail_mac,
     0,
     kTailMacOpts,
     {},
     "a station is active"},
    {"client-stats",
     TALLYD_MSG_CLIENT_STATS,
     layout::batch,
     0,
     kStationOpts,
     {},
     "counters of stations (statistics socket)"},
};

// Options of client-stats besides the station fields.
constexpr std::string_view kBatchExtras[] = {"time", "count", "file"};

const size_t kMaxStations = batch_capacity(TALLYD_STAT_MAX_DATAGRAM);

const command *find_command(std::string_view name) {
    for (const command &c : kCommands)
        if (c.name == name) return &c;
    return nullptr;
}

// "client_mac" and "client-mac" both name the field client_mac.
std::string dashed(std::string_view name) {
    std::string s(name);
    for (char &c : s)
        if (c == '_') c = '-';
    return s;
}

int find_option(std::span<const option> opts, std::string_view name) {
    for (size_t i = 0; i < opts.size(); ++i)
        if (dashed(opts[i].field.name) == dashed(name)) return static_cast<int>(i);
    return -1;
}

bool parse_i64(const std::string &text, int64_t lo, int64_t hi, int64_t *out) {
    if (text.empty()) return false;
    char *end = nullptr;
    errno = 0;
    long long v = std::strtoll(text.c_str(), &end, 10);
    if (errno || *end || v < lo || v > hi) return false;
    *out = v;
    return true;
}

bool parse_u64(const std::string &text, uint64_t *out) {
    if (text.empty() || text[0] == '-') return false;
    char *end = nullptr;
    errno = 0;
    unsigned long long v = std::strtoull(text.c_str(), &end, 10);
    if (errno || *end) return false;
    *out = v;
    return true;
}

// The value of a number, action or address option as the field stores it;
// false when it does not fit.
bool numeric(const command &cmd, const option &o, const std::string &text, uint64_t *out) {
    int64_t v = 0;
    switch (o.kind) {
        case check::action:
            for (size_t i = 0; i < cmd.actions.size(); ++i)
                if (cmd.actions[i] == text) return *out = i, true;
            if (!parse_i64(text, INT32_MIN, INT32_MAX, &v)) return false;
            return *out = static_cast<uint32_t>(v), true;
        case check::s8:
            if (!parse_i64(text, -128, 127, &v)) return false;
            return *out = static_cast<uint8_t>(v), true;
        case check::ip: {
            uint8_t a[4];
            if (inet_pton(AF_INET, text.c_str(), a) != 1) return false;
            return *out = be32_get(a), true;
        }
        default:
            break;
    }
    switch (o.field.kind) {
        case wire_kind::u8:
            if (!parse_i64(text, 0, UINT8_MAX, &v)) return false;
            return *out = static_cast<uint64_t>(v), true;
        case wire_kind::be16:
            if (!parse_i64(text, 0, UINT16_MAX, &v)) return false;
            return *out = static_cast<uint64_t>(v), true;
        case wire_kind::be32:
            if (!parse_i64(text, INT32_MIN, UINT32_MAX, &v)) return false;
            return *out = static_cast<uint32_t>(v), true;
        case wire_kind::be64:
            return parse_u64(text, out);
        default:
            return false;
    }
}

// Checks one value; an error text naming the option, or "".
std::string validate(const command &cmd, const option &o, const std::string &text) {
    const std::string name = "--" + dashed(o.field.name);
    uint8_t ip6[16];
    uint64_t v = 0;
    switch (o.kind) {
        case check::mac:
            if (text.size() != 17)
                return name + ": a MAC is 17 characters (aa:bb:cc:dd:ee:ff), not " +
                       std::to_string(text.size()) + ": " + text;
            return "";
        case check::text:
            if (text.size() >= o.field.width)
                return name + ": at most " + std::to_string(o.field.width - 1) +
                       " characters fit the field, not " + std::to_string(text.size());
            return "";
        case check::ip6:
            return inet_pton(AF_INET6, text.c_str(), ip6) == 1
                       ? ""
                       : name + ": not an IPv6 address: " + text;
        default:
            return numeric(cmd, o, text, &v) ? "" : name + ": bad value for the field: " + text;
    }
}

void put(std::span<uint8_t> b, const command &cmd, const option &o, const std::string &text) {
    uint64_t v = 0;
    uint8_t ip6[16];
    if (o.kind == check::mac || o.kind == check::text) {
        wire_put_text(b, o.field, text);
    } else if (o.kind == check::ip6) {
        if (inet_pton(AF_INET6, text.c_str(), ip6) == 1) wire_put_bytes(b, o.field, ip6);
    } else if (numeric(cmd, o, text, &v)) {
        wire_put_num(b, o.field, v);
    }
}

// Values of one message or station, index by index with the options;
// nothing where an option was not given.
using given = std::vector<std::optional<std::string>>;
using values = std::vector<std::string>;

// The values with the defaults filled in and every one checked; an error
// text, or "".
std::string resolve(const command &cmd, const given &in, values *out) {
    out->clear();
    for (size_t i = 0; i < cmd.opts.size(); ++i) {
        const option &o = cmd.opts[i];
        if (!in[i] && !o.def) return "--" + dashed(o.field.name) + " is required";
        out->push_back(in[i] ? *in[i] : o.def);
        if (std::string e = validate(cmd, o, out->back()); !e.empty()) return e;
    }
    return "";
}

// The stations of a JSON file: an array of objects keyed by field names.
std::string read_stations(const command &cmd, const std::string &path, std::vector<given> *out) {
    std::ifstream in(path);
    if (!in) return "cannot read " + path;
    nlohmann::json doc = nlohmann::json::parse(in, nullptr, false);
    if (doc.is_discarded() || !doc.is_array())
        return path + ": not a JSON array of station objects";
    for (const nlohmann::json &s : doc) {
        if (!s.is_object()) return path + ": every station is a JSON object";
        given g(cmd.opts.size());
        for (const auto &[key, v] : s.items()) {
            int i = find_option(cmd.opts, key);
            if (i < 0) return path + ": unknown station field " + key;
            if (v.is_string())
                g[i] = v.get<std::string>();
            else if (v.is_number_integer())
                g[i] = v.dump();
            else
                return path + ": " + key + " must be a text or an integer";
        }
        out->push_back(std::move(g));
    }
    return "";
}

// The client MAC of station i of a --count run: the given MAC plus i.
std::string nth_mac(const std::string &mac, size_t i) {
    unsigned b[6];
    if (std::sscanf(mac.c_str(), "%2x:%2x:%2x:%2x:%2x:%2x", &b[0], &b[1], &b[2], &b[3], &b[4],
                    &b[5]) != 6)
        return "";
    uint64_t v = 0;
    for (unsigned x : b) v = v << 8 | x;
    v += i;
    char out[18];
    std::snprintf(out, sizeof out, "%02x:%02x:%02x:%02x:%02x:%02x", unsigned(v >> 40 & 0xff),
                  unsigned(v >> 32 & 0xff), unsigned(v >> 24 & 0xff), unsigned(v >> 16 & 0xff),
                  unsigned(v >> 8 & 0xff), unsigned(v & 0xff));
    return out;
}

int fail(std::string *error, const std::string &text) {
    *error = text;
    return 2;
}

}  // namespace

bool tallyctl_is_event_command(std::string_view cmd) {
    return find_command(cmd) != nullptr;
}

std::string tallyctl_event_help(std::string_view name) {
    const command *cmd = find_command(name);
    if (!cmd) return "";
    std::string s = "usage: tallyctl " + std::string(cmd->name) + " [OPTIONS]\n" + cmd->what +
                    " (" + std::string(tallyd_msg_name_of(cmd->id)) + ")\n\n";
    for (const option &o : cmd->opts) {
        char line[160];
        std::string opt = "--" + dashed(o.field.name);
        std::string def = o.def ? (o.def[0] ? std::string("default ") + o.def : "default empty")
                                : std::string("required");
        std::string limit = o.kind == check::text ? ", at most " + std::to_string(o.field.width - 1)
                            : o.kind == check::mac ? ", 17 characters"
                                                   : "";
        std::snprintf(line, sizeof line, "  %-14s %s (%s%s)\n", opt.c_str(), o.help, def.c_str(),
                      limit.c_str());
        s += line;
    }
    if (cmd->kind == layout::batch)
        s +=
            "  --time T       batch time, seconds since 1970 (default: now on the daemon's clock)\n"
            "  --count N      send N copies of the station, client MACs counting up (default 1)\n"
            "  --file F       stations from a JSON array of objects keyed by the names above\n"
            "                 (missing keys take the defaults); replaces the station options\n"
            "  at most " +
            std::to_string(kMaxStations) + " stations fit one datagram\n";
    return s;
}

int tallyctl_event_datagram(std::string_view name, const std::vector<std::string> &args,
                            tallyctl_datagram *out, std::string *error) {
    *out = {};
    const command *cmd = find_command(name);
    if (!cmd) return fail(error, "unknown command " + std::string(name));

    given opts(cmd->opts.size());
    std::string extras[std::size(kBatchExtras)];
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        if (a == "--help" || a == "-h") {
            *error = tallyctl_event_help(name);
            return 1;
        }
        if (a.rfind("--", 0) != 0 || i + 1 >= args.size())
            return fail(error, "expected --NAME VALUE, got " + a + " (try --help)");
        const std::string key = a.substr(2), &v = args[++i];
        int o = find_option(cmd->opts, key);
        bool extra = false;
        for (size_t e = 0; cmd->kind == layout::batch && e < std::size(kBatchExtras); ++e)
            if (key == kBatchExtras[e]) extras[e] = v, extra = true;
        if (o < 0 && !extra) return fail(error, "unknown option " + a + " (try --help)");
        if (o >= 0) opts[o] = v;
    }

    // The stations of a --file, or the one of the options.
    std::vector<given> from_file;
    if (cmd->kind == layout::batch && !extras[2].empty()) {
        if (std::string e = read_stations(*cmd, extras[2], &from_file); !e.empty())
            return fail(error, e);
        for (const std::optional<std::string> &o : opts)
            if (o) return fail(error, "--file replaces the station options");
    } else {
        from_file.push_back(opts);
    }
    std::vector<values> stations(from_file.size());
    for (size_t s = 0; s < from_file.size(); ++s)
        if (std::string e = resolve(*cmd, from_file[s], &stations[s]); !e.empty())
            return fail(error, e);

    out->id = cmd->id;
    out->stat_socket = cmd->kind == layout::batch;
    switch (cmd->kind) {
        case layout::fixed:
            out->payload.assign(cmd->size, 0);
            for (size_t i = 0; i < cmd->opts.size(); ++i)
                put(out->payload, *cmd, cmd->opts[i], stations[0][i]);
            break;
        case layout::tail_mac:
            out->payload = cmd->id == TALLYD_MSG_AP_DEL ? build_ap_del(stations[0][0])
                                                        : build_sta_active(stations[0][0]);
            break;
        case layout::station: {
            out->payload.assign(kStaAddSize, 0);
            std::span<uint8_t> rec = std::span<uint8_t>(out->payload).subspan(kStaAddRecordOffset);
            for (size_t i = 0; i < cmd->opts.size(); ++i)
                put(rec, *cmd, cmd->opts[i], stations[0][i]);
            break;
        }
        case layout::batch: {
            const bool from_json = !extras[2].empty();
            uint64_t count = 1, time = tallyd_now();
            if (!extras[1].empty() && (!parse_u64(extras[1], &count) || count == 0 || from_json))
                return fail(error, "--count: a number of stations from 1 (without --file), not " +
                                       extras[1]);
            if (!extras[0].empty() && (!parse_u64(extras[0], &time) || time > UINT32_MAX))
                return fail(error, "--time: seconds since 1970 in 32 bits, not " + extras[0]);
            const size_t n = from_json ? stations.size() : count;
            if (n > kMaxStations)
                return fail(error, std::to_string(n) +
                                       " stations do not fit one datagram (at most " +
                                       std::to_string(kMaxStations) + ")");
            const int mac = find_option(cmd->opts, kStaClientMac.name);
            if (count > 1 && nth_mac(stations[0][mac], count - 1).empty())
                return fail(error, "--count needs a client MAC of hex digits: " + stations[0][mac]);
            out->payload.assign(batch_size(n), 0);
            wire_put_num(out->payload, kBatchTime, time);
            wire_put_num(out->payload, kBatchCount, n);
            for (size_t s = 0; s < n; ++s) {
                values &v = stations[from_json ? s : 0];
                std::span<uint8_t> rec =
                    std::span<uint8_t>(out->payload).subspan(batch_size(s), kStationSize);
                for (size_t i = 0; i < cmd->opts.size(); ++i)
                    put(rec, *cmd, cmd->opts[i],
                        static_cast<int>(i) == mac && count > 1 ? nth_mac(v[i], s) : v[i]);
            }
            break;
        }
    }
    // The header is made by the sender.
    out->payload.erase(out->payload.begin(), out->payload.begin() + kHeaderSize);
    return 0;
}

namespace {

int tallyctl_cmd_event(std::string_view name, const tallyctl_ctx &ctx,
                       const std::vector<std::string> &args) {
    return tallyctl_build_and_send(name, tallyctl_event_datagram, ctx, args);
}

}  // namespace

int tallyctl_cmd_ap_add(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return tallyctl_cmd_event("ap-add", ctx, args);
}
int tallyctl_cmd_ap_del(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return tallyctl_cmd_event("ap-del", ctx, args);
}
int tallyctl_cmd_ap_wlan_update(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return tallyctl_cmd_event("ap-wlan-update", ctx, args);
}
int tallyctl_cmd_apgroup_update(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return tallyctl_cmd_event("apgroup-update", ctx, args);
}
int tallyctl_cmd_wlan_group(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return tallyctl_cmd_event("wlan-group", ctx, args);
}
int tallyctl_cmd_sta_add(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return tallyctl_cmd_event("sta-add", ctx, args);
}
int tallyctl_cmd_sta_active(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return tallyctl_cmd_event("sta-active", ctx, args);
}
int tallyctl_cmd_client_stats(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    return tallyctl_cmd_event("client-stats", ctx, args);
}
