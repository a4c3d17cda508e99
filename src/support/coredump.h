// Kernel core-dump settings for the controller's daemons.
//
// The same settings serve every daemon of the controller whose name begins
// with one of apkeep, clikeep, portald, vexd, pollstatd, tallyd or rpushc.
// The platform comes from the PLATFORM environment variable or else from the
// first PLATFORM... line of /etc/ac_env_init; a vxa8810 whose hardware file
// /proc/zvt_hw_info/platform says VX8810R is the vxa8810lr. For a known
// platform the core size limit is raised and the kernel's core_pattern and
// core_uses_pid are written; anything else changes nothing. Every file is
// taken under the root prefix; the pattern written is the device's own path.
#pragma once

#include <string_view>

// Applies the settings for name (a name or a path: only the part after the
// last '/' counts). Write failures are ignored.
void coredump_init(std::string_view name);
