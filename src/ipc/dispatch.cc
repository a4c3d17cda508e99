#include "ipc/dispatch.h"

#include <sys/mman.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>

#include "base/file.h"
#include "base/log.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "eloop/eloop.h"
#include "ipc/msg_layout.h"
#include "ipc/reply.h"
#include "ipc/unix_server.h"

namespace {

// A receive buffer and how far datagrams have written into it: every byte
// from `dirty` on is zero.
struct recv_area {
    std::span<uint8_t> buf;
    size_t dirty;
};

// The control socket's buffer is process-wide; the statistics socket reads
// into one of its own (it stands in for the platform's message buffers).
uint8_t ctrl_buf[TALLYD_RECV_BUF_SIZE];
alignas(4096) uint8_t stat_buf[TALLYD_STAT_BUF_SIZE];

// What the statistics buffer keeps in RAM between datagrams. A counters
// batch of a thousand stations fills half a megabyte of it once a minute;
// afterwards the pages past this mark are handed back to the system, which
// gives them back zero-filled when the next large batch arrives.
constexpr size_t kStatResident = 64 * 1024;
recv_area ctrl_area{ctrl_buf, 0};
recv_area stat_area{stat_buf, 0};

uint8_t module_of(std::span<const uint8_t> msg) {
    return wire_u8(msg, TALLYD_HDR_MODULE.offset);
}
uint32_t id_of(std::span<const uint8_t> msg) {
    return wire_be32(msg, TALLYD_HDR_MSG_ID.offset);
}

// Receives one datagram into the area (at most its size - 1 bytes) and
// zeroes what earlier datagrams left past it, so handlers reading past a
// short message see zeros only. Only what was written is cleared: a large
// buffer costs nothing for small messages. With MSG_TRUNC in flags the
// result is the datagram's full length even when it was cut.
int32_t receive(int sock, recv_area &a, int flags, sockaddr_un *from, socklen_t *from_len) {
    const size_t max = a.buf.size() - 1;
    ssize_t n =
        recvfrom(sock, a.buf.data(), max, flags, reinterpret_cast<sockaddr *>(from), from_len);
    size_t kept = n > 0 ? std::min(static_cast<size_t>(n), max) : 0;
    if (a.dirty > kept) std::memset(a.buf.data() + kept, 0, a.dirty - kept);
    a.dirty = kept;
    return static_cast<int32_t>(n);
}

// Gives back the pages of a that lie past keep (a multiple of the page size)
// once a datagram has written there; they read as zeros afterwards.
void release_tail(recv_area &a, size_t keep) {
    if (a.dirty <= keep) return;
    const size_t page = 4096, end = (a.dirty + page - 1) / page * page;
    if (madvise(a.buf.data() + keep, std::min(end, a.buf.size()) - keep, MADV_DONTNEED) == 0)
        a.dirty = keep;
}

const tallyd_route *find_route(const tallyd_route_table *table, uint32_t id) {
    if (!table) return nullptr;
    for (const tallyd_route &r : table->routes)
        if (r.id == id) return &r;
    return nullptr;
}

int open_server(std::string_view device_path) {
    return tallyd_open_unix_server(tallyd_path(device_path).c_str());
}

// A listening socket handed to the event loop: the loop then holds it for the
// rest of the process, so the descriptor is closed only when registering
// fails.
int register_socket(unique_fd &sock, eloop_sock_handler handler, void *eloop_data) {
    if (eloop_register_read_sock(sock.get(), handler, eloop_data, nullptr) != 0) return -1;
    sock.release();
    return 0;
}

}  // namespace

int tallyd_msg_check(std::span<const uint8_t> buf, int32_t len, bool check_length) {
    if (len < static_cast<int32_t>(TALLYD_MSG_HDR_LEN)) {
        tallyd_log(LOG_ERR, "tallyd, recvfrom msg too short, len = %d\n", len);
        return -1;
    }
    uint32_t field = wire_be32(buf, TALLYD_HDR_LENGTH.offset);
    if (check_length && field + uint32_t{TALLYD_MSG_HDR_LEN} != static_cast<uint32_t>(len)) {
        tallyd_log(LOG_ERR,
                   "tallyd, received msg of %u bytes from module %d but len specified is = %u\n",
                   static_cast<uint32_t>(len), module_of(buf), field);
        return -1;
    }
    return 0;
}

void tallyd_msg_dispatch(const tallyd_route_table *table, std::span<const uint8_t> msg) {
    const tallyd_route *r = find_route(table, id_of(msg));
    if (!r) {
        tallyd_log(LOG_ERR, "tallyd, received invalid msg id %0#10x from module %d\n", id_of(msg),
                   module_of(msg));
        return;
    }
    for (tallyd_msg_handler h : r->handlers)
        if (h) h(msg);
}

