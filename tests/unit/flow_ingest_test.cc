// Flow ingestion driven directly: spool files in, avp_base rows out.

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "base/path.h"
#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "eloop/eloop.h"
#include "entity/dict.h"
#include "flow/ingest.h"
#include "sim/arc_writer.h"
#include "support/db_corrupt.h"
#include "support/db_test.h"
#include "support/test_root.h"

namespace {

constexpr const char *kAp1 = "00:1a:2b:00:00:01";
constexpr const char *kAp2 = "00:1a:2b:00:00:02";

struct row {
    std::string time, app, port, client_mac, ap_mac, ssid, uplink, downlink, total, category,
        group_id;
    std::string app_type, port_type, uplink_type;
};

ArcFlowRecord entry(const char *app, const char *client, const char *ap, const char *ssid,
                    uint64_t down, const char *category = nullptr) {
    ArcFlowRecord r = ArcFlowRecord_init_zero;
    std::snprintf(r.app, sizeof r.app, "%s", app);
    r.port = 443;
    std::snprintf(r.client_mac, sizeof r.client_mac, "%s", client);
    std::snprintf(r.ap_mac, sizeof r.ap_mac, "%s", ap);
    std::snprintf(r.ssid, sizeof r.ssid, "%s", ssid);
    r.downlink = down;
    r.uplink = down / 10;
    r.total = r.uplink + r.downlink;
    r.has_category = category != nullptr;
    if (category) std::snprintf(r.category, sizeof r.category, "%s", category);
    r.start_time = 1;
    r.end_time = 2;
    return r;
}

// n entries of client 02:00:00:00:00:<i> on ap, downlink i + 1.
std::vector<ArcFlowRecord> entries(int n, const char *ap) {
    std::vector<ArcFlowRecord> v;
    for (int i = 0; i < n; ++i) {
        char client[18];
        std::snprintf(client, sizeof client, "02:00:00:00:00:%02x", i & 0xff);
        v.push_back(entry("HTTPS", client, ap, "corp", static_cast<uint64_t>(i) + 1, "Web"));
    }
    return v;
}

class FlowIngest : public db_root_test {
   protected:
    void SetUp() override {
        db_root_test::SetUp();
        tallyd_sys_info.ap_max = 1024;
        tallyd_sys_info.ssid_max = 256;
        tallyd_sys_info.apgroup_max = 256;
        tallyd_sys_info.dvcinfo_max = 256;
        tallyd_dict_reset(&tallyd_sys_info);
        std::filesystem::create_directories(spool());
        tallyd_create_avp_db(&tallyd_db_set);
        tallyd_create_avp_temp_db(&tallyd_db_set);
        ASSERT_TRUE(tallyd_db_set.db);
        ASSERT_TRUE(tallyd_db_set.temp_db);
    }

    void TearDown() override {
        tallyd_dict_reset(&tallyd_sys_info);
        db_root_test::TearDown();
    }

    std::string spool() const { return path(TALLYD_SPOOL_DIR); }

    void put(const std::string &name, const std::vector<ArcFlowRecord> &recs,
             arc_bad bad = arc_bad::none, bool with_serial = true) {
        auto msg = std::make_unique<ArcMessage>();
        *msg = ArcMessage_init_zero;
        msg->has_serial = with_serial;
        std::snprintf(msg->serial, sizeof msg->serial, "SN1");
        msg->has_model = true;  // ignored fields must still decode
        std::snprintf(msg->model, sizeof msg->model, "VX-AP320");
        msg->has_timestamp = true;
        msg->timestamp = 123;
        for (const auto &r : recs) msg->records[msg->records_count++] = r;
        ASSERT_EQ(arc_write_file(spool(), name, arc_encode(*msg, bad)), 0);
    }

    std::vector<row> rows() const {
        std::vector<row> out;
        sql_table t;
        sql_get_table(tallyd_db_set.temp_db.get(),
                      "SELECT time, app, port, client_mac, ap_mac, ssid, uplink, downlink, total, "
                      "category, group_id, typeof(app), typeof(port), typeof(uplink) "
                      "FROM avp_base ORDER BY rowid",
                      t);
        for (int r = 0; r < t.rows(); ++r) {
            auto v = [&](int c) { return std::string(t.at(r, c) ? t.at(r, c) : "NULL"); };
            out.push_back({v(0), v(1), v(2), v(3), v(4), v(5), v(6), v(7), v(8), v(9), v(10), v(11),
                           v(12), v(13)});
        }
        return out;
    }

