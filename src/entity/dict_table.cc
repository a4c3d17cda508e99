#include "entity/dict_table.h"

#include <cstdlib>
#include <cstring>

#include "base/log.h"
#include "entity/text.h"

namespace {

// The table size in use, or 0 when it cannot serve as a modulus here (a zero
// size would divide by zero, a size above the capacity would index past the
// bucket array).
uint32_t usable_size(const dict_kind &k, const tallyd_sys_info_t *info) {
    int32_t size = info->*k.size;
    return size > 0 && size <= k.capacity ? static_cast<uint32_t>(size) : 0;
}

char *copy_name(const char *key) {
    size_t n = std::strlen(key) + 1;
    char *name = static_cast<char *>(std::malloc(n));
    if (name) std::memcpy(name, key, n);
    return name;
}

bool is_empty(const tallyd_dict *e) {
    return e->id == 0 || e->name == nullptr;
}

}  // namespace

tallyd_dict *dict_buckets(const dict_kind &k, tallyd_sys_info_t *info) {
    if (!(info->*k.buckets)) info->*k.buckets = k.storage;
    return info->*k.buckets;
}

uint32_t dict_insert(const dict_kind &k, tallyd_sys_info_t *info, const char *key, int32_t n) {
    uint32_t size = usable_size(k, info);
    if (!key || n == 0 || size == 0) return 0;
    uint32_t bucket = tallyd_str_hash(key) % size;
    uint32_t id = dict_id(k, n, size, bucket);

    tallyd_dict *head = &dict_buckets(k, info)[bucket];
    if (head->id == 0) {
        char *name = copy_name(key);
        if (!name) return 0;
        std::free(head->name);
        *head = {id, name, nullptr};
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
    tallyd_dict *tail = head;
    while (tail->next) tail = tail->next;
    tail->next = e;
    return id;
}

uint32_t dict_find_name(const dict_kind &k, tallyd_sys_info_t *info, const char *key) {
    uint32_t size = usable_size(k, info);
    if (!key || size == 0 || (k.empty_key_is_none && key[0] == '\0')) return 0;
    const tallyd_dict *e = &dict_buckets(k, info)[tallyd_str_hash(key) % size];
    for (; e && !is_empty(e); e = e->next)
        if (std::strcmp(e->name, key) == 0) return e->id;
    return 0;
}

const char *dict_find_id(const dict_kind &k, tallyd_sys_info_t *info, uint32_t id) {
    uint32_t size = usable_size(k, info);
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
            e = next;
        }
        std::free(buckets[b].name);
        buckets[b] = {0, nullptr, nullptr};
    }
}
