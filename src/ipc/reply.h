// The reply buffer: one reply to the request being served, and the probe
// reply of the monitor socket.
//
// A reply is the 12-byte header (module 18, id 0x03000003), the 16-byte
// sub-header (request id, reply word, payload length, write position) and
// the payload from offset 28, sent as one datagram back to the sender of the
// request on the socket it came in on (tallyd_sys_info's peer fields, set by
// the dispatcher only while a handler runs). One reply at a time: a report
// that needs several datagrams starts and sends each in turn.
//
// The write position word (offset 24) is read by no peer; it carries 28, the
// offset where the payload starts, rather than a buffer address, so replies
// are the same bytes on every host and run.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdint>
#include <span>

inline constexpr size_t TALLYD_REPLY_BUF_SIZE = 81920;
inline constexpr uint32_t TALLYD_REPLY_WRITE_POS_VALUE = 28;

// The whole reply buffer (for readers such as tests; writers use the calls
// below).
std::span<uint8_t> tallyd_reply_buffer();

// Resets the header and sub-header: module 18, flag 0, id 0x03000003, length 16,
// reply word 0, payload length 0, write position 28. The request id is left.
void tallyd_reply_begin();

// tallyd_reply_begin, then stores the id of the request being answered.
void tallyd_reply_start(uint32_t request_id);

void tallyd_reply_set_word(uint32_t word);
uint32_t tallyd_reply_payload_len();

// Appends n zeroed payload bytes and returns them for filling; an empty span
// (payload unchanged) when they would not fit in the buffer.
std::span<uint8_t> tallyd_reply_reserve(size_t n);

// Appends a copy of data; 0, or -1 when it does not fit (payload unchanged).
int tallyd_reply_append(std::span<const uint8_t> data);

// Stores flag in byte 2, adds the payload length to the length field and
// sends header + sub-header + payload on tallyd_sys_info.reply_sock to the
// request's sender. 0 and a reset buffer when sent; -1 after logging
// "tallyd, failed fd: %d, reason: %s\n", with the buffer left as it was.
int tallyd_reply_send(uint8_t flag);

// Answers a probe: a 28-byte reply (module 18, id 0x08000002, length 16,
// request id copied from the probe) sent to addr on sock. 0, or -1 after
// logging "tallyd, TAC failed fd: %d, reason: %s\n".
int tallyd_tac_probe_reply(std::span<const uint8_t> probe, int sock, const sockaddr_un *addr,
                           socklen_t addr_len);

// Adds the payload length (offset 20) to the length field of msg and sends
// the first length + 12 bytes to addr on sock; 0 or -1 (logged as above).
int tallyd_tac_send(std::span<uint8_t> msg, int sock, const sockaddr_un *addr, socklen_t addr_len);
