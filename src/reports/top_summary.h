// The top summary report: the ten applications, access points, SSIDs or
// clients that moved the most bytes in the current hour or the day, each
// with its share of all traffic (TALLYD_MSG_GET_TOP_SUMMARY), and the hour's
// top clients asked for with TALLYD_MSG_GET_CLIENTS_SUMMARY type 2.
//
// Each request is answered with exactly one reply, whatever fails on the
// way; a reply without data (length 16) means nothing to show: an unknown
// period, no traffic, a flag without a list bit, or a scratch table that
// could not be created (one left behind by an interrupted run keeps
// failing until it is dropped).
#pragma once

#include <cstdint>
#include <span>

// Answers a top-summary request (the whole received message). Returns the
// send result: 0, or -1 when the reply could not be sent (logged).
int tallyd_get_top_summary(std::span<const uint8_t> msg);

// Answers a clients summary of type 2: the hour's top clients. 0 or -1 as
// above.
int tallyd_get_top_clients_hour(std::span<const uint8_t> msg);
