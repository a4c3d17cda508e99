// The daemon's signals, handled from the event loop.
//
// SIGINT and SIGTERM end the loop and remove the pid file; so do SIGHUP,
// SIGQUIT, SIGUSR1 and SIGUSR2, whose default action would otherwise kill the
// daemon on the spot (only INT and TERM arm the loop's two-second forced
// exit). SIGCHLD reaps one finished child; SIGPIPE is caught only so that a
// write to a vanished peer does not kill the daemon.
#pragma once

// Registers SIGINT, SIGTERM, SIGCHLD and SIGPIPE, in that order, then SIGHUP,
// SIGQUIT, SIGUSR1 and SIGUSR2, with tallyd_signal_handle. 0 when all were
// registered, else -1 (the others are registered all the same).
int tallyd_eloop_signals();

void tallyd_signal_handle(int sig, void *eloop_user_data, void *signal_user_data);
