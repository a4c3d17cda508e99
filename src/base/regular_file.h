// Opening files that must be plain files: flow files in the spool and the
// configuration repository's lists.
//
// Anyone who can write to those directories can also leave a FIFO, a device,
// a socket, a directory or a symbolic link under a name the daemon will open.
// Opening a FIFO for reading waits for a writer for ever, and a directory or
// a device reads as something no parser expects. So the open never follows a
// link and never waits (O_NOFOLLOW | O_NONBLOCK), and the type checked is
// that of the descriptor actually opened, not of a path that could be
// swapped in between.
#pragma once

#include "base/file.h"

enum class regular_open {
    ok,           // *out holds the open file
    missing,      // nothing by that name
    not_regular,  // a link, FIFO, socket, device or directory: left unopened
                  // (or closed again at once)
    failed,       // any other error; errno says which
};

// Opens name for reading, relative to the directory descriptor dir (AT_FDCWD
// for a path). On ok *out owns the descriptor (close-on-exec); otherwise *out
// is left empty. errno is kept from the failing call.
regular_open tallyd_open_regular(int dir, const char *name, unique_fd *out);
