// Handlers of the controller's entity messages, called by the dispatcher.
//
// msg spans the whole receive buffer: the 12-byte header first, then the
// payload, and zeros past the received length. Every field is read with the
// bounded readers, so a short message reads zeros and empty texts, never
// bytes outside msg. None of them replies.
#pragma once

#include <cstdint>
#include <span>

// Control socket: a client's host name was set (stores "#" or the empty text
// in the client directory).
void tallyd_handle_set_sta_hostname(std::span<const uint8_t> msg);

// Control socket: the ARC switch.
void tallyd_handle_arc_qpx_interface(std::span<const uint8_t> msg);

// Statistics socket: per-AP values. The table is cleared, then each record
// with a non-zero value is stored under its AP's id (new MACs get an id);
// a failed mapping ends the message. Records are read only as far as msg
// reaches: a count larger than the message holds reads the rest as zeros.
void tallyd_handle_stat_0a(std::span<const uint8_t> msg);
