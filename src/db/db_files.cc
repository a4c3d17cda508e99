#include "db/db_files.h"

#include <cstdio>
#include <string>

#include "base/clock.h"
#include "base/log.h"
#include "base/path.h"
#include "db/db_fresh.h"
#include "db/db_fs.h"
#include "db/flash_copy.h"
#include "db/recover.h"
#include "db/retention.h"
#include "db/schema.h"
#include "db/sql.h"

namespace {

constexpr int kOpenExisting = SQLITE_OPEN_READWRITE;                     // 2: never creates
constexpr int kOpenCreate = SQLITE_OPEN_READWRITE | SQLITE_OPEN_CREATE;  // 6

constexpr const char *kMainBase = "avp_1.0";
constexpr const char *kFlashBase = "avp_flash";
constexpr const char *kBackupBase = "avp_backup_hour";
constexpr const char *kStatisticBase = "statistic";

constexpr uint32_t kHour = 3600;
constexpr uint32_t kTwoHours = 7200;
constexpr uint32_t kDay = 86400;
constexpr uint32_t kWeek = 604800;
constexpr uint32_t kMonth = 2592000;

// Opens a file left by an earlier run or restored from flash, and checks that
// it is a complete database of its kind. SQLite reads a file lazily, so
// garbage, a truncated file or a zero-byte one would open fine and then fail
// every statement for ever; such a file is logged with SQLite's message and
// counts as one that will not open: the caller builds that database afresh.
int db_open_existing(const std::string &path, sql_conn &conn, tallyd_schema schema) {
    sql_error err;
    int rc = tallyd_db_open(path, kOpenExisting, conn);
    if (rc == SQLITE_OK)
        rc = tallyd_schema_check(conn, schema, &err);
    else
        err = {rc, sqlite3_errstr(rc)};
    if (rc != SQLITE_OK) {
        tallyd_log(LOG_ERR, "tallyd, %s is not a usable database, aErrMsg = %s\n", path.c_str(),
                   err.text.c_str());
        conn.close();
    }
    return rc;
}

// Moves the flash copy of base into RAM (consuming it) and checks it against
// its md5 file. True when the copy verified and opens.
bool restore_from_flash(std::string_view base, sql_conn &conn, tallyd_schema schema) {
    std::string ram_dir = tallyd_path(TALLYD_RAM_DIR);
    db_fs_move_copies(tallyd_path(TALLYD_FLASH_DIR), base, ram_dir);
    std::string md5 = std::string(base) + ".md5";
    if (!tallyd_md5_verify(md5.c_str())) return false;
    return db_open_existing(db_fs_db_path(TALLYD_RAM_DIR, base), conn, schema) == SQLITE_OK;
}

bool flash_copy_exists(std::string_view base) {
    return db_fs_exists(db_fs_db_path(TALLYD_FLASH_DIR, base));
}

// Rows outside the kept range go when db is opened; the first failing group
// ends the purge.
int purge_main(sql_conn &db, uint32_t now) {
    int rc = tallyd_purge_client_curve(now - kHour, db);
    if (rc == 0) rc = tallyd_purge_hour(now - kHour, db);
    if (rc == 0) rc = tallyd_purge_day(now - kDay, db);
    return rc;
}

int build_main(tallyd_db_set_t *set, const std::string &ram) {
    db_fs_rm_rf(ram);
    int rc = tallyd_db_open(ram, kOpenCreate, set->db);
    if (rc != SQLITE_OK) {
        tallyd_log(LOG_ERR, "tallyd, Failed to open the avp.db\n");
        return rc;
    }
    tallyd_set_db_pragmas(set->db);
    if (tallyd_create_main_tables(set->db) != 0) return SQLITE_ERROR;
    tallyd_insert_timestamp(set->db, tallyd_table::avp_top_client_day, 1);
    return SQLITE_OK;
}

// A new file at ram in conn (closed and removed first): tables, then the
// marker row. Returns the open result; conn is closed when the open failed.
int build_fresh(sql_conn &conn, const std::string &ram, int (*create_tables)(sql_conn &),
                tallyd_table marker_table, int32_t marker_kind) {
    conn.close();
    db_fs_rm_rf(ram);
    int rc = tallyd_db_open(ram, kOpenCreate, conn);
    if (conn && create_tables(conn) == 0) tallyd_insert_timestamp(conn, marker_table, marker_kind);
    return rc;
}

}  // namespace

