#include "ipc/unix_server.h"

#include <unistd.h>

#include <cstdio>
#include <cstring>

#include "base/file.h"
#include "base/log.h"

int tallyd_fill_unix_addr(sockaddr_un *addr, const char *path) {
    std::memset(addr, 0, sizeof *addr);
    addr->sun_family = AF_UNIX;
    std::snprintf(addr->sun_path, sizeof addr->sun_path, "%s", path);
    return static_cast<int>(std::strlen(path)) + 2;
}

int tallyd_open_unix_server(const char *path) {
    unique_fd sock(socket(AF_UNIX, SOCK_DGRAM, 0));
    if (!sock) return sock.release();
    sockaddr_un addr;
    int len = tallyd_fill_unix_addr(&addr, path);
    unlink(path);
    if (bind(sock.get(), reinterpret_cast<const sockaddr *>(&addr), static_cast<socklen_t>(len)) !=
        0) {
        sock.reset();
        tallyd_log(LOG_ERR, "tallyd, can not bind Unit socket\n");
        return -1;
    }
    return sock.release();
}
