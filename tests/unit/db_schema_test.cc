// The tables, indexes and marker rows that a fresh start leaves in each
// database, read back through SQLite as another tool would see them.
#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_fresh.h"
#include "db/schema.h"
#include "db/tables.h"
#include "db/top_list.h"
#include "support/db_test.h"

namespace {

// "name TYPE, ..." of a table as PRAGMA table_info reports it.
std::string columns(sql_conn &conn, const std::string &table) {
    sql_table t;
    EXPECT_EQ(SQLITE_OK,
              sql_get_table(conn.get(), ("PRAGMA table_info(" + table + ")").c_str(), t));
    std::string out;
    for (int r = 0; r < t.rows(); ++r)
        out += std::string(r ? ", " : "") + t.at(r, 1) + " " + t.at(r, 2);
    return out;
}

class DbSchema : public db_root_test {};

TEST_F(DbSchema, FreshStartCreatesEveryTableAndIndexInOrder) {
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set)) << log_dump();
    EXPECT_FALSE(tallyd_db_set.top_list_db);  // opened by the first top summary only

    // Each table directly followed by its index; spot values of the columns:
    // avp_base is untyped, the others are typed as created.
    EXPECT_EQ("avp_base,avp_base_idx",
              query_list(tallyd_db_set.temp_db, "SELECT name FROM sqlite_master ORDER BY rowid"));
    EXPECT_EQ(
        "time , app , port , client_mac , ap_mac , ssid , uplink , downlink , total , "
        "category , group_id ",
        columns(tallyd_db_set.temp_db, "avp_base"));
    EXPECT_EQ(
        "statis_ap_h,statis_ap_h_idx,statis_ap_d,statis_ap_d_idx,statis_client_info_h,"
        "statis_client_info_h_idx,statis_client_info_d,statis_client_info_d_idx,statis_client_h,"
        "statis_client_h_idx,statis_client_d,statis_client_d_idx,statis_ap_wlan,"
        "statis_ap_wlan_idx,statis_ap_chart,statis_ap_chart_idx",
        query_list(tallyd_db_set.statistic_db, "SELECT name FROM sqlite_master ORDER BY rowid"));
    EXPECT_EQ("time INTEGER, ap_id INTEGER, wlan_id INTEGER, apgrp_id INTEGER, wlangrp_id INTEGER",
              columns(tallyd_db_set.statistic_db, "statis_ap_wlan"));
    EXPECT_EQ("time INTEGER, client_mac VARCHAR(12), ap_mac INTEGER, ssid INTEGER, total INTEGER",
              columns(tallyd_db_set.db, "avp_top_client_day"));

    // Three index statements stand on one line; every other one breaks after ON.
    EXPECT_EQ(
        "CREATE INDEX avp_ap_idx ON avp_ap(ap_mac)",
        query_list(tallyd_db_set.db, "SELECT sql FROM sqlite_master WHERE name='avp_ap_idx'"));
    EXPECT_EQ("avp_ap_idx,avp_top_client_day_idx,avp_top_client_hour_idx",
              query_list(tallyd_db_set.db,
                         "SELECT name FROM sqlite_master WHERE type='index' AND "
                         "instr(sql, 'ON ' || char(10)) = 0 ORDER BY name"));
    EXPECT_EQ(
        "CREATE INDEX avp_ap_day_idx ON \navp_ap_day(ap_mac, app, time)",
        query_list(tallyd_db_set.db, "SELECT sql FROM sqlite_master WHERE name='avp_ap_day_idx'"));
    EXPECT_EQ(0, query_int(tallyd_db_set.backup_hour_db,
                           "SELECT COUNT(*) FROM sqlite_master WHERE type='index' AND "
                           "instr(sql, 'ON ' || char(10)) = 0"));

    // Every table id names a table of the schema (the top lists come per
    // report).
    for (int i = 0; i < static_cast<int>(tallyd_table::top_client_list); ++i) {
        const std::string name = tallyd_table_name(static_cast<tallyd_table>(i));
        int64_t found = 0;
        for (sql_conn *c : {&tallyd_db_set.db, &tallyd_db_set.db_flash, &tallyd_db_set.temp_db,
                            &tallyd_db_set.backup_hour_db, &tallyd_db_set.statistic_db})
            found += query_int(*c,
                               "SELECT COUNT(*) FROM sqlite_master WHERE type='table' AND "
                               "name='" +
                                   name + "'");
        EXPECT_EQ(1, found) << name;
    }
}

