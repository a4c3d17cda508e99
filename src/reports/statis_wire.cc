#include "reports/statis_wire.h"

#include <algorithm>

namespace report_wire {

namespace {

constexpr field kByteFields[] = {{kByteKey, unit::text}, {kByteBytes, unit::bytes}};
constexpr field kCountFields[] = {{kCountKey, unit::text}, {kCountClients, unit::count}};
constexpr field kDeviceFields[] = {{kDeviceName, unit::text}, {kDeviceClients, unit::count}};

constexpr array kByteRecords{"bytes", 8, 50, 40, kByteFields, &kStatisByteCount};
constexpr array kCountRecords{"clients", 2018, 50, 34, kCountFields, &kStatisClientCount};
constexpr array kDeviceRecords{"devices", 2018, 50, 66, kDeviceFields, &kStatisClientCount};

constexpr field kApFields[] = {
    {kStatisTotal, unit::bytes}, {kStatisClients, unit::count}, {kStatisAps, unit::count}};
constexpr field kSsidFields[] = {
    {kStatisTotal, unit::bytes}, {kStatisClients, unit::count}, {kStatisWlans, unit::count}};
constexpr field kClientFields[] = {{kStatisTotal, unit::bytes},
                                   {kStatisClientClients, unit::count}};

constexpr field kApChartFields[] = {{kChartTime, unit::time}, {kApChartText, unit::byte_steps}};
constexpr field kClientChartFields[] = {{kChartTime, unit::time},
                                        {kClientChartText, unit::count_steps}};
constexpr field kSingleChartFields[] = {{kChartTime, unit::time},
                                        {kSingleChartText, unit::byte_pairs}};

constexpr field kStaFields[] = {
    {kStaMac, unit::text},     {kStaDevice, unit::text},   {kStaHost, unit::text},
    {kStaIp, unit::text},      {kStaIp6, unit::text},      {kStaUser, unit::text},
    {kStaAp, unit::text},      {kStaSsid, unit::text},     {kStaTime, unit::time},
    {kStaVlan, unit::plain},   {kStaChannel, unit::plain}, {kStaRadio, unit::plain},
    {kStaStatus, unit::plain}, {kStaAuth, unit::text},     {kStaUp, unit::bytes},
    {kStaDown, unit::bytes},   {kStaTotal, unit::bytes},   {kStaShare, unit::share},
};

}  // namespace

const layout kApStats{"AP statistics", 3736, kApFields, kByteRecords, kCountRecords};
const layout kSsidStats{"SSID statistics", 3736, kSsidFields, kByteRecords, kCountRecords};
const layout kClientStats{"client statistics", 5328, kClientFields, kByteRecords, kDeviceRecords};
const layout kApChart{"AP chart", 8196, kApChartFields, {}};
const layout kClientChart{"client chart", 2052, kClientChartFields, {}};
const layout kSingleChart{"single client chart", 2052, kSingleChartFields, {}};
const layout kClientList{"client list",
                         kListMaxClients *kStaSize,
                         {},
                         {"clients", 0, kListMaxClients, kStaSize, kStaFields}};

std::vector<uint8_t> build_statis(const statis_request &r) {
    std::vector<uint8_t> m(kStatisRequestSize, 0);
    wire_put_num(m, kStatisPeriod, r.period);
    wire_put_num(m, kStatisSsidType, r.ssid.empty() ? 0 : kSsidOne);
    wire_put_text(m, kStatisSsid, r.ssid);
    wire_put_num(m, kStatisApType, r.ap_type);
    wire_put_num(m, kStatisApgroup, r.apgroup_id);
    wire_put_num(m, kStatisApCount, std::min<size_t>(r.aps.size(), 255));
    for (size_t i = 0; i < std::min(r.aps.size(), kStatisApListMax); ++i)
        wire_text_put(&m[kStatisApListOffset + i * kStatisApMac.width], kStatisApMac.width,
                      r.aps[i]);
    wire_put_num(m, kStatisTopNum, r.top_num);
    wire_put_num(m, kStatisBytesType, r.bytes_type);
    return m;
}

std::vector<uint8_t> build_chart(const chart_request &r) {
    std::vector<uint8_t> m(kChartRequestSize, 0);
    wire_put_num(m, kChartPeriod, r.period);
    wire_put_num(m, kChartApType, r.ap_type);
    wire_put_num(m, kChartApgroup, r.apgroup_id);
    wire_put_text(m, kChartApMac, r.ap_mac);
    wire_put_num(m, kChartBytesType, r.bytes_type);
    return m;
}

std::vector<uint8_t> build_single_chart(std::string_view client_mac) {
    std::vector<uint8_t> m(kChartClientRequestSize, 0);
    wire_put_text(m, kChartClientMac, client_mac);
    return m;
}

std::vector<uint8_t> build_client_list(std::span<const uint8_t> mac, uint32_t period) {
    static constexpr uint8_t kAll[6] = {0xff, 0xff, 0xff, 0xff, 0xff, 0xff};
    std::vector<uint8_t> m(12 + kListPayload, 0);
    wire_put_bytes(m, kListMac, mac.empty() ? std::span<const uint8_t>(kAll) : mac);
    wire_put_num(m, kListPeriod, period);
    return m;
}

}  // namespace report_wire
