// A small client-socket module: a datagram socket that talks to one server
// path, optionally bound to a temporary name of its own so that the server
// can answer.
//
// The temporary name is /tmp/uds-<pid>-<rand> (under the root prefix), so
// the directory must exist. The handle owns its descriptor and its bound
// name: unix_sock_close releases both. tallyctl and the tests use it to talk
// to the daemon.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

#include <cstddef>
#include <cstdint>

struct unix_sock {
    int32_t fd;         // -1 when closed
    sockaddr_un local;  // family 0 when nothing is bound
    sockaddr_un remote;
};

// Opens h on path (a final path). server: bind to realpath(path). tmp_bind:
// bind to a temporary name and connect to path. Neither: connect to path, a
// failed connect being kept as an unconnected socket. Both flags: refused.
// Returns the descriptor, or -1 with nothing left behind (h->fd == -1).
int unix_sock_open(const char *path, unix_sock *h, int server, int tmp_bind);
int unix_sock_open_server(const char *path, unix_sock *h);
int unix_sock_open_client(const char *path, unix_sock *h, int tmp_bind);

// Removes the bound name, if any, and closes the descriptor. The result of
// close, or the (negative) descriptor of a closed handle.
int unix_sock_close(unix_sock *h);

int unix_sock_fd(const unix_sock *h);

// 1 when a datagram arrives within timeout_ms (or is waiting already), else 0.
int unix_sock_wait(const unix_sock *h, int timeout_ms);

// 1 when a datagram is waiting now, else 0.
int unix_sock_poll(const unix_sock *h);

// Sends req, waits up to 2 s for an answer and receives at most *reply_len
// bytes of it into reply, storing the length received. 0; -1 when the send
// failed; -2 when nothing arrived in time; the negative recv result.
int unix_sock_request(unix_sock *h, const void *req, size_t req_len, void *reply,
                      size_t *reply_len);
