#include "db/top_list.h"

#include <cstdio>

#include "base/log.h"
#include "base/path.h"
#include "db/db_files.h"
#include "db/db_fs.h"
#include "db/db_set.h"
#include "db/recover.h"
#include "db/sql.h"
#include "db/tables.h"

namespace {

constexpr const char *kTopClientList =
    "CREATE TABLE top_client_list(\t\nid,\t\t\t\nclient_mac, \t\ntotal\t\t\t\n);";
constexpr const char *kTopSsidList =
    "CREATE TABLE top_ssid_list(\t\nid, \t\t\t\nssid,\t\t\t\nuplink,        \ndownlink\t\t\n);";
constexpr const char *kTopAppList =
    "CREATE TABLE top_app_list(\t\nid, \t\t\t\napp,\t\t\t\nuplink,\t\t\ndownlink\t\t\n);";
constexpr const char *kTopApList =
    "CREATE TABLE top_ap_list(\t\nid, \t\t\t\nap_mac,\t\t\ntotal\t\t\t\n);";
constexpr const char *kTotalClientList =
    "CREATE TABLE total_client_list (\t\nid, \t\t\t\nclient_mac\t\t\n);";

constexpr uint32_t kFlagApp = 0x1;
constexpr uint32_t kFlagClient = 0x10;
constexpr uint32_t kFlagAp = 0x100;
constexpr uint32_t kFlagSsid = 0x1000;

struct top_list {
    uint32_t bit;
    tallyd_table table;
    const char *create;
};

// Test order of the flag bits: the first bit set chooses the table.
constexpr top_list kLists[] = {
    {kFlagClient, tallyd_table::top_client_list, kTopClientList},
    {kFlagSsid, tallyd_table::top_ssid_list, kTopSsidList},
    {kFlagAp, tallyd_table::top_ap_list, kTopApList},
    {kFlagApp, tallyd_table::top_app_list, kTopAppList},
};

const top_list *choose(uint32_t flag) {
    for (const top_list &l : kLists)
        if (flag & l.bit) return &l;
    return nullptr;
}

// The AP and SSID lists count distinct clients through total_client_list,
// whichever table the flag word chose.
bool needs_total_clients(uint32_t flag) {
    return (flag & (kFlagAp | kFlagSsid)) != 0;
}

int open_top_list_db() {
    if (tallyd_db_set.top_list_db) return 0;
    if (tallyd_db_open(tallyd_path(TALLYD_DB_TOP_LIST), SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE,
                       tallyd_db_set.top_list_db) == SQLITE_OK)
        return 0;
    tallyd_log(LOG_ERR, "tallyd, Failed to open avp_top_list db\n");
    return -1;
}

int create_logged(const char *sql) {
    sql_error err;
    if (sql_exec(tallyd_db_set.top_list_db.get(), sql, &err) == SQLITE_OK) return 0;
    // The file holds nothing between two reports: a damaged one is replaced
    // by an empty one rather than failing every list from now on.
    if (tallyd_recover_if_damaged(tallyd_db_set.top_list_db, err, TALLYD_RECOVER_NONE) &&
        sql_exec(tallyd_db_set.top_list_db.get(), sql) == SQLITE_OK)
        return 0;
    tallyd_log(LOG_ERR, "tallyd, Failed to create table, tab = %s\n", sql);
    return -1;
}

int drop(tallyd_table table) {
    char sql[128];
    std::snprintf(sql, sizeof sql, "DROP TABLE %s", tallyd_table_name(table));
    return sql_exec(tallyd_db_set.top_list_db.get(), sql) == SQLITE_OK ? 0 : -1;
}

}  // namespace

int tallyd_create_top_list_table(uint32_t flag) {
    if (open_top_list_db() != 0) return -1;
    const top_list *l = choose(flag);
    if (!l) {
        tallyd_log(LOG_ERR, "tallyd, Incorrect flag = %d\n", static_cast<int32_t>(flag));
        return -1;
    }
    if (create_logged(l->create) != 0) return -1;
    if (needs_total_clients(flag) && create_logged(kTotalClientList) != 0) return -1;
    return 0;
}

int tallyd_drop_top_list_table(uint32_t flag) {
    const top_list *l = choose(flag);
    if (!l) {
        tallyd_log(LOG_WARNING, "tallyd, Incorrect flag = %d\n", static_cast<int32_t>(flag));
        return -1;
    }
    if (drop(l->table) != 0) {
        tallyd_log(LOG_ERR, "tallyd, Failed to drop table, tab = %s\n",
                   tallyd_table_name(l->table));
        return -1;
    }
    if (needs_total_clients(flag) && drop(tallyd_table::total_client_list) != 0) {
        tallyd_log(LOG_ERR, "tallyd, Failed to drop table total_client_list\n");
        return -1;
    }
    return 0;
}

int tallyd_replace_top_list_db() {
    tallyd_db_set.top_list_db.close();
    db_fs_rm(tallyd_path(TALLYD_DB_TOP_LIST));
    return open_top_list_db();
}
