#include "reports/handlers.h"

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
