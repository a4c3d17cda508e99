// The daemon's whole state in a scratch root, for the fuzz targets.
//
// A fuzz target feeds one input after another to a handler of the running
// daemon's state: the six databases, the four dictionaries and a simulated
// controller's configuration lists, as start-up loads them. The state is
// kept from input to input, so a message can meet what earlier ones left;
// every few thousand inputs it is dropped and loaded afresh, which keeps the
// tables and dictionaries the size a device holds.
#pragma once

#include <cstddef>
#include <string>

// Makes the scratch root (under /dev/shm when there is one, so that the
// repository's synced saves cost nothing), writes the configuration lists of
// a small simulated controller and loads the daemon state there. The first
// call does the work; the root is removed when the process exits.
void fuzz_daemon_start();

// Counts one input; every `period` inputs drops the databases, the
// dictionaries and the repository lists and starts again from the seed state.
// True when it did: every directory of the root was made anew, so a handle a
// target keeps on one must be opened again.
bool fuzz_daemon_tick(size_t period = 20000);

// Writes bytes to path (a plain write; the daemon reads it after the call).
// false when the file could not be written.
bool fuzz_write_file(const std::string &path, const void *bytes, size_t size);

// Ends the process with a message when a property the daemon promises does
// not hold, so that libFuzzer keeps the input as a crash.
[[noreturn]] void fuzz_fail(const char *what);

// The repository lists of the list-loader target; an input's first byte
// picks one by its index here.
inline constexpr const char *fuzz_xrepo_lists[] = {
    "avpap-list", "avpssid-list", "avpapgroup-list", "avpdvcinfo-list", "sta-rename-list",
    "ap-list",    "apgroup-list", "wlangroup-list",  "wlansvc-list"};
