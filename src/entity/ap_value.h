// The per-AP value table: 2048 unsigned 32-bit slots indexed by AP id modulo
// 2048, refilled from scratch by every per-AP value message of the controller.
// Nothing in the daemon reads it; it is kept because the controller sends it.
#pragma once

#include <cstdint>

inline constexpr int32_t TALLYD_AP_VALUE_SLOTS = 2048;

// Zeroes every slot.
void tallyd_ap_value_clear();

// Maps ap_mac through the AP dictionary (creating its id when new) and stores
// value in its slot; later values overwrite earlier ones of the same slot.
// 0, or -1 when the mapping fails (the caller stops the message there).
int tallyd_ap_value_set(const char *ap_mac, uint32_t value);

// Slot i (0 outside the table).
uint32_t tallyd_ap_value_get(int32_t slot);
