#include "base/path.h"

#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

std::string strip_slashes(std::string_view root) {
    while (root.size() > 1 && root.back() == '/') root.remove_suffix(1);
    if (root == "/") return {};
    return std::string(root);
}

std::string &root_storage() {
    static std::string root = [] {
        const char *env = std::getenv("TALLYD_ROOT");
        return strip_slashes(env ? env : "");
    }();
    return root;
}

}  // namespace

const std::string &tallyd_root() {
    return root_storage();
}

void tallyd_root_set(std::string_view root) {
    root_storage() = strip_slashes(root);
}

std::string tallyd_path(std::string_view abs) {
    std::string p = tallyd_root();
    p.append(abs);
    return p;
}

int tallyd_path_buf(char *buf, size_t size, std::string_view abs) {
    const std::string &root = tallyd_root();
    return std::snprintf(buf, size, "%s%.*s", root.c_str(), static_cast<int>(abs.size()),
                         abs.data());
}
