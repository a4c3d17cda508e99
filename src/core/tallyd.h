// The daemon's entry point.
#pragma once

// Brings the daemon up (single-instance check, priority, settings, port-name
// file, databases, dictionaries, crash handler, pid file, event loop,
// signals, sockets, periodic tasks), runs the loop and shuts down. Returns 0
// after a normal end; ends the process with status 255 when another instance
// runs or the crash dump directory cannot be made.
int tallyd_main();
