// What a statistics summary request narrows the report to, and the WHERE
// conditions that say so in the statements of the summaries.
//
// The AP list becomes an OR-list of "ap_id=%d" terms. A MAC the AP
// dictionary does not know gives ap_id=0, which no traffic row carries, so
// it narrows to nothing rather than adding a dictionary entry for a MAC
// that was only asked about. Every id and time is bound, never spliced.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "reports/report_sql.h"

struct statis_scope {
    uint8_t period = 0;
    uint8_t ssid_type = 0;
    uint8_t ap_type = 0;
    int32_t apgroup_id = 0;
    int32_t ssid_id = 0;          // the request's SSID in the SSID dictionary
    uint32_t since = 0;           // rows with time>=since are taken
    std::vector<int32_t> ap_ids;  // the AP list, at most twenty
    char ssid[33] = {};
};

// Reads the request (the whole received message) and looks its SSID and
// APs up; since is now - 86400 for period 1, else now - 3600.
statis_scope tallyd_statis_scope_read(std::span<const uint8_t> msg, uint32_t now);

// Appends the condition for the request to q: by AP group, AP list or all
// APs, and by SSID when with_ssid is set and the request names one.
void tallyd_statis_condition(report_query &q, const statis_scope &s, bool with_ssid);

// Appends "ap_id=%d OR ap_id=%d ..." for the AP list.
void tallyd_statis_ap_list(report_query &q, const statis_scope &s);
