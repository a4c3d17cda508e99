// The bucket stamps of the hour and day tasks.
//
// Consecutive runs stamp their rows exactly one period apart while the timer
// keeps time; a stamp that has drifted from the clock by the tolerance or
// more (a late timer, a clock step) is reset to the clock.
#pragma once

#include <cstdint>

// now on the first run (previous 0), else previous + period; now instead when
// that lies `drift` seconds or more from now in either direction (32-bit
// signed difference).
inline uint32_t rollup_next_stamp(uint32_t previous, uint32_t now, uint32_t period, int32_t drift) {
    const uint32_t stamp = previous == 0 ? now : previous + period;
    const int32_t off = static_cast<int32_t>(stamp - now);
    return off >= drift || off <= -drift ? now : stamp;
}
