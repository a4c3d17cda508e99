#include "cmd_entity.h"

#include <algorithm>
#include <charconv>
#include <iterator>

#include "client.h"
#include "entity/dict.h"
#include "entity/entity_wire.h"
#include "ipc/msg_ids.h"

namespace {

std::vector<uint8_t> without_header(std::vector<uint8_t> msg) {
    msg.erase(msg.begin(), msg.begin() + 12);
    return msg;
}

int usage(std::string *error, const char *text) {
    *error = std::string("usage: tallyctl ") + text;
    return 2;
}

constexpr std::string_view kDictNames[] = {"ap", "ssid", "apgroup", "dvcinfo"};

}  // namespace

bool tallyctl_stat0a_records(const std::vector<std::string> &pairs,
                             std::vector<std::pair<std::string, uint32_t>> *records,
                             std::string *error) {
    records->clear();
    for (const std::string &p : pairs) {
        size_t eq = p.rfind('=');
        uint32_t value = 0;
        if (eq == std::string::npos ||
            !tallyctl_parse_u32(std::string_view(p).substr(eq + 1), &value)) {
            *error = "bad MAC=VALUE pair: " + p;
            return false;
        }
        records->emplace_back(p.substr(0, eq), value);
    }
    return true;
}

int64_t tallyctl_arc_value(std::string_view word) {
    if (word == "on") return 1;
    if (word == "off") return 0;
    uint32_t v = 0;
    return tallyctl_parse_u32(word, &v) ? int64_t{v} : -1;
}

int tallyctl_print_ids(std::string_view which, std::string *out, std::string *error) {
    if (!which.empty() &&
        std::find(std::begin(kDictNames), std::end(kDictNames), which) == std::end(kDictNames)) {
        *error += "unknown dictionary " + std::string(which) + " (ap, ssid, apgroup, dvcinfo)\n";
        return 2;
    }
    int rc = 0;
    std::vector<tallyd_dict_stored> entries;
    for (std::string_view name : kDictNames) {
        if (!which.empty() && which != name) continue;
        if (which.empty()) *out += std::string(name) + ":\n";
        if (tallyd_dict_read_stored(name, &entries) != 0) {
            *error += "the " + std::string(name) + " list is absent or malformed\n";
            rc = 1;
            continue;
        }
        for (const auto &e : entries)
            *out += std::to_string(e.id) + "\t" + std::to_string(e.counter) + "\t" + e.key + "\n";
    }
    return rc;
}

int tallyctl_entity_datagram(std::string_view cmd, const std::vector<std::string> &args,
                             tallyctl_datagram *out, std::string *error) {
    *out = {};
    if (cmd == "set-hostname") {
        if (args.size() != 2) return usage(error, "set-hostname MAC NAME");
        out->id = TALLYD_MSG_SET_STA_HOSTNAME;
        out->payload = without_header(entity_wire::build_set_hostname(args[0], args[1]));
        return 0;
    }
    if (cmd == "arc") {
        int64_t v = args.size() == 1 ? tallyctl_arc_value(args[0]) : -1;
        if (v < 0) return usage(error, "arc on|off|VALUE");
        out->id = TALLYD_MSG_ARC_QPX_INTERFACE;
        out->payload = without_header(entity_wire::build_arc(static_cast<uint32_t>(v)));
        return 0;
    }
    if (cmd == "stat0a") {
        std::vector<std::pair<std::string, uint32_t>> records;
        std::string why;
        if (!tallyctl_stat0a_records(args, &records, &why))
            return usage(error, ("stat0a MAC=VALUE... (" + why + ")").c_str());
        out->id = TALLYD_MSG_STAT_0A;
        out->stat_socket = true;
        out->payload = without_header(entity_wire::build_stat_0a(records));
        return 0;
    }
    *error = "unknown command " + std::string(cmd);
    return 2;
}
