// How the tests start the programs of a build: the daemon, tallyctl and the
// other tools.
//
// By default a test runs the binaries of its own build directly. Three
// environment variables let the same tests drive another build, e.g. the
// MIPS daemon and tools under qemu-user from a host test binary:
//   TALLYD_TEST_BIN_DIR=DIR        the directory holding tallyd, tallyctl, ...
//   TALLYD_TEST_LAUNCHER="CMD ..." a command put in front of every program
//                                  (words split at spaces)
//   TALLYD_TEST_SLOWDOWN=N         every timeout of the harness times N
// A cross build's own test binaries default to its emulator as launcher.
#pragma once

#include <string>
#include <string_view>
#include <vector>

// The launcher words followed by the path of program `name`, for execve.
std::vector<std::string> tallyd_test_argv(std::string_view name);

// The same as one shell command prefix ("qemu-mips -L ... '/dir/tallyctl'"),
// for system() and popen(); the caller appends the arguments.
std::string tallyd_test_command(std::string_view name);

// True when programs run through a launcher (an emulator).
bool tallyd_test_launched();

// True in a cross build, whose test binaries themselves run under the
// emulator: for the few checks that the emulator cannot reproduce.
bool tallyd_test_emulated();

// ms scaled by TALLYD_TEST_SLOWDOWN (at least 1).
int tallyd_test_timeout(int ms);
