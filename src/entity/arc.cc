#include "entity/arc.h"

#include <dirent.h>
#include <unistd.h>

#include <cstring>
#include <string>

#include "base/file.h"
#include "base/log.h"
#include "base/path.h"
#include "platform/xrepo.h"

void tallyd_load_arc_from_xml(tallyd_sys_info_t *info) {
    xconf_ptr sys(xGetConfImpl("tallyd_load_arc_from_xml", __LINE__, "system", 0));
    if (!sys) {
        info->qpx_push = 0;
        return;
    }
    bool arc = true, qpx = false;
    if (xnode *internal = xGetChild(sys.get(), "internal"))
        arc = xGetAttrBool(internal, "arc-app-enable", true);
    if (xnode *push = xGetChild(sys.get(), "qpx"))
        qpx = xGetAttrBool(push, "qpxpushenabled", false);
    info->qpx_push = arc && qpx ? 1 : 0;
}

void tallyd_arc_switch(uint32_t value) {
    if (value == 0) {
        tallyd_sys_info.qpx_push = 0;
        tallyd_del_arc_files();
    } else {
        tallyd_sys_info.qpx_push = 1;
    }
    tallyd_log(LOG_DEBUG, "tallyd, arc qpx interface: %s\n", value == 1 ? "enabled" : "disabled");
}

void tallyd_del_arc_files() {
    const std::string dir = tallyd_path(TALLYD_RAM_DIR);
    tallyd_dir d(opendir(dir.c_str()));
    if (!d) return;
    while (const dirent *e = readdir(d.get()))
        if (std::strstr(e->d_name, "arc")) unlink((dir + "/" + e->d_name).c_str());
}
