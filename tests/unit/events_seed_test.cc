// Seeding of statis_ap_wlan from the AP group and WLAN group lists when the
// statistic database is created.
#include <gtest/gtest.h>

#include "db/db_files.h"
#include "db/schema.h"
#include "events/ap_wlan_seed.h"
#include "support/db_test.h"

namespace {

constexpr const char *kApGroups = R"(<?xml version="1.0"?>
<apgroup-list>
  <apgroup id="3"><ap-property>
    <radio radio-type="11ng" wlangroup-id="1"/><radio radio-type="11na" wlangroup-id="1"/>
  </ap-property></apgroup>
  <apgroup id="4"><ap-property>
    <radio radio-type="11na" wlangroup-id="2"/><radio radio-type="11ng" wlangroup-id="1"/>
    <radio radio-type="11ac" wlangroup-id="5"/><radio radio-type="11ng" wlangroup-id="0"/>
  </ap-property></apgroup>
  <apgroup id="5"/>
  <apgroup id="6"><ap-property><radio radio-type="11ng" wlangroup-id="9"/></ap-property></apgroup>
  <apgroup id="0"><ap-property><radio radio-type="11ng" wlangroup-id="1"/></ap-property></apgroup>
</apgroup-list>
)";

constexpr const char *kWlanGroups = R"(<?xml version="1.0"?>
<wlangroup-list>
  <wlangroup id="5"><wlan id="50"/></wlangroup>
  <wlangroup id="1"><wlan id="10"/><wlan id="11"/></wlangroup>
  <wlangroup id="2"><wlan id="20"/><wlan id="2048"/><wlan id="21"/></wlangroup>
</wlangroup-list>
)";

class EventsSeed : public db_root_test {
   protected:
    void SetUp() override {
        db_root_test::SetUp();
        tallyd_set_ap_wlan_seeder(tallyd_get_wlan_from_apgrp);
    }
    void TearDown() override {
        tallyd_set_ap_wlan_seeder(nullptr);
        db_root_test::TearDown();
    }
    void write_lists(bool with_wlangroups) {
        write_file("/etc/corvane/xrepo/apgroup-list.xml", kApGroups);
        if (with_wlangroups) write_file("/etc/corvane/xrepo/wlangroup-list.xml", kWlanGroups);
        write_file("/tmp/tallyd/.keep", "");
    }
    static std::string rows() {
        return query_list(tallyd_db_set.statistic_db,
                          "SELECT time||' '||ap_id||' '||wlan_id||' '||apgrp_id||' '||wlangrp_id||"
                          "' '||typeof(wlan_id) FROM statis_ap_wlan ORDER BY apgrp_id, wlan_id");
    }
};

TEST_F(EventsSeed, NewStatisticDatabaseGetsTheWlansOfEveryApGroup) {
    write_lists(true);
    ASSERT_EQ(0, tallyd_create_statistic_db(&tallyd_db_set));
    // Group 3 uses one WLAN group on both radio types: its rows once. Group
    // 4's second group stops at the WLAN id 2048; group 6's group is unknown.
    EXPECT_EQ(
        "0 0 10 3 1 integer,0 0 11 3 1 integer,"
        "0 0 10 4 1 integer,0 0 11 4 1 integer,0 0 20 4 2 integer",
        rows());
}

TEST_F(EventsSeed, NothingIsSeededWithoutTheWlanGroupList) {
    write_lists(false);
    ASSERT_EQ(0, tallyd_create_statistic_db(&tallyd_db_set));
    EXPECT_EQ("", rows());
    EXPECT_EQ(1, count_rows(tallyd_db_set.statistic_db, "statis_client_d"));  // marker still set
}

TEST_F(EventsSeed, InsertStopsAtTheFirstFailureWithTheStatementLogged) {
    sql_conn conn = open_db(":memory:");
    tallyd_wlan_set set{};
    set[9] = set[10] = 1;
    EXPECT_EQ(0, tallyd_insert_ap_wlan_rows(conn, 7, 0, set, 1));  // no AP group: nothing
    EXPECT_EQ(-1, tallyd_insert_ap_wlan_rows(conn, 7, 3, set, 1));
    EXPECT_EQ(1, log_count("tallyd, value = "));
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, value = INSERT INTO statis_ap_wlan(time, ap_id, wlan_id, apgrp_id, "
                       "wlangrp_id) \nVALUES(0, 7, 10, 3, 1), aErrMsg = no such table: "
                       "statis_ap_wlan\n"))
        << log_dump();
}

}  // namespace
