#include "support/crash_machine.h"

#include <ucontext.h>

namespace {

#if defined(__mips__)

// Numbered as the hardware numbers them; mcontext keeps each in a 64-bit slot
// even on o32, of which a 32-bit processor uses the low half.
constexpr const char *kNames[32] = {
    "R0  ", "AT  ", "V0  ", "V1  ", "A0  ", "A1  ", "A2  ", "A3  ", "T0  ", "T1  ", "T2  ",
    "T3  ", "T4  ", "T5  ", "T6  ", "T7  ", "S0  ", "S1  ", "S2  ", "S3  ", "S4  ", "S5  ",
    "S6  ", "S7  ", "T8  ", "T9  ", "K0  ", "K1  ", "GP  ", "SP  ", "S8  ", "RA  ",
};

void read_context(const mcontext_t &mc, crash_machine *m) {
    m->pc = static_cast<uintptr_t>(mc.pc);
    m->sp = static_cast<uintptr_t>(mc.gregs[29]);
    m->has_ra = true;
    m->ra = static_cast<uintptr_t>(mc.gregs[31]);
    for (size_t i = 0; i < 32; ++i) m->regs[i] = {kNames[i], static_cast<uintptr_t>(mc.gregs[i])};
    m->reg_count = 32;
    m->last_names[0] = "MDLO";
    m->last_names[1] = "MDHI";
    m->last[0] = mc.mdlo;
    m->last[1] = mc.mdhi;
}

#elif defined(__x86_64__)

struct reg_slot {
    const char *name;
    int greg;  // index into mcontext gregs
};

// Encoding order, so that the number shown is the register's own number.
constexpr reg_slot kRegs[] = {
    {"RAX ", REG_RAX}, {"RCX ", REG_RCX}, {"RDX ", REG_RDX}, {"RBX ", REG_RBX}, {"RSP ", REG_RSP},
    {"RBP ", REG_RBP}, {"RSI ", REG_RSI}, {"RDI ", REG_RDI}, {"R8  ", REG_R8},  {"R9  ", REG_R9},
    {"R10 ", REG_R10}, {"R11 ", REG_R11}, {"R12 ", REG_R12}, {"R13 ", REG_R13}, {"R14 ", REG_R14},
    {"R15 ", REG_R15}, {"RIP ", REG_RIP},
};

void read_context(const mcontext_t &mc, crash_machine *m) {
    m->pc = static_cast<uintptr_t>(mc.gregs[REG_RIP]);
    m->sp = static_cast<uintptr_t>(mc.gregs[REG_RSP]);
    m->has_ra = false;
    m->ra = 0;
    m->reg_count = 0;
    for (const reg_slot &r : kRegs)
        m->regs[m->reg_count++] = {r.name, static_cast<uintptr_t>(mc.gregs[r.greg])};
    m->last_names[0] = "EFL";
    m->last_names[1] = "ERR";
    m->last[0] = static_cast<unsigned long long>(mc.gregs[REG_EFL]);
    m->last[1] = static_cast<unsigned long long>(mc.gregs[REG_ERR]);
}

#else
#error "crash reports: no register table for this processor"
#endif

}  // namespace

void crash_machine_read(const void *ucontext, crash_machine *out) {
    read_context(static_cast<const ucontext_t *>(ucontext)->uc_mcontext, out);
}
