// Charts in five-minute steps, newest first: the traffic of all APs, one AP
// group or one AP (TALLYD_MSG_STATIS_AP_CHART), their clients
// (TALLYD_MSG_STATIS_CLIENT_CHART) and the traffic of one client
// (TALLYD_MSG_STATIS_SINGLE_CLIENT).
//
// The reply (kApChart, kClientChart, kSingleChart of statis_wire.h) always
// carries its full area: the time of the answer and the series as one text,
// "v,v,..." (13 steps for the hour, 288 for the day) or, for one client,
// "up,down;up,down;..." over 13 steps; a step without a row is "0" ("0,0").
// When the query fails the text stays empty and no time is written.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "db/sql.h"

int tallyd_statis_ap_chart(std::span<const uint8_t> msg);
int tallyd_statis_client_chart(std::span<const uint8_t> msg);
int tallyd_statis_single_client(std::span<const uint8_t> msg);

// One step's row: its time and its value text.
struct chart_row {
    int32_t time;
    std::string value;
};

// How rows are laid onto steps.
struct chart_form {
    size_t steps;       // 13 or 288
    size_t max_len;     // characters of text at most
    const char *sep;    // between steps
    const char *empty;  // a step without a row
    bool reanchor;      // the AP and client charts' rule for the second step
};

// Lays rows (newest first) onto the steps ending at now. Step i takes the
// next unused row when the row's time lies in (upper - 300, upper], upper =
// now - i * 300. With reanchor, while exactly one row has been used, upper
// is that row's time - 150 whatever i is, so that when the second row does
// not lie in that span every later step stays empty.
std::string tallyd_chart_series(std::span<const chart_row> rows, uint32_t now,
                                const chart_form &form);
