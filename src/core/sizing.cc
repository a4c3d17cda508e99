#include "core/sizing.h"

#include <strings.h>

#include <cstdio>

#include "base/file.h"
#include "base/path.h"
#include "entity/arc.h"

namespace {

struct platform_row {
    const char *name;
    int32_t platform_class;
    int32_t db_max_size;
    int32_t db_flash_max_size;
    int32_t row_limit;
};

constexpr platform_row kPlatforms[] = {
    {"VX8810R", 2, 300000000, 300000000, 25000},
    {"vxa8810", 1, 150000000, 150000000, 25000},
    {"KDL2206", 3, 150000000, 150000000, 7500},
};
constexpr int32_t kUnknownSize = 15000000;
constexpr int32_t kReadRowLimit = 7500;

// The first seven bytes of the platform file into name (zero-filled); false
// when the file does not open.
bool read_platform_name(char (&name)[8]) {
    tallyd_file f(fopen(tallyd_path(TALLYD_PLATFORM_FILE).c_str(), "r"));
    if (!f) return false;
    size_t n = fread(name, 1, sizeof name - 1, f.get());
    (void)n;
    return true;
}

const platform_row *match_platform(const char *name) {
    for (const platform_row &row : kPlatforms)
        if (strncasecmp(name, row.name, 8) == 0) return &row;
    return nullptr;
}

}  // namespace

void tallyd_init_sys_info(tallyd_sys_info_t *info) {
    info->peer_addr = nullptr;
    info->peer_addr_len = nullptr;
    info->reply_sock = 0;
    info->ssid_max = info->ssid_count = 0;
    info->ap_max = info->ap_count = 0;
    info->apgroup_max = info->apgroup_count = 0;
    info->dvcinfo_max = info->dvcinfo_count = 0;
    info->db_max_size = info->db_flash_max_size = 0;
    info->platform_class = 0;
    tallyd_load_arc_from_xml(info);
}

void tallyd_size_for_platform(tallyd_sys_info_t *info) {
    char name[8] = {};
    const platform_row *row = nullptr;
    if (read_platform_name(name)) {
        info->platform_row_limit = kReadRowLimit;
        row = match_platform(name);
    }
    if (row) {
        info->platform_class = row->platform_class;
        info->db_max_size = row->db_max_size;
        info->db_flash_max_size = row->db_flash_max_size;
        info->platform_row_limit = row->row_limit;
    } else {
        info->platform_class = 0;
        info->db_max_size = kUnknownSize;
        info->db_flash_max_size = kUnknownSize;
    }
    // Small platforms get small dictionaries.
    info->ap_max = info->platform_class ? 1024 : 56;
    info->ssid_max = info->platform_class ? 256 : 54;
    info->apgroup_max = 256;
    info->dvcinfo_max = 256;
}

int tallyd_set_platform_limits(tallyd_sys_info_t *info) {
    tallyd_size_for_platform(info);
    return printf("Database file max is %dMB\n", info->db_max_size / 1000000);
}
