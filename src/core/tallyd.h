// The daemon's entry point.
#pragma once

// Brings the daemon up (single-instance check, priority, settings, port-name
// file, databases, dictionaries, crash handler, pid file, event loop,
// signals, sockets, periodic tasks), runs the loop and shuts down. Returns 0
// after a normal end; ends the process with status 255 when another instance
// runs or the crash dump directory cannot be made.
int tallyd_main();

// The part of start-up that builds the daemon's state under the current root:
// settings and platform limits, the port-name file, the six databases and the
// four dictionaries. tallyd_main runs it once; the fuzz targets run it to
// hold the same state the daemon serves from.
void tallyd_load_state();
