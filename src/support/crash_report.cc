#include "support/crash_report.h"

#include <dlfcn.h>
#include <execinfo.h>
#include <unistd.h>

#include <cinttypes>
#include <cstdint>
#include <ctime>

#include "base/clock.h"
#include "support/crash_machine.h"

namespace {

// Hex digits of an address or a stack word: 8 on the controller.
constexpr int kDigits = 2 * sizeof(uintptr_t);

constexpr uintptr_t kPageMask = ~uintptr_t{4095};

// Return addresses found beyond the signal frame: the unwinder walks from
// here through the handler and the kernel's signal trampoline into the code
// that faulted; what follows the faulting pc in that walk are its callers.
int stack_callers(uintptr_t pc, uintptr_t *out, int max) {
    void *walk[64];
    int n = backtrace(walk, 64);
    int i = 0;
    while (i < n && reinterpret_cast<uintptr_t>(walk[i]) != pc) ++i;
    int count = 0;
    for (++i; i < n && count < max; ++i) out[count++] = reinterpret_cast<uintptr_t>(walk[i]);
    return count;
}

// The faulting pc, the return-address register, then the callers found
// through the stack; the walk ends at the first address that no loaded
// object holds.
void write_backtrace(FILE *out, const crash_machine &m) {
    uintptr_t frames[CRASH_BACKTRACE_MAX];
    int n = 0;
    frames[n++] = m.pc;
    if (m.has_ra) frames[n++] = m.ra;
    n += stack_callers(m.pc, frames + n, CRASH_BACKTRACE_MAX - n);

    std::fputs("# Stack backtrace:\n", out);
    for (int i = 0; i < n; ++i) {
        Dl_info where;
        if (dladdr(reinterpret_cast<void *>(frames[i]), &where) == 0) break;
        std::fprintf(out, "# %2d: %0*" PRIxPTR, i + 1, kDigits, frames[i]);
        if (where.dli_sname)
            std::fprintf(out, " <%s+0x%" PRIxPTR ">", where.dli_sname,
                         frames[i] - reinterpret_cast<uintptr_t>(where.dli_saddr));
        if (where.dli_fname)
            std::fprintf(out, "  (%s)\n", where.dli_fname);
        else
            std::fputs("\n", out);
    }
    std::fputs("# End of stack backtrace\n", out);
}

// Words 100 above to 16 below the stack pointer, as far as they lie in its
// page: that page is mapped, its neighbours may not be. The words belong to
// frames the sanitizer may have poisoned, so this read is not instrumented.
__attribute__((no_sanitize("address"))) void write_stack(FILE *out, uintptr_t sp) {
    std::fprintf(out, "# Stack (%p):", reinterpret_cast<void *>(sp));
    for (int i = 100; i >= -16; --i) {
        uintptr_t addr = sp + static_cast<uintptr_t>(i) * sizeof(uintptr_t);
        if ((addr & kPageMask) != (sp & kPageMask)) continue;
        if (i % 4 == 0) std::fprintf(out, "\n#  %p:", reinterpret_cast<void *>(addr));
        std::fprintf(out, " %0*" PRIxPTR, kDigits, *reinterpret_cast<const uintptr_t *>(addr));
    }
    std::fputs("\n#\n", out);
}

// si_code texts: only the first three codes have one.
const char *cause_text(int code) {
    static constexpr const char *kCauses[] = {"Unknown", "Addr map error",
                                              "Access privilege error"};
    return code >= 0 && code < 3 ? kCauses[code] : kCauses[0];
}

void write_information(FILE *out, int sig, const siginfo_t *info) {
    std::fputs("# Crash Information:\n", out);
    std::fprintf(out, "#   Signal # = %d\n", sig);
    std::fprintf(out, "#   Error #  = %d\n", info->si_errno);
    std::fprintf(out, "#   Cause code = %d (%s)\n", info->si_code, cause_text(info->si_code));
    std::fprintf(out, "#   Attempt to access addr = %p\n", info->si_addr);
}

void write_registers(FILE *out, const crash_machine &m) {
    std::fputs("# General Registers: \n", out);
    for (size_t i = 0; i < m.reg_count; ++i) {
        if (i % 4 == 0) std::fputs("\n#  ", out);
        std::fprintf(out, " %02zu(%s)=0x%0*" PRIxPTR, i, m.regs[i].name, kDigits, m.regs[i].value);
    }
    std::fprintf(out, "\n# (%s)=0x%08llx (%s)=0x%08llx\n", m.last_names[0], m.last[0],
                 m.last_names[1], m.last[1]);
    std::fputs("# End of Crash dump\n", out);
}

}  // namespace

void crash_report_write(FILE *out, const char *name, int count, int sig, const siginfo_t *info,
                        const crash_machine &m) {
    time_t now = tallyd_now();
    std::fprintf(out, "# %s, crashed at %s, cnt=%d", name, std::ctime(&now), count);
    write_backtrace(out, m);
    write_stack(out, m.sp);
    std::fflush(out);
    fsync(fileno(out));
    write_information(out, sig, info);
    write_registers(out, m);
}
