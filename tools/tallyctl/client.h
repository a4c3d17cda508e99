// tallyctl's client library: talking to a running daemon over its sockets.
//
// Used by the tallyctl commands and by the end-to-end tests. Messages are
// built and replies read with the daemon's own layout tables (ipc/
// msg_layout.h), so both sides agree on every byte. Socket paths follow the
// root prefix (TALLYD_ROOT or tallyd_root_set). Nothing here throws; errors
// come back as text.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "ipc/msg_ids.h"
#include "ipc/unix_sock.h"

using tallyctl_bytes = std::vector<uint8_t>;

// Root-prefixed path of a socket.
std::string tallyctl_socket_path(tallyd_socket_kind kind);

// "control", "stat" (or "statistics"), "monitor"; false for anything else.
bool tallyctl_parse_socket(std::string_view word, tallyd_socket_kind *kind);
std::string_view tallyctl_socket_name(tallyd_socket_kind kind);

// "0x" and eight hex digits: how ids are shown.
std::string tallyctl_hex32(uint32_t v);

// A 32-bit number, decimal or 0x hex, nothing else around it.
bool tallyctl_parse_u32(std::string_view word, uint32_t *out);

// A message id as a number (decimal or 0x hex, 32 bits) or a known name
// ("TALLYD_MSG_AP_ADD", also without the TALLYD_MSG_ prefix, any case).
bool tallyctl_parse_id(std::string_view word, uint32_t *id);

// Hex digits, optionally separated by spaces, ':' or '-'; an even number of
// digits. false (out unchanged) for anything else.
bool tallyctl_parse_hex(std::string_view text, tallyctl_bytes *out);

// A datagram: the 12-byte header (module, id, payload length) and payload.
tallyctl_bytes tallyctl_message(uint32_t id, std::span<const uint8_t> payload, uint8_t module = 0);

// The header and sub-header fields of a reply, read with the daemon's
// layout (fields beyond the datagram read as 0).
struct tallyctl_reply_fields {
    uint32_t module;
    uint32_t flag;
    uint32_t msg_id;
    uint32_t length;
    uint32_t request_id;
    uint32_t reply_word;
    uint32_t payload_len;
    uint32_t write_pos;
    size_t bytes;  // datagram size
};
tallyctl_reply_fields tallyctl_decode_reply(std::span<const uint8_t> reply);

// One line of text ("module 18 flag 0 msg_id 0x03000003 ... payload_bytes N").
std::string tallyctl_format_reply(std::span<const uint8_t> reply);
// The same fields as one JSON object (ids as "0x..." texts).
nlohmann::json tallyctl_reply_json(std::span<const uint8_t> reply);

// A datagram socket bound to a temporary name and connected to one of the
// daemon's sockets. Closing removes the name.
class tallyctl_conn {
   public:
    tallyctl_conn() = default;
    ~tallyctl_conn() { close(); }
    tallyctl_conn(const tallyctl_conn &) = delete;
    tallyctl_conn &operator=(const tallyctl_conn &) = delete;

    // false with *error set ("tallyd is not running: no socket at ...").
    bool open(tallyd_socket_kind kind, std::string *error);
    void close();
    bool send(std::span<const uint8_t> datagram, std::string *error);
    // Waits up to timeout_ms for one datagram; false when none came.
    bool receive(tallyctl_bytes *out, int timeout_ms);

   private:
    unix_sock sock_{-1, {}, {}};
};

// Sends one datagram and collects what comes back: the first reply within
// first_wait_ms, further ones while each arrives within gap_ms of the last.
// false only when the daemon could not be reached (*error set).
bool tallyctl_request(tallyd_socket_kind kind, std::span<const uint8_t> datagram, int first_wait_ms,
                      int gap_ms, std::vector<tallyctl_bytes> *replies, std::string *error);

// Sends the monitor probe; true when the answer came within timeout_ms.
bool tallyctl_probe(int timeout_ms, tallyctl_bytes *reply, std::string *error);
