// The chained hash table under each entity dictionary, and the description
// that tells the four dictionaries apart.
//
// AP and SSID ids are the counter itself; AP group and device-info ids are
// counter x size + bucket, so that an id names its own bucket. Everything
// here works on one dictionary of the record given; nothing is persisted.
//
// Ids are 32-bit signed numbers wherever they go (tables, replies, "%d"), so
// a counter stops where its id would pass INT32_MAX: the table never hands
// out a negative, wrapped or repeated id. Appending to a chain goes straight
// to its remembered tail, so loading n entries costs n steps however long
// the chains grow.
#pragma once

#include <cstdint>

#include "base/sys_info.h"
#include "entity/dict.h"

// What a dictionary keeps beside its bucket array.
struct dict_extra {
    tallyd_dict **tails;         // capacity entries: the last chained entry of each
                                 // bucket, null while the chain is its head alone
    int32_t entries;             // entries held (every bucket, heads and chains)
    uint32_t refusal_logged_at;  // daemon time of the last "refused" line
    bool refusal_logged;
};

struct dict_kind {
    const char *list;         // repository list, "avpap-list"
    const char *node;         // its children, "avpap"
    const char *key_attr;     // key attribute of a child, "ap"
    const char *add_tag;      // caller tag of the repository add
    const char *load_tag;     // caller tag of the reload
    const char *malloc_fail;  // logged when a chained entry's name cannot be allocated
    const char *add_fail;     // logged when mapping cannot insert
    bool composed_id;         // id = counter x size + bucket
    bool empty_key_is_none;   // lookup by name answers 0 for the empty text
    int32_t capacity;
    int32_t tallyd_sys_info_t::*size;
    int32_t tallyd_sys_info_t::*last_id;
    tallyd_dict *tallyd_sys_info_t::*buckets;
    tallyd_dict *storage;  // the bucket array, capacity entries
    dict_extra *extra;
};

// The table size of k in info, or 0 when it cannot serve as a modulus (zero,
// or above the capacity).
uint32_t dict_usable_size(const dict_kind &k, const tallyd_sys_info_t *info);

// The largest counter whose id still fits a signed 32-bit number: INT32_MAX
// for a plain counter, (INT32_MAX - (size - 1)) / size for a composed one.
int32_t dict_counter_max(const dict_kind &k, uint32_t size);

// The "id" attribute text of a repository entry as a counter, read like atoi
// (leading blanks, a sign, the digits up to the first other character; no
// digits read 0). false when the number is negative or above
// dict_counter_max; *counter is then 0.
bool dict_parse_counter(const dict_kind &k, uint32_t size, const char *text, int32_t *counter);

// The id of counter n whose key falls in bucket of a table of size entries
// (0 stays 0: an empty slot).
inline uint32_t dict_id(const dict_kind &k, int32_t n, uint32_t size, uint32_t bucket) {
    uint32_t id = static_cast<uint32_t>(n);
    return k.composed_id && id ? id * size + bucket : id;
}

// The bucket array of k in info (attached on first use).
tallyd_dict *dict_buckets(const dict_kind &k, tallyd_sys_info_t *info);

// Adds key with counter n at the tail of its bucket's chain; no search for an
// existing key. The stored id, or 0 for a null key, an n outside
// 1..dict_counter_max, an unusable table size or an allocation failure.
uint32_t dict_insert(const dict_kind &k, tallyd_sys_info_t *info, const char *key, int32_t n);

// Exact, case-sensitive search; the entry nearest the bucket head wins.
uint32_t dict_find_name(const dict_kind &k, tallyd_sys_info_t *info, const char *key);
const char *dict_find_id(const dict_kind &k, tallyd_sys_info_t *info, uint32_t id);

// Frees the chained entries and names of buckets [0, count) and empties them.
void dict_clear(const dict_kind &k, tallyd_sys_info_t *info, int32_t count);
