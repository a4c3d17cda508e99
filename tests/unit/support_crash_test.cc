// Crash reports: child processes install the handler and fault for real.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <ucontext.h>
#include <unistd.h>

#include <csignal>
#include <ctime>
#include <filesystem>
#include <functional>
#include <regex>
#include <sstream>
#include <vector>

#include "base/path.h"
#include "support/crashdump.h"
#include "support/e2e_util.h"
#include "support/launch.h"
#include "support/test_root.h"

// The faults. Exported with C names (the test binary exports its symbols),
// so that the report's backtrace can be checked against them, and kept out
// of UBSan's reach: the point is that they really fault.
extern "C" {
__attribute__((noinline, no_sanitize("undefined"))) int crash_read_null() {
    int *volatile p = nullptr;
    return *p;
}
volatile char *g_target;  // a read-only page, or a shared map of an empty file
__attribute__((noinline)) int crash_write() {
    *g_target = 1;
    return 0;
}
// A real division: both operands volatile, or the compiler folds 1 / x.
__attribute__((noinline, no_sanitize("undefined"))) int crash_divide() {
    volatile int dividend = 7, divisor = 0;
    return dividend / divisor;
}
__attribute__((noinline)) int crash_caller(int (*fault)()) {
    int r = fault();
    asm volatile("" ::: "memory");  // no tail call: this frame stays
    return r + 1;
}
}

namespace {

constexpr int kDigits = 2 * sizeof(void *);
constexpr uintptr_t kPage = 4096;

// Runs after the report is closed: says whether it was complete by then.
void report_usrcb() {
    bool done =
        read_text(tallyd_path("/etc/corvane/dump/tallyd.dump")).ends_with("# End of Crash dump\n");
    std::printf("usrcb: report %s\n", done ? "complete" : "unfinished");
}

uintptr_t hex(const std::string &s) {
    return static_cast<uintptr_t>(std::stoull(s, nullptr, 16));
}

struct fault_case {
    const char *name;
    int (*fault)();
    void *target;  // what crash_write writes to
    int sig;
    int code;
    const char *cause;
};

class SupportCrash : public root_test {
   protected:
    void SetUp() override {
        root_test::SetUp();
        std::filesystem::create_directories(path("/etc/corvane"));
    }

    // Runs body in a child with standard output and error going to files;
    // returns the exit status (128 + signal when a signal ended it).
    int in_child(const std::function<void()> &body) {
        std::fflush(stdout);
        std::fflush(stderr);
        pid_t pid = fork();
        if (pid == 0) {
            if (!std::freopen(path("/child.out").c_str(), "w", stdout) ||
                !std::freopen(path("/child.err").c_str(), "w", stderr))
                _exit(100);
            body();
            _exit(0);
        }
        int st = 0;
        waitpid(pid, &st, 0);
        return WIFEXITED(st) ? WEXITSTATUS(st) : 128 + WTERMSIG(st);
    }

    // A start of the daemon's crash support under a path name, then a fault
    // on a stack that ends where an inaccessible page begins: the words above
    // the stack pointer run off its page, and reading them would fault.
    int crash(int (*fault)()) {
        return in_child([&] {
            crashdump_init("/usr/sbin/tallyd");
            crashdump_register_usrcb(report_usrcb);
            constexpr size_t kUsable = 32 * kPage;  // the handler runs here too
            char *stack = static_cast<char *>(mmap(nullptr, kUsable + kPage, PROT_READ | PROT_WRITE,
                                                   MAP_PRIVATE | MAP_ANONYMOUS, -1, 0));
            mprotect(stack + kUsable, kPage, PROT_NONE);
            static int (*s_fault)();
            s_fault = fault;
            ucontext_t here, top;
            getcontext(&top);
            // By name: stack_t's members come in another order on MIPS
            // (ss_size before ss_flags) than on x86-64.
            top.uc_stack.ss_sp = stack;
            top.uc_stack.ss_size = kUsable;
            top.uc_stack.ss_flags = 0;
            top.uc_link = &here;
            makecontext(
                &top, [] { crash_caller(s_fault); }, 0);
            swapcontext(&here, &top);
        });
    }

