#include "entity/hostname.h"

#include <cstdio>
#include <cstring>

#include "base/clock.h"
#include "base/log.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "platform/xrepo.h"

namespace {

// Run with its values bound, so that no MAC text can change it; printed with
// them when it fails.
constexpr sql_form kSetHost(
    "UPDATE statis_client_info_h SET time=%lu, host_name='%s' WHERE client_mac='%s'");

}  // namespace

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
    char sql[128];
    std::snprintf(sql, sizeof sql, kSetHost.printed(), static_cast<unsigned long>(now), stored,
                  mac);
    if (reset) tallyd_log(LOG_NOTICE, "tallyd, set default host name");

    sql_error err;
    sql_stmt st = sql_prepare(tallyd_db_set.statistic_db.get(), kSetHost.bound(), &err);
    if (st) {
        st.bind(1, int64_t{now});
        st.bind(2, std::string_view(stored));
        st.bind(3, std::string_view(mac));
        st.run(&err);
    }
    if (err.failed())
        tallyd_log(LOG_ERR, "tallyd, value = %s, aErrMsg = %s\n", sql, err.text.c_str());
    tallyd_log(LOG_DEBUG, "tallyd, update sta: %s, host_name: %s\n", mac, name);
}
