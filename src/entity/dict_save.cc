#include "entity/dict_save.h"

#include <string>
#include <unordered_map>
#include <vector>

#include "platform/xrepo.h"

namespace {

struct queued_entry {
    int32_t counter;  // the list stores the counter, never the composed id
    std::string key;
};

std::unordered_map<const dict_kind *, std::vector<queued_entry>> &queues() {
    static std::unordered_map<const dict_kind *, std::vector<queued_entry>> q;
    return q;
}

uint64_t saves = 0;

// Appends one child per entry to the fetched list; false when a node cannot
// be made (the rest are then left queued with it).
bool append(const dict_kind &k, xnode *list, const queued_entry &e) {
    xnode *node = xNewImpl(k.node, 0);
    if (!node) return false;
    xSetAttrFormat(node, "id", "%d", e.counter);
    xSetAttr(node, k.key_attr, e.key.c_str());
    if (xLinkChild(list, node)) return true;
    xFree(node);
    return false;
}

}  // namespace

void dict_save_queue(const dict_kind &k, const char *key, int32_t counter) {
    queues()[&k].push_back({counter, key});
}

int dict_save_flush(const dict_kind &k) {
    auto it = queues().find(&k);
    if (it == queues().end() || it->second.empty()) return 0;
    std::vector<queued_entry> &pending = it->second;
    xconf_ptr list(xGetConfImpl(k.add_tag, __LINE__, k.list, 0));
    if (!list) {
        pending.clear();
        return 0;
    }
    for (const queued_entry &e : pending)
        if (!append(k, list.get(), e)) return -1;
    ++saves;
    if (repoSaveCurrent(k.list, list.get()) != 0) return -1;
    pending.clear();
    return 0;
}

void dict_save_drop(const dict_kind &k) {
    queues().erase(&k);
}

uint64_t dict_save_count() {
    return saves;
}
