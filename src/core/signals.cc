#include "core/signals.h"

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>

#include "base/path.h"
#include "eloop/eloop.h"

int tallyd_eloop_signals() {
    int rc = 0;
    // Every one is registered even after a failure; the result says whether
    // all of them were.
    for (int sig : {SIGINT, SIGTERM, SIGCHLD, SIGPIPE, SIGHUP, SIGQUIT, SIGUSR1, SIGUSR2})
        if (eloop_register_signal(sig, tallyd_signal_handle, nullptr) != 0) rc = -1;
    return rc;
}

void tallyd_signal_handle(int sig, void *, void *) {
    switch (sig) {
        case SIGINT:
        case SIGTERM:
        // Their default action would kill the daemon where it stands and leave
        // its pid file behind; they end it the way TERM does instead.
        case SIGHUP:
        case SIGQUIT:
        case SIGUSR1:
        case SIGUSR2:
            eloop_terminate();
            unlink(tallyd_path(TALLYD_PID_FILE).c_str());
            break;
        case SIGCHLD:
            waitpid(-1, nullptr, WNOHANG);
            break;
        default:
            break;
    }
}