    // Checks one report section by section.
    void check_report(const std::string &report, const fault_case &f,
                      const std::string &cause) const {
        SCOPED_TRACE(report);
        std::istringstream in(report);
        std::string line;
        time_t t = kStartTime;
        std::string when = std::ctime(&t);  // ends the header line itself
        std::getline(in, line);
        EXPECT_EQ("# tallyd, crashed at " + when.substr(0, when.size() - 1), line);
        std::getline(in, line);
        EXPECT_EQ(", cnt=0# Stack backtrace:", line);

        // Backtrace: numbered frames, the fault, then its caller.
        const std::string hex_word = "[0-9a-f]{" + std::to_string(kDigits) + "}";
        std::regex frame("# +(\\d+): (" + hex_word + ")( <([^+>]+)\\+0x[0-9a-f]+>)?(  \\(.*\\))?");
        std::vector<std::string> symbols;
        uintptr_t pc = 0;
        std::smatch m;
        while (std::getline(in, line) && std::regex_match(line, m, frame)) {
            EXPECT_EQ(symbols.size() + 1, std::stoul(m[1]));
            if (symbols.empty()) pc = hex(m[2]);
            symbols.push_back(m[4]);
        }
        ASSERT_GE(symbols.size(), 2u);
        EXPECT_EQ(f.name, symbols[0]);
        EXPECT_EQ("crash_caller", symbols[1]);
        EXPECT_EQ("# End of stack backtrace", line);

        // Stack words of indices 100 to -16 on the stack pointer's page; rows
        // start at indices divisible by 4, words above the first share the
        // title line.
        std::getline(in, line);
        ASSERT_TRUE(std::regex_match(line, m, std::regex("# Stack \\((0x[0-9a-f]+)\\):(.*)")));
        uintptr_t sp = hex(m[1]);
        std::string words = m[2];
        while (std::getline(in, line) && line.starts_with("#  0x")) {
            uintptr_t row = hex(line.substr(3));
            EXPECT_EQ(0u, (row - sp) % (4 * sizeof(void *))) << line;
            words += line.substr(line.find(':') + 1);
        }
        std::string expected;
        for (int i = 100; i >= -16; --i)
            if ((sp + i * sizeof(void *)) / kPage == sp / kPage) expected += " " + hex_word;
        EXPECT_TRUE(std::regex_match(words, std::regex(expected)));
        EXPECT_EQ("#", line);

        // The address: what was touched, or for a division the instruction.
        std::ostringstream addr;
        if (f.fault == crash_read_null)
            addr << "(nil)";
        else
            addr << (f.target ? f.target : reinterpret_cast<void *>(pc));
        // qemu-user reports a SIGBUS one page past the address touched; the
        // kernel reports the address itself.
        if (f.sig == SIGBUS && tallyd_test_emulated()) addr.str("");
        std::string info =
            "# Crash Information:\n#   " + cause + "#   Attempt to access addr = " + addr.str();
        std::string regs_start = "\n# General Registers: \n\n#   00(";
        if (addr.str().empty()) {
            EXPECT_NE(std::string::npos, report.find(info)) << info;
            EXPECT_NE(std::string::npos, report.find(regs_start));
        } else {
            EXPECT_NE(std::string::npos, report.find(info + regs_start)) << info;
        }

        // Registers numbered in order, the stack pointer's among them; then
        // the last line and the end.
        std::regex reg(" (\\d\\d)\\(([A-Z0-9 ]{4})\\)=0x(" + hex_word + ")");
        size_t regs = 0;
        bool saw_sp = false;
        for (auto it = std::sregex_iterator(report.begin(), report.end(), reg);
             it != std::sregex_iterator(); ++it, ++regs) {
            EXPECT_EQ(regs, std::stoul((*it)[1]));
            if ((*it)[2] == "SP  " || (*it)[2] == "RSP ") saw_sp = hex((*it)[3]) == sp;
        }
        EXPECT_TRUE(regs == 32 || regs == 17) << regs;
        EXPECT_TRUE(saw_sp);
        EXPECT_TRUE(std::regex_search(report, std::regex("\\n# \\((MDLO|EFL)\\)=0x[0-9a-f]{8,} "
                                                         "\\((MDHI|ERR)\\)=0x[0-9a-f]{8,}\\n"
                                                         "# End of Crash dump\\n$")));
    }

