#include "reports/handlers.h"

#include "reports/client_list.h"
#include "reports/statis_chart.h"
#include "reports/statis_summary.h"
#include "reports/top_summary.h"
#include "reports/usage.h"

// A failed send is logged by the reply buffer; nothing is retried.
void tallyd_handle_top_summary(std::span<const uint8_t> msg) {
    tallyd_get_top_summary(msg);
}

void tallyd_handle_clients_summary(std::span<const uint8_t> msg) {
    tallyd_get_clients_summary(msg);
}

void tallyd_handle_app_client(std::span<const uint8_t> msg) {
    tallyd_get_app_client(msg);
}

void tallyd_handle_client_list(std::span<const uint8_t> msg) {
    tallyd_get_client_list(msg);
}

void tallyd_handle_statis_ap(std::span<const uint8_t> msg) {
    tallyd_statis_ap(msg);
}

void tallyd_handle_statis_ssid(std::span<const uint8_t> msg) {
    tallyd_statis_ssid(msg);
}

void tallyd_handle_statis_client(std::span<const uint8_t> msg) {
    tallyd_statis_client(msg);
}

void tallyd_handle_statis_ap_chart(std::span<const uint8_t> msg) {
    tallyd_statis_ap_chart(msg);
}

void tallyd_handle_statis_client_chart(std::span<const uint8_t> msg) {
    tallyd_statis_client_chart(msg);
}

void tallyd_handle_statis_single_client(std::span<const uint8_t> msg) {
    tallyd_statis_single_client(msg);
}
