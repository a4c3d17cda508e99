// AP joins and departures in avp_ap, and the AP group resynchronisation from
// the repository's AP list.
#include <gtest/gtest.h>

#include "base/clock.h"
#include "events/handlers.h"
#include "events_fixture.h"

namespace {

using namespace events_wire;

// A message as the dispatcher hands it over: zeros to the end of the buffer.
void deliver(void (*handler)(std::span<const uint8_t>), std::vector<uint8_t> m) {
    m.resize(8192);
    handler(m);
}

void ap_add_msg(std::string_view mac, std::string_view model, int32_t group) {
    std::vector<uint8_t> m = build_ap_add({mac, model, group, 1, {7, 0}});
    deliver(tallyd_handle_ap_add, m);
    deliver(tallyd_handle_ap_add_wlans, m);
}

void ap_del_msg(std::string_view mac) {
    deliver(tallyd_handle_ap_del, build_ap_del(mac));
    deliver(tallyd_handle_ap_del_wlans, build_ap_del(mac));
}

class EventsAp : public events_test {
   protected:
    static std::string ap_rows() {
        return rows(main_db(),
                    "SELECT time, ap_mac, model, group_id, typeof(group_id) FROM avp_ap "
                    "ORDER BY ap_mac");
    }
};

TEST_F(EventsAp, OnlyAChangedGroupRevivesAReturningAp) {
    ap_add_msg("00:1a:2b:00:00:01", "VX-AP320", 5);
    EXPECT_EQ("0|00:1a:2b:00:00:01|VX-AP320|5|integer", ap_rows());

    // Same group: no statement at all, the model stays as first stored.
    ap_add_msg("00:1a:2b:00:00:01", "VX-AP999", 5);
    EXPECT_EQ("0|00:1a:2b:00:00:01|VX-AP320|5|integer", ap_rows());

    tallyd_clock_set(kStartTime + 100);
    ap_del_msg("00:1a:2b:00:00:01");
    EXPECT_TRUE(logged(LOG_NOTICE, "tallyd, del AP mac: 00:1a:2b:00:00:01\n"));
    const std::string gone =
        std::to_string(kStartTime + 100) + "|00:1a:2b:00:00:01|VX-AP320|5|integer";
    EXPECT_EQ(gone, ap_rows());

    // Back in the same group: the row keeps its deletion time.
    ap_add_msg("00:1a:2b:00:00:01", "VX-AP999", 5);
    EXPECT_EQ(gone, ap_rows());
    // In another group: present again, model and group refreshed; a quote in
    // the model is stored as sent.
    ap_add_msg("00:1a:2b:00:00:01", "Bob's AP", 6);
    EXPECT_EQ("0|00:1a:2b:00:00:01|Bob's AP|6|integer", ap_rows());
}

TEST_F(EventsAp, QuotesAndShortOrOverlongFieldsNeverReachTheStatement) {
    // A MAC with a quote: no row, no log, whatever the quote would do.
    ap_add_msg("x' OR '1'='1", "m", 1);
    ap_add_msg("00:1a:2b:00:00:02", "m", 1);
    ap_del_msg("00:1a:2b:00:00:02' OR '1'='1");
    EXPECT_EQ("0|00:1a:2b:00:00:02|m|1|integer", ap_rows());
    EXPECT_EQ(0, log_count("aErrMsg"));

    // A model filling its field without a zero is cut at 32; a model whose
    // escaped form passes the field keeps whole doubled quotes only.
    std::vector<uint8_t> full = build_ap_add({"aa", "", 2, 0, {0, 0}});
    std::fill_n(full.begin() + kApAddModel.offset, kApAddModel.width, 'm');
    deliver(tallyd_handle_ap_add, full);
    ap_add_msg("bb", std::string(30, 'q') + "'", 2);
    EXPECT_EQ(std::string(32, 'm') + "," + std::string(30, 'q'),
              rows(main_db(), "SELECT model FROM avp_ap WHERE ap_mac IN ('aa','bb') ORDER BY 1"));

    // A message holding only the MAC: the rest reads as zeros.
    std::vector<uint8_t> m(12 + 18, 0);
    wire_put_text(m, {"mac", 12, 18, wire_kind::text}, "cc");
    deliver(tallyd_handle_ap_add, m);
    EXPECT_EQ("0||0",
              rows(main_db(), "SELECT time, model, group_id FROM avp_ap WHERE ap_mac='cc'"));
}

TEST_F(EventsAp, DepartureClosesTheApsCurrentWlanRowsAndNamesUnknownMacs) {
    exec(stat_db(),
         "INSERT INTO statis_ap_wlan VALUES(0, 1, 10, 5, 1), (0, 1, 11, 5, 1), (50, 1, 12, 5, 1), "
         "(0, 0, 10, 5, 1), (0, 5, 10, 5, 1)");
    ASSERT_EQ(1, tallyd_avp_ap_mapping("00:1a:2b:00:00:01"));
    tallyd_clock_set(kStartTime + 7);
    ap_del_msg("00:1a:2b:00:00:01");
    EXPECT_EQ("1700000007|1|10,1700000007|1|11,50|1|12,0|0|10,0|5|10",
              rows(stat_db(), "SELECT time, ap_id, wlan_id FROM statis_ap_wlan"));

    // An AP never seen: no avp_ap row to stamp, but it gets an id (a quote
    // included) and nothing else is closed.
    ap_del_msg("00:1a:2b:00:00:09");
    ap_del_msg("it's");
    EXPECT_EQ(2, tallyd_avp_ap_lookup_name("00:1a:2b:00:00:09"));
    EXPECT_EQ(3, tallyd_avp_ap_lookup_name("it's"));
    EXPECT_EQ(2, count_rows(stat_db(), "statis_ap_wlan WHERE time=0"));
    EXPECT_EQ(0, count_rows(main_db(), "avp_ap"));
}

TEST_F(EventsAp, GroupResyncSetsEveryConfiguredApPresent) {
    deliver(tallyd_handle_apgroup_update_ids, {});  // no "ap-list": nothing
    ap_add_msg("00:1a:2b:00:00:01", "m", 5);
    ap_add_msg("00:1a:2b:00:00:02", "m", 5);
    ap_add_msg("00:1a:2b:00:00:03", "m", 5);
    ap_del_msg("00:1a:2b:00:00:01");
    ap_del_msg("00:1a:2b:00:00:03");
    write_list("ap-list", R"(<ap-list>
        <ap mac="00:1a:2b:00:00:01" group-id="9"/>
        <ap mac="00:1a:2b:00:00:02" group-id="0"/>
        <ap mac="00:1a:2b:00:00:03"/>
        <ap mac="x' OR '1'='1" group-id="4"/>
        <ap mac="00:1a:2b:00:00:04" group-id="3"/></ap-list>)");
    deliver(tallyd_handle_apgroup_update_ids, {});
    // Group 0 and a missing group are skipped: AP 3 stays gone; the quoted
    // MAC matches nothing.
    EXPECT_EQ("0|9,0|5," + std::to_string(kStartTime) + "|5",
              rows(main_db(), "SELECT time, group_id FROM avp_ap ORDER BY ap_mac"));

    exec(main_db(), "DROP TABLE avp_ap");
    deliver(tallyd_handle_apgroup_update_ids, {});
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, apgroup aErrMsg=no such table: avp_ap, value=UPDATE avp_ap SET "
                       "time=0, group_id=9 WHERE ap_mac='00:1a:2b:00:00:01'\n"))
        << log_dump();
    EXPECT_EQ(3, log_count("tallyd, apgroup aErrMsg="));
    ap_add_msg("aa", "m", 1);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, add-ap select aErrMsg = no such table: avp_ap \n"));
}

}  // namespace
