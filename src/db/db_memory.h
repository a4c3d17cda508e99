// The SQLite heap of the daemon's six connections, bounded as a whole.
//
// Every connection gets the page cache its platform class allows (PRAGMA
// cache_size); on the smallest device six full caches would hold some 6 MB,
// more than the daemon's whole RAM budget. There the daemon gives SQLite one
// soft heap limit instead: once its heap reaches the limit, SQLite reuses the
// least recently used clean pages of any connection before it allocates
// more, so the busy databases keep their pages and the idle ones give theirs
// up. Lookaside memory, which each connection would otherwise set aside
// (some 120 KB), is kept small on every platform. Sorts on the smallest device
// write their rows out in short runs rather than hold them in one large block.
#pragma once

#include <cstdint>

// The soft heap limit of a platform class in bytes; 0 for none (the larger
// controllers have the RAM for their caches).
int64_t tallyd_db_heap_limit(int32_t platform_class);

// Applies the lookaside size, the sort runs and the soft heap limit of
// platform_class. The lookaside and sort settings take effect only before
// SQLite's first use, so the daemon calls this before it opens a database. 0,
// or -1 when SQLite was in use already (the heap limit is set all the same).
int tallyd_db_memory_init(int32_t platform_class);
