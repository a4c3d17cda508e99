#include "entity/ap_value.h"

#include <cstring>

#include "entity/dict.h"

namespace {

uint32_t ap_values[TALLYD_AP_VALUE_SLOTS];

}  // namespace

void tallyd_ap_value_clear() {
    std::memset(ap_values, 0, sizeof ap_values);
}

int tallyd_ap_value_set(const char *ap_mac, uint32_t value) {
    int32_t id = tallyd_avp_ap_mapping(ap_mac);
    if (id == 0) return -1;
    // The slot is the remainder of the signed id. Only a negative id (from a
    // hand-edited repository) gives a negative remainder: that record is
    // dropped rather than written outside the table.
    int32_t slot = id % TALLYD_AP_VALUE_SLOTS;
    if (slot >= 0) ap_values[slot] = value;
    return 0;
}

uint32_t tallyd_ap_value_get(int32_t slot) {
    return slot >= 0 && slot < TALLYD_AP_VALUE_SLOTS ? ap_values[slot] : 0;
}
