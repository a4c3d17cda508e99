// Writing flow files as the flow collector does: one ArcMessage per file,
// named "<ap mac>-<n>" in the spool, and, for tests and the simulator, the
// malformed files the daemon must survive.
//
// Not used by the daemon itself; tallyd-flowgen, the tests and the
// benchmarks share it so that they all feed the spool the same bytes.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "arc.pb.h"

// Ways a flow file can be broken. Every kind but arc_bad::no_colon appends one
// more entry to the encoding of the message:
//   too_many       a copy of the last entry (51 entries when msg holds 50)
//   missing_field  an entry without its port, a required field
//   oversize       an entry whose application name is 64 characters long
//   truncated      an entry cut off in the middle (the file ends inside it)
// no_colon keeps the content valid and names the file without colons.
enum class arc_bad { none, too_many, missing_field, oversize, truncated, no_colon };

// Parses "too-many", "missing-field", "oversize", "truncated", "no-colon";
// false for anything else.
bool arc_bad_parse(std::string_view text, arc_bad *out);

// The protobuf encoding of msg, broken as bad says. Empty on failure.
std::vector<uint8_t> arc_encode(const ArcMessage &msg, arc_bad bad = arc_bad::none);

// Spool file name of the n-th report of an AP: "<ap mac>-<n>", with the colons
// of the MAC removed for arc_bad::no_colon.
std::string arc_spool_name(std::string_view ap_mac, uint32_t n, arc_bad bad = arc_bad::none);

// Writes bytes to dir/name so that a reader of dir sees the whole file or
// none: written under a temporary name beside dir, then renamed into it.
// 0, or -1 when the file could not be written.
int arc_write_file(const std::string &dir, const std::string &name,
                   const std::vector<uint8_t> &bytes);
