#include "ipc/unix_sock.h"

#include <poll.h>
#include <unistd.h>

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/path.h"
#include "ipc/unix_server.h"

namespace {

int fail(unix_sock *h, int sock, const char *local, const char *path, int server) {
    if (local[0]) unlink(local);
    if (server) unlink(path);
    if (sock >= 0) close(sock);
    h->fd = -1;
    h->local.sun_family = 0;
    return -1;
}

}  // namespace

int unix_sock_open(const char *path, unix_sock *h, int server, int tmp_bind) {
    std::memset(h, 0, sizeof *h);
    h->fd = -1;
    if (server && tmp_bind) return -1;

    char local[PATH_MAX] = "";
    if (tmp_bind) {
        char name[64];
        std::snprintf(name, sizeof name, "/tmp/uds-%d-%d", static_cast<int>(getpid()),
                      rand() & 0xffff);
        tallyd_path_buf(local, sizeof local, name);
    } else if (server && !realpath(path, local)) {
        // Not there yet: bind under the name as given.
        std::snprintf(local, sizeof local, "%s", path);
    }

    int sock = socket(AF_UNIX, SOCK_DGRAM, 0);
    if (sock < 0) return fail(h, sock, "", path, 0);

    if (server || tmp_bind) {
        unlink(local);
        int len = tallyd_fill_unix_addr(&h->local, local);
        if (bind(sock, reinterpret_cast<const sockaddr *>(&h->local),
                 static_cast<socklen_t>(len)) != 0)
            return fail(h, sock, local, path, server);
    }
    if (!server) {
        int len = tallyd_fill_unix_addr(&h->remote, path);
        int rc = connect(sock, reinterpret_cast<const sockaddr *>(&h->remote),
                         static_cast<socklen_t>(len));
        // Without a name of its own the socket can still send later.
        if (rc != 0 && tmp_bind) return fail(h, sock, local, path, 0);
    }
    h->fd = sock;
    return sock;
}

int unix_sock_open_server(const char *path, unix_sock *h) {
    return unix_sock_open(path, h, 1, 0);
}

int unix_sock_open_client(const char *path, unix_sock *h, int tmp_bind) {
    return unix_sock_open(path, h, 0, tmp_bind);
}

int unix_sock_close(unix_sock *h) {
    if (h->local.sun_family == AF_UNIX) unlink(h->local.sun_path);
    h->local.sun_family = 0;
    if (h->fd < 0) return h->fd;
    int rc = close(h->fd);
    h->fd = -1;
    return rc;
}

int unix_sock_fd(const unix_sock *h) {
    return h->fd;
}

int unix_sock_wait(const unix_sock *h, int timeout_ms) {
    // poll rather than select: any descriptor number will do.
    pollfd p{h->fd, POLLIN, 0};
    return h->fd >= 0 && poll(&p, 1, timeout_ms) > 0 ? 1 : 0;
}

int unix_sock_poll(const unix_sock *h) {
    return unix_sock_wait(h, 0);
}

int unix_sock_request(unix_sock *h, const void *req, size_t req_len, void *reply,
                      size_t *reply_len) {
    if (send(h->fd, req, req_len, 0) < 0) return -1;
    if (!unix_sock_wait(h, 2000)) return -2;
    ssize_t n = recv(h->fd, reply, *reply_len, 0);
    if (n < 0) return static_cast<int>(n);
    *reply_len = static_cast<size_t>(n);
    return 0;
}
