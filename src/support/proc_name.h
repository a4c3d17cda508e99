// Process names: the crash and core-dump settings take a daemon's name or
// the path it was started by, and go by the name alone.
#pragma once

#include <string_view>

// The part of name after its last '/', or all of it.
inline std::string_view proc_base_name(std::string_view name) {
    size_t slash = name.rfind('/');
    return slash == std::string_view::npos ? name : name.substr(slash + 1);
}
