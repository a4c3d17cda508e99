#include "db/recover.h"

#include "base/log.h"
#include "base/path.h"
#include "db/db_files.h"
#include "db/db_fs.h"
#include "db/db_set.h"
#include "db/schema.h"
#include "db/sql.h"
#include "db/top_list.h"

namespace {

void rebuild_main() {
    tallyd_db_set.db.close();
    db_fs_rm(tallyd_path(TALLYD_DB_MAIN));
    tallyd_reopen_avp_db(&tallyd_db_set);
    tallyd_log(LOG_WARNING, "tallyd, recover hour and day tables from malformed\n");
}

void rebuild_temp() {
    tallyd_db_set.temp_db.close();
    db_fs_rm(tallyd_path(TALLYD_DB_TEMP));
    tallyd_create_avp_temp_db(&tallyd_db_set);
}

void rebuild_backup() {
    tallyd_db_set.backup_hour_db.close();
    db_fs_rm(tallyd_path(TALLYD_DB_BACKUP));
    tallyd_create_avp_backup_hour_db(&tallyd_db_set);
}

void rebuild_flash() {
    tallyd_db_set.db_flash.close();
    db_fs_move_aside(tallyd_path(TALLYD_DB_FLASH));
    tallyd_create_avp_flash_db(&tallyd_db_set);
    tallyd_log(LOG_WARNING, "tallyd, recover week and month tables from malformed\n");
}

void rebuild_statistic() {
    tallyd_db_set.statistic_db.close();
    db_fs_rm(tallyd_path(TALLYD_DB_STATISTIC));
    tallyd_create_statistic_db(&tallyd_db_set);
}

}  // namespace

void tallyd_recover_from_malformed(uint32_t mask) {
    if (mask & TALLYD_RECOVER_DB) rebuild_main();
    if (mask & TALLYD_RECOVER_TEMP) rebuild_temp();
    if (mask & TALLYD_RECOVER_BACKUP) rebuild_backup();
    if (mask & TALLYD_RECOVER_FLASH) rebuild_flash();
    if (mask & TALLYD_RECOVER_STATISTIC) rebuild_statistic();
}

namespace {

// The mask bits of the database conn is connected to; 0 for a connection
// that is not one of the set's five rebuildable ones.
uint32_t own_bits(const sql_conn &conn) {
    const tallyd_db_set_t &s = tallyd_db_set;
    if (&conn == &s.db) return TALLYD_RECOVER_DB;
    if (&conn == &s.db_flash) return TALLYD_RECOVER_FLASH;
    if (&conn == &s.temp_db) return TALLYD_RECOVER_TEMP;
    if (&conn == &s.backup_hour_db) return TALLYD_RECOVER_BACKUP;
    if (&conn == &s.statistic_db) return TALLYD_RECOVER_STATISTIC;
    return 0;
}

// The size of the file the connection reads, as its VFS sees it; -1 when
// it cannot be told.
int64_t file_size(sql_conn &conn) {
    sqlite3_file *file = nullptr;
    sqlite3_int64 size = -1;
    if (sqlite3_file_control(conn.get(), "main", SQLITE_FCNTL_FILE_POINTER, &file) != SQLITE_OK ||
        !file || !file->pMethods || file->pMethods->xFileSize(file, &size) != SQLITE_OK)
        return -1;
    return size;
}

}  // namespace

bool tallyd_db_damaged(sql_conn &conn, const sql_error &err) {
    if (!err.failed()) return false;
    if (err.malformed()) return true;
    return std::string_view(err.text).starts_with("no such table") && conn && file_size(conn) == 0;
}

void tallyd_recover_damaged(sql_conn &conn, uint32_t mask) {
    if (&conn == &tallyd_db_set.top_list_db) {
        tallyd_replace_top_list_db();
        return;
    }
    const uint32_t own = own_bits(conn);
    tallyd_recover_from_malformed(own && mask && !(mask & own) ? own : mask);
}

bool tallyd_recover_if_damaged(sql_conn &conn, const sql_error &err, uint32_t mask) {
    if (!tallyd_db_damaged(conn, err)) return false;
    tallyd_recover_damaged(conn, mask);
    return true;
}

namespace {

constexpr const char *kProbeApWlan = "SELECT wlangrp_id FROM statis_ap_wlan LIMIT 1";
constexpr const char *kProbeApChart = "SELECT client_count FROM statis_ap_chart LIMIT 1";

}  // namespace

void tallyd_beta_migration_ap_wlan(sql_conn &statistic) {
    // Older layouts lack these columns; their tables are rebuilt, which
    // drops the rows (statis_ap_wlan gets its rows back from the
    // configuration).
    sql_table probe;
    if (sql_get_table(statistic.get(), kProbeApWlan, probe) != SQLITE_OK) {
        sql_exec(statistic.get(), "DROP TABLE statis_ap_wlan");
        tallyd_create_statis_ap_wlan(statistic);
    }
    if (sql_get_table(statistic.get(), kProbeApChart, probe) != SQLITE_OK) {
        sql_exec(statistic.get(), "DROP TABLE statis_ap_chart");
        // The chart of clients is gone from this layout; old files may still
        // carry it.
        sql_exec(statistic.get(), "DROP TABLE statis_client_chart");
        tallyd_create_statis_ap_chart(statistic);
    }
}
