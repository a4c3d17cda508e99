#include "reports/report_wire.h"

namespace report_wire {

namespace {

constexpr field kAppFields[] = {
    {kAppName, unit::text}, {kAppBytes, unit::bytes}, {kAppShare, unit::share}};

constexpr field kApFields[] = {
    {kApMac, unit::text},    {kApClients, unit::count}, {kApBytes, unit::bytes},
    {kApShare, unit::share}, {kApDevname, unit::text},  {kApLocation, unit::text},
};

constexpr field kSsidFields[] = {
    {kSsidName, unit::text},     {kSsidBytes, unit::bytes},     {kSsidShare, unit::share},
    {kSsidClients, unit::count}, {kSsidEncryption, unit::text},
};

constexpr field kClientFields[] = {
    {kClientMac, unit::text},     {kClientBytes, unit::bytes}, {kClientShare, unit::share},
    {kClientDevice, unit::text},  {kClientHost, unit::text},   {kClientIp, unit::text},
    {kClientActive, unit::plain}, {kClientUser, unit::text},   {kClientIp6, unit::text},
};
constexpr field kClientTotal[] = {{kClientsTotal, unit::bytes}};

constexpr field kDetailFields[] = {
    {kDetailLabel, unit::text},  {kDetailUplink, unit::bytes}, {kDetailDownlink, unit::bytes},
    {kDetailBytes, unit::bytes}, {kDetailShare, unit::share},
};
constexpr field kUsageFields[] = {
    {kUsageTotal, unit::bytes},     {kUsageUplink, unit::bytes},      {kUsageDownlink, unit::bytes},
    {kUsageUpSeries, unit::series}, {kUsageDownSeries, unit::series},
};

template <class T>
std::span<T> record_of(std::span<T> data, const array &a, size_t i) {
    const size_t off = a.offset + i * a.size;
    if (i >= a.count || off > data.size() || a.size > data.size() - off) return {};
    return data.subspan(off, a.size);
}

void put_usage(std::vector<uint8_t> &m, const usage_request &r) {
    wire_put_text(m, kUsageSsid, r.ssid);
    wire_put_text(m, kUsageMac, r.mac);
    wire_put_num(m, kUsageClientType, r.client_type);
    wire_put_num(m, kUsagePeriod, r.period);
    wire_put_num(m, kUsageType, r.type);
    wire_put_num(m, kUsageBits, r.usage);
    wire_put_num(m, kUsageApgroup, r.apgroup_id);
}

}  // namespace

const layout kTopApps{"top applications", 1440, {}, {"apps", 0, kTopRecords, 144, kAppFields}};
const layout kTopAps{"top access points", 2160, {}, {"aps", 0, kTopRecords, 216, kApFields}};
const layout kTopSsids{"top SSIDs", 640, {}, {"ssids", 0, kTopRecords, 64, kSsidFields}};
const layout kTopClients{
    "top clients", 4088, kClientTotal, {"clients", 0, kTopRecords, 408, kClientFields}};
const layout kUsage{
    "usage", 12216, kUsageFields, {"detail", 8216, kListRecords, 160, kDetailFields}};
const layout kAppClients{
    "application clients", 4088, kClientTotal, {"clients", 0, kTopRecords, 408, kClientFields}};

std::span<uint8_t> record(std::span<uint8_t> data, const array &a, size_t i) {
    return record_of(data, a, i);
}

std::span<const uint8_t> record(std::span<const uint8_t> data, const array &a, size_t i) {
    return record_of(data, a, i);
}

const layout *top_layout(uint32_t flag) {
    if (flag & kFlagClients) return &kTopClients;
    if (flag & kFlagSsids) return &kTopSsids;
    if (flag & kFlagAps) return &kTopAps;
    if (flag & kFlagApps) return &kTopApps;
    return nullptr;
}

std::vector<uint8_t> build_top(const top_request &r) {
    std::vector<uint8_t> m(kTopRequestSize, 0);
    wire_put_num(m, kTopType, r.type);
    wire_put_num(m, kTopPeriod, r.period);
    wire_put_num(m, kTopFlag, r.flag);
    return m;
}

std::vector<uint8_t> build_usage(const usage_request &r) {
    std::vector<uint8_t> m(kUsageRequestSize, 0);
    put_usage(m, r);
    return m;
}

std::vector<uint8_t> build_app_client(const app_client_request &r) {
    std::vector<uint8_t> m(kAppClientRequestSize, 0);
    wire_put_text(m, kAppClientName, r.name);
    wire_put_num(m, kAppClientSkip, r.skip);
    wire_put_num(m, kAppClientBy, r.by);
    return m;
}

}  // namespace report_wire
