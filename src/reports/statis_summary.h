// The traffic summaries of the wireless network by AP, by SSID and by
// client over the last hour or day (TALLYD_MSG_STATIS_AP, _SSID, _CLIENT),
// from the statistic tables of statistic_db.
//
// Each request is answered with exactly one reply (layouts kApStats,
// kSsidStats, kClientStats of statis_wire.h). The AP and SSID replies
// always carry their whole zero-filled area with the AP or WLAN count; the
// client reply carries data only when the period had traffic. A day whose
// day tables hold no traffic is answered from the hour tables over the
// same 24 hours. A failing query counts as 0 or an empty list (logged as
// "tallyd, value = %s, aErrMsg = %s\n"); a malformed statistic database
// starts its rebuild.
#pragma once

#include <cstdint>
#include <span>

// Each answers the whole received message; returns the send result: 0, or
// -1 when the reply could not be sent (logged).
int tallyd_statis_ap(std::span<const uint8_t> msg);
int tallyd_statis_ssid(std::span<const uint8_t> msg);
int tallyd_statis_client(std::span<const uint8_t> msg);
