#include "eloop/eloop.h"

#include <fcntl.h>
#include <sys/select.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "base/clock.h"

namespace {

struct eloop_sock {
    int sock;
    void *eloop_data;
    void *user_data;
    eloop_sock_handler handler;
};

struct eloop_timeout {
    eloop_time time;
    void *eloop_data;
    void *user_data;
    eloop_timeout_handler handler;
    eloop_timeout *next;
};

struct eloop_signal {
    int sig;
    void *user_data;
    eloop_signal_handler handler;
};

// The loop's one record. The fields the catcher touches are volatile: the
// catcher may interrupt the loop anywhere between two of its statements.
struct eloop_data {
    void *user_data;
    int32_t max_sock;
    int32_t reader_count;
    eloop_sock *readers;
    eloop_timeout *timeout;
    pid_t pid;
    uint32_t pass_count;
    int32_t signal_count;
    eloop_signal *signals;
    volatile sig_atomic_t signaled;
    volatile sig_atomic_t pending_terminate;
    int32_t terminate;
    int32_t reader_table_changed;
};

eloop_data eloop;

// Deliveries per signal number since the loop last looked. The catcher counts
// here rather than in the handler table: registration may move that table
// (realloc) at any moment the catcher could interrupt.
volatile sig_atomic_t signal_counts[NSIG];

// Self-pipe of the signal catcher. A signal that arrives after the loop has
// looked at its counters but before it sleeps in select would otherwise wait
// for the next timeout or datagram; the byte the catcher writes here wakes
// select at once. Opened once per process, never closed.
int wake_pipe[2] = {-1, -1};

void wake_pipe_open() {
    if (wake_pipe[0] >= 0) return;
    if (pipe2(wake_pipe, O_NONBLOCK | O_CLOEXEC) != 0) {
        wake_pipe[0] = wake_pipe[1] = -1;
    } else if (wake_pipe[0] >= FD_SETSIZE) {
        // Beyond what select() can watch: go without, as if pipe2 had failed.
        close(wake_pipe[0]);
        close(wake_pipe[1]);
        wake_pipe[0] = wake_pipe[1] = -1;
    }
}

void wake_pipe_drain() {
    char buf[64];
    if (wake_pipe[0] < 0) return;
    while (read(wake_pipe[0], buf, sizeof buf) > 0) {
    }
}

// Daemon monotonic time in 32-bit seconds, which wrap.
eloop_time now_time() {
    tallyd_timeval tv{};
    tallyd_monotonic(&tv);
    return {tv.sec, tv.usec};
}

// True when a is strictly later than b (seconds first, then microseconds).
bool time_later(const eloop_time &a, const eloop_time &b) {
    return a.sec != b.sec ? a.sec > b.sec : a.usec > b.usec;
}

int32_t add32(int32_t a, int32_t b) {
    return static_cast<int32_t>(static_cast<uint32_t>(a) + static_cast<uint32_t>(b));
}

// Installs catcher for sig. The catcher runs with no other signal blocked;
// calls it interrupts are restarted, except select, which returns EINTR.
int install(int sig, void (*catcher)(int)) {
    struct sigaction sa {};
    sa.sa_handler = catcher;
    sigemptyset(&sa.sa_mask);
    sa.sa_flags = SA_RESTART;
    return sigaction(sig, &sa, nullptr);
}

void alarm_catcher(int) {
    ssize_t ignored = write(STDERR_FILENO, ELOOP_ALARM_TEXT, sizeof ELOOP_ALARM_TEXT - 1);
    (void)ignored;
    // Only async-signal-safe calls here: _exit, not exit, which would run
    // atexit handlers and destructors from inside a signal.
    _exit(1);
}

void signal_catcher(int sig) {
    if ((sig == SIGINT || sig == SIGTERM) && !eloop.pending_terminate) {
        // A child forked by a handler inherits this catcher; it must not
        // start the parent's shutdown, it simply goes away.
        if (getpid() != eloop.pid) _exit(0);
        eloop.pending_terminate = 1;
        install(SIGALRM, alarm_catcher);
        alarm(2);
    }
    eloop.signaled = eloop.signaled + 1;
    if (sig > 0 && sig < NSIG) signal_counts[sig] = signal_counts[sig] + 1;
    int saved_errno = errno;
    if (wake_pipe[1] >= 0) {
        ssize_t ignored = write(wake_pipe[1], "s", 1);
        (void)ignored;
    }
    errno = saved_errno;
}

void process_pending_signals() {
    if (eloop.signaled == 0) return;
    eloop.signaled = 0;
    wake_pipe_drain();
    if (eloop.pending_terminate) {
        alarm(0);
        eloop.pending_terminate = 0;
    }
    // In table order; a signal registered twice runs its first entry only.
    for (int32_t i = 0; i < eloop.signal_count; ++i) {
        eloop_signal &s = eloop.signals[i];
        if (signal_counts[s.sig] == 0) continue;
        signal_counts[s.sig] = 0;
        s.handler(s.sig, eloop.user_data, s.user_data);
    }
}

// Fires the head of the list when it is due: at most one timeout per pass.
void fire_due_timeout() {
    if (!eloop.timeout) return;
    eloop_time now = now_time();
    eloop_timeout *head = eloop.timeout;
    if (time_later(head->time, now)) return;
    eloop.timeout = head->next;
    head->handler(head->eloop_data, head->user_data);
    free(head);
}

// Time until the head expires (zero when due), converted to a real wait.
timeval head_wait() {
    eloop_time now = now_time();
    const eloop_time &t = eloop.timeout->time;
    tallyd_timeval w{0, 0};
    if (time_later(t, now)) {
        w.sec = add32(t.sec, -now.sec);
        w.usec = t.usec - now.usec;
        if (w.usec < 0) {
            w.sec--;
            w.usec += 1000000;
        }
    }
    tallyd_timeval real = tallyd_real_wait(w);
    return {real.sec, real.usec};
}

void serve_ready_sockets(const fd_set *rfds) {
    eloop.reader_table_changed = 0;
    for (int32_t i = 0; i < eloop.reader_count; ++i) {
        const eloop_sock &r = eloop.readers[i];
        if (!FD_ISSET(r.sock, rfds)) continue;
        r.handler(r.sock, r.eloop_data, r.user_data);
        // The handler may have grown or shrunk the table: the index and the
        // array itself can no longer be trusted for this pass.
        if (eloop.reader_table_changed) break;
    }
}

}  // namespace

