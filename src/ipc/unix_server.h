// Unix-domain datagram addresses and the daemon's listening sockets.
//
// Paths given here are final paths (callers root-prefix device paths with
// tallyd_path first). A socket path must stay below 108 bytes.
#pragma once

#include <sys/socket.h>
#include <sys/un.h>

// Zeroes addr, sets AF_UNIX and copies path cut at 107 bytes. Returns the
// length of the uncut path plus 2, the length bind and connect are given.
int tallyd_fill_unix_addr(sockaddr_un *addr, const char *path);

// A blocking datagram socket bound to path; a file already at path (a stale
// socket of an earlier run) is removed first. Returns the descriptor, the
// negative result of socket(), or -1 after logging
// "tallyd, can not bind Unit socket\n" when bind fails.
int tallyd_open_unix_server(const char *path);
