#include "db/db_memory.h"

#include <sqlite3.h>

namespace {

// Lookaside: 32 slots of 256 bytes a connection serve the small, short-lived
// allocations of statement execution; larger ones go to the heap.
constexpr int kLookasideSlot = 256;
constexpr int kLookasideSlots = 32;

}  // namespace

int64_t tallyd_db_heap_limit(int32_t platform_class) {
    // Class 0 (unknown hardware) sizes everything for the smallest device:
    // a single connection's worth of its 250-page cache.
    return platform_class == 0 ? int64_t{1} << 20 : 0;
}

int tallyd_db_memory_init(int32_t platform_class) {
    int rc = sqlite3_config(SQLITE_CONFIG_LOOKASIDE, kLookasideSlot, kLookasideSlots);
    sqlite3_soft_heap_limit64(tallyd_db_heap_limit(platform_class));
    return rc == SQLITE_OK ? 0 : -1;
}
