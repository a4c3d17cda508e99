// The application and port usage reports: how traffic divides over time,
// applications, ports and clients (TALLYD_MSG_GET_CLIENTS_SUMMARY, all types
// but 2, and TALLYD_MSG_GET_APP_CLIENT).
//
// The summary reply always carries its whole 12,216-byte data area (layout
// report_wire::kUsage): the series, a pie or a list, or zeros where a part
// was not asked for, found nothing or failed. Query failures are logged as
// "tallyd, value = %s, aErrMsg = %s\n" and a malformed database starts the
// rebuild of the database queried.
#pragma once

#include <cstdint>
#include <span>

#include "reports/usage_filter.h"

// Answers TALLYD_MSG_GET_CLIENTS_SUMMARY: type 2 is the hour's top clients
// (top_summary.h), every other type the usage summary. Returns the send
// result: 0, or -1 when the reply could not be sent (logged).
int tallyd_get_clients_summary(std::span<const uint8_t> msg);

// Answers TALLYD_MSG_GET_APP_CLIENT (layout report_wire::kAppClients). 0 or
// -1 as above.
int tallyd_get_app_client(std::span<const uint8_t> msg);

// The usage series into data (the reply's data area): for each step of the
// effective period, from the most recent backwards, its end time and its
// uplink and downlink rates in bits per second as texts, and the sums of all
// steps. Nothing when the chosen database is closed.
void tallyd_avp_client_usage(const usage_filter &f, std::span<uint8_t> data);

// The pie (client type 4) or the filtered application or port list.
void tallyd_avp_client_detail(const usage_filter &f, std::span<uint8_t> data);

// uplink + downlink of every row of table (the condition applied), 0 when
// the query fails or finds nothing; a malformed database starts the rebuild
// of mask.
uint64_t tallyd_avp_detail_total(const usage_table &table, const usage_cond &cond, uint32_t mask);

// The clients of one application or port (name: the application, or the
// port as decimal text) in the top-client records of data. Returns the data
// length to send: 4,088, or 0 when db is closed.
uint32_t tallyd_avp_app_client_list(const char *name, bool by_app, std::span<uint8_t> data);
