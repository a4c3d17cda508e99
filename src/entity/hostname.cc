#include "entity/hostname.h"

#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "db/db_set.h"
#include "platform/xrepo.h"

int tallyd_get_sta_hostname(const char *mac, char *buf, int32_t size) {
    xconf_ptr list(xGetConfImpl("tallyd_get_sta_hostname", __LINE__, "sta-rename-list", 0));
    if (!mac || !list || !buf || size <= 0) return 0;
    for (xnode *c = xGetFirstChild(list.get()); c; c = xGetNextSibling(c)) {
        if (std::strcmp(xGetAttrString(c, "mac", ""), mac) != 0) continue;
        std::snprintf(buf, static_cast<size_t>(size), "%s", xGetAttrString(c, "rename", ""));
        return static_cast<int>(std::strlen(buf));
    }
    return 0;
}

void tallyd_set_sta_hostname(const char *mac, const char *name) {
    const uint32_t now = tallyd_now();
    const bool reset = name[0] == '\0';
    const char *stored = reset ? "" : "#";
    if (reset) tallyd_log(LOG_NOTICE, "tallyd, set default host name");
    sql_error err;
    sql_shown_run_log(tallyd_db_set.statistic_db, TALLYD_SET_HOST_NAME_SQL, 128,
                      "tallyd, value = %s, aErrMsg = %s\n", err, now, stored, mac);
    tallyd_log(LOG_DEBUG, "tallyd, update sta: %s, host_name: %s\n", mac, name);
}