    size_t spool_entries() const {
        size_t n = 0;
        for ([[maybe_unused]] auto &e : std::filesystem::directory_iterator(spool())) ++n;
        return n;
    }
};

TEST_F(FlowIngest, EntriesBecomeRowsWithRunTimeIdsAndGroup) {
    sql_exec(tallyd_db_set.db.get(),
             "INSERT INTO avp_ap(time, ap_mac, model, group_id) VALUES(0, '00:1a:2b:00:00:01', "
             "'m', 7)");
    put(std::string(kAp1) + "-1", entries(2, kAp1));
    put(std::string(kAp1) + "-2", {entry("Zoom", "02:00:00:00:00:09", kAp1, "guest", 5)});
    // Unknown to avp_ap: the default group. Counters beyond the signed 64-bit
    // range and ports beyond 2^31 - 1 are stored as their decimal literals are.
    ArcFlowRecord big = entry("Steam", "02:00:00:00:00:0a", kAp2, "corp", 0);
    big.uplink = 18446744073709551615ULL;
    big.port = 4294967295U;
    put(std::string(kAp2) + "-1", {big});
    put("notes.txt", entries(1, kAp1));  // no dash and colon: never read

    EXPECT_EQ(tallyd_handle_flow(kStartTime + 5), 0);

    std::vector<row> got = rows();
    ASSERT_EQ(got.size(), 4u) << log_dump();
    int32_t corp = tallyd_avp_ssid_lookup_name("corp");
    int32_t ap1 = tallyd_avp_ap_lookup_name(kAp1);
    ASSERT_GT(corp, 0);
    ASSERT_GT(ap1, 0);
    for (const row &r : got) {
        EXPECT_EQ(r.time, std::to_string(kStartTime + 5));
        EXPECT_EQ(r.app_type, "text");
        EXPECT_EQ(r.port_type, "integer");
        if (r.ap_mac == std::to_string(ap1)) {
            EXPECT_EQ(r.group_id, "7");
        }
    }
    const row *https = nullptr, *steam = nullptr;
    for (const row &r : got) {
        if (r.app == "HTTPS" && r.client_mac == "02:00:00:00:00:01") https = &r;
        if (r.app == "Steam") steam = &r;
    }
    ASSERT_TRUE(https && steam);
    EXPECT_EQ(https->ssid, std::to_string(corp));
    EXPECT_EQ(https->downlink, "2");
    EXPECT_EQ(https->total, "2");  // 2 / 10 + 2
    EXPECT_EQ(https->category, "Web");
    EXPECT_EQ(https->uplink_type, "integer");
    EXPECT_EQ(steam->group_id, "1");
    EXPECT_EQ(steam->ap_mac, std::to_string(tallyd_avp_ap_lookup_name(kAp2)));
    EXPECT_EQ(steam->port, "-1");
    EXPECT_EQ(steam->uplink_type, "real");
    EXPECT_EQ(steam->category, "");

    EXPECT_EQ(spool_entries(), 0u);
    EXPECT_NE(sqlite3_get_autocommit(tallyd_db_set.temp_db.get()), 0);  // committed
}

TEST_F(FlowIngest, MalformedFilesAreDroppedWholeAndTheRunGoesOn) {
    put(std::string(kAp1) + "-1", entries(50, kAp1));  // 50 is the limit, still fine
    put(std::string(kAp2) + "-1", entries(50, kAp2), arc_bad::too_many);
    put(std::string(kAp2) + "-2", entries(3, kAp2), arc_bad::missing_field);
    put(std::string(kAp2) + "-3", entries(3, kAp2), arc_bad::oversize);
    put(std::string(kAp2) + "-4", entries(3, kAp2), arc_bad::truncated);
    put(arc_spool_name(kAp2, 5, arc_bad::no_colon), entries(3, kAp2));
    put(std::string(kAp2) + "-6", entries(3, kAp2), arc_bad::none, false);  // no field 1
    put("00:1a:2b:00:00:03-1", entries(2, "00:1a:2b:00:00:03"));
    write_file(std::string(TALLYD_SPOOL_DIR) + "/00:1a:2b:00:00:04-1", "");  // empty: no field 1
    std::filesystem::create_directories(spool() + "/sub:dir-1");  // cannot be read as a file
    write_file(std::string(TALLYD_SPOOL_DIR) + "/.hidden:x-1", "");

    tallyd_handle_flow(kStartTime);

    std::vector<row> got = rows();
    ASSERT_EQ(got.size(), 52u) << log_dump();
    int32_t ap2 = tallyd_avp_ap_lookup_name(kAp2);
    for (const row &r : got) EXPECT_NE(r.ap_mac, std::to_string(ap2));
    EXPECT_EQ(log_count("tallyd, failed to decode ARC\n"), 4);
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, failed to decode ARC\n"));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, failed to open " + spool() + "/sub:dir-1\n"));
    EXPECT_EQ(spool_entries(), 0u);
}

