// The processor's share of a crash report: where the fault happened and the
// general registers at that moment, read from the machine context that a
// SA_SIGINFO handler receives.
//
// This is the one place that knows a processor. On the controller (32-bit
// MIPS) the registers are the 32 general registers under their assembler
// names, the return-address register is RA, and the last line of the report
// carries the multiply/divide registers MDLO and MDHI. On an x86-64 build the
// registers are the sixteen general registers in their encoding order (RAX,
// RCX, RDX, RBX, RSP, RBP, RSI, RDI, R8 to R15) followed by RIP as number 16;
// there is no return-address register (the return address lives on the
// stack), and, x86-64 having no multiply/divide registers, the last line
// carries the flags (EFL) and the fault's error code (ERR: for a page fault
// the bits saying whether it was a write, from user mode, to a present page).
#pragma once

#include <cstddef>
#include <cstdint>

struct crash_register {
    const char *name;  // padded to four characters, as the report shows it
    uintptr_t value;
};

struct crash_machine {
    uintptr_t pc;  // the faulting instruction
    uintptr_t sp;
    bool has_ra;   // false where the processor has no return-address register
    uintptr_t ra;  // that register, when has_ra
    crash_register regs[32];
    size_t reg_count;
    const char *last_names[2];  // the two registers of the last line
    unsigned long long last[2];
};

// Fills *out from ucontext, the third argument of a SA_SIGINFO handler.
void crash_machine_read(const void *ucontext, crash_machine *out);
