// tallyctl commands of the entity messages and dictionaries.
//
//   set-hostname MAC NAME   host name set for a client (control socket)
//   arc on|off|VALUE        ARC switch (control socket); on = 1, off = 0
//   stat0a MAC=VALUE...     per-AP values (statistics socket)
//   ids [ap|ssid|apgroup|dvcinfo]
//                           a dictionary as the repository holds it, read
//                           from the list files (not from the daemon)
//
// The three senders only turn their arguments into a datagram (message id,
// socket, payload); the client library sends it. The datagrams are made by
// the builders of entity/entity_wire.h, from the layouts the daemon reads.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A message to send: id for the header, the socket it goes to, and the
// payload (what follows the 12-byte header).
struct tallyctl_datagram {
    uint32_t id = 0;
    bool stat_socket = false;  // statistics socket; else the control socket
    std::vector<uint8_t> payload;
};

// Turns a command's words into its datagram: 0 with *out filled; 1 with a
// help text in *error (printed on standard output, exit status 0); 2 with
// *error set for bad arguments.
using tallyctl_builder = int (*)(std::string_view cmd, const std::vector<std::string> &args,
                                 tallyctl_datagram *out, std::string *error);

// Builds the datagram of cmd and sends it with tallyctl_send_datagram, or
// prints the help or the error. The exit status (cmd_entity_run.cc).
struct tallyctl_ctx;
int tallyctl_build_and_send(std::string_view cmd, tallyctl_builder build, const tallyctl_ctx &ctx,
                            const std::vector<std::string> &args);

// cmd is "set-hostname", "arc" or "stat0a"; args are the words after it.
// 0 with *out filled; 2 with *error set for an unknown command or bad
// arguments (usage).
int tallyctl_entity_datagram(std::string_view cmd, const std::vector<std::string> &args,
                             tallyctl_datagram *out, std::string *error);

// Parses "MAC=VALUE" texts (VALUE decimal or 0x hex, 32 bits; the MAC is
// everything before the last "="). false and *error set on a bad pair.
bool tallyctl_stat0a_records(const std::vector<std::string> &pairs,
                             std::vector<std::pair<std::string, uint32_t>> *records,
                             std::string *error);

// "on", "off" or a decimal/0x number; -1 for anything else.
int64_t tallyctl_arc_value(std::string_view word);

// Appends one dictionary ("ap", "ssid", "apgroup", "dvcinfo") to *out, or
// all four under "<name>:" headings when which is empty, as lines
// "<id>\t<stored id>\t<key>": id is what the daemon uses, the stored id the
// list's "id" attribute (the same number for AP and SSID). Problems are
// appended to *error. Returns 0, 1 when a list is absent or malformed, 2 for
// an unknown dictionary name.
int tallyctl_print_ids(std::string_view which, std::string *out, std::string *error);
