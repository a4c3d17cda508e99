// The five-minute rollup task: every 300 s, advance the bucket stamp, keep
// db under its size limit and its hour tables to the last 59 minutes, roll
// avp_base up into the three hour tables and empty avp_base only when all
// three succeeded (a failed run leaves its flows for the next bucket).
//
// An event-loop timeout callback: it re-arms itself first and then works; both arguments
// are unused.
#pragma once

void tallyd_pre_handle_hour(void *eloop_data, void *user_data);