TEST_F(DbSchema, FreshDatabasesCarryOneMarkerRowAndTheirPragmas) {
    tallyd_sys_info.platform_class = 2;
    ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
    tallyd_sys_info.platform_class = 0;
    const std::string t = std::to_string(kStartTime);

    // Marker rows: "---" as text, the creation time as an integer, numbers 0.
    EXPECT_EQ(t + "|---|0|0|0|integer|text",
              query_list(tallyd_db_set.db,
                         "SELECT time||'|'||client_mac||'|'||ap_mac||'|'||ssid||'|'||total||'|'||"
                         "typeof(time)||'|'||typeof(client_mac) FROM avp_top_client_day"));
    for (const char *table : {"avp_ssid_week", "avp_ssid_month"})
        EXPECT_EQ(
            t + "|---|0|0|0|0|0",
            query_list(tallyd_db_set.db_flash,
                       std::string("SELECT time||'|'||app||'|'||port||'|'||ssid||'|'||uplink||"
                                   "'|'||downlink||'|'||group_id FROM ") +
                           table))
            << table;
    EXPECT_EQ(t + "|---|0|0|0", query_list(tallyd_db_set.backup_hour_db,
                                           "SELECT time||'|'||client_mac||'|'||ap_mac||'|'||ssid||"
                                           "'|'||total FROM avp_top_client_backup"));
    EXPECT_EQ(t + "|---|NULL", query_list(tallyd_db_set.statistic_db,
                                          "SELECT time||'|'||client_mac||'|'||ifnull(ap_id,'NULL') "
                                          "FROM statis_client_d"));
    // Nothing else holds a row: not the other tables, not the week AP table.
    EXPECT_EQ(1, count_rows(tallyd_db_set.db, "avp_top_client_day") +
                     count_rows(tallyd_db_set.db, "avp_top_client_hour") +
                     count_rows(tallyd_db_set.db, "avp_ap_day"));
    EXPECT_EQ(0, count_rows(tallyd_db_set.db_flash, "avp_ap_week"));
    EXPECT_EQ(0, count_rows(tallyd_db_set.temp_db, "avp_base"));

    // auto_vacuum on the two databases that are size-checked only.
    EXPECT_EQ(1, query_int(tallyd_db_set.db, "PRAGMA auto_vacuum"));
    EXPECT_EQ(1, query_int(tallyd_db_set.db_flash, "PRAGMA auto_vacuum"));
    EXPECT_EQ(0, query_int(tallyd_db_set.statistic_db, "PRAGMA auto_vacuum"));
    EXPECT_EQ(5000, query_int(tallyd_db_set.db, "PRAGMA cache_size"));
}

TEST_F(DbSchema, CacheSizeFollowsThePlatformClass) {
    for (auto [cls, pages] : {std::pair{0, 250}, {1, 2500}, {3, 2500}, {7, 250}}) {
        sql_conn conn = open_db(":memory:");
        tallyd_sys_info.platform_class = cls;
        tallyd_set_db_pragmas(conn);
        EXPECT_EQ(pages, query_int(conn, "PRAGMA cache_size")) << "class " << cls;
    }
    tallyd_sys_info.platform_class = 0;
}

