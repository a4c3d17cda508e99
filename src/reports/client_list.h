// The client list (TALLYD_MSG_GET_CLIENT_LIST): the wireless clients seen in
// the last hour, all of them (at most the 100 with the newest rows, only
// those with traffic) or one by MAC, as 504-byte records (kClientList of
// statis_wire.h) with their addresses, names, AP, SSID, radio state and
// traffic.
//
// A request whose payload is not 28 bytes gets reply word 2 and no data.
// A period other than the hour, a non-zero flag word, or no traffic at all
// in statis_ap_h gets a reply without data. Every path sends one reply.
#pragma once

#include <cstdint>
#include <span>

// Answers the whole received message. 0, or -1 for a wrong length or when
// one client was asked for and nothing could be reported.
int tallyd_get_client_list(std::span<const uint8_t> msg);
