// WLAN group tracking in statis_ap_wlan: AP joins, AP WLAN updates, AP group
// and WLAN group changes, and the repository they depend on.
#include <gtest/gtest.h>

#include <cstdio>

#include "base/clock.h"
#include "events/ap_events.h"
#include "events/wlan_tracking.h"
#include "events_fixture.h"

namespace {

using namespace events_wire;

constexpr const char *kAp1 = "00:1a:2b:00:00:01";  // AP id 1 (mapped first)
constexpr const char *kAp2 = "00:1a:2b:00:00:02";

class EventsWlan : public events_test {
   protected:
    void SetUp() override {
        events_test::SetUp();
        ASSERT_EQ(1, tallyd_avp_ap_mapping(kAp1));
        ASSERT_EQ(2, tallyd_avp_ap_mapping(kAp2));
    }
    // "time ap wlan apgrp wlangrp" per row, time shown as "t" when it is the
    // pinned clock plus that offset; ordered by the key.
    static std::string table(const std::string &where = "1") {
        return rows(stat_db(),
                    "SELECT (CASE WHEN time=0 THEN '0' ELSE 't'||(time-1700000000) END)||' '||"
                    "ap_id||' '||wlan_id||' '||apgrp_id||' '||wlangrp_id FROM statis_ap_wlan "
                    "WHERE " +
                        where + " ORDER BY ap_id, apgrp_id, wlangrp_id, wlan_id");
    }
    static void add_ap(const char *mac, int32_t apgroup, int32_t radios, int32_t wg0, int32_t wg1) {
        tallyd_add_wlan_ap({mac, "m", apgroup, radios, {wg0, wg1}});
    }
    static void ap_update(const char *mac, int32_t apgroup, int32_t radios, int32_t wg0,
                          int32_t wg1) {
        tallyd_update_ap_wlan_statis({mac, radios, {wg0, wg1}, apgroup});
    }
    static void group(int32_t action, int32_t apgroup, int32_t wg0, int32_t wg1) {
        tallyd_update_apgrp_statis({action, {wg0, wg1}, apgroup});
    }
    static void wlan(int32_t action, int32_t w, int32_t wg) {
        tallyd_update_wlangrp_statis({action, w, "guest's", wg});
    }
    // Fails when an association has more than one row.
    static int64_t duplicates() {
        return query_int(stat_db(),
                         "SELECT COUNT(*) FROM (SELECT 1 FROM statis_ap_wlan GROUP BY ap_id, "
                         "wlan_id, apgrp_id, wlangrp_id HAVING COUNT(*) > 1)");
    }
};

TEST_F(EventsWlan, ApJoinsLeavesAndComesBackWithItsRows) {
    add_ap(kAp1, 5, 2, 1, 1);  // both radios on one WLAN group: its rows once
    add_ap(kAp2, 5, 1, 2, 7);  // one radio: radio 1's group is not read
    EXPECT_EQ("0 1 10 5 1,0 1 11 5 1,0 2 20 5 2,0 2 21 5 2", table());

    tallyd_clock_set(kStartTime + 30);
    tallyd_close_ap_wlan(kAp1);
    // The AP returns in another group: every former row is reopened, nothing
    // is inserted; the next AP WLAN update corrects the groups.
    add_ap(kAp1, 6, 2, 2, 3);
    EXPECT_EQ("0 1 10 5 1,0 1 11 5 1,0 2 20 5 2,0 2 21 5 2", table());
    ap_update(kAp1, 6, 2, 2, 3);
    EXPECT_EQ("t30 1 10 5 1,t30 1 11 5 1,0 1 20 6 2,0 1 21 6 2,0 1 30 6 3,0 2 20 5 2,0 2 21 5 2",
              table());

    // Back to the first group and WLAN group: the old rows reopen.
    tallyd_clock_set(kStartTime + 60);
    ap_update(kAp1, 5, 2, 1, 0);
    EXPECT_EQ("0 1 10 5 1,0 1 11 5 1,t60 1 20 6 2,t60 1 21 6 2,t60 1 30 6 3,0 2 20 5 2,0 2 21 5 2",
              table());
    EXPECT_EQ(0, duplicates());
    EXPECT_TRUE(logged(LOG_DEBUG,
                       "tallyd, mac=00:1a:2b:00:00:01, num_radios=2, wlangrp[0]=1, wlangrp[1]=0, "
                       "apgrp=5"));

    // An AP in AP group 0 or without WLAN groups gets no rows.
    add_ap("00:1a:2b:00:00:03", 0, 2, 1, 2);
    add_ap("00:1a:2b:00:00:04", 5, 2, 0, 0);
    EXPECT_EQ(0, count_rows(stat_db(), "statis_ap_wlan WHERE ap_id>2"));
}

TEST_F(EventsWlan, ApGroupChangesTouchTheGroupsOwnRowsOnly) {
    add_ap(kAp1, 5, 2, 1, 2);
    group(0, 5, 1, 4);  // group 4 stops at its WLAN id 2048
    EXPECT_EQ("0 0 10 5 1,0 0 11 5 1,0 0 40 5 4", table("ap_id=0"));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, adding AP group: 5, wlangrp_id[0]=1, wlangrp_id[1]=4"));

    tallyd_clock_set(kStartTime + 10);
    group(1, 5, 0, 0);  // deleting: the AP's rows stay current
    EXPECT_EQ(0, count_rows(stat_db(), "statis_ap_wlan WHERE ap_id=0 AND time=0"));
    EXPECT_EQ(4, count_rows(stat_db(), "statis_ap_wlan WHERE ap_id=1 AND time=0"));

    // Updating reopens the closed rows of the slots' groups and inserts the
    // rest; the second slot repeating the first adds nothing.
    group(2, 5, 3, 3);
    EXPECT_EQ("t10 0 10 5 1,t10 0 11 5 1,0 0 30 5 3,t10 0 40 5 4", table("ap_id=0"));
    group(2, 5, 1, 0);
    EXPECT_EQ("0 0 10 5 1,0 0 11 5 1,t10 0 30 5 3,t10 0 40 5 4", table("ap_id=0"));

    // Refused or unknown actions change nothing.
    const std::string before = table();
    group(1, 5, 65535, 0);
    group(0, 5, 0, 65535);
    group(3, 5, 2, 0);
    group(-1, 5, 2, 0);
    EXPECT_EQ(before, table());
    EXPECT_EQ(0, duplicates());
}

TEST_F(EventsWlan, WlanLeavesAndRejoinsItsGroup) {
    group(0, 5, 1, 0);
    group(0, 6, 1, 0);
    add_ap(kAp1, 5, 1, 1, 0);
    tallyd_clock_set(kStartTime + 20);
    wlan(1, 10, 1);
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, wlan[10]:guest's leases group 1"));
    EXPECT_EQ("t20 0 10 5 1,0 0 11 5 1,t20 0 10 6 1,0 0 11 6 1,t20 1 10 5 1,0 1 11 5 1", table());

    // Rejoining reopens the old rows; no new ones.
    wlan(0, 10, 1);
    EXPECT_EQ("0 0 10 5 1,0 0 11 5 1,0 0 10 6 1,0 0 11 6 1,0 1 10 5 1,0 1 11 5 1", table());

    // A WLAN new to the group gets a row in every AP group using the WLAN
    // group and on every AP currently serving it.
    add_ap(kAp2, 6, 1, 2, 0);
    wlan(0, 12, 1);
    EXPECT_EQ("0 0 12 5 1,0 0 12 6 1,0 1 12 5 1", table("wlan_id=12"));
    EXPECT_EQ(0, duplicates());
}

TEST_F(EventsWlan, NothingHappensWithoutTheWlanGroupList) {
    add_ap(kAp1, 5, 1, 1, 0);
    group(0, 5, 1, 0);
    const std::string before = table();
    std::remove(path("/etc/corvane/xrepo/wlangroup-list.xml").c_str());
    log_.clear();
    add_ap(kAp2, 5, 1, 1, 0);
    ap_update(kAp1, 6, 1, 2, 0);
    group(1, 5, 0, 0);
    wlan(1, 10, 1);
    wlan(0, 99, 1);
    EXPECT_EQ(before, table());
    EXPECT_EQ(0, log_count("tallyd, "));
}

TEST_F(EventsWlan, FailuresAreLoggedWithTheStatement) {
    exec(stat_db(), "DROP TABLE statis_ap_wlan");
    add_ap(kAp1, 5, 1, 1, 0);
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, value = SELECT wlan_id, apgrp_id, wlangrp_id FROM statis_ap_wlan "
                       "WHERE ap_id=1, aErrMsg = no such table: statis_ap_wlan \n"))
        << log_dump();
    group(1, 5, 0, 0);
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, value = UPDATE statis_ap_wlan SET time=1700000000 WHERE time=0 AND "
                       "ap_id=0 AND apgrp_id=5, aErrMsg = no such table: statis_ap_wlan\n"))
        << log_dump();
}

}  // namespace
