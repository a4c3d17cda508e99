// The port-name file the application-visibility engine reads: provided once
// from the customised or the factory copy, never replaced afterwards.
#pragma once

#include <string_view>

inline constexpr std::string_view TALLYD_PORT_FILE_NAME = "uploadavpport_file_1.0";
inline constexpr std::string_view TALLYD_PORT_FILE_CUSTOM = "/etc/corvane/uploadavpport_file";
inline constexpr std::string_view TALLYD_PORT_FILE_FACTORY =
    "/etc/corvane-default/uploadavpport_file";

// Creates /etc/corvane-images/firmwares/avpport if needed; when it holds no
// uploadavpport_file_1.0 yet, copies the customised file there (the factory
// file when there is no customised one) under that name. 0 when the file is
// already in place or was provided; -1 when the final rename failed (no
// source file, for one).
int tallyd_provision_port_file();
