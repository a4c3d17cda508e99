// The report requests as the dispatcher calls them: each answers the
// request with exactly one reply to its sender.
#pragma once

#include <cstdint>
#include <span>

void tallyd_handle_top_summary(std::span<const uint8_t> msg);
void tallyd_handle_clients_summary(std::span<const uint8_t> msg);
void tallyd_handle_app_client(std::span<const uint8_t> msg);
