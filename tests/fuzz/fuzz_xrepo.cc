// One repository list file as the daemon finds it at start-up: the first
// byte picks the list, the rest is the file. The list is fetched and walked
// through the repository's interface as the event handlers walk lists, then
// the four dictionaries are reloaded from the repository as start-up does.
#include <iterator>
#include <string>

#include "base/path.h"
#include "base/sys_info.h"
#include "entity/dict.h"
#include "fuzz_daemon.h"
#include "platform/xrepo.h"

namespace {

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
    const std::string path = tallyd_path(TALLYD_XREPO_DIR) + "/" + list + ".xml";
    if (!fuzz_write_file(path, data + 1, size - 1)) fuzz_fail("cannot write the list");

    std::unique_ptr<xnode, xconf_free> conf(xGetConfImpl(__func__, __LINE__, list, 0));
    walk(conf.get(), 0);
    tallyd_load_dictionaries(&tallyd_sys_info);
    std::vector<tallyd_dict_stored> stored;
    for (const char *name : {"ap", "ssid", "apgroup", "dvcinfo"})
        tallyd_dict_read_stored(name, &stored);
    return 0;
}
