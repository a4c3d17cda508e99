// The database files: opening, restoring flash copies, creating afresh.
//
// Five databases are opened at start-up (top_list_db on first use). RAM
// files live under /tmp/tallyd, avp_flash.db is used in place in the flash
// directory. Openers fill their member of tallyd_db_set; a member is empty
// while its database is closed.
#pragma once

#include <cstdint>
#include <string>

#include "db/db_set.h"

// How long a statement waits for another connection's lock before it fails
// with "database is locked" (which is never taken for damage: the work is
// left to the task's next run).
inline constexpr int TALLYD_DB_BUSY_TIMEOUT_MS = 100;

// sqlite3_open_v2 of path into conn, closing what conn held first; a failed
// open always leaves conn closed. The connection gets the busy timeout.
// Returns the SQLite code.
int tallyd_db_open(const std::string &path, int flags, sql_conn &conn);

// 0 when db, db_flash, temp_db, backup_hour_db and statistic_db are all open,
// -1 otherwise (after printing which one failed).
int tallyd_init_avp_db(tallyd_db_set_t *set);

// Existing files that are not complete databases of their kind (garbage, a
// truncated or zero-byte file, a missing table) are logged and rebuilt: a RAM
// file as recovery would rebuild it, avp_flash.db after being moved aside as
// avp_flash.db.bad.
int tallyd_create_avp_db(tallyd_db_set_t *set);  // db at start-up: restore, verify, create
// db rebuilt while running: as at start-up, but the flash directory, where
// avp_flash.db is open, is never emptied.
int tallyd_reopen_avp_db(tallyd_db_set_t *set);
int tallyd_create_avp_flash_db(tallyd_db_set_t *set);  // db_flash
int tallyd_create_avp_temp_db(tallyd_db_set_t *set);   // temp_db, always fresh
int tallyd_create_avp_backup_hour_db(tallyd_db_set_t *set);
// The backup-hour fresh-file builder: closes backup_hour_db, removes its
// file and builds an empty one with its marker. Returns the open result.
int tallyd_build_avp_backup_hour_db(tallyd_db_set_t *set);
int tallyd_create_statistic_db(tallyd_db_set_t *set);

// Device paths (not root-prefixed) of the database files.
inline constexpr const char *TALLYD_DB_MAIN = "/tmp/tallyd/avp_1.0.db";
inline constexpr const char *TALLYD_DB_TEMP = "/tmp/tallyd/avp_temp.db";
inline constexpr const char *TALLYD_DB_BACKUP = "/tmp/tallyd/avp_backup_hour.db";
inline constexpr const char *TALLYD_DB_TOP_LIST = "/tmp/tallyd/avp_top_list.db";
inline constexpr const char *TALLYD_DB_STATISTIC = "/tmp/tallyd/statistic.db";
inline constexpr const char *TALLYD_DB_FLASH = "/etc/corvane-images/tallyd/avp_flash.db";
