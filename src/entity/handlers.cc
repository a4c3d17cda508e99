#include "entity/handlers.h"

#include <algorithm>

#include "base/fixed_text.h"
#include "entity/ap_value.h"
#include "entity/arc.h"
#include "entity/dict.h"
#include "entity/entity_wire.h"
#include "entity/hostname.h"

using namespace entity_wire;

namespace {

std::span<const uint8_t> tail(std::span<const uint8_t> b, size_t off) {
    return b.subspan(std::min(off, b.size()));
}

}  // namespace

void tallyd_handle_set_sta_hostname(std::span<const uint8_t> msg) {
    fixed_text<kHostnameMac.width> mac(wire_get_text(msg, kHostnameMac));
    // The name runs to the end of the message; only its emptiness is used,
    // the trace shows its first 255 characters.
    fixed_text<255> name(wire_text(msg, kHostnameNameOffset, msg.size()));
    tallyd_set_sta_hostname(mac.c_str(), name.c_str());
}

void tallyd_handle_arc_qpx_interface(std::span<const uint8_t> msg) {
    tallyd_arc_switch(static_cast<uint32_t>(wire_get_num(msg, kArcValue)));
}

void tallyd_handle_stat_0a(std::span<const uint8_t> msg) {
    tallyd_ap_value_clear();
    const int32_t count = static_cast<int32_t>(wire_get_num(msg, kStat0aCount));
    // Records past the end of msg would read as all zeros (value 0: skipped),
    // so the walk can stop at the end of msg whatever the count says.
    size_t off = kStat0aFirstRecord;
    for (int32_t i = 0; i < count && off < msg.size(); ++i, off += kStat0aRecordSize) {
        std::span<const uint8_t> rec = tail(msg, off);
        uint32_t value = static_cast<uint32_t>(wire_get_num(rec, kStat0aValue));
        if (value == 0) continue;
        fixed_text<kStat0aApMac.width> mac(wire_get_text(rec, kStat0aApMac));
        if (tallyd_ap_value_set(mac.c_str(), value) != 0) break;
    }
    tallyd_dict_flush();  // the APs this message met, in one save
}
