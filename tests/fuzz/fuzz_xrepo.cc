// One repository list file as the daemon finds it at start-up: the first
// byte picks the list, the rest is the file. The list is fetched and walked
// through the repository's interface as the event handlers walk lists; when
// it is one of the four dictionary lists, that dictionary is reloaded from it
// as start-up does and its stored entries are read as the tools read them.
//
// Only the dictionary whose list the input replaced is reloaded: the others'
// files are as their last reload found them, and a reload of an unchanged
// list leaves the dictionary as it was (its counter never goes down), so
// reloading them again would only cost time.
#include <cstring>
#include <iterator>
#include <string>
#include <vector>

#include "base/sys_info.h"
#include "entity/dict.h"
#include "fuzz_daemon.h"
#include "platform/xrepo.h"

namespace {

struct dict_list {
    const char *list;
    void (*reload)(tallyd_sys_info_t *);
    const char *stored;  // its name for tallyd_dict_read_stored
};

constexpr dict_list kDictLists[] = {
    {"avpssid-list", tallyd_update_avp_ssid_hash, "ssid"},
    {"avpap-list", tallyd_update_avp_ap_hash, "ap"},
    {"avpapgroup-list", tallyd_update_avp_apgroup_hash, "apgroup"},
    {"avpdvcinfo-list", tallyd_update_avp_dvcinfo_hash, "dvcinfo"},
};

// Reads every attribute the daemon reads, on every element of the list.
void walk(xnode *node, int depth) {
    for (xnode *c = xGetFirstChild(node); c; c = xGetNextSibling(c)) {
        (void)xGetName(c);
        for (const char *attr : {"id", "mac", "name", "ap", "ssid", "apgroup", "wlangroup"}) {
            (void)xGetAttrInt(c, attr, -1);
            (void)xGetAttrString(c, attr, "");
            (void)xGetAttrBool(c, attr, false);
        }
        if (depth < 8) walk(c, depth + 1);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
    fuzz_daemon_start();
    if (size == 0) return 0;
    const char *list = fuzz_xrepo_lists[data[0] % std::size(fuzz_xrepo_lists)];
    if (!fuzz_write_file(xrepo_list_path(list), data + 1, size - 1))
        fuzz_fail("cannot write the list");

    std::unique_ptr<xnode, xconf_free> conf(xGetConfImpl(__func__, __LINE__, list, 0));
    walk(conf.get(), 0);
    for (const dict_list &d : kDictLists) {
        if (std::strcmp(d.list, list) != 0) continue;
        d.reload(&tallyd_sys_info);
        std::vector<tallyd_dict_stored> stored;
        tallyd_dict_read_stored(d.stored, &stored);
    }
    return 0;
}
