#include "core/port_file.h"

#include <unistd.h>

#include <filesystem>
#include <string>

#include "base/path.h"

namespace fs = std::filesystem;

namespace {

bool present(const std::string &p) {
    return access(p.c_str(), F_OK) == 0;
}

}  // namespace

// The effect of mkdir -p, cp and mv, without a shell: the source copied into
// the directory under its own name, then renamed (a copy left there by an
// interrupted earlier run is renamed too).
int tallyd_provision_port_file() {
    std::string dir = tallyd_path(TALLYD_PORT_DIR);
    std::error_code ec;
    if (!present(dir)) fs::create_directories(dir, ec);
    if (present(dir + "/" + std::string(TALLYD_PORT_FILE_NAME))) return 0;

    std::string src = tallyd_path(TALLYD_PORT_FILE_CUSTOM);
    if (!present(src)) src = tallyd_path(TALLYD_PORT_FILE_FACTORY);
    std::string copied = dir + "/uploadavpport_file";
    fs::copy_file(src, copied, fs::copy_options::overwrite_existing, ec);
    fs::rename(copied, dir + "/" + std::string(TALLYD_PORT_FILE_NAME), ec);
    return ec ? -1 : 0;
}
