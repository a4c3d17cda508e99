// Root prefix for every absolute path the daemon and its tools touch.
//
// On the device the root is empty and paths are used as they stand. Tests, the
// demo and the tools set TALLYD_ROOT (or call tallyd_root_set) so that
// /var/run/tac, /tmp/tallyd, /etc/corvane-images and the rest live under a
// sandbox directory. No other code spells a root-relative path by hand.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

// The root prefix: TALLYD_ROOT as read at the first call, without a trailing
// slash; empty on the device.
const std::string &tallyd_root();

// Replaces the root (tests, tools with --root). An empty text restores the
// device's real paths.
void tallyd_root_set(std::string_view root);

// Root prefix + abs. abs must be an absolute device path ("/tmp/tallyd").
std::string tallyd_path(std::string_view abs);

// The same into a fixed buffer, cut at size - 1 bytes like snprintf. Returns
// the length of the untruncated path.
int tallyd_path_buf(char *buf, size_t size, std::string_view abs);

// Device directories and files shared by several modules.
inline constexpr std::string_view TALLYD_RUN_DIR = "/var/run/tac";
inline constexpr std::string_view TALLYD_PID_FILE = "/var/run/tac/tallyd.pid";
inline constexpr std::string_view TALLYD_CTRL_SOCKET = "/var/run/tac/tallyd.socket";
inline constexpr std::string_view TALLYD_STAT_SOCKET = "/var/run/tac/tallyd_stat.socket";
inline constexpr std::string_view TALLYD_MONITOR_SOCKET = "/var/run/tac/tallydTac.socket";
inline constexpr std::string_view TALLYD_RAM_DIR = "/tmp/tallyd";
inline constexpr std::string_view TALLYD_FLASH_DIR = "/etc/corvane-images/tallyd";
inline constexpr std::string_view TALLYD_SPOOL_DIR = "/etc/corvane-images/firmwares/avpd";
inline constexpr std::string_view TALLYD_PORT_DIR = "/etc/corvane-images/firmwares/avpport";
inline constexpr std::string_view TALLYD_PLATFORM_FILE = "/proc/zvt_hw_info/platform";
inline constexpr std::string_view TALLYD_XREPO_DIR = "/etc/corvane/xrepo";
