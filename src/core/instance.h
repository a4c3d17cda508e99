// The single-instance lock: a pid file and the process it names.
//
// The lock is advisory: the file holds the pid of the daemon that wrote it
// and stays behind after a crash; a start counts another instance only when
// that pid is a running tallyd. Paths are final paths (root-prefixed).
#pragma once

#include <cstdint>

// The number on the file's first line (at most 128 bytes, cut at CR or LF,
// read with atoi); 0 when the file cannot be opened; -1 for a null path.
int32_t tallyd_read_pid_file(const char *path);

// Writes getpid() with "%d" and no line end. 0, or -1 for a null path, a
// file that cannot be created or a write that fails.
int32_t tallyd_write_pid_file(const char *path);

// 1 when pid is a running process whose command line mentions "tallyd".
// Reads the real /proc: the process table is never under the root prefix.
uint8_t tallyd_pid_is_tallyd(int32_t pid);

// 1 when /var/run/tac/tallyd.pid names a running tallyd, else 0.
uint8_t tallyd_check_tallyd_existing();
