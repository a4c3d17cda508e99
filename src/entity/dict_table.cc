#include "entity/dict_table.h"

#include <cctype>
#include <charconv>
#include <climits>
#include <cstdlib>
#include <cstring>

#include "base/log.h"
#include "entity/text.h"

namespace {

char *copy_name(const char *key) {
    size_t n = std::strlen(key) + 1;
    char *name = static_cast<char *>(std::malloc(n));
    if (name) std::memcpy(name, key, n);
    return name;
}

bool is_empty(const tallyd_dict *e) {
    return e->id == 0 || e->name == nullptr;
}

// The last entry of bucket b's chain (its head when nothing is chained).
tallyd_dict *chain_tail(const dict_kind &k, tallyd_dict *head, uint32_t b) {
    return k.extra->tails[b] ? k.extra->tails[b] : head;
}

}  // namespace

// A zero size would divide by zero, a size above the capacity would index
// past the bucket array.
uint32_t dict_usable_size(const dict_kind &k, const tallyd_sys_info_t *info) {
    int32_t size = info->*k.size;
    return size > 0 && size <= k.capacity ? static_cast<uint32_t>(size) : 0;
}

int32_t dict_counter_max(const dict_kind &k, uint32_t size) {
    if (!k.composed_id || size == 0) return INT32_MAX;
    return static_cast<int32_t>((static_cast<uint32_t>(INT32_MAX) - (size - 1)) / size);
}

bool dict_parse_counter(const dict_kind &k, uint32_t size, const char *text, int32_t *counter) {
    *counter = 0;
    if (!text) return true;
    while (std::isspace(static_cast<unsigned char>(*text))) ++text;
    bool negative = *text == '-';
    if (*text == '-' || *text == '+') ++text;
    const char *end = text;
    while (*end >= '0' && *end <= '9') ++end;
    if (end == text) return true;  // no number at all reads 0, as atoi would
    int64_t v = 0;
    auto r = std::from_chars(text, end, v);
    if (r.ec == std::errc::result_out_of_range) return false;
    if (negative) return v == 0;
    if (v > dict_counter_max(k, size)) return false;
    *counter = static_cast<int32_t>(v);
    return true;
}

tallyd_dict *dict_buckets(const dict_kind &k, tallyd_sys_info_t *info) {
    if (!(info->*k.buckets)) info->*k.buckets = k.storage;
    return info->*k.buckets;
}

uint32_t dict_insert(const dict_kind &k, tallyd_sys_info_t *info, const char *key, int32_t n) {
    uint32_t size = dict_usable_size(k, info);
    if (!key || size == 0 || n <= 0 || n > dict_counter_max(k, size)) return 0;
    uint32_t bucket = tallyd_str_hash(key) % size;
    uint32_t id = dict_id(k, n, size, bucket);

    tallyd_dict *head = &dict_buckets(k, info)[bucket];
    if (head->id == 0) {
        char *name = copy_name(key);
        if (!name) return 0;
        std::free(head->name);
        *head = {id, name, nullptr};
        k.extra->tails[bucket] = nullptr;
        ++k.extra->entries;
        return id;
    }
    auto *e = static_cast<tallyd_dict *>(std::malloc(sizeof(tallyd_dict)));
    if (!e) return 0;
    char *name = copy_name(key);
    if (!name) {
        std::free(e);
        tallyd_log(LOG_ERR, "%s", k.malloc_fail);
        return 0;
    }
    *e = {id, name, nullptr};
    chain_tail(k, head, bucket)->next = e;
    k.extra->tails[bucket] = e;
    ++k.extra->entries;
    return id;
}

uint32_t dict_find_name(const dict_kind &k, tallyd_sys_info_t *info, const char *key) {
    uint32_t size = dict_usable_size(k, info);
    if (!key || size == 0 || (k.empty_key_is_none && key[0] == '\0')) return 0;
    const tallyd_dict *e = &dict_buckets(k, info)[tallyd_str_hash(key) % size];
    for (; e && !is_empty(e); e = e->next)
        if (std::strcmp(e->name, key) == 0) return e->id;
    return 0;
}

const char *dict_find_id(const dict_kind &k, tallyd_sys_info_t *info, uint32_t id) {
    uint32_t size = dict_usable_size(k, info);
    if (id == 0 || size == 0) return nullptr;
    const tallyd_dict *buckets = dict_buckets(k, info);
    // A composed id names its bucket; a plain counter can be anywhere.
    uint32_t first = k.composed_id ? id % size : 0;
    uint32_t last = k.composed_id ? first : size - 1;
    for (uint32_t b = first; b <= last; ++b)
        for (const tallyd_dict *e = &buckets[b]; e && !is_empty(e); e = e->next)
            if (e->id == id) return e->name;
    return nullptr;
}

void dict_clear(const dict_kind &k, tallyd_sys_info_t *info, int32_t count) {
    tallyd_dict *buckets = dict_buckets(k, info);
    if (count > k.capacity) count = k.capacity;
    for (int32_t b = 0; b < count; ++b) {
        tallyd_dict *e = buckets[b].next;
        while (e) {
            tallyd_dict *next = e->next;
            std::free(e->name);
            std::free(e);
            --k.extra->entries;
            e = next;
        }
        if (buckets[b].id != 0) --k.extra->entries;
        std::free(buckets[b].name);
        buckets[b] = {0, nullptr, nullptr};
        k.extra->tails[b] = nullptr;
    }
}
