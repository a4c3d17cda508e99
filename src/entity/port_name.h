// Readable labels of well-known transport ports for the usage reports.
//
// 65 ports have a fixed label (TCP and UDP alike); every other number reads
// "port <n>". The management interface matches these exact texts, odd ones
// included: 47 reads "gre(port 70)", 88 "eigrp(port 70)" and 2049
// "nfs(port 2049" without its closing parenthesis.
#pragma once

#include <cstdint>

inline constexpr int TALLYD_PORT_NAME_SIZE = 128;

// Writes the label of port into out (TALLYD_PORT_NAME_SIZE bytes), cut at
// 127 characters. Returns what snprintf returns (the label's length).
int tallyd_port_to_name(int32_t port, char *out);
