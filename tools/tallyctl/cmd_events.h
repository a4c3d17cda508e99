// tallyctl commands of the network events: one command per message, each
// field a named option with a default, checked before anything is sent.
//
//   ap-add, ap-del, ap-wlan-update, apgroup-update, wlan-group   (control)
//   sta-add, sta-active                                          (control)
//   client-stats                                                 (statistics)
//
// The options are the fields of the daemon's own layouts (events/
// events_wire.h), named after them with '-' for '_': --mac, --apgroup,
// --client-mac, --host-name, ... A MAC must be 17 characters, a text must fit
// its field with its terminating zero, a number its width. client-stats
// takes one station from the options (repeated --count times with MACs
// counting up) or the stations of a JSON file (an array of objects keyed by
// the same names, missing keys taking the defaults), and --time (default:
// now on the daemon's clock).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "cmd_entity.h"

// True when cmd names an event command.
bool tallyctl_is_event_command(std::string_view cmd);

// Turns the words after an event command into its datagram. 0 with *out
// filled; 1 after --help (text in *error, for standard output); 2 with
// *error set for bad values or usage.
int tallyctl_event_datagram(std::string_view cmd, const std::vector<std::string> &args,
                            tallyctl_datagram *out, std::string *error);

// The --help text of an event command: its fields, defaults and limits.
std::string tallyctl_event_help(std::string_view cmd);