    const std::string dump_ = "/etc/corvane/dump/tallyd.dump";
};

TEST_F(SupportCrash, EachFaultLeavesAFullReportAndOlderOnesRotate) {
    void *ro = mmap(nullptr, kPage, PROT_READ, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
    write_file("/empty", "");
    int fd = open(path("/empty").c_str(), O_RDWR);
    void *bus = mmap(nullptr, kPage, PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    close(fd);
    ASSERT_NE(MAP_FAILED, ro);
    ASSERT_NE(MAP_FAILED, bus);
    write_file("/proc/net/unix_zvt", "Num RefCount Path\n");

    // si_code texts go by number only: FPE_INTDIV is 1, BUS_ADRERR 2.
    const fault_case faults[] = {
        {"crash_read_null", crash_read_null, nullptr, SIGSEGV, 1, "Addr map error"},
        {"crash_write", crash_write, ro, SIGSEGV, 2, "Access privilege error"},
        {"crash_divide", crash_divide, nullptr, SIGFPE, 1, "Addr map error"},
        {"crash_write", crash_write, bus, SIGBUS, 2, "Access privilege error"},
    };
    auto cause = [](const fault_case &f) {
        return "Signal # = " + std::to_string(f.sig) +
               "\n#   Error #  = 0\n#   Cause code = " + std::to_string(f.code) + " (" + f.cause +
               ")\n";
    };
    std::vector<const fault_case *> ran;
    for (const fault_case &f : faults) {
        SCOPED_TRACE(f.name);
        if (f.fault == crash_divide && tallyd_test_emulated()) {
            // MIPS divides do not trap; the compiler adds "teq divisor, zero, 7",
            // which the kernel turns into SIGFPE (FPE_INTDIV) and qemu-user
            // into SIGTRAP.
            std::printf(
                "note: the divide fault is skipped under the emulator (SIGTRAP, not "
                "SIGFPE)\n");
            continue;
        }
        ran.push_back(&f);
        g_target = static_cast<volatile char *>(f.target);
        EXPECT_EQ(255, crash(f.fault)) << read_file("/child.err");
        EXPECT_EQ("tallyd registers crashdump usrcb\nCreating dumpfile: " + path(dump_) +
                      "\nusrcb: report complete\n",
                  read_file("/child.out"));
        check_report(read_file(dump_), f, cause(f));
        // The companion file: the time from date, then the socket table.
        std::string companion = read_file(dump_ + ".unix_zvt");
        EXPECT_GT(companion.find('\n'), 10u) << companion;
        EXPECT_TRUE(companion.ends_with("\nNum RefCount Path\n")) << companion;
    }
    // Four crashes (three under the emulator): the newest report, then the
    // ones before it; the next overwrites the oldest copy once there are four.
    const size_t n = ran.size();
    for (size_t i = 0; i < n; ++i)
        EXPECT_NE(
            std::string::npos,
            read_file(i ? dump_ + "." + std::to_string(i) : dump_).find(cause(*ran[n - 1 - i])));
    EXPECT_EQ(255, crash(crash_read_null));
    EXPECT_NE(std::string::npos, read_file(dump_ + ".3").find(cause(*ran[n - 3])));
    EXPECT_FALSE(exists(dump_ + ".4"));
    munmap(ro, kPage);
    munmap(bus, kPage);

    // A kept copy that cannot be replaced ends the start: err() with 33.
    std::filesystem::remove(path(dump_ + ".3"));
    write_file(dump_ + ".3/inside", "x");
    EXPECT_EQ(33, in_child([] { crashdump_init("tallyd"); }));
    EXPECT_NE(std::string::npos,
              read_file("/child.err").find("inc_dumpfile_ext: Error while renaming"));
}

}  // namespace
