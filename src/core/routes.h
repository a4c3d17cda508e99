// Which handlers each message id of the control and statistics sockets runs.
//
// Every id the daemon knows is listed on its socket; an id whose work is not
// wired to a handler yet is listed without one and is accepted silently,
// like the ids the daemon deliberately ignores. Anything not listed is an
// invalid id on that socket.
#pragma once

#include "ipc/dispatch.h"

extern const tallyd_route_table tallyd_ctrl_routes;
extern const tallyd_route_table tallyd_stat_routes;

// Opens and registers the control and statistics sockets with the tables
// above. 0, or -1.
int tallyd_ctrl_iface_init();
