#include "ipc/reply.h"

#include <cerrno>
#include <cstring>

#include "base/log.h"
#include "base/sys_info.h"
#include "ipc/msg_ids.h"
#include "ipc/msg_layout.h"

namespace {

uint8_t reply_buf[TALLYD_REPLY_BUF_SIZE];

constexpr size_t kPayloadRoom = TALLYD_REPLY_BUF_SIZE - TALLYD_REPLY_HDR_LEN;

std::span<uint8_t> buf() {
    return reply_buf;
}

// The first length + 12 bytes of msg, never more than msg holds.
size_t datagram_len(std::span<const uint8_t> msg) {
    uint64_t n = uint64_t{wire_be32(msg, TALLYD_HDR_LENGTH.offset)} + TALLYD_MSG_HDR_LEN;
    return n < msg.size() ? static_cast<size_t>(n) : msg.size();
}

// Adds the payload length to the length field: the sub-header's 16 bytes are
// counted already.
void close_length(std::span<uint8_t> msg) {
    uint32_t len = wire_be32(msg, TALLYD_HDR_LENGTH.offset);
    wire_put_num(msg, TALLYD_HDR_LENGTH, len + wire_be32(msg, TALLYD_REPLY_PAYLOAD_LEN.offset));
}

}  // namespace

std::span<uint8_t> tallyd_reply_buffer() {
    return buf();
}

void tallyd_reply_begin() {
    tallyd_msg_header_put(buf(), TALLYD_MODULE_ID, TALLYD_MSG_REPLY,
                          TALLYD_REPLY_HDR_LEN - TALLYD_MSG_HDR_LEN);
    wire_put_num(buf(), TALLYD_REPLY_WRITE_POS, TALLYD_REPLY_WRITE_POS_VALUE);
    wire_put_num(buf(), TALLYD_REPLY_PAYLOAD_LEN, 0);
    wire_put_num(buf(), TALLYD_REPLY_WORD, 0);
}

void tallyd_reply_start(uint32_t request_id) {
    tallyd_reply_begin();
    wire_put_num(buf(), TALLYD_REPLY_REQUEST_ID, request_id);
}

void tallyd_reply_set_word(uint32_t word) {
    wire_put_num(buf(), TALLYD_REPLY_WORD, word);
}

uint32_t tallyd_reply_payload_len() {
    return wire_be32(buf(), TALLYD_REPLY_PAYLOAD_LEN.offset);
}

std::span<uint8_t> tallyd_reply_reserve(size_t n) {
    size_t used = tallyd_reply_payload_len();
    if (used > kPayloadRoom || n > kPayloadRoom - used) return {};
    std::span<uint8_t> room = buf().subspan(TALLYD_REPLY_HDR_LEN + used, n);
    std::memset(room.data(), 0, n);
    wire_put_num(buf(), TALLYD_REPLY_PAYLOAD_LEN, used + n);
    return room;
}

int tallyd_reply_append(std::span<const uint8_t> data) {
    std::span<uint8_t> room = tallyd_reply_reserve(data.size());
    if (room.size() != data.size()) return -1;
    if (!data.empty()) std::memcpy(room.data(), data.data(), data.size());
    return 0;
}

int tallyd_reply_send(uint8_t flag) {
    wire_put_num(buf(), TALLYD_HDR_FLAG, flag);
    close_length(buf());
    const tallyd_sys_info_t &info = tallyd_sys_info;
    const sockaddr *to = reinterpret_cast<const sockaddr *>(info.peer_addr);
    socklen_t to_len = info.peer_addr_len ? *info.peer_addr_len : 0;
    if (sendto(info.reply_sock, reply_buf, datagram_len(buf()), 0, to, to_len) < 0) {
        tallyd_log(LOG_ERR, "tallyd, failed fd: %d, reason: %s\n", info.reply_sock,
                   strerror(errno));
        return -1;
    }
    tallyd_reply_begin();
    return 0;
}

int tallyd_tac_probe_reply(std::span<const uint8_t> probe, int sock, const sockaddr_un *addr,
                           socklen_t addr_len) {
    uint8_t msg[512] = {};
    std::span<uint8_t> m(msg);
    tallyd_msg_header_put(m, TALLYD_MODULE_ID, TALLYD_MSG_TAC_PROBE_REPLY,
                          TALLYD_REPLY_HDR_LEN - TALLYD_MSG_HDR_LEN);
    wire_put_num(m, TALLYD_REPLY_REQUEST_ID, wire_be32(probe, TALLYD_HDR_MSG_ID.offset));
    return tallyd_tac_send(m, sock, addr, addr_len);
}

int tallyd_tac_send(std::span<uint8_t> msg, int sock, const sockaddr_un *addr, socklen_t addr_len) {
    close_length(msg);
    if (sendto(sock, msg.data(), datagram_len(msg), 0, reinterpret_cast<const sockaddr *>(addr),
               addr_len) < 0) {
        tallyd_log(LOG_ERR, "tallyd, TAC failed fd: %d, reason: %s\n", sock, strerror(errno));
        return -1;
    }
    return 0;
}
