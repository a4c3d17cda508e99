#include "events/events_wire.h"

#include <algorithm>
#include <cstring>

namespace events_wire {

namespace {

int32_t i32(std::span<const uint8_t> b, const wire_field &f) {
    return static_cast<int32_t>(wire_get_num(b, f));
}

std::vector<uint8_t> with_tail_text(size_t off, std::string_view text) {
    std::vector<uint8_t> m(off + text.size() + 1, 0);
    wire_text_put(m.data() + off, text.size() + 1, text);
    return m;
}

}  // namespace

ap_add read_ap_add(std::span<const uint8_t> msg) {
    return {wire_get_text(msg, kApAddMac),
            wire_get_text(msg, kApAddModel),
            i32(msg, kApAddGroup),
            i32(msg, kApAddRadios),
            {i32(msg, kApAddWlanGroup0), i32(msg, kApAddWlanGroup1)}};
}

ap_wlan_update read_ap_wlan_update(std::span<const uint8_t> msg) {
    return {wire_get_text(msg, kApWlanMac),
            i32(msg, kApWlanRadios),
            {i32(msg, kApWlanGroup0), i32(msg, kApWlanGroup1)},
            i32(msg, kApWlanApGroup)};
}

apgroup_update read_apgroup_update(std::span<const uint8_t> msg) {
    return {i32(msg, kApGroupAction),
            {i32(msg, kApGroupWlanGroup0), i32(msg, kApGroupWlanGroup1)},
            i32(msg, kApGroupId)};
}

wlan_group_update read_wlan_group_update(std::span<const uint8_t> msg) {
    return {i32(msg, kWlanGroupAction), i32(msg, kWlanGroupWlan),
            wire_get_text(msg, kWlanGroupName), i32(msg, kWlanGroupId)};
}

std::string_view read_tail_mac(std::span<const uint8_t> msg) {
    return wire_text(msg, kApDelMacOffset, msg.size());
}

station read_station(std::span<const uint8_t> rec) {
    station s;
    s.client_mac = wire_get_text(rec, kStaClientMac);
    be32_put(s.ip, static_cast<uint32_t>(wire_get_num(rec, kStaIp)));
    std::span<const uint8_t> ip6 = wire_get_bytes(rec, kStaIp6);
    std::copy(ip6.begin(), ip6.end(), s.ip6);
    s.ap_mac = wire_get_text(rec, kStaApMac);
    s.device = wire_get_text(rec, kStaDevice);
    s.host_name = wire_get_text(rec, kStaHostName);
    s.ssid = wire_get_text(rec, kStaSsid);
    s.vlan = static_cast<uint16_t>(wire_get_num(rec, kStaVlan));
    s.auth_type = wire_get_text(rec, kStaAuthType);
    s.radio = static_cast<uint8_t>(wire_get_num(rec, kStaRadio));
    s.user_name = wire_get_text(rec, kStaUserName);
    s.apgroup = static_cast<uint16_t>(wire_get_num(rec, kStaApGroup));
    s.wlangroup = static_cast<uint16_t>(wire_get_num(rec, kStaWlanGroup));
    s.rx_pkts = wire_get_num(rec, kStaRxPkts);
    s.tx_pkts = wire_get_num(rec, kStaTxPkts);
    s.rx_bytes = wire_get_num(rec, kStaRxBytes);
    s.tx_bytes = wire_get_num(rec, kStaTxBytes);
    s.rssi = static_cast<int8_t>(wire_get_num(rec, kStaRssi));
    s.channel = static_cast<uint8_t>(wire_get_num(rec, kStaChannel));
    return s;
}

uint32_t read_batch_time(std::span<const uint8_t> msg) {
    return static_cast<uint32_t>(wire_get_num(msg, kBatchTime));
}

int32_t read_batch_count(std::span<const uint8_t> msg) {
    return i32(msg, kBatchCount);
}

std::span<const uint8_t> batch_record(std::span<const uint8_t> msg, size_t i) {
    size_t off = batch_size(i);
    if (off >= msg.size()) return {};
    return msg.subspan(off, std::min(kStationSize, msg.size() - off));
}

std::vector<uint8_t> build_ap_add(const ap_add &m) {
    std::vector<uint8_t> b(kApAddSize, 0);
    wire_put_text(b, kApAddMac, m.mac);
    wire_put_text(b, kApAddModel, m.model);
    wire_put_num(b, kApAddGroup, static_cast<uint32_t>(m.apgroup));
    wire_put_num(b, kApAddRadios, static_cast<uint32_t>(m.radios));
    wire_put_num(b, kApAddWlanGroup0, static_cast<uint32_t>(m.wlangroup[0]));
    wire_put_num(b, kApAddWlanGroup1, static_cast<uint32_t>(m.wlangroup[1]));
    return b;
}

std::vector<uint8_t> build_ap_del(std::string_view mac) {
    return with_tail_text(kApDelMacOffset, mac);
}

std::vector<uint8_t> build_ap_wlan_update(const ap_wlan_update &m) {
    std::vector<uint8_t> b(kApWlanSize, 0);
    wire_put_text(b, kApWlanMac, m.mac);
    wire_put_num(b, kApWlanRadios, static_cast<uint32_t>(m.radios));
    wire_put_num(b, kApWlanGroup0, static_cast<uint32_t>(m.wlangroup[0]));
    wire_put_num(b, kApWlanGroup1, static_cast<uint32_t>(m.wlangroup[1]));
    wire_put_num(b, kApWlanApGroup, static_cast<uint32_t>(m.apgroup));
    return b;
}

std::vector<uint8_t> build_apgroup_update(const apgroup_update &m) {
    std::vector<uint8_t> b(kApGroupSize, 0);
    wire_put_num(b, kApGroupAction, static_cast<uint32_t>(m.action));
    wire_put_num(b, kApGroupWlanGroup0, static_cast<uint32_t>(m.wlangroup[0]));
    wire_put_num(b, kApGroupWlanGroup1, static_cast<uint32_t>(m.wlangroup[1]));
    wire_put_num(b, kApGroupId, static_cast<uint32_t>(m.apgroup));
    return b;
}

std::vector<uint8_t> build_wlan_group_update(const wlan_group_update &m) {
    std::vector<uint8_t> b(kWlanGroupSize, 0);
    wire_put_num(b, kWlanGroupAction, static_cast<uint32_t>(m.action));
    wire_put_num(b, kWlanGroupWlan, static_cast<uint32_t>(m.wlan));
    wire_put_text(b, kWlanGroupName, m.name);
    wire_put_num(b, kWlanGroupId, static_cast<uint32_t>(m.wlangroup));
    return b;
}

std::vector<uint8_t> build_sta_active(std::string_view mac) {
    return with_tail_text(kStaActiveMacOffset, mac);
}

void put_station(std::span<uint8_t> rec, const station &s) {
    std::fill_n(rec.begin(), std::min(rec.size(), kStationSize), uint8_t{0});
    wire_put_text(rec, kStaClientMac, s.client_mac);
    wire_put_num(rec, kStaIp, be32_get(s.ip));
    wire_put_bytes(rec, kStaIp6, s.ip6);
    wire_put_text(rec, kStaApMac, s.ap_mac);
    wire_put_text(rec, kStaDevice, s.device);
    wire_put_text(rec, kStaHostName, s.host_name);
    wire_put_text(rec, kStaSsid, s.ssid);
    wire_put_num(rec, kStaVlan, s.vlan);
    wire_put_text(rec, kStaAuthType, s.auth_type);
    wire_put_num(rec, kStaRadio, s.radio);
    wire_put_text(rec, kStaUserName, s.user_name);
    wire_put_num(rec, kStaApGroup, s.apgroup);
    wire_put_num(rec, kStaWlanGroup, s.wlangroup);
    wire_put_num(rec, kStaRxPkts, s.rx_pkts);
    wire_put_num(rec, kStaTxPkts, s.tx_pkts);
    wire_put_num(rec, kStaRxBytes, s.rx_bytes);
    wire_put_num(rec, kStaTxBytes, s.tx_bytes);
    wire_put_num(rec, kStaRssi, static_cast<uint8_t>(s.rssi));
    wire_put_num(rec, kStaChannel, s.channel);
}

std::vector<uint8_t> build_sta_add(const station &s) {
    std::vector<uint8_t> b(kStaAddSize, 0);
    put_station(std::span<uint8_t>(b).subspan(kStaAddRecordOffset), s);
    return b;
}

std::vector<uint8_t> build_client_stats(uint32_t time, std::span<const station> stations) {
    std::vector<uint8_t> b(batch_size(stations.size()), 0);
    wire_put_num(b, kBatchTime, time);
    wire_put_num(b, kBatchCount, static_cast<uint32_t>(stations.size()));
    for (size_t i = 0; i < stations.size(); ++i)
        put_station(std::span<uint8_t>(b).subspan(batch_size(i), kStationSize), stations[i]);
    return b;
}

}  // namespace events_wire
