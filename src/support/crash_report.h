// The text of one crash report, as the crash handler writes it.
//
// A report is, in this order: the header line with the process name, the
// time (ctime, which ends the line itself, so ", cnt=N" opens the next line)
// and the crash count; the backtrace; the stack words around the stack
// pointer; the crash information (signal, error number, cause code and the
// faulting address); the general registers; the end line.
//
// Addresses, stack words and register values are printed as the controller's
// 32-bit processor prints them with "%08x": as many hex digits as a pointer
// has. On a 64-bit build the field is therefore widened to 16 digits rather
// than cut to the low 32 bits, so that a printed address can still be looked
// up in the process's map; on the controller the text is exactly "%08x".
#pragma once

#include <signal.h>

#include <cstdio>

struct crash_machine;

// The backtrace holds at most this many frames.
inline constexpr int CRASH_BACKTRACE_MAX = 10;

// Writes the report to out. count is the crash count before this crash.
// Reads the stack page around m.sp, so it must run while that stack is
// still the one that faulted (inside the handler). Flushes and syncs out
// after the stack words, as a report cut short there still helps; the caller
// flushes and syncs the rest.
void crash_report_write(FILE *out, const char *name, int count, int sig, const siginfo_t *info,
                        const crash_machine &m);