TEST_F(DbSchema, TopListTablesFollowTheFlagPrecedence) {
    auto tables = [] {
        return query_list(tallyd_db_set.top_list_db,
                          "SELECT name FROM sqlite_master WHERE type='table' ORDER BY name");
    };
    // No RAM directory yet: the scratch database cannot be opened.
    EXPECT_EQ(-1, tallyd_create_top_list_table(0x10));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, Failed to open avp_top_list db\n"));
    EXPECT_FALSE(tallyd_db_set.top_list_db);
    write_file("/tmp/tallyd/keep", "");

    // Client bit wins over the AP bit, which still asks for total_client_list.
    ASSERT_EQ(0, tallyd_create_top_list_table(0x110));
    EXPECT_TRUE(exists("/tmp/tallyd/avp_top_list.db"));
    EXPECT_EQ("top_client_list,total_client_list", tables());
    EXPECT_EQ("id , client_mac , total ", columns(tallyd_db_set.top_list_db, "top_client_list"));

    // Created twice: refused, with the statement in the log.
    EXPECT_EQ(-1, tallyd_create_top_list_table(0x10));
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, Failed to create table, tab = CREATE TABLE top_client_list(\t\nid,"
                       "\t\t\t\nclient_mac, \t\ntotal\t\t\t\n);\n"))
        << log_dump();
    ASSERT_EQ(0, tallyd_drop_top_list_table(0x110));
    EXPECT_EQ("", tables());

    ASSERT_EQ(0, tallyd_create_top_list_table(0x1001));
    EXPECT_EQ("top_ssid_list,total_client_list", tables());
    ASSERT_EQ(0, tallyd_drop_top_list_table(0x1001));
    ASSERT_EQ(0, tallyd_create_top_list_table(0x1));
    EXPECT_EQ("top_app_list", tables());
    // The dropper with the AP bit also wants total_client_list, which is gone.
    ASSERT_EQ(0, tallyd_drop_top_list_table(0x1));
    ASSERT_EQ(0, tallyd_create_top_list_table(0x100));
    EXPECT_EQ("top_ap_list,total_client_list", tables());
    EXPECT_EQ(0, tallyd_drop_top_list_table(0x100));
    EXPECT_EQ(-1, tallyd_drop_top_list_table(0x100));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, Failed to drop table, tab = top_ap_list\n"));

    EXPECT_EQ(-1, tallyd_create_top_list_table(0x2));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, Incorrect flag = 2\n"));
    EXPECT_EQ(-1, tallyd_drop_top_list_table(0));
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, Incorrect flag = 0\n"));
}

TEST_F(DbSchema, TheWlanSeederRunsRightAfterStatisApWlanAndItsIndex) {
    static std::string seen;
    seen = "not called";
    tallyd_set_ap_wlan_seeder([](sql_conn &conn) {
        seen = query_list(conn, "SELECT name FROM sqlite_master WHERE name LIKE 'statis_ap_%'");
    });
    sql_conn conn = open_db(":memory:");
    EXPECT_EQ(0, tallyd_create_statistic_tables(conn));
    tallyd_set_ap_wlan_seeder(nullptr);
    EXPECT_EQ(
        "statis_ap_h,statis_ap_h_idx,statis_ap_d,statis_ap_d_idx,statis_ap_wlan,"
        "statis_ap_wlan_idx",
        seen);
}

TEST_F(DbSchema, CreatorStopsAtTheFirstFailingStatement) {
    sql_conn conn = open_db(":memory:");
    ASSERT_EQ(SQLITE_OK, sql_exec(conn.get(), "CREATE TABLE avp_ap_ssid_hour(x)"));
    EXPECT_EQ(-1, tallyd_create_main_tables(conn));
    EXPECT_EQ(1, log_count("tallyd, sql = CREATE TABLE avp_ap_ssid_hour("));
    EXPECT_EQ(1, log_count("aErrMsg = table avp_ap_ssid_hour already exists"));
    // Tables before the failure exist; none after it.
    EXPECT_EQ("avp_ap_ssid_hour,avp_app_client_hour,avp_curve_client",
              query_list(conn, "SELECT name FROM sqlite_master WHERE type='table' ORDER BY name"));
}

}  // namespace
