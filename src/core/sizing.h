// The daemon's settings record at start-up: cleared, then sized by the
// hardware platform.
//
// The platform name comes from /proc/zvt_hw_info/platform (under the root
// prefix). Only the first seven bytes count, compared without regard to
// case: "vxa8810lr" is a vxa8810. An unknown or missing platform gets the
// smallest limits.
#pragma once

#include "base/sys_info.h"

// Clears the request, dictionary and size fields (platform_row_limit and the
// qpx flag keep their values), then loads the ARC setting from the
// configuration repository.
void tallyd_init_sys_info(tallyd_sys_info_t *info);

// Sets the platform class, both database size limits, platform_row_limit and
// the dictionary capacities, without printing (tools size themselves as the
// daemon would).
void tallyd_size_for_platform(tallyd_sys_info_t *info);

// tallyd_size_for_platform, then prints "Database file max is %dMB\n" on
// standard output. Returns printf's result.
int tallyd_set_platform_limits(tallyd_sys_info_t *info);
