// Flow ingestion: the flow task takes every flow file found in the spool
// directory, stores each flow entry as one row of avp_base in temp_db, and
// removes every entry of the spool it listed.
//
// One run is one transaction on temp_db. Every row of a run carries the run
// time. After each file the run checks a 12-second budget and stops reading
// when it is used up; every listed entry is removed either way, so files left
// unread are dropped and the spool never grows. Bad files are logged and
// skipped; only regular files are opened, and nothing else in the spool (a
// FIFO, a socket, a directory, a link) is read or can make the run wait.
#pragma once

#include <cstdint>

// Seconds since 1970; the flow task reads it for its time budget.
using flow_clock_fn = uint32_t (*)();

// The flow task: ingests the spool with run_time as the rows' time. Always 0.
// Logs "tallyd, failed to open %s\n" (LOG_ERR) when the spool cannot be read.
int tallyd_handle_flow(uint32_t run_time);

// The same with the clock of the time budget supplied (tests drive the
// budget through it; the daemon passes tallyd_now).
int tallyd_handle_flow_clocked(uint32_t run_time, flow_clock_fn clock);

// The flow task as an event-loop timeout callback: re-arms itself (every 59
// s) first, then ingests the spool with the current time when temp_db is
// open. Both arguments are passed on to the next run.
void tallyd_pre_handle_flow(void *eloop_data, void *user_data);
