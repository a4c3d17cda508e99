#include "support/crashdump.h"

#include <err.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <csignal>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>

#include "base/file.h"
#include "base/path.h"
#include "support/coredump.h"
#include "support/crash_machine.h"
#include "support/crash_report.h"
#include "support/dump_rotate.h"
#include "support/proc_name.h"

namespace {

constexpr std::string_view kUnixSocketTable = "/proc/net/unix_zvt";
constexpr int kDumpOpenFailed = 37;
// A process that has written this many reports gets the default actions
// back before it writes another.
constexpr int kMaxReports = 3;

struct crash_signal {
    int sig;
    const char *install_failed;
    const char *restore_failed;
};

// Installed in this order; the SIGFPE restore text reads as it always has.
constexpr crash_signal kCrashSignals[] = {
    {SIGSEGV, "sigaction SIGSEGV", "sigaction SIGSEGV SIG_DFL"},
    {SIGFPE, "sigaction SIGFPE", "sigaction SIGFPE SIG_DEF"},
    {SIGPIPE, "sigaction SIGPIPE", "sigaction SIGPIPE SIG_DFL"},
    {SIGBUS, "sigaction SIGBUS", "sigaction SIGBUS SIG_DFL"},
};

// The process-wide state the handler works from. Everything the handler
// needs is formed at start-up, so that it need not build paths after a crash.
struct crashdump_state {
    char name[100];
    char path[PATH_MAX];          // the report file; empty: standard error
    char unix_sockets[PATH_MAX];  // root-prefixed /proc/net/unix_zvt
    int count;                    // reports written by this process
    crashdump_usrcb_fn usrcb;
};

crashdump_state g_crash = {"unknown", "", "", 0, nullptr};

void restore_default_actions() {
    struct sigaction dfl = {};
    dfl.sa_handler = SIG_DFL;
    for (const crash_signal &s : kCrashSignals)
        if (sigaction(s.sig, &dfl, nullptr) != 0) perror(s.restore_failed);
}

// The commands are formed in 256-byte buffers; one that does not fit is not
// run, since a path cut short could name any file.
__attribute__((format(printf, 1, 2))) void run_shell(const char *fmt, ...) {
    char cmd[256];
    va_list args;
    va_start(args, fmt);
    int n = std::vsnprintf(cmd, sizeof cmd, fmt, args);
    va_end(args);
    if (n < 0 || n >= static_cast<int>(sizeof cmd)) return;
    int status = std::system(cmd);
    (void)status;  // a crashing process has no use for it
}

// The companion file: when the crash was, and who held which Unix socket.
void write_companion() {
    run_shell("date > %s.unix_zvt", g_crash.path);
    run_shell("cat %s >> %s.unix_zvt", g_crash.unix_sockets, g_crash.path);
}

// The crash handler. The crashing process is about to end, so it uses stdio
// and the shell regardless of what a signal handler may safely call; the
// crash signals are blocked while it runs.
void crashdump_sig_handler(int sig, siginfo_t *info, void *ucontext) {
    if (g_crash.count >= kMaxReports) restore_default_actions();

    tallyd_file file;
    FILE *out = stderr;
    if (g_crash.path[0] != '\0') {
        std::printf("Creating dumpfile: %s\n", g_crash.path);
        std::fflush(stdout);
        file.reset(std::fopen(g_crash.path, "a"));
        if (!file) err(kDumpOpenFailed, "Could not open dump file %s ", g_crash.path);
        out = file.get();
    }

    crash_machine machine;
    crash_machine_read(ucontext, &machine);
    crash_report_write(out, g_crash.name, g_crash.count++, sig, info, machine);
    std::fflush(out);
    fsync(fileno(out));
    file.reset();

    if (g_crash.usrcb) g_crash.usrcb();
    if (g_crash.path[0] != '\0') write_companion();
    std::exit(-1);
}

void install_handlers() {
    struct sigaction sa = {};
    sa.sa_sigaction = crashdump_sig_handler;
    sa.sa_flags = SA_SIGINFO;
    sigemptyset(&sa.sa_mask);
    for (int sig : {SIGINT, SIGQUIT, SIGFPE, SIGBUS, SIGSEGV, SIGPIPE}) sigaddset(&sa.sa_mask, sig);
    for (const crash_signal &s : kCrashSignals) {
        if (sigaction(s.sig, &sa, nullptr) != 0) {
            perror(s.install_failed);
            return;
        }
    }
}

}  // namespace

int crashdump_path(char *buf, size_t size, std::string_view name) {
    const std::string dir = tallyd_path(CRASHDUMP_DIR);
    return std::snprintf(buf, size, "%s/%.*s.dump", dir.c_str(), static_cast<int>(name.size()),
                         name.data());
}

void crashdump_init(std::string_view name) {
    std::string_view base = proc_base_name(name);
    std::snprintf(g_crash.name, sizeof g_crash.name, "%.*s", static_cast<int>(base.size()),
                  base.data());

    if (mkdir(tallyd_path(CRASHDUMP_DIR).c_str(), 0777) != 0 && errno != EEXIST) {
        perror("mkdir failed");
        std::exit(-1);
    }
    crashdump_path(g_crash.path, sizeof g_crash.path, g_crash.name);
    tallyd_path_buf(g_crash.unix_sockets, sizeof g_crash.unix_sockets, kUnixSocketTable);
    if (file_exists(g_crash.path)) inc_dumpfile_ext(g_crash.path, 1, CRASHDUMP_ROTATE_LIMIT);

    coredump_init(name);
    install_handlers();
}

void crashdump_register_usrcb(crashdump_usrcb_fn usrcb) {
    std::printf("%s registers crashdump usrcb\n", g_crash.name);
    g_crash.usrcb = usrcb;
}
