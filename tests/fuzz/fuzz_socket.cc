// One datagram on one of the daemon's sockets: received, checked and
// dispatched by the daemon's own receive function, with the whole daemon
// state behind it. FUZZ_SOCKET picks the socket (0 control, 1 statistics,
// 2 monitor); each is its own fuzz target.
//
// Besides the sanitizers the target checks the reply rule: a report request
// that passes the header checks is answered exactly once, the probe is
// answered once, and nothing else is answered at all.
#include <fcntl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <span>
#include <string>

#include "base/path.h"
#include "core/routes.h"
#include "eloop/eloop.h"
#include "fuzz_daemon.h"
#include "ipc/dispatch.h"
#include "ipc/msg_layout.h"
#include "ipc/unix_server.h"

#ifndef FUZZ_SOCKET
#error "FUZZ_SOCKET names the socket under test"
#endif

namespace {

struct socket_under_test {
    std::string_view path;
    eloop_sock_handler receive;
    const tallyd_route_table *routes;
    size_t read_max;  // the most of a datagram the daemon reads
};

const socket_under_test kSockets[] = {
    {TALLYD_CTRL_SOCKET, tallyd_ctrl_receive, &tallyd_ctrl_routes, TALLYD_RECV_BUF_SIZE - 1},
    {TALLYD_STAT_SOCKET, tallyd_stat_receive, &tallyd_stat_routes, TALLYD_STAT_MAX_DATAGRAM},
    {TALLYD_MONITOR_SOCKET, tallyd_monitor_receive, nullptr, TALLYD_MONITOR_BUF_SIZE - 1},
};
constexpr const socket_under_test &kSocket = kSockets[FUZZ_SOCKET];

// The requests the daemon answers on the control socket.
constexpr uint32_t kAnswered[] = {TALLYD_MSG_GET_TOP_SUMMARY,      TALLYD_MSG_GET_CLIENTS_SUMMARY,
                                  TALLYD_MSG_GET_APP_CLIENT,       TALLYD_MSG_GET_CLIENT_LIST,
                                  TALLYD_MSG_STATIS_SINGLE_CLIENT, TALLYD_MSG_STATIS_AP,
                                  TALLYD_MSG_STATIS_SSID,          TALLYD_MSG_STATIS_CLIENT,
                                  TALLYD_MSG_STATIS_AP_CHART,      TALLYD_MSG_STATIS_CLIENT_CHART};

struct endpoints {
    int server = -1;  // the daemon's socket
    int peer = -1;    // the sender, bound so that replies come back to it
    sockaddr_un server_addr{};
};

endpoints open_endpoints() {
    endpoints e;
    const std::string server_path = tallyd_path(kSocket.path);
    e.server = tallyd_open_unix_server(server_path.c_str());
    if (e.server < 0) fuzz_fail("cannot open the daemon's socket");
    // A lost datagram must not leave the receive function waiting.
    fcntl(e.server, F_SETFL, fcntl(e.server, F_GETFL) | O_NONBLOCK);
    tallyd_fill_unix_addr(&e.server_addr, server_path.c_str());

    e.peer = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_un peer_addr{};
    const std::string peer_path = tallyd_path("/tmp/uds-fuzz-peer");
    tallyd_fill_unix_addr(&peer_addr, peer_path.c_str());
    unlink(peer_path.c_str());
    if (bind(e.peer, reinterpret_cast<sockaddr *>(&peer_addr), sizeof peer_addr) != 0)
        fuzz_fail("cannot bind the peer socket");
    int big = 4 << 20;
    setsockopt(e.peer, SOL_SOCKET, SO_SNDBUF, &big, sizeof big);
    setsockopt(e.peer, SOL_SOCKET, SO_RCVBUF, &big, sizeof big);
    setsockopt(e.server, SOL_SOCKET, SO_RCVBUF, &big, sizeof big);
    return e;
}

size_t drain_replies(int sock) {
    static uint8_t buf[1 << 17];
    size_t n = 0;
    while (recv(sock, buf, sizeof buf, MSG_DONTWAIT) >= 0) ++n;
    return n;
}

// How many replies the daemon owes for the datagram data.
size_t replies_owed(std::span<const uint8_t> data) {
    const std::span<const uint8_t> read = data.first(std::min(data.size(), kSocket.read_max));
    if (read.size() < TALLYD_MSG_HDR_LEN) return 0;
    const uint32_t id = wire_be32(read, TALLYD_HDR_MSG_ID.offset);
    if (FUZZ_SOCKET == 2) return id == TALLYD_MSG_TAC_PROBE ? 1 : 0;
    const uint32_t length = wire_be32(read, TALLYD_HDR_LENGTH.offset);
    if (length + uint32_t{TALLYD_MSG_HDR_LEN} != read.size()) return 0;
    return std::count(std::begin(kAnswered), std::end(kAnswered), id) && FUZZ_SOCKET == 0 ? 1 : 0;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_daemon_start();
    static const endpoints e = open_endpoints();
    fuzz_daemon_tick();
    if (sendto(e.peer, data, size, 0, reinterpret_cast<const sockaddr *>(&e.server_addr),
               sizeof e.server_addr) != static_cast<ssize_t>(size))
        return 0;
    kSocket.receive(e.server, const_cast<tallyd_route_table *>(kSocket.routes), nullptr);
    if (drain_replies(e.peer) != replies_owed({data, size}))
        fuzz_fail("a datagram got a number of replies other than it is owed");
    return 0;
}
