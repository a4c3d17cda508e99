// The backup task: once every 3587 s the last hour of the hour tables is
// summed into backup_hour_db.
#include "flow/backup_task.h"

#include <cstdio>
#include <filesystem>
#include <string>

#include "base/clock.h"
#include "base/path.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/schema.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "flow/day_ssid.h"
#include "flow/hour_rollup.h"
#include "flow/tasks.h"

namespace {

constexpr int32_t kPeriod = 3587;

}  // namespace

int tallyd_backup_hour_db_fresh() {
    sqlite3 *&conn = tallyd_db_set.backup_hour_db;
    sql_close(&conn);
    const std::string path = tallyd_path(TALLYD_DB_BACKUP);
    std::error_code ec;
    std::filesystem::remove(path, ec);
    const int rc =
        sqlite3_open_v2(path.c_str(), &conn, SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE, nullptr);
    if (rc != SQLITE_OK) sql_close(&conn);
    if (!conn) {
        std::puts("Failed to create temporary backup_hour_db.db");
        return rc;
    }
    if (tallyd_create_backup_tables(conn) == 0)
        tallyd_insert_timestamp(conn, "avp_top_client_backup", 4);
    return rc;
}

void tallyd_pre_backup_day(void *, void *) {
    eloop_register_timeout(kPeriod, 0, tallyd_pre_backup_day, nullptr, nullptr);
    if (!tallyd_db_set.db || !tallyd_db_set.backup_hour_db) return;

    const uint32_t now = tallyd_now();
    tallyd_sys_info.last_backup_time = now;
    if (tallyd_pre_handle_avp_ssid(TALLYD_MODE_BACKUP, "avp_ap_ssid_hour", "avp_ssid_backup", now,
                                   tallyd_db_set.db, tallyd_db_set.backup_hour_db) == 0 &&
        tallyd_pre_handle_avp_top_client(TALLYD_MODE_BACKUP, "avp_top_client_hour",
                                         "avp_top_client_backup", now, tallyd_db_set.db,
                                         tallyd_db_set.backup_hour_db) == 0)
        return;
    tallyd_backup_hour_db_fresh();
}
