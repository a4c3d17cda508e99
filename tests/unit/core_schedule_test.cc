// First delays of the periodic tasks, from the newest stored row.

#include <gtest/gtest.h>

#include "core/schedule.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "flow/backup_task.h"
#include "flow/day_task.h"
#include "flow/hour_task.h"
#include "flow/ingest.h"
#include "flow/statis_task.h"
#include "support/test_root.h"

namespace {

constexpr tallyd_table kTable = tallyd_table::avp_top_client_hour;

class CoreSchedule : public root_test {
   protected:
    void SetUp() override {
        root_test::SetUp();
        ASSERT_EQ(tallyd_db_open(":memory:", SQLITE_OPEN_READWRITE, conn_), SQLITE_OK);
        sql_exec(conn_.get(), "CREATE TABLE avp_top_client_hour(time INTEGER)");
    }
    void TearDown() override {
        conn_.close();
        root_test::TearDown();
    }

    // Replaces the table's rows with one row of the given time text.
    void newest(const std::string &time) {
        sql_exec(conn_.get(), "DELETE FROM avp_top_client_hour");
        sql_exec(conn_.get(), ("INSERT INTO avp_top_client_hour VALUES(" + time + ")").c_str());
    }
    int32_t hour() { return tallyd_get_remanent_time(TALLYD_PERIOD_HOUR, conn_, kTable); }

    sql_conn conn_;
    sql_conn closed_;
};

TEST_F(CoreSchedule, HourDelayKeepsThePhaseOfTheNewestRow) {
    newest(std::to_string(kStartTime - 100));
    EXPECT_EQ(hour(), 200);
    newest(std::to_string(kStartTime - 300));
    EXPECT_EQ(hour(), 300);  // a whole period ago: a full period, never 0
    newest(std::to_string(kStartTime - 301));
    EXPECT_EQ(hour(), 299);
    newest(std::to_string(kStartTime));
    EXPECT_EQ(hour(), 300);
    newest(std::to_string(kStartTime - 3 * 300 - 17));
    EXPECT_EQ(hour(), 283);
}

TEST_F(CoreSchedule, ClockBehindTheNewestRowGivesMoreThanAPeriod) {
    newest(std::to_string(kStartTime + 50));
    EXPECT_EQ(hour(), 350);
    newest(std::to_string(kStartTime + 299));
    EXPECT_EQ(hour(), 599);  // up to 2P - 1
    // The difference is taken as a signed 32-bit number: a row 2^31 + 100
    // seconds ahead reads as about 68 years behind.
    newest(std::to_string(kStartTime + 0x80000000u + 100));
    EXPECT_EQ(hour(), 152);
}

TEST_F(CoreSchedule, PeriodsOfEveryKind) {
    newest(std::to_string(kStartTime - 100));
    EXPECT_EQ(tallyd_get_remanent_time(TALLYD_PERIOD_DAY, conn_, kTable), 7117);
    EXPECT_EQ(tallyd_get_remanent_time(TALLYD_PERIOD_WEEK, conn_, kTable), 43143);
    EXPECT_EQ(tallyd_get_remanent_time(TALLYD_PERIOD_MONTH, conn_, kTable), 172779);
    EXPECT_EQ(tallyd_get_remanent_time(TALLYD_PERIOD_BACKUP, conn_, kTable), 3487);
    EXPECT_EQ(tallyd_get_remanent_time(TALLYD_PERIOD_STATIS, conn_, kTable), 3495);
    EXPECT_EQ(tallyd_get_remanent_time(6, conn_, kTable), 0);
    EXPECT_EQ(tallyd_get_remanent_time(-1, conn_, kTable), 0);
}

TEST_F(CoreSchedule, NothingStoredOrNothingToAsk) {
    EXPECT_EQ(hour(), 300);  // empty table
    EXPECT_EQ(tallyd_get_remanent_time(TALLYD_PERIOD_BACKUP, conn_, kTable), 3587);
    newest("NULL");
    EXPECT_EQ(hour(), 300);

    EXPECT_EQ(tallyd_get_remanent_time(TALLYD_PERIOD_HOUR, closed_, kTable), -1);
    EXPECT_EQ(tallyd_get_remanent_time(9, closed_, kTable), -1);
    EXPECT_EQ(log_count("get remanent"), 0);

    EXPECT_EQ(tallyd_get_remanent_time(TALLYD_PERIOD_DAY, conn_, tallyd_table::avp_ap), 7217);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, get remanent aErrMsg = no such table: avp_ap\n"))
        << log_dump();
}

void stop_loop(void *, void *) {
    eloop_terminate();
}

TEST_F(CoreSchedule, TasksWhoseDatabaseIsClosedRunInTheFirstPasses) {
    // No database open: the rollups get a first delay of -1, which is kept and
    // makes them fire at once; each re-arms, except the statistics purge,
    // which ends itself without statistic_db. The flow task waits its 59 s.
    ASSERT_FALSE(tallyd_db_set.db);
    ASSERT_FALSE(tallyd_db_set.statistic_db);
    eloop_init(nullptr);
    EXPECT_EQ(tallyd_register_eloop_timer(), 0);
    eloop_register_timeout(0, 0, stop_loop, nullptr, nullptr);
    eloop_run();

    auto pending = [](eloop_timeout_handler h) {
        return eloop_cancel_timeout(h, ELOOP_ALL_CTX, ELOOP_ALL_CTX);
    };
    EXPECT_EQ(pending(stop_loop), 0);
    EXPECT_EQ(pending(tallyd_pre_handle_statis), 0);
    EXPECT_EQ(pending(tallyd_pre_handle_flow), 1);
    EXPECT_EQ(pending(tallyd_pre_handle_hour), 1);
    EXPECT_EQ(pending(tallyd_pre_backup_day), 1);
    EXPECT_EQ(pending(tallyd_pre_handle_day), 1);
    eloop_destroy();
}

}  // namespace
