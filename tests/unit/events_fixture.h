// Fixture of the event tests: the main and statistic databases in a
// temporary root, empty dictionaries (persisted to empty lists), a WLAN
// group list, and helpers that read tables as text.
#pragma once

#include <string>
#include <string_view>

#include "base/sys_info.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "entity/dict.h"
#include "events/events_wire.h"
#include "support/db_test.h"

// WLAN groups 1 {10, 11}, 2 {20, 21}, 3 {30, then id 0: the rest unread},
// 4 {40, then id 2048: the rest unread}, 7 {70}.
inline constexpr std::string_view kEventsWlanGroups = R"(<wlangroup-list>
  <wlangroup id="1"><wlan id="10"/><wlan id="11"/></wlangroup>
  <wlangroup id="2"><wlan id="20"/><wlan id="21"/></wlangroup>
  <wlangroup id="3"><wlan id="30"/><wlan id="0"/><wlan id="31"/></wlangroup>
  <wlangroup id="4"><wlan id="40"/><wlan id="2048"/><wlan id="41"/></wlangroup>
  <wlangroup id="7"><wlan id="70"/></wlangroup>
</wlangroup-list>)";

class events_test : public db_root_test {
   protected:
    void SetUp() override {
        db_root_test::SetUp();
        tallyd_dict_reset(&tallyd_sys_info);
        tallyd_sys_info.ssid_max = 54;
        tallyd_sys_info.ap_max = 56;
        tallyd_sys_info.apgroup_max = 256;
        tallyd_sys_info.dvcinfo_max = 256;
        for (const char *list : {"avpap-list", "avpssid-list", "avpdvcinfo-list"})
            write_list(list, "<" + std::string(list) + "/>");
        write_list("wlangroup-list", kEventsWlanGroups);
        write_file("/tmp/tallyd/.keep", "");
        tallyd_create_avp_db(&tallyd_db_set);
        tallyd_create_statistic_db(&tallyd_db_set);
        ASSERT_TRUE(tallyd_db_set.db && tallyd_db_set.statistic_db);
    }
    void TearDown() override {
        db_root_test::TearDown();
        tallyd_dict_reset(&tallyd_sys_info);
    }

    void write_list(std::string_view name, std::string_view xml) const {
        write_file("/etc/corvane/xrepo/" + std::string(name) + ".xml", xml);
    }
    static sql_conn &main_db() { return tallyd_db_set.db; }
    static sql_conn &stat_db() { return tallyd_db_set.statistic_db; }

    // Every row of a query as "a|b|c", rows joined with ','; NULL as "NULL".
    static std::string rows(const sql_conn &conn, const std::string &sql) {
        sql_table t;
        sql_error err;
        if (sql_get_table(conn.get(), sql.c_str(), t, &err) != SQLITE_OK)
            return "ERROR " + err.text;
        std::string out;
        for (int r = 0; r < t.rows(); ++r) {
            if (r) out += ',';
            for (int c = 0; c < t.cols(); ++c)
                out += std::string(c ? "|" : "") + (t.at(r, c) ? t.at(r, c) : "NULL");
        }
        return out;
    }
    static void exec(const sql_conn &conn, const std::string &sql) {
        sql_error err;
        ASSERT_EQ(SQLITE_OK, sql_exec(conn.get(), sql.c_str(), &err)) << sql << ": " << err.text;
    }
};
