// The event loop: select() over registered read sockets, one-shot timeouts
// kept in a list sorted by expiry, and signals turned into ordinary calls
// made from the loop.
//
// One loop per process. Call eloop_init once, register, eloop_run, and after
// it returns eloop_destroy. All handlers run on the loop's thread; the only
// asynchronous code is the signal catcher, which only counts. Times are
// daemon monotonic time (base/clock.h), so TALLYD_TIME_SCALE speeds the
// whole schedule up.
#pragma once

#include <cstdint>

using eloop_sock_handler = void (*)(int sock, void *eloop_data, void *user_data);
using eloop_timeout_handler = void (*)(void *eloop_data, void *user_data);
using eloop_signal_handler = void (*)(int sig, void *eloop_user_data, void *signal_user_data);

struct eloop_time {
    int32_t sec;
    int32_t usec;
};

// Zeroes the loop and remembers user_data (second argument of every signal
// handler) and the process id (the signal catcher's child rule).
void eloop_init(void *user_data);

// Appends a read socket; entries are served in registration order. The same
// descriptor may be registered twice (both handlers run). 0, or -1 when the
// table cannot grow or sock lies outside what select() can watch (0 to
// FD_SETSIZE - 1); the table is then unchanged.
int eloop_register_read_sock(int sock, eloop_sock_handler handler, void *eloop_data,
                             void *user_data);

// Removes the first entry of sock. 0 when the table is empty, 1 when removed,
// reader_count when sock is not registered. Does not close sock.
int eloop_unregister_read_sock(int sock);

// One-shot timeout secs/usecs from now (usecs may exceed a second). Equal
// expiries fire in registration order. 0, or -1 when out of memory.
int eloop_register_timeout(int32_t secs, int32_t usecs, eloop_timeout_handler handler,
                           void *eloop_data, void *user_data);

// Removes every timeout of handler whose data match (ELOOP_ALL_CTX matches
// any); returns how many were removed.
int eloop_cancel_timeout(eloop_timeout_handler handler, void *eloop_data, void *user_data);

// Installs the loop's catcher for sig (sigaction); handler runs from the
// loop, once per pass however often sig arrived. 0, or -1 when sig is not a
// signal number, the table cannot grow or the catcher cannot be installed
// (the table is then unchanged).
int eloop_register_signal(int sig, eloop_signal_handler handler, void *user_data);

// Runs until eloop_terminate, until nothing is registered, or until select
// fails (perror "select"). At most one timeout fires per pass.
void eloop_run();
void eloop_terminate();
int eloop_terminated();
uint32_t eloop_get_pass_count();

// Frees the timeouts and both tables; closes nothing, restores no signal.
void eloop_destroy();

// Daemon monotonic time now; a null pointer is ignored.
void eloop_get_time(eloop_time *t);

// The all-ones pointer that makes eloop_cancel_timeout match any data.
inline void *const ELOOP_ALL_CTX = reinterpret_cast<void *>(~static_cast<uintptr_t>(0));

// What the alarm catcher writes to standard error (171 bytes) before it ends,
// with status 1, a process that did not get back to its loop within two
// seconds of SIGINT or SIGTERM.
inline constexpr char ELOOP_ALARM_TEXT[] =
    "eloop: could not process SIGINT or SIGTERM in two seconds. Looks like there\n"
    "is a bug that ends up in a busy loop that prevents clean shutdown.\n"
    "Killing program forcefully.\n";