void tallyd_ctrl_receive(int sock, void *eloop_data, void *) {
    sockaddr_un from;
    socklen_t from_len = sizeof from;
    tallyd_sys_info.peer_addr_len = &from_len;
    tallyd_sys_info.reply_sock = sock;

    int32_t len = receive(sock, ctrl_area, 0, &from, &from_len);
    if (tallyd_msg_check(ctrl_buf, len, true) == 0) {
        tallyd_sys_info.peer_addr = &from;
        tallyd_msg_dispatch(static_cast<const tallyd_route_table *>(eloop_data), ctrl_buf);
    }
    // The address dies with this frame; nothing may answer it later.
    tallyd_sys_info.peer_addr = nullptr;
    tallyd_sys_info.peer_addr_len = nullptr;
}

void tallyd_stat_receive(int sock, void *eloop_data, void *) {
    sockaddr_un from;
    socklen_t from_len = sizeof from;
    int32_t len = receive(sock, stat_area, MSG_TRUNC, &from, &from_len);
    if (len > static_cast<int32_t>(TALLYD_STAT_MAX_DATAGRAM)) {
        tallyd_log(LOG_ERR,
                   "tallyd, received msg of %u bytes from module %d, more than the %u bytes it "
                   "takes\n",
                   static_cast<uint32_t>(len), module_of(stat_buf),
                   static_cast<uint32_t>(TALLYD_STAT_MAX_DATAGRAM));
    } else if (tallyd_msg_check(stat_buf, len, true) == 0) {
        tallyd_msg_dispatch(static_cast<const tallyd_route_table *>(eloop_data), stat_buf);
    }
    release_tail(stat_area, kStatResident);
}

void tallyd_monitor_receive(int sock, void *, void *) {
    uint8_t buf[TALLYD_MONITOR_BUF_SIZE] = {};
    recv_area area{buf, 0};
    sockaddr_un from;
    socklen_t from_len = sizeof from;
    int32_t len = receive(sock, area, 0, &from, &from_len);
    // The probe is answered whatever its length field says.
    if (tallyd_msg_check(buf, len, false) != 0) return;
    if (id_of(buf) == TALLYD_MSG_TAC_PROBE) {
        tallyd_tac_probe_reply(buf, sock, &from, from_len);
        return;
    }
    tallyd_msg_dispatch(nullptr, buf);
}

int tallyd_monitor_iface_init() {
    unique_fd sock(open_server(TALLYD_MONITOR_SOCKET));
    if (!sock) {
        tallyd_log(LOG_ERR, "tallyd, failed to init monitor sock_id: %d\n", sock.get());
        return -1;
    }
    if (register_socket(sock, tallyd_monitor_receive, nullptr) != 0) {
        puts("Could not register monitor socket");
        return -1;
    }
    return 0;
}

int tallyd_ipc_ctrl_iface_init(const tallyd_route_table *ctrl, const tallyd_route_table *stat) {
    void *ctrl_data = const_cast<tallyd_route_table *>(ctrl);
    void *stat_data = const_cast<tallyd_route_table *>(stat);
    unique_fd ctrl_sock(open_server(TALLYD_CTRL_SOCKET));
    if (!ctrl_sock) {
        tallyd_log(LOG_ERR, "tallyd, failed to init UNIT sock_id: %d\n", ctrl_sock.get());
        return -1;
    }
    const int ctrl_fd = ctrl_sock.get();
    if (register_socket(ctrl_sock, tallyd_ctrl_receive, ctrl_data) != 0) {
        puts("Could not register read socket for ctrl ifac");
        return -1;
    }
    // Either both sockets serve or neither: a control socket left registered
    // after its partner failed would be read from a closed descriptor.
    auto drop_ctrl = [ctrl_fd] {
        eloop_unregister_read_sock(ctrl_fd);
        close(ctrl_fd);
    };
    unique_fd stat_sock(open_server(TALLYD_STAT_SOCKET));
    if (!stat_sock) {
        tallyd_log(LOG_ERR, "tallyd, failed to init UNIT sock_id: %d\n", stat_sock.get());
        drop_ctrl();
        return -1;
    }
    // Room for the largest batch in the socket's queue; the kernel caps the
    // value at its rmem_max.
    int rcvbuf = static_cast<int>(TALLYD_STAT_BUF_SIZE);
    setsockopt(stat_sock.get(), SOL_SOCKET, SO_RCVBUF, &rcvbuf, sizeof rcvbuf);
    if (register_socket(stat_sock, tallyd_stat_receive, stat_data) != 0) {
        tallyd_log(LOG_ERR, "tallyd, Could not register read socket for ctrl ifac\n");
        drop_ctrl();
        return -1;
    }
    return 0;
}
