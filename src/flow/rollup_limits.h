// Row limits of the rollups, chosen by the hardware platform class.
//
// Classes 1 to 3 are the larger controllers; anything else (0 when the
// platform is unknown) gets the small default, so a rollup on an unknown box
// is bounded by the smallest limits.
#pragma once

#include <cstdint>

#include "base/sys_info.h"

// The limit of the current platform class out of one row of limits.
inline int32_t rollup_class_limit(int32_t class1, int32_t class2, int32_t class3, int32_t other) {
    switch (tallyd_sys_info.platform_class) {
        case 1:
            return class1;
        case 2:
            return class2;
        case 3:
            return class3;
        default:
            return other;
    }
}
