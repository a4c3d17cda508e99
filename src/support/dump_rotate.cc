#include "support/dump_rotate.h"

#include <err.h>

#include <cstdio>

#include "base/file.h"

namespace {

// The numbered names are formed in 210-byte buffers on the stack, so the
// rotation cannot fail for want of memory.
constexpr size_t kNameSize = 210;
constexpr int kRenameFailed = 33;

}  // namespace

int file_exists(const char *path) {
    tallyd_file f(std::fopen(path, "r"));
    return f ? 1 : 0;
}

void inc_dumpfile_ext(const char *path, int index, int limit) {
    char previous[kNameSize];
    char target[kNameSize];
    const char *source = path;
    if (index >= 2) {
        std::snprintf(previous, sizeof previous, "%s.%d", path, index - 1);
        source = previous;
    }
    std::snprintf(target, sizeof target, "%s.%d", path, index);
    if (file_exists(target) && index < limit - 1) inc_dumpfile_ext(path, index + 1, limit);
    if (std::rename(source, target) != 0)
        err(kRenameFailed, "inc_dumpfile_ext: Error while renaming files");
}