void eloop_init(void *user_data) {
    std::memset(static_cast<void *>(&eloop), 0, sizeof eloop);
    for (volatile sig_atomic_t &n : signal_counts) n = 0;
    eloop.user_data = user_data;
    eloop.pid = getpid();
    wake_pipe_open();
}

int eloop_register_read_sock(int sock, eloop_sock_handler handler, void *eloop_data,
                             void *user_data) {
    // select() can watch only descriptors below FD_SETSIZE.
    if (sock < 0 || sock >= FD_SETSIZE) return -1;
    void *grown = realloc(eloop.readers, (eloop.reader_count + 1) * sizeof(eloop_sock));
    if (!grown) return -1;
    eloop.readers = static_cast<eloop_sock *>(grown);
    eloop.readers[eloop.reader_count] = {sock, eloop_data, user_data, handler};
    eloop.reader_count++;
    if (sock > eloop.max_sock) eloop.max_sock = sock;
    eloop.reader_table_changed = 1;
    return 0;
}

int eloop_unregister_read_sock(int sock) {
    if (!eloop.readers || eloop.reader_count == 0) return 0;
    int32_t i = 0;
    while (i < eloop.reader_count && eloop.readers[i].sock != sock) ++i;
    if (i == eloop.reader_count) return eloop.reader_count;
    std::memmove(&eloop.readers[i], &eloop.readers[i + 1],
                 (eloop.reader_count - i - 1) * sizeof(eloop_sock));
    eloop.reader_count--;
    eloop.reader_table_changed = 1;
    return 1;
}