TEST_F(FlowIngest, QuotesAreEscapedInTextsAndRejectedInClientMacs) {
    std::string long_app = std::string(60, 'a') + "'bc";  // 63 characters
    put(std::string(kAp1) + "-1", {entry("it's", "02:00:00:00:00:01", kAp1, "corp", 1, "kid's"),
                                   entry("ok", "02:00:00:00'00:02", kAp1, "corp", 2),
                                   entry(long_app.c_str(), "02:00:00:00:00:03", kAp1, "corp", 3)});

    tallyd_handle_flow(kStartTime);

    std::vector<row> got = rows();
    ASSERT_EQ(got.size(), 2u) << log_dump();
    EXPECT_EQ(got[0].app, "it's");
    EXPECT_EQ(got[0].category, "kid's");
    // The escape stops two bytes short of the 64-byte storage, and stops
    // writing after the doubled quote: "bc" is lost.
    EXPECT_EQ(got[1].app, std::string(60, 'a') + "'");
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, escape app = it''s"));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, escape category = kid''s"));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, illegal arc client_mac = 02:00:00:00'00:02"));
}

TEST_F(FlowIngest, EntriesWithoutIdsAreSkipped) {
    tallyd_sys_info.ap_max = 0;  // an unusable AP table: every mapping answers 0
    put(std::string(kAp1) + "-1", entries(2, kAp1));

    tallyd_handle_flow(kStartTime);

    EXPECT_TRUE(rows().empty());
    EXPECT_EQ(log_count("tallyd, failed to get ssid_id = 1, ap_id = 0\n"), 2) << log_dump();
}

TEST_F(FlowIngest, FailedInsertLogsTheStatementAndDropsTheRestOfTheFile) {
    sql_exec(tallyd_db_set.temp_db.get(), "DROP TABLE avp_base");
    put(std::string(kAp1) + "-1", {entry("it's", "02:00:00:00:00:01", kAp1, "corp", 7, "Web"),
                                   entry("x", "02:00:00:00:00:02", kAp1, "corp", 8)});
    put(std::string(kAp2) + "-1", entries(2, kAp2));

    tallyd_handle_flow(kStartTime);

    int32_t ap1 = tallyd_avp_ap_lookup_name(kAp1);
    char expected[512];
    std::snprintf(expected, sizeof expected,
                  "tallyd, value = INSERT INTO avp_base(time, app, port, client_mac, ap_mac, "
                  "ssid, uplink, downlink, total, category, group_id) VALUES(%u, 'it''s', 443, "
                  "'02:00:00:00:00:01', %d, 1, 0, 7, 7, 'Web', 1), aErrMsg = no such table: "
                  "avp_base\n",
                  kStartTime, ap1);
    EXPECT_TRUE(logged(LOG_ERR, expected)) << log_dump();
    EXPECT_EQ(log_count("aErrMsg = no such table: avp_base"), 2);  // one per file
    EXPECT_EQ(spool_entries(), 0u);
}

