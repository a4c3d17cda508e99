// Crash reports: a fatal signal leaves a readable report on the controller's
// persistent storage, and the three previous reports are kept.
//
// crashdump_init, called once at start-up with the daemon's name, makes the
// dump directory /etc/corvane/dump, moves an earlier report of this name to
// ".1" (".1" to ".2", ".2" to ".3"), applies the kernel core-dump settings
// (support/coredump.h) and installs the crash handler for SIGSEGV, SIGFPE,
// SIGPIPE and SIGBUS. (The daemon's event loop takes SIGPIPE over later, so a
// broken pipe is ignored rather than reported.)
//
// On a crash the handler prints "Creating dumpfile: <path>\n" on standard
// output, appends one report (support/crash_report.h) to
// /etc/corvane/dump/<name>.dump, syncs and closes it, calls the registered
// user callback, writes the companion file <path>.unix_zvt (the time, then
// the controller's table of Unix sockets from /proc/net/unix_zvt) through the
// shell, and ends the process with status 255. A report file that does not
// open ends it through err() with status 37. Every path is taken under the
// root prefix.
#pragma once

#include <cstddef>
#include <string_view>

inline constexpr std::string_view CRASHDUMP_DIR = "/etc/corvane/dump";
// inc_dumpfile_ext's limit: the copies ".1" to ".3" are kept.
inline constexpr int CRASHDUMP_ROTATE_LIMIT = 4;

using crashdump_usrcb_fn = void (*)();

// name is the process name or a path to it (the part after the last '/'
// counts, at most 99 characters). A dump directory that cannot be made (other
// than existing already) ends the process: perror("mkdir failed"), status 255.
// A handler that cannot be installed is reported with perror ("sigaction
// SIGSEGV", ...) and the rest are left alone.
void crashdump_init(std::string_view name);

// Stores the callback run after a report is written (one; a later call
// replaces it) and prints "<name> registers crashdump usrcb\n".
void crashdump_register_usrcb(crashdump_usrcb_fn usrcb);

// The report file of a process name, root-prefixed:
// "<root>/etc/corvane/dump/<name>.dump", into buf as snprintf would (the
// untruncated length is returned). The kept copies add ".1" to ".3".
int crashdump_path(char *buf, size_t size, std::string_view name);
