// The layout of the message header and of the reply sub-header, as data.
//
// Every datagram starts with the 12-byte header; a reply adds a 16-byte
// sub-header before its payload. The daemon, tallyctl and the tests read and
// write these fields through the tables below, so the layout is written down
// once. Numbers are big-endian on the wire.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "base/wire.h"

inline constexpr size_t TALLYD_MSG_HDR_LEN = 12;
inline constexpr size_t TALLYD_REPLY_HDR_LEN = 28;  // header + sub-header; payload follows

// Header (every message).
inline constexpr wire_field TALLYD_HDR_MODULE = {"module", 1, 1, wire_kind::u8};
inline constexpr wire_field TALLYD_HDR_FLAG = {"flag", 2, 1, wire_kind::u8};
inline constexpr wire_field TALLYD_HDR_MSG_ID = {"msg_id", 4, 4, wire_kind::be32};
inline constexpr wire_field TALLYD_HDR_LENGTH = {"length", 8, 4, wire_kind::be32};

// Reply sub-header.
inline constexpr wire_field TALLYD_REPLY_REQUEST_ID = {"request_id", 12, 4, wire_kind::be32};
inline constexpr wire_field TALLYD_REPLY_WORD = {"reply_word", 16, 4, wire_kind::be32};
inline constexpr wire_field TALLYD_REPLY_PAYLOAD_LEN = {"payload_len", 20, 4, wire_kind::be32};
inline constexpr wire_field TALLYD_REPLY_WRITE_POS = {"write_pos", 24, 4, wire_kind::be32};

inline constexpr wire_field tallyd_msg_header_fields[] = {TALLYD_HDR_MODULE, TALLYD_HDR_FLAG,
                                                          TALLYD_HDR_MSG_ID, TALLYD_HDR_LENGTH};

inline constexpr wire_field tallyd_reply_header_fields[] = {
    TALLYD_HDR_MODULE,       TALLYD_HDR_FLAG,   TALLYD_HDR_MSG_ID,        TALLYD_HDR_LENGTH,
    TALLYD_REPLY_REQUEST_ID, TALLYD_REPLY_WORD, TALLYD_REPLY_PAYLOAD_LEN, TALLYD_REPLY_WRITE_POS};

// Writes a message header: module id, message id and the length of what
// follows the header; the reserved bytes and the flag become 0. b must hold
// at least 12 bytes (shorter spans get only the fields that fit).
void tallyd_msg_header_put(std::span<uint8_t> b, uint8_t module, uint32_t msg_id, uint32_t length);
