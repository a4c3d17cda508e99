// The report requests as the dispatcher calls them: each answers the
// request with exactly one reply to its sender.
#pragma once

#include <cstdint>
#include <span>

void tallyd_handle_top_summary(std::span<const uint8_t> msg);
void tallyd_handle_clients_summary(std::span<const uint8_t> msg);
void tallyd_handle_app_client(std::span<const uint8_t> msg);
void tallyd_handle_client_list(std::span<const uint8_t> msg);
void tallyd_handle_statis_ap(std::span<const uint8_t> msg);
void tallyd_handle_statis_ssid(std::span<const uint8_t> msg);
void tallyd_handle_statis_client(std::span<const uint8_t> msg);
void tallyd_handle_statis_ap_chart(std::span<const uint8_t> msg);
void tallyd_handle_statis_client_chart(std::span<const uint8_t> msg);
void tallyd_handle_statis_single_client(std::span<const uint8_t> msg);