int eloop_register_timeout(int32_t secs, int32_t usecs, eloop_timeout_handler handler,
                           void *eloop_data, void *user_data) {
    auto *t = static_cast<eloop_timeout *>(malloc(sizeof(eloop_timeout)));
    if (!t) return -1;
    t->time = now_time();
    t->time.sec = add32(t->time.sec, secs);
    t->time.usec = add32(t->time.usec, usecs);
    while (t->time.usec >= 1000000) {
        t->time.sec = add32(t->time.sec, 1);
        t->time.usec -= 1000000;
    }
    t->eloop_data = eloop_data;
    t->user_data = user_data;
    t->handler = handler;
    t->next = nullptr;

    // Equal expiries go after the ones already queued: registration order.
    eloop_timeout **link = &eloop.timeout;
    while (*link && !time_later((*link)->time, t->time)) link = &(*link)->next;
    t->next = *link;
    *link = t;
    return 0;
}

int eloop_cancel_timeout(eloop_timeout_handler handler, void *eloop_data, void *user_data) {
    int removed = 0;
    eloop_timeout **link = &eloop.timeout;
    while (*link) {
        eloop_timeout *t = *link;
        if (t->handler == handler && (t->eloop_data == eloop_data || eloop_data == ELOOP_ALL_CTX) &&
            (t->user_data == user_data || user_data == ELOOP_ALL_CTX)) {
            *link = t->next;
            free(t);
            ++removed;
        } else {
            link = &t->next;
        }
    }
    return removed;
}

int eloop_register_signal(int sig, eloop_signal_handler handler, void *user_data) {
    if (sig <= 0 || sig >= NSIG) return -1;
    void *grown = realloc(eloop.signals, (eloop.signal_count + 1) * sizeof(eloop_signal));
    if (!grown) return -1;
    eloop.signals = static_cast<eloop_signal *>(grown);
    eloop_signal &s = eloop.signals[eloop.signal_count];
    s.sig = sig;
    s.user_data = user_data;
    s.handler = handler;
    eloop.signal_count++;
    if (install(sig, signal_catcher) != 0) {
        eloop.signal_count--;
        return -1;
    }
    return 0;
}

void eloop_run() {
    // 1,024 descriptors, allocated once per run rather than once per pass.
    auto *rfds = static_cast<fd_set *>(malloc(sizeof(fd_set)));
    if (!rfds) {
        puts("eloop_run - malloc failed");
        return;
    }
    while (!eloop.terminate) {
        if (!eloop.timeout && eloop.reader_count < 1) break;
        timeval wait{};
        if (eloop.timeout) wait = head_wait();

        FD_ZERO(rfds);
        for (int32_t i = 0; i < eloop.reader_count; ++i) FD_SET(eloop.readers[i].sock, rfds);
        int nfds = eloop.max_sock + 1;
        if (wake_pipe[0] >= 0) {
            FD_SET(wake_pipe[0], rfds);
            if (wake_pipe[0] >= nfds) nfds = wake_pipe[0] + 1;
        }
        int res = select(nfds, rfds, nullptr, nullptr, eloop.timeout ? &wait : nullptr);
        if (res < 0 && errno != EINTR) {
            perror("select");
            free(rfds);
            return;
        }
        process_pending_signals();
        eloop.pass_count++;
        fire_due_timeout();
        if (res <= 0) continue;
        if (wake_pipe[0] >= 0 && FD_ISSET(wake_pipe[0], rfds)) wake_pipe_drain();
        serve_ready_sockets(rfds);
    }
    free(rfds);
}

void eloop_terminate() {
    eloop.terminate = 1;
}

int eloop_terminated() {
    return eloop.terminate;
}

uint32_t eloop_get_pass_count() {
    return eloop.pass_count;
}

void eloop_destroy() {
    while (eloop.timeout) {
        eloop_timeout *t = eloop.timeout;
        eloop.timeout = t->next;
        free(t);
    }
    eloop.reader_count = 0;
    free(eloop.readers);
    eloop.readers = nullptr;
    // The catchers stay installed: empty the table before freeing it.
    eloop.signal_count = 0;
    free(eloop.signals);
    eloop.signals = nullptr;
}

void eloop_get_time(eloop_time *t) {
    if (!t) return;
    *t = now_time();
}
