// The ARC (application recognition) switch.
//
// A flag in tallyd_sys_info (qpx_push: 1 enabled, 0 disabled), loaded from the
// repository list "system" at start and replaced by the controller's switch
// message. Switching off removes the ARC data files from /tmp/tallyd at once.
#pragma once

#include <cstdint>

#include "base/sys_info.h"

// Start-up: the flag is 1 only when "system" has internal/arc-app-enable
// (default true) and qpx/qpxpushenabled (default false) both true; a missing
// list gives 0.
void tallyd_load_arc_from_xml(tallyd_sys_info_t *info);

// The switch message: 0 clears the flag and removes the ARC files, any other
// value sets it. The debug trace says "enabled" only for exactly 1; other
// non-zero values enable the flag but are traced as "disabled" (the trace
// compares with 1, the flag with 0).
void tallyd_arc_switch(uint32_t value);

// Removes every entry of /tmp/tallyd whose name contains "arc" anywhere (a
// database file whose name holds those letters included). A missing
// directory is ignored.
void tallyd_del_arc_files();
