#include "base/regular_file.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>

regular_open tallyd_open_regular(int dir, const char *name, unique_fd *out) {
    out->reset();
    // A look first, so that a device or a FIFO is not even opened (opening
    // some devices does something); the check after the open is the one that
    // counts, since the name may be replaced in between.
    struct stat st;
    if (::fstatat(dir, name, &st, AT_SYMLINK_NOFOLLOW) != 0)
        return errno == ENOENT ? regular_open::missing : regular_open::failed;
    if (!S_ISREG(st.st_mode)) return regular_open::not_regular;

    unique_fd fd(::openat(dir, name, O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC | O_NOCTTY));
    if (!fd) {
        switch (errno) {
            case ENOENT:
                return regular_open::missing;
            case ELOOP:  // replaced by a symbolic link
            case ENXIO:  // replaced by a socket
                return regular_open::not_regular;
            default:
                return regular_open::failed;
        }
    }
    if (::fstat(fd.get(), &st) != 0) return regular_open::failed;
    if (!S_ISREG(st.st_mode)) return regular_open::not_regular;
    *out = std::move(fd);
    return regular_open::ok;
}
