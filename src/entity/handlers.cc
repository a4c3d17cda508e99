#include "entity/handlers.h"

#include <algorithm>

#include "entity/ap_value.h"
#include "entity/arc.h"
#include "entity/entity_wire.h"
#include "entity/hostname.h"

using namespace entity_wire;

namespace {

// A zero-terminated copy of a text field (the field may lack its zero).
template <size_t N>
struct text_copy {
    char text[N + 1];
    text_copy(std::span<const uint8_t> b, size_t off, size_t width) {
        wire_text_copy(text, sizeof text, b, off, std::min(width, N));
    }
};

std::span<const uint8_t> tail(std::span<const uint8_t> b, size_t off) {
    return b.subspan(std::min(off, b.size()));
}

}  // namespace

void tallyd_handle_set_sta_hostname(std::span<const uint8_t> msg) {
    text_copy<kHostnameMac.width> mac(msg, kHostnameMac.offset, kHostnameMac.width);
    // The name runs to the end of the message; only its emptiness is used,
    // the trace shows its first 255 characters.
    text_copy<255> name(msg, kHostnameNameOffset, msg.size());
    tallyd_set_sta_hostname(mac.text, name.text);
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
        text_copy<kStat0aApMac.width> mac(rec, kStat0aApMac.offset, kStat0aApMac.width);
        if (tallyd_ap_value_set(mac.text, value) != 0) return;
    }
}
