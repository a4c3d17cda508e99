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

void eloop_init(void *user_data);
int eloop_register_read_sock(int sock, eloop_sock_handler handler, void *eloop_data,
                             void *user_data);
int eloop_unregister_read_sock(int sock);
int eloop_register_timeout(int32_t secs, int32_t usecs, eloop_timeout_handler handler,
                           void *eloop_data, void *user_data);
int eloop_cancel_timeout(eloop_timeout_handler handler, void *eloop_data, void *user_data);
int eloop_register_signal(int sig, eloop_signal_handler handler, void *user_data);
void eloop_run();
void eloop_terminate();
int eloop_terminated();
uint32_t eloop_get_pass_count();
void eloop_destroy();
void eloop_get_time(eloop_time *t);

// The all-ones pointer that makes eloop_cancel_timeout match any data.
inline void *const ELOOP_ALL_CTX = reinterpret_cast<void *>(~static_cast<uintptr_t>(0));