TEST_F(FlowIngest, MalformedTempDbIsRebuiltDuringTheRun) {
    std::string file = path(TALLYD_DB_TEMP);
    ASSERT_TRUE(corrupt_table(tallyd_db_set.temp_db, file.c_str(), "avp_base"));
    put(std::string(kAp1) + "-1", entries(2, kAp1));
    put(std::string(kAp2) + "-1", entries(2, kAp2));

    tallyd_handle_flow(kStartTime);

    EXPECT_EQ(log_count("aErrMsg = database disk image is malformed\n"), 1) << log_dump();
    ASSERT_TRUE(tallyd_db_set.temp_db);
    // The file that met the damage loses its remaining entry; the other goes
    // into the new, empty avp_base outside any transaction, so the run's
    // COMMIT finds none.
    EXPECT_EQ(rows().size(), 2u);
    EXPECT_EQ(log_count("tallyd, flow commit aErrMsg = "), 1);
    EXPECT_EQ(spool_entries(), 0u);
}

TEST_F(FlowIngest, MalformedMainDbDuringGroupLookupIsRecovered) {
    std::string file = path(TALLYD_DB_MAIN);
    // The lookup reads the index, the insert the table: both are damaged.
    ASSERT_TRUE(corrupt_table(tallyd_db_set.db, file.c_str(), "avp_ap"));
    ASSERT_TRUE(corrupt_table(tallyd_db_set.db, file.c_str(), "avp_ap_idx"));
    put(std::string(kAp1) + "-1", entries(1, kAp1));
    put(std::string(kAp1) + "-2", entries(1, kAp1));

    tallyd_handle_flow(kStartTime);

    std::string lookup =
        "tallyd, value = SELECT group_id FROM avp_ap WHERE "
        "ap_mac='00:1a:2b:00:00:01', aErrMsg = database disk image is malformed\n";
    EXPECT_TRUE(logged(LOG_ERR, lookup)) << log_dump();
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, recover hour and day tables from malformed\n"));
    ASSERT_EQ(rows().size(), 2u);
    EXPECT_EQ(rows()[0].group_id, "1");
    EXPECT_EQ(rows()[1].group_id, "1");
    sql_table t;
    EXPECT_EQ(sql_get_table(tallyd_db_set.db.get(), "SELECT count(*) FROM avp_ap", t), SQLITE_OK);
    // The lookup after the rebuild read the new db; nothing of it stays open.
    EXPECT_NE(sqlite3_get_autocommit(tallyd_db_set.db.get()), 0);
}

TEST_F(FlowIngest, GroupLookupsLeaveDbAsTheyFoundIt) {
    auto set_group = [](sql_conn &conn, int group) {
        char sql[160];
        std::snprintf(sql, sizeof sql,
                      "INSERT OR REPLACE INTO avp_ap(rowid, time, ap_mac, model, group_id) "
                      "VALUES(1, 0, '%s', 'm', %d)",
                      kAp1, group);
        return sql_exec(conn.get(), sql);
    };
    ASSERT_EQ(set_group(tallyd_db_set.db, 7), SQLITE_OK);
    put(std::string(kAp1) + "-1", entries(1, kAp1));
    put(std::string(kAp2) + "-1", entries(1, kAp2));
    tallyd_handle_flow(kStartTime);
    ASSERT_EQ(rows().size(), 2u);
    EXPECT_NE(sqlite3_get_autocommit(tallyd_db_set.db.get()), 0);

    // No lock outlives the run: another process can change the group, and
    // the next run reads the change.
    sql_conn other = open_db(path(TALLYD_DB_MAIN));
    EXPECT_EQ(set_group(other, 9), SQLITE_OK);
    other.close();
    sql_exec(tallyd_db_set.temp_db.get(), "DELETE FROM avp_base");
    put(std::string(kAp1) + "-2", entries(1, kAp1));
    tallyd_handle_flow(kStartTime + 60);
    ASSERT_EQ(rows().size(), 1u);
    EXPECT_EQ(rows()[0].group_id, "9");

    // A transaction another task left open on db is neither ended nor hidden.
    ASSERT_EQ(sql_exec(tallyd_db_set.db.get(), "BEGIN TRANSACTION"), SQLITE_OK);
    ASSERT_EQ(set_group(tallyd_db_set.db, 4), SQLITE_OK);
    sql_exec(tallyd_db_set.temp_db.get(), "DELETE FROM avp_base");
    put(std::string(kAp1) + "-3", entries(1, kAp1));
    tallyd_handle_flow(kStartTime + 120);
    EXPECT_EQ(sqlite3_get_autocommit(tallyd_db_set.db.get()), 0);
    sql_exec(tallyd_db_set.db.get(), "ROLLBACK TRANSACTION");
    ASSERT_EQ(rows().size(), 1u);
    EXPECT_EQ(rows()[0].group_id, "4");
}

