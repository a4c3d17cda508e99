// tallyctl: talks to a running tallyd and looks at its files.
//
//   tallyctl [--root DIR] [--json] COMMAND [ARGS...]
//
// --root (or TALLYD_ROOT) is the sandbox root the daemon runs under. Each
// command is one row of the table below.
#include <cstdio>
#include <string>
#include <vector>

#include "base/path.h"
#include "commands.h"

namespace {

int help(const tallyctl_ctx &, const std::vector<std::string> &);

// help: the arguments, then the description on lines indented by six.
constexpr tallyctl_command kCommands[] = {
    {"probe", tallyctl_cmd_probe,
     "\n      exit 0 when tallyd answers the monitor probe within 2 s, else 1"},
    {"send", tallyctl_cmd_send,
     "--id ID [--socket control|stat|monitor] [--hex HEX | --file F]\n"
     "           [--module N] [--length N] [--raw] [--wait MS]\n"
     "      send one datagram with a correct header and print any reply; ID is a\n"
     "      number or a TALLYD_MSG_ name; --length forges the length field, --raw\n"
     "      sends the payload as the whole datagram"},
    {"set-hostname", tallyctl_cmd_set_hostname,
     "MAC NAME\n      mark a client as renamed (\"#\" in the client directory); NAME \"\"\n"
     "      restores the default name"},
    {"arc", tallyctl_cmd_arc, "on|off|VALUE\n      switch ARC (qpx push) on or off"},
    {"stat0a", tallyctl_cmd_stat0a,
     "MAC=VALUE...\n      fill the per-AP value table (statistics socket)"},
    // Network events: each field an option; COMMAND --help lists them.
    {"ap-add", tallyctl_cmd_ap_add,
     "--mac MAC [--model M] [--apgroup N] [--radios N] ...\n      an AP joined"},
    {"ap-del", tallyctl_cmd_ap_del, "--mac MAC\n      an AP left"},
    {"ap-wlan-update", tallyctl_cmd_ap_wlan_update,
     "--mac MAC [--apgroup N] [--wlangroup0 N] ...\n      an AP's WLAN groups changed"},
    {"apgroup-update", tallyctl_cmd_apgroup_update,
     "[--action add|delete|update] --apgroup N ...\n      an AP group changed"},
    {"wlan-group", tallyctl_cmd_wlan_group,
     "[--action join|leave] --wlan N [--wlangroup N]\n      a WLAN joined or left a WLAN group"},
    {"sta-add", tallyctl_cmd_sta_add, "--client-mac MAC [station fields]\n      a station joined"},
    {"sta-active", tallyctl_cmd_sta_active, "--mac MAC\n      a station is active"},
    {"client-stats", tallyctl_cmd_client_stats,
     "--client-mac MAC [fields] [--count N] | --file F.json [--time T]\n"
     "      a counters batch (statistics socket)"},
    {"ids", tallyctl_cmd_ids,
     "[ap|ssid|apgroup|dvcinfo]\n      print a dictionary as the repository holds it"},
    {"tables", tallyctl_cmd_tables,
     "\n      every table of every database file: rows and newest time (read-only)"},
    {"metrics", tallyctl_cmd_metrics,
     "[--top N] [--out FILE]\n"
     "      the databases, dictionaries and health as OpenMetrics text (read-only);\n"
     "      --out writes FILE atomically for node exporter's textfile collector"},
    {"crash", tallyctl_cmd_crash,
     "\n      the newest crash report of tallyd, then every kept one with its crash\n"
     "      time; exit 1 when there is none"},
    {"top", tallyctl_cmd_top,
     "[--period hour|day] [--list apps|clients|aps|ssids] [--raw]\n"
     "      the ten applications, clients, APs or SSIDs that moved the most bytes"},
    {"usage", tallyctl_cmd_usage,
     "[--ssid S] [--client MAC | --ap MAC | --apgroup ID] [--period hour|day|week|month]\n"
     "           [--series] [--pie apps|ports | --list apps|ports] [--png F | --svg F] [--raw]\n"
     "      traffic over time (uplink and downlink rates) and by application or port"},
    {"app-clients", tallyctl_cmd_app_clients,
     "--app NAME | --port N [--raw]\n      the clients of one application or port this hour"},
    {"ap-stats", tallyctl_cmd_ap_stats,
     "[--day] [--apgroup ID | --ap MAC...] [--ssid S] [--top N] [--bytes tx|rx|total] [--raw]\n"
     "      the APs with the most bytes and the most clients this hour (or day); --ap\n"
     "      up to 20 times"},
    {"ssid-stats", tallyctl_cmd_ssid_stats,
     "[same options as ap-stats]\n      the same by SSID, with the number of WLANs"},
    {"client-summary", tallyctl_cmd_client_summary,
     "[same options as ap-stats]\n"
     "      the clients with the most bytes and the clients by device type"},
    {"ap-chart", tallyctl_cmd_ap_chart,
     "[--day] [--apgroup ID | --ap MAC] [--bytes tx|rx|total] [--png F | --svg F] [--raw]\n"
     "      AP traffic in five-minute steps over the hour (or day)"},
    {"client-chart", tallyctl_cmd_client_chart,
     "[--day] [--apgroup ID | --ap MAC] [--png F | --svg F] [--raw]\n"
     "      clients in five-minute steps over the hour (or day)"},
    {"client-chart1", tallyctl_cmd_client_chart1,
     "MAC [--png F | --svg F] [--raw]\n"
     "      one client's uplink and downlink in five-minute steps over the hour"},
    {"clients", tallyctl_cmd_clients,
     "[MAC] [--raw]\n      the clients of the last hour with their traffic, or one client"},
    {"help", help, "\n      this text"},
};

int help(const tallyctl_ctx &, const std::vector<std::string> &) {
    std::printf("usage: tallyctl [--root DIR] [--json] COMMAND [ARGS...]\n\ncommands:\n");
    for (const tallyctl_command &c : kCommands)
        std::printf("  %.*s %.*s\n\n", static_cast<int>(c.name.size()), c.name.data(),
                    static_cast<int>(c.help.size()), c.help.data());
    return 0;
}

}  // namespace

const std::span<const tallyctl_command> tallyctl_commands{kCommands};

int main(int argc, char **argv) {
    tallyctl_ctx ctx;
    std::string command;
    std::vector<std::string> args;
    for (int i = 1; i < argc; ++i) {
        std::string a = argv[i];
        if (a == "--json") {
            ctx.json = true;
        } else if (a == "--root" && i + 1 < argc) {
            tallyd_root_set(argv[++i]);
        } else if (command.empty() && (a == "--help" || a == "-h")) {
            command = "help";
        } else if (command.empty()) {
            command = a;
        } else {
            args.push_back(a);
        }
    }
    if (command.empty()) command = "help";
    for (const tallyctl_command &c : tallyctl_commands)
        if (c.name == command) return c.run(ctx, args);
    std::fprintf(stderr, "tallyctl: unknown command %s (try tallyctl help)\n", command.c_str());
    return 2;
}
