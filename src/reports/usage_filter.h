// The usage filter of the application and port usage reports: what a
// TALLYD_MSG_GET_CLIENTS_SUMMARY (or TALLYD_MSG_GET_APP_CLIENT) request asks
// for, and how it narrows the rollup tables.
//
// The filter names one client (by MAC), one AP (by MAC) or one AP group,
// optionally within one SSID ("all" selects every SSID). Texts become ids
// through the dictionaries, so an SSID or AP the daemon never saw selects
// id 0 and thus nothing; a client MAC is bound as a text and matches
// literally.
#pragma once

#include <cstdint>
#include <span>

#include "db/tables.h"

class report_query;
class sql_conn;

struct usage_filter {
    char ssid[65];  // the 64-byte field, cut at its width when unterminated
    char mac[33];
    uint32_t client_type;
    uint32_t period;
    uint32_t type;
    uint32_t usage;
    uint32_t apgroup_id;
};

// Reads the filter record of a request (missing bytes read as zeros).
usage_filter tallyd_usage_filter_read(std::span<const uint8_t> msg);

// Effective periods of the usage reports.
enum class usage_period : uint8_t { hour, day, week, month };

// 1 day, 2 week, 3 month, anything else the hour.
usage_period tallyd_usage_period_of(uint32_t period);
// "1-hour", "1-day", "1-week", "1-month": the period as the log shows it.
const char *tallyd_usage_period_name(uint32_t period);

// The table that holds a filter's traffic for a period, and its database.
struct usage_table {
    tallyd_table table;
    sql_conn *db;  // closed when the database is
    bool flash;    // db_flash: a malformed file rebuilds the week and month
};
usage_table tallyd_usage_table(const usage_filter &f, usage_period p);

// Which rows a filter selects: none of the conditions (every row), the
// client's MAC, the SSID, the AP, both, the AP group or the group and SSID.
enum class usage_cond_kind : uint8_t { all, client, ssid, ap, ssid_ap, group, group_ssid };

struct usage_cond {
    usage_cond_kind kind;
    const char *mac;  // the filter's MAC (client)
    int32_t ssid_id;
    int32_t ap_id;
    int32_t group_id;
};

// The condition of f (ids looked up in the dictionaries).
usage_cond tallyd_usage_cond(const usage_filter &f);

// Appends the condition to q as the device writes it ("client_mac='%s'",
// "ssid=%d", "ap_mac=%d", "ssid=%d AND ap_mac=%d", "group_id=%d",
// "group_id=%d AND ssid=%d"); nothing for all. The MAC is bound.
void tallyd_usage_cond_add(report_query &q, const usage_cond &c);

// The recovery mask of a database of the usage reports.
uint32_t tallyd_usage_mask(const usage_table &t);
