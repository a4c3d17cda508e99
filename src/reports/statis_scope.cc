#include "reports/statis_scope.h"

#include <algorithm>

#include "entity/dict.h"
#include "reports/statis_wire.h"

using namespace report_wire;

statis_scope tallyd_statis_scope_read(std::span<const uint8_t> msg, uint32_t now) {
    statis_scope s;
    s.period = static_cast<uint8_t>(wire_get_num(msg, kStatisPeriod));
    s.ssid_type = static_cast<uint8_t>(wire_get_num(msg, kStatisSsidType));
    s.ap_type = static_cast<uint8_t>(wire_get_num(msg, kStatisApType));
    s.apgroup_id = static_cast<int32_t>(wire_get_num(msg, kStatisApgroup));
    s.since = now - (s.period == kStatisDay ? 86400u : 3600u);
    wire_text_copy(s.ssid, sizeof s.ssid, msg, kStatisSsid.offset, kStatisSsid.width);
    s.ssid_id = tallyd_avp_ssid_lookup_name(s.ssid);
    const size_t count = std::min<size_t>(wire_get_num(msg, kStatisApCount), kStatisApListMax);
    for (size_t i = 0; i < count; ++i) {
        char mac[33];
        wire_text_copy(mac, sizeof mac, msg, kStatisApListOffset + i * kStatisApMac.width,
                       kStatisApMac.width);
        s.ap_ids.push_back(tallyd_avp_ap_lookup_name(mac));
    }
    return s;
}

void tallyd_statis_ap_list(report_query &q, const statis_scope &s) {
    for (size_t i = 0; i < s.ap_ids.size(); ++i)
        q.add(i ? " OR ap_id=%d" : "ap_id=%d", s.ap_ids[i]);
}

void tallyd_statis_condition(report_query &q, const statis_scope &s, bool with_ssid) {
    const bool ssid = with_ssid && s.ssid_type == kSsidOne;
    const unsigned long since = s.since;
    if (s.ap_type == kApTypeGroup) {
        if (ssid)
            q.add("apgroup_id=%d AND ssid_id=%d AND time>=%lu", s.apgroup_id, s.ssid_id, since);
        else
            q.add("apgroup_id=%d AND time>=%lu", s.apgroup_id, since);
    } else if (s.ap_type == kApTypeList) {
        if (ssid)
            q.add("ssid_id=%d AND time>=%lu AND (", s.ssid_id, since);
        else
            q.add("time>=%lu AND (", since);
        tallyd_statis_ap_list(q, s);
        q.add(")");
    } else if (ssid) {
        q.add("ssid_id=%d AND time>=%lu", s.ssid_id, since);
    } else {
        q.add("time>=%lu", since);
    }
}