int tallyd_db_open(const std::string &path, int flags, sql_conn &conn) {
    conn.close();
    sqlite3 *handle = nullptr;
    int rc = sqlite3_open_v2(path.c_str(), &handle, flags, nullptr);
    // SQLite hands out a handle even when opening fails; it is closed here.
    sql_conn opened(handle);
    // A reader elsewhere (a backup, the operator's sqlite3) holds its lock for
    // a moment; waiting longer would stall the one loop that serves requests.
    sqlite3_busy_timeout(handle, TALLYD_DB_BUSY_TIMEOUT_MS);
    if (rc == SQLITE_OK) conn = std::move(opened);
    return rc;
}

namespace {

// at_start: the flash directory may be emptied (never while running, when
// avp_flash.db is open in it).
int open_main(tallyd_db_set_t *set, bool at_start) {
    if (!set) return -1;
    uint32_t now = tallyd_now();
    std::string ram = db_fs_db_path(TALLYD_RAM_DIR, kMainBase);
    bool damaged = false;
    if (db_fs_exists(ram)) {
        // Left by an earlier run of the daemon: used as it is, or, when it is
        // not a complete database, rebuilt in place as recovery would.
        if (db_open_existing(ram, set->db, tallyd_schema::main) == SQLITE_OK)
            return purge_main(set->db, now);
        damaged = true;
    } else {
        db_fs_mkdir_p(tallyd_path(TALLYD_RAM_DIR));
    }
    if (!flash_copy_exists(kMainBase)) {
        // No RAM file and no main copy at start-up: the saved state is not
        // trusted as a whole and everything in the flash directory goes,
        // avp_flash.db included, before the flash opener builds a new one. A
        // damaged RAM file costs only itself.
        if (at_start && !damaged) db_fs_empty_dir(tallyd_path(TALLYD_FLASH_DIR));
    } else if (restore_from_flash(kMainBase, set->db, tallyd_schema::main)) {
        return purge_main(set->db, now);
    }
    return build_main(set, ram);
}

}  // namespace

int tallyd_create_avp_db(tallyd_db_set_t *set) {
    return open_main(set, true);
}

int tallyd_reopen_avp_db(tallyd_db_set_t *set) {
    return open_main(set, false);
}

int tallyd_create_avp_flash_db(tallyd_db_set_t *set) {
    if (!set) return -1;
    uint32_t now = tallyd_now();
    std::string path = db_fs_db_path(TALLYD_FLASH_DIR, kFlashBase);
    if (db_fs_exists(path)) {
        if (db_open_existing(path, set->db_flash, tallyd_schema::flash) == SQLITE_OK) {
            int rc = tallyd_purge_week(now - kWeek, set->db_flash);
            if (rc == 0) rc = tallyd_purge_month(now - kMonth, set->db_flash);
            return rc;
        }
        tallyd_log(LOG_ERR, "tallyd, open the old %s failed\n", "avp_flash.db");
        // Week and month rows may still be read out of it by hand.
        db_fs_move_aside(path);
    } else {
        db_fs_mkdir_p(tallyd_path(TALLYD_FLASH_DIR));
    }
    int rc = tallyd_db_open(path, kOpenCreate, set->db_flash);
    if (rc != SQLITE_OK) {
        tallyd_log(LOG_ERR, "tallyd, create new %s failed\n", "avp_flash.db");
        return rc;
    }
    tallyd_set_db_pragmas(set->db_flash);
    if (tallyd_create_flash_tables(set->db_flash) != 0) return SQLITE_ERROR;
    tallyd_insert_timestamp(set->db_flash, tallyd_table::avp_ssid_month, 3);
    tallyd_insert_timestamp(set->db_flash, tallyd_table::avp_ssid_week, 2);
    return SQLITE_OK;
}