TEST_F(FlowIngest, MissingOrUnreadableSpoolChangesNothing) {
    std::filesystem::remove_all(spool());
    tallyd_handle_flow(kStartTime);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, failed to open " + spool() + "\n")) << log_dump();

    write_file(TALLYD_SPOOL_DIR, "not a directory");
    tallyd_handle_flow(kStartTime);
    EXPECT_EQ(log_count("tallyd, failed to open "), 2);
    EXPECT_TRUE(exists(TALLYD_SPOOL_DIR));
    EXPECT_NE(sqlite3_get_autocommit(tallyd_db_set.temp_db.get()), 0);  // no transaction left open
}

// Only regular files are read; every entry listed is gone after the run, so
// a dot-named flow file is counted once however many runs follow, and a link
// is removed without touching what it points at.
TEST_F(FlowIngest, OnlyRegularFilesAreReadAndEveryListedEntryIsRemoved) {
    put(std::string(".") + kAp1 + "-1", entries(3, kAp1));
    namespace fs = std::filesystem;
    const std::string outside = path("/outside");  // a good flow file beyond the spool
    put(std::string(kAp2) + "-target", entries(4, kAp2));
    fs::rename(spool() + "/" + kAp2 + "-target", outside);
    fs::create_symlink(outside, spool() + "/" + kAp2 + "-link");
    fs::create_directories(spool() + "/" + kAp2 + "-dir/.sub");
    write_file(std::string(TALLYD_SPOOL_DIR) + "/" + kAp2 + "-dir/.sub/f", "x");
    write_file(std::string(TALLYD_SPOOL_DIR) + "/.hidden", "x");

    for (uint32_t run = 0; run < 3; ++run) tallyd_handle_flow(kStartTime + run * 59);
    EXPECT_EQ(rows().size(), 3u) << log_dump();
    EXPECT_EQ(spool_entries(), 0u);
    EXPECT_TRUE(fs::exists(outside));
    EXPECT_EQ(2, log_count("tallyd, failed to open " + spool() + "/" + kAp2)) << log_dump();
}

uint32_t g_fake_now = 0;
uint32_t five_seconds_per_reading() {
    uint32_t t = g_fake_now;
    g_fake_now += 5;
    return t;
}

TEST_F(FlowIngest, TimeBudgetStopsReadingButEveryFileIsDeleted) {
    for (int i = 0; i < 5; ++i) put(std::string(kAp1) + "-" + std::to_string(i), entries(1, kAp1));
    g_fake_now = 1000;

    tallyd_handle_flow_clocked(kStartTime, five_seconds_per_reading);

    // Readings at 1000 (start), 1005, 1010, 1015: the third file uses up the budget.
    EXPECT_EQ(rows().size(), 3u);
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, handle flow, timeout=15-sec\n")) << log_dump();
    EXPECT_EQ(spool_entries(), 0u);
}

TEST_F(FlowIngest, TimerRearmsFirstAndSkipsWorkWithoutTempDb) {
    eloop_init(nullptr);
    put(std::string(kAp1) + "-1", entries(1, kAp1));
    tallyd_db_set.temp_db.close();

    tallyd_pre_handle_flow(nullptr, nullptr);
    EXPECT_EQ(spool_entries(), 1u);
    EXPECT_EQ(eloop_cancel_timeout(tallyd_pre_handle_flow, ELOOP_ALL_CTX, ELOOP_ALL_CTX), 1);

    tallyd_create_avp_temp_db(&tallyd_db_set);
    tallyd_pre_handle_flow(nullptr, nullptr);
    EXPECT_EQ(spool_entries(), 0u);
    EXPECT_EQ(rows().size(), 1u);
    EXPECT_EQ(eloop_cancel_timeout(tallyd_pre_handle_flow, ELOOP_ALL_CTX, ELOOP_ALL_CTX), 1);
    eloop_destroy();
}

}  // namespace
