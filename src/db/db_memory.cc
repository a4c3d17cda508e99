#include "db/db_memory.h"

#include <sqlite3.h>

namespace {

// Lookaside: 32 slots of 256 bytes a connection serve the small, short-lived
// allocations of statement execution; larger ones go to the heap.
constexpr int kLookasideSlot = 256;
constexpr int kLookasideSlots = 32;

// On the smallest device a sort (the GROUP BY and ORDER BY of a rollup, of a
// report) keeps at most this many pages of rows in memory before it writes
// them out as a sorted run to a temporary file and merges the runs at the
// end. Without it SQLite sorts in one block that grows to the cache size of
// the database read (2 MB for avp_temp.db), and every five-minute rollup of
// 200 APs' flows took 1.5 MB more for a moment.
constexpr unsigned kSortPages = 16;

}  // namespace

int64_t tallyd_db_heap_limit(int32_t platform_class) {
    // Class 0 (unknown hardware) sizes everything for the smallest device:
    // a single connection's worth of its 250-page cache.
    return platform_class == 0 ? int64_t{1} << 20 : 0;
}

int tallyd_db_memory_init(int32_t platform_class) {
    int rc = sqlite3_config(SQLITE_CONFIG_LOOKASIDE, kLookasideSlot, kLookasideSlots);
    if (platform_class == 0) {
        // Small allocations only: a sort then holds its rows one by one and
        // writes its run out once it passes kSortPages while the heap is at
        // its soft limit, instead of filling one large block first.
        if (rc == SQLITE_OK) rc = sqlite3_config(SQLITE_CONFIG_SMALL_MALLOC, 1);
        if (rc == SQLITE_OK) rc = sqlite3_config(SQLITE_CONFIG_PMASZ, kSortPages);
    }
    sqlite3_soft_heap_limit64(tallyd_db_heap_limit(platform_class));
    return rc == SQLITE_OK ? 0 : -1;
}
