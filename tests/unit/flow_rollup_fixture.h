// Fixture of the rollup tests: the daemon's databases opened in a temporary
// root on the default platform, the event loop ready for the tasks to re-arm,
// and helpers to fill, read and corrupt tables.
#pragma once

#include <sqlite3.h>

#include <cstdint>
#include <string>

#include "base/clock.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "support/db_corrupt.h"
#include "support/db_test.h"

class FlowRollup : public db_root_test {
   protected:
    void SetUp() override {
        db_root_test::SetUp();
        tallyd_sys_info = {};
        tallyd_sys_info.db_max_size = 15000000;
        tallyd_sys_info.db_flash_max_size = 15000000;
        eloop_init(nullptr);
        tallyd_create_avp_db(&tallyd_db_set);
        tallyd_create_avp_temp_db(&tallyd_db_set);
        tallyd_create_avp_backup_hour_db(&tallyd_db_set);
        tallyd_create_statistic_db(&tallyd_db_set);
        ASSERT_TRUE(tallyd_db_set.db && tallyd_db_set.temp_db && tallyd_db_set.backup_hour_db &&
                    tallyd_db_set.statistic_db);
    }
    void TearDown() override {
        eloop_destroy();
        tallyd_sys_info = {};
        db_root_test::TearDown();
    }

   public:
    // True when task is armed in the event loop (and disarms it).
    static bool armed(void (*task)(void *, void *)) {
        return eloop_cancel_timeout(task, ELOOP_ALL_CTX, ELOOP_ALL_CTX) == 1;
    }

   protected:
    // The next statement touching table in the file behind conn fails with
    // "database disk image is malformed".
    void corrupt(sql_conn &conn, const char *device_path, const char *table) {
        ASSERT_TRUE(corrupt_table(conn, path(device_path).c_str(), table));
    }
};
