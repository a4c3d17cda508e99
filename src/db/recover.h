// Rebuild of corrupt databases and the one schema migration.
//
// Whoever meets a damaged file asks for the affected databases to be deleted
// and built anew through their openers (a damaged avp_flash.db is kept aside
// as avp_flash.db.bad); the mask names which. A rebuild removes and recreates
// only the databases it names: the flash directory is emptied at start-up
// only. Bits are handled in the order db, temp_db, backup_hour_db, db_flash,
// statistic_db, so one call can rebuild several databases.
//
// Damage never costs a database that does not share it: a caller's mask is
// used when it names the database the failed statement ran on, and
// otherwise that database alone is rebuilt (a week purge that meets a
// damaged avp_flash.db rebuilds avp_flash.db, not avp_1.0.db). Mask 0, which
// the hour, day and backup purges pass, still rebuilds nothing: the damage
// is met again by the next task that writes there.
#pragma once

#include <cstdint>

#include "db/sql.h"

// Masks name databases. db answers to either of two bits and db_flash to
// either of two; recovery treats both bits of a pair alike.
inline constexpr uint32_t TALLYD_RECOVER_NONE = 0;
inline constexpr uint32_t TALLYD_RECOVER_DB = 0x1 | 0x2;
inline constexpr uint32_t TALLYD_RECOVER_FLASH = 0x4 | 0x8;
inline constexpr uint32_t TALLYD_RECOVER_STATISTIC = 0x10;
inline constexpr uint32_t TALLYD_RECOVER_BACKUP = 0x20;
inline constexpr uint32_t TALLYD_RECOVER_TEMP = 0x40;

void tallyd_recover_from_malformed(uint32_t mask);

// True when err, the failure of a statement on conn, shows conn's file
// damaged: SQLite's text for a malformed file or for one that is no database,
// or a missing table in a file of zero bytes (a file cut to nothing under
// its open connection reads as an empty database). A lock, a dropped table
// or any other failure is not damage.
bool tallyd_db_damaged(sql_conn &conn, const sql_error &err);

// Rebuilds after damage met on conn, one of tallyd_db_set's connections:
// mask's databases when mask names conn's or is 0, else conn's alone. A damaged
// avp_top_list.db, which holds nothing between two reports, is replaced by
// an empty file.
void tallyd_recover_damaged(sql_conn &conn, uint32_t mask);

// Both of the above: true when err showed damage and the rebuild ran.
bool tallyd_recover_if_damaged(sql_conn &conn, const sql_error &err, uint32_t mask);

// Brings a statistic database restored from flash to the current layout of
// statis_ap_wlan and statis_ap_chart.
void tallyd_beta_migration_ap_wlan(sql_conn &statistic);