int tallyd_create_avp_temp_db(tallyd_db_set_t *set) {
    if (!set) return -1;
    // Flow rows are staged only until the next rollup: never kept over a
    // restart or a rebuild.
    set->temp_db.close();
    std::string path = tallyd_path(TALLYD_DB_TEMP);
    db_fs_rm_rf(path);
    int rc = tallyd_db_open(path, kOpenCreate, set->temp_db);
    if (set->temp_db)
        tallyd_create_temp_tables(set->temp_db);
    else
        std::puts("Failed to create temporary avp_temp.db");
    return rc;
}

int tallyd_create_avp_backup_hour_db(tallyd_db_set_t *set) {
    if (!set) return -1;
    uint32_t cut = tallyd_now() - kTwoHours;
    std::string ram = db_fs_db_path(TALLYD_RAM_DIR, kBackupBase);
    if (db_fs_exists(ram) &&
        db_open_existing(ram, set->backup_hour_db, tallyd_schema::backup) == SQLITE_OK)
        return tallyd_purge_backup(cut, set->backup_hour_db);
    if (flash_copy_exists(kBackupBase) &&
        restore_from_flash(kBackupBase, set->backup_hour_db, tallyd_schema::backup))
        return tallyd_purge_backup(cut, set->backup_hour_db);
    tallyd_build_avp_backup_hour_db(set);
    return 0;
}

int tallyd_build_avp_backup_hour_db(tallyd_db_set_t *set) {
    if (!set) return -1;
    std::string ram = db_fs_db_path(TALLYD_RAM_DIR, kBackupBase);
    int rc = build_fresh(set->backup_hour_db, ram, tallyd_create_backup_tables,
                         tallyd_table::avp_top_client_backup, 4);
    if (!set->backup_hour_db) std::puts("Failed to create temporary backup_hour_db.db");
    return rc;
}

int tallyd_create_statistic_db(tallyd_db_set_t *set) {
    if (!set) return -1;
    uint32_t now = tallyd_now();
    std::string ram = db_fs_db_path(TALLYD_RAM_DIR, kStatisticBase);
    if (db_fs_exists(ram) &&
        db_open_existing(ram, set->statistic_db, tallyd_schema::statistic) == SQLITE_OK) {
        tallyd_purge_statistic(now - kTwoHours, set->statistic_db, 7200);
        tallyd_purge_statistic(now - kDay, set->statistic_db, 86400);
        return 0;
    }
    if (flash_copy_exists(kStatisticBase) &&
        restore_from_flash(kStatisticBase, set->statistic_db, tallyd_schema::statistic_restored)) {
        // Daily before hourly here, unlike a file found in RAM; and only a
        // file that comes back from flash can be of an older layout.
        tallyd_purge_statistic(now - kDay, set->statistic_db, 86400);
        tallyd_purge_statistic(now - kTwoHours, set->statistic_db, 7200);
        tallyd_beta_migration_ap_wlan(set->statistic_db);
        return 0;
    }
    int rc = build_fresh(set->statistic_db, ram, tallyd_create_statistic_tables,
                         tallyd_table::statis_client_d, 5);
    if (!set->statistic_db) std::printf("Failed to create statistic.db,  rc = %d\n", rc);
    return 0;
}

int tallyd_init_avp_db(tallyd_db_set_t *set) {
    if (!set) return -1;
    // Each step is judged by its handle, not by its result: a database that
    // opened but failed its purge or part of its tables is still served.
    struct step {
        int (*open)(tallyd_db_set_t *);
        sql_conn tallyd_db_set_t::*member;
        const char *failure;
    };
    static constexpr step kSteps[] = {
        {tallyd_create_avp_db, &tallyd_db_set_t::db, "Failed to create db"},
        {tallyd_create_avp_flash_db, &tallyd_db_set_t::db_flash, "Failed to create db_flash"},
        {tallyd_create_avp_temp_db, &tallyd_db_set_t::temp_db, "Failed to create temp_db"},
        {tallyd_create_avp_backup_hour_db, &tallyd_db_set_t::backup_hour_db,
         "Failed to create backup_hour_db"},
        {tallyd_create_statistic_db, &tallyd_db_set_t::statistic_db,
         "Failed to create statistic db"},
    };
    for (const step &s : kSteps) {
        s.open(set);
        if (!(set->*s.member)) {
            std::puts(s.failure);
            return -1;
        }
    }
    return 0;
}
