// The command table of tallyctl: one entry per command.
//
// A command gets the words after its name (global options --root and --json
// already taken out) and returns the process exit status: 0 done, 1 the
// daemon did not answer or a check failed, 2 bad usage.
#pragma once

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "client.h"

struct tallyctl_ctx {
    bool json = false;
};

using tallyctl_fn = int (*)(const tallyctl_ctx &ctx, const std::vector<std::string> &args);

struct tallyctl_command {
    std::string_view name;
    tallyctl_fn run;
    std::string_view help;  // "ARGS  what it does", shown by tallyctl help
};

extern const std::span<const tallyctl_command> tallyctl_commands;

// Commands of this file.
int tallyctl_cmd_probe(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_send(const tallyctl_ctx &ctx, const std::vector<std::string> &args);

// Entity commands (cmd_entity_run.cc) and the table listing (cmd_tables.cc).
int tallyctl_cmd_set_hostname(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_arc(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_stat0a(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_ids(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_tables(const tallyctl_ctx &ctx, const std::vector<std::string> &args);

// The databases, dictionaries and health as OpenMetrics text (cmd_metrics.cc).
int tallyctl_cmd_metrics(const tallyctl_ctx &ctx, const std::vector<std::string> &args);

// The newest crash report and the list of kept ones (cmd_crash.cc); exit
// status 1 when there is none.
int tallyctl_cmd_crash(const tallyctl_ctx &ctx, const std::vector<std::string> &args);

// Event commands (cmd_events.cc): one message each, fields from options.
int tallyctl_cmd_ap_add(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_ap_del(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_ap_wlan_update(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_apgroup_update(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_wlan_group(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_sta_add(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_sta_active(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_client_stats(const tallyctl_ctx &ctx, const std::vector<std::string> &args);

// Report commands (cmd_reports.cc).
int tallyctl_cmd_top(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_usage(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_app_clients(const tallyctl_ctx &ctx, const std::vector<std::string> &args);

// Wireless statistics reports (cmd_statis.cc).
int tallyctl_cmd_ap_stats(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_ssid_stats(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_client_summary(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_ap_chart(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_client_chart(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_client_chart1(const tallyctl_ctx &ctx, const std::vector<std::string> &args);
int tallyctl_cmd_clients(const tallyctl_ctx &ctx, const std::vector<std::string> &args);

// Sends a finished datagram on a socket and prints what happened (and each
// reply) as text or JSON; waits wait_ms for a first reply (-1: long enough
// for a report when the id is a report request, briefly otherwise).
// Returns 0 when sent, 1 when the daemon could not be reached.
int tallyctl_send_datagram(const tallyctl_ctx &ctx, tallyd_socket_kind kind,
                           const tallyctl_bytes &datagram, int wait_ms = -1);
