#include "reports/usage.h"

#include "base/log.h"
#include "reports/report_reply.h"
#include "reports/report_wire.h"
#include "reports/top_summary.h"

using namespace report_wire;

namespace {

void log_request(const usage_filter &f) {
    tallyd_log(LOG_DEBUG, "tallyd, summary Apps period = %d, client_type = %d, usage = 0x%x\n",
               static_cast<int32_t>(f.period), static_cast<int32_t>(f.client_type), f.usage);
    const char *period = tallyd_usage_period_name(f.period);
    switch (f.client_type) {
        case kClientAll:
            tallyd_log(LOG_DEBUG, "tallyd, ALL ssid=%s, period=%s\n", f.ssid, period);
            break;
        case kClientOne:
            tallyd_log(LOG_DEBUG, "tallyd, Client mac=%s, period=%s\n", f.mac, period);
            break;
        case kClientAp:
            tallyd_log(LOG_DEBUG, "tallyd, AP mac=%s, ssid=%s, period=%s\n", f.mac, f.ssid, period);
            break;
        case kClientApgroup:
            tallyd_log(LOG_DEBUG, "tallyd, APgroup, id=%d, ssid=%s, period=%s\n",
                       static_cast<int32_t>(f.apgroup_id), f.ssid, period);
            break;
        case kClientPie:
            tallyd_log(LOG_DEBUG, "tallyd, APP top pie\n");
            break;
        default:
            break;
    }
}

int usage_summary(std::span<const uint8_t> msg) {
    report_reply reply(msg, kUsage.data_size);
    const usage_filter f = tallyd_usage_filter_read(msg);
    log_request(f);
    if (f.client_type == kClientOne && f.period != 0) {
        tallyd_log(LOG_WARNING, "tallyd, client summary only supports 1-hour\n");
    } else {
        std::span<uint8_t> data = reply.data().first(kUsage.data_size);
        if (f.usage & kUsageSeries) tallyd_avp_client_usage(f, data);
        if (f.usage & kUsageDetail) tallyd_avp_client_detail(f, data);
    }
    reply.set_length(kUsage.data_size);
    return reply.send();
}

}  // namespace

int tallyd_get_clients_summary(std::span<const uint8_t> msg) {
    if (wire_get_num(msg, kUsageType) == kTypeTopClients) return tallyd_get_top_clients_hour(msg);
    return usage_summary(msg);
}

int tallyd_get_app_client(std::span<const uint8_t> msg) {
    report_reply reply(msg, kAppClients.data_size);
    tallyd_log(LOG_DEBUG, "tallyd, received msg to get app client");
    uint32_t len = 0;
    if (wire_get_num(msg, kAppClientSkip) == 0) {
        char name[65];
        wire_text_copy(name, sizeof name, msg, kAppClientName.offset, kAppClientName.width);
        len = tallyd_avp_app_client_list(name, wire_get_num(msg, kAppClientBy) == kByApp,
                                         reply.data().first(kAppClients.data_size));
    }
    reply.set_length(len);
    tallyd_log(LOG_DEBUG, "tallyd, sending get app client to vexd...");
    return reply.send();
}
