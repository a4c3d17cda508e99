// The daemon's three listening sockets: header checks and dispatch by
// message id.
//
// Every datagram on the control and statistics sockets is checked (at least
// 12 bytes, length field = received length - 12) and handed to the handlers
// its id is routed to; a failed check or an id that is not routed on that
// socket is logged and dropped. The monitor socket answers the probe.
//
// Which handlers an id runs is data: a route table per socket, given to the
// receive functions as their event-loop data (the daemon's tables are in
// core/routes.h; tests pass tables of their own).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string_view>

#include "ipc/msg_ids.h"

// A message handler gets the whole receive buffer of its socket: the 12-byte
// header first, the payload from offset 12, and zeros from the received
// length to the end of the buffer. It must finish any reply (tallyd_reply_send) before it
// returns: the sender's address lives only as long as the receive call.
using tallyd_msg_handler = void (*)(std::span<const uint8_t> msg);

// One routed id: up to two handlers, run in order on the same message. A row
// without handlers accepts the id and does nothing (no reply).
struct tallyd_route {
    uint32_t id;
    std::string_view name;
    tallyd_msg_handler handlers[2];
};

// The routes of one socket.
struct tallyd_route_table {
    std::span<const tallyd_route> routes;
};

// A route row named after the id's entry in tallyd_msg_names.
constexpr tallyd_route tallyd_route_of(uint32_t id, tallyd_msg_handler first = nullptr,
                                       tallyd_msg_handler second = nullptr) {
    return {id, tallyd_msg_name_of(id), {first, second}};
}

// Receive buffers: 8,192 bytes on the control socket, at most 8,191 read, so
// a longer datagram is cut and then fails the length check.
inline constexpr size_t TALLYD_RECV_BUF_SIZE = 8192;
inline constexpr size_t TALLYD_MONITOR_BUF_SIZE = 512;
// The statistics socket carries counters batches of hundreds of stations
// (560 bytes each): its buffer takes datagrams of up to 1 MiB - 1 bytes, and
// its SO_RCVBUF is raised to match. A longer datagram is logged as "tallyd,
// received msg of %u bytes from module %d, more than the %u bytes it
// takes\n" and dropped unread.
inline constexpr size_t TALLYD_STAT_BUF_SIZE = size_t{1} << 20;
inline constexpr size_t TALLYD_STAT_MAX_DATAGRAM = TALLYD_STAT_BUF_SIZE - 1;

// Logs "tallyd, recvfrom msg too short, len = %d\n" for len < 12 and, when
// check_length is set, "tallyd, received msg of %u bytes from module %d but
// len specified is = %u\n" for a length field that is not len - 12.
// 0 when the message passes.
int tallyd_msg_check(std::span<const uint8_t> buf, int32_t len, bool check_length);

// Runs the handlers of msg's id from table, or logs "tallyd, received invalid
// msg id %0#10x from module %d\n" when table does not route it (a null table
// routes nothing).
void tallyd_msg_dispatch(const tallyd_route_table *table, std::span<const uint8_t> msg);

// Event-loop read handlers. eloop_data is the socket's const
// tallyd_route_table * (unused by the monitor handler). The control handler
// makes tallyd_sys_info's peer fields and reply_sock name the sender while
// the handlers run; the other two set nothing there.
void tallyd_ctrl_receive(int sock, void *eloop_data, void *user_data);
void tallyd_stat_receive(int sock, void *eloop_data, void *user_data);
void tallyd_monitor_receive(int sock, void *eloop_data, void *user_data);

// Opens /var/run/tac/tallydTac.socket and registers it. 0, or -1 after
// logging "tallyd, failed to init monitor sock_id: %d\n" (or printing
// "Could not register monitor socket").
int tallyd_monitor_iface_init();

// Opens and registers /var/run/tac/tallyd.socket and tallyd_stat.socket with
// the given route tables. 0, or -1 with what failed logged or printed.
int tallyd_ipc_ctrl_iface_init(const tallyd_route_table *ctrl, const tallyd_route_table *stat);
