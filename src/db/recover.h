// Rebuild of corrupt databases and the one schema migration.
//
// Whoever meets "database disk image is malformed" asks for the affected
// databases to be deleted and built anew through their openers (a damaged
// avp_flash.db is kept aside as avp_flash.db.bad); the mask names which. A
// rebuild removes and recreates only the databases it names: the flash
// directory is emptied at start-up only. Bits are handled in the order db, temp_db, backup_hour_db,
// db_flash, statistic_db, so one call can rebuild several databases.
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

// Brings a statistic database restored from flash to the current layout of
// statis_ap_wlan and statis_ap_chart.
void tallyd_beta_migration_ap_wlan(sql_conn &statistic);
