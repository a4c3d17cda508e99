// Client host names configured by the administrator.
//
// The configured names live in the repository list "sta-rename-list"
// (children with "mac" and "rename"). The client directory
// statis_client_info_h of the statistic database only marks a client that
// has one with the host name "#"; the reports then ask for the name here.
#pragma once

#include <cstdint>

#include "db/sql_shown.h"

// Stamps a client's directory row and sets its host name: the name mark of
// tallyd_set_sta_hostname and the counters batch's name of a client that had
// none.
inline constexpr sql_form TALLYD_SET_HOST_NAME_SQL(
    "UPDATE statis_client_info_h SET time=%lu, host_name='%s' WHERE client_mac='%s'");

// Copies the configured name of the client mac (exact, case-sensitive match;
// the first matching entry wins) into buf, cut at size - 1 characters.
// Returns the length copied, 0 when there is none. Reads the repository on
// every call, so a change made by the controller shows at once.
int tallyd_get_sta_hostname(const char *mac, char *buf, int32_t size);

// A host name was set for mac: stores "#" (a name is configured) or, for an
// empty name, the empty text (the station's own name comes back with the
// next counters batch) with the current time. The name itself is never
// stored. Logs "tallyd, set default host name" (notice) for an empty name,
// SQL failures as "tallyd, value = %s, aErrMsg = %s\n", and a debug trace.
void tallyd_set_sta_hostname(const char *mac, const char *name);
