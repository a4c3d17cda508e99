#include "entity/entity_wire.h"

namespace entity_wire {

std::vector<uint8_t> build_set_hostname(std::string_view mac, std::string_view name) {
    std::vector<uint8_t> m(kHostnameNameOffset + name.size() + 1, 0);
    wire_put_text(m, kHostnameMac, mac);
    wire_text_put(m.data() + kHostnameNameOffset, name.size() + 1, name);
    return m;
}

std::vector<uint8_t> build_arc(uint32_t value) {
    std::vector<uint8_t> m(kArcValue.offset + 4u, 0);
    wire_put_num(m, kArcValue, value);
    return m;
}

std::vector<uint8_t> build_stat_0a(const std::vector<std::pair<std::string, uint32_t>> &records) {
    std::vector<uint8_t> m(kStat0aFirstRecord + kStat0aRecordSize * records.size(), 0);
    wire_put_num(m, kStat0aCount, records.size());
    std::span<uint8_t> rec(m.data() + kStat0aFirstRecord, m.size() - kStat0aFirstRecord);
    for (const auto &[mac, value] : records) {
        wire_put_text(rec, kStat0aApMac, mac);
        wire_put_num(rec, kStat0aValue, value);
        rec = rec.subspan(kStat0aRecordSize);
    }
    return m;
}

}  // namespace entity_wire
