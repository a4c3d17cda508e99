// Station joins, activity and counters batches in the client directory
// (statis_client_info_h) and the counter rows (statis_client_h).
#include <arpa/inet.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <deque>
#include <optional>

#include "base/clock.h"
#include "events/handlers.h"
#include "events_fixture.h"
#include "support/db_corrupt.h"

namespace {

using namespace events_wire;

class EventsStation : public events_test {
   protected:
    // A station with MAC 02:5c:00:00:00:<i>, moving `bytes` in total.
    station sta(int i, uint64_t bytes = 1000) {
        char mac[18];
        std::snprintf(mac, sizeof mac, "02:5c:00:00:00:%02x", i);
        station s;
        s.client_mac = texts_.emplace_back(mac);
        s.ap_mac = "00:1a:2b:00:00:01";
        s.ssid = "corp";
        s.device = "Pixel";
        s.host_name = "host";
        s.rx_bytes = bytes / 4;
        s.tx_bytes = bytes - bytes / 4;
        s.rx_pkts = 3;
        s.tx_pkts = 4;
        return s;
    }
    // full_host: a host name filling its field without a zero.
    static void add(const station &s, bool full_host = false) {
        std::vector<uint8_t> m = build_sta_add(s);
        if (full_host)
            std::fill_n(m.begin() + kStaAddRecordOffset + kStaHostName.offset, kStaHostName.width,
                        'h');
        m.resize(8192);
        tallyd_handle_sta_add(m);
    }
    static void active(std::string_view mac) {
        std::vector<uint8_t> m = build_sta_active(mac);
        m.resize(8192);
        tallyd_handle_sta_active(m);
    }
    static void batch(uint32_t t, const std::vector<station> &list,
                      std::optional<int32_t> count = {}) {
        std::vector<uint8_t> m = build_client_stats(t, list);
        if (count) wire_put_num(m, kBatchCount, static_cast<uint32_t>(*count));
        m.resize(8192 + m.size());
        tallyd_handle_client_stats(m);
    }
    static std::string info(const std::string &columns) {
        return rows(stat_db(),
                    "SELECT " + columns + " FROM statis_client_info_h ORDER BY client_mac");
    }
    std::deque<std::string> texts_;
};

TEST_F(EventsStation, AddStoresRealIdsAndALaterAddRefreshesOnlyItsFields) {
    station s = sta(1);
    s.host_name = "Bob's phone";
    s.user_name = "o'brien";
    s.auth_type = "WPA2'PSK";
    s.device = "iPhone";
    const uint8_t ip[4] = {10, 0, 0, 7};
    std::copy(ip, ip + 4, s.ip);
    inet_pton(AF_INET6, "2001:db8::1", s.ip6);
    s.vlan = 100, s.radio = 1, s.apgroup = 3, s.wlangroup = 2, s.channel = 36;
    add(s);
    const std::string dvc = std::to_string(tallyd_avp_dvcinfo_lookup_name("iPhone"));
    ASSERT_NE("0", dvc);
    const std::string cols =
        "time, client_mac, ip, ip6, ap_id, apgroup_id, dvcinfo_id, host_name, ssid_id, vlan, "
        "channel, radio, auth_type, user_name, active, typeof(vlan)";
    EXPECT_EQ("1700000000|02:5c:00:00:00:01|10.0.0.7|2001:db8::1|1|3|" + dvc +
                  "|Bob's phone|1|100|36|1|WPA2'PSK|o'brien|0|integer",
              info(cols));

    active("02:5c:00:00:00:01");
    EXPECT_EQ("1", info("active"));
    // Joining again: addresses, names, VLAN and channel change, active is
    // cleared; time, ids and radio stay.
    tallyd_clock_advance(60);
    s.ip[3] = 8;
    s.ip6[15] = 2;
    s.host_name = "new", s.user_name = "", s.auth_type = "open", s.device = "other";
    s.ssid = "guest", s.ap_mac = "00:1a:2b:00:00:09";
    s.vlan = 200, s.radio = 2, s.apgroup = 9, s.channel = 11;
    add(s);
    EXPECT_EQ("1700000000|02:5c:00:00:00:01|10.0.0.8|2001:db8::2|1|3|" + dvc +
                  "|new|1|200|11|1|open||0|integer",
              info(cols));
    EXPECT_EQ(0, log_count("aErrMsg"));
}

TEST_F(EventsStation, MalformedMacsAndMissingIdsWriteNothing) {
    for (std::string_view mac : {"02:5c:00:00:00:1", "02:5c:00:00:00:011", "02:5c:00:00:00'1"}) {
        station s = sta(1);
        s.client_mac = mac;
        add(s);
        active(mac);
    }
    EXPECT_EQ("", info("client_mac"));
    EXPECT_EQ(0, log_count("tallyd"));

    tallyd_sys_info.ssid_max = 0;  // the SSID dictionary cannot give ids
    add(sta(2));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, add sta, no ap_id or ssid_id\n"));
    EXPECT_EQ("", info("client_mac"));
    tallyd_sys_info.ssid_max = 54;

    // Texts at their full width; a quote near the end of a full host name
    // costs what its escaped form cannot hold; no device type is id 0.
    station s = sta(3);
    const std::string full(64, 'h'), quoted = std::string(62, 'q') + "'x";
    s.device = "";
    add(s, true);
    station t = sta(4);
    t.host_name = quoted;
    t.device = "";
    add(t);
    EXPECT_EQ("0|" + full + ",0|" + std::string(62, 'q'), info("dvcinfo_id, host_name"));
}

TEST_F(EventsStation, ActiveMarksKnownClientsOnly) {
    add(sta(1));
    active("02:5c:00:00:00:09");
    active("02:5c:00:00:00:01' OR '1'='1");
    EXPECT_EQ("0", info("active"));
    exec(stat_db(), "DROP TABLE statis_client_info_h");
    active("aa");
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, update sta: SELECT client_mac FROM statis_client_info_h WHERE "
                       "client_mac='aa', aErrMsg = no such table: statis_client_info_h\n"))
        << log_dump();
}

// A MAC listed twice in the directory has both rows marked and refreshed; a
// MAC not listed costs no write to the file (another connection sees no new
// version); a damaged directory is logged and rebuilt as before.
TEST_F(EventsStation, JoinAndActivityReachEveryRowOfTheirMacAndWriteNothingForOthers) {
    add(sta(1));
    exec(stat_db(),
         "INSERT INTO statis_client_info_h(time, client_mac, host_name, active) "
         "VALUES(1, '02:5c:00:00:00:01', 'twin', 0), (2, '02:5c:00:00:00:02', 'other', 0)");
    sql_conn reader;
    ASSERT_EQ(SQLITE_OK,
              tallyd_db_open(path("/tmp/tallyd/statistic.db"), SQLITE_OPEN_READONLY, reader));
    auto version = [&] { return rows(reader, "PRAGMA data_version"); };
    const std::string before = version();
    active("02:5c:00:00:00:09");
    EXPECT_EQ(before, version());
    active("02:5c:00:00:00:01");
    EXPECT_NE(before, version());
    EXPECT_EQ("1,1,0", info("active"));

    station s = sta(1);
    s.host_name = "again";
    add(s);
    EXPECT_EQ("again|0,again|0,other|0", info("host_name, active"));

    reader.close();
    ASSERT_TRUE(corrupt_table(tallyd_db_set.statistic_db, path("/tmp/tallyd/statistic.db").c_str(),
                              "statis_client_info_h"));
    // Logged once (the refresh, as the lookup reads the whole index), then rebuilt.
    add(sta(1));
    EXPECT_EQ(1, log_count("WHERE client_mac='02:5c:00:00:00:01', aErrMsg = database disk image"))
        << log_dump();
    add(sta(3));  // rebuilt empty: the next join is stored
    EXPECT_EQ("02:5c:00:00:00:03", info("client_mac"));
}

TEST_F(EventsStation, BatchFillsTheDirectoryAndAppendsCounterRows) {
    const uint32_t t = kStartTime;
    station named = sta(1), unnamed = sta(2), fresh = sta(3, UINT64_MAX - 5);
    add(named);  // host "host", real ids
    exec(stat_db(),
         "INSERT INTO statis_client_info_h(time, client_mac, host_name, ap_id) VALUES"
         "(1699999000, '02:5c:00:00:00:02', '', 7), (1699996000, 'old', 'x', 7);"
         "INSERT INTO statis_client_h(time, client_mac) VALUES(1699996399, 'gone'), "
         "(1699996400, 'kept')");
    named.host_name = "renamed";
    unnamed.host_name = "Bob's";
    fresh.rssi = -60, fresh.apgroup = 4, fresh.wlangroup = 2;
    station bad_ap = sta(4);
    bad_ap.ap_mac = "00:1a'";
    batch(t, {named, unnamed, fresh, bad_ap, sta(5)});

    // Purged against t - 3600 first: the directory row older than that too.
    EXPECT_EQ(
        "1700000000|02:5c:00:00:00:01|host|1|1|0,1700000000|02:5c:00:00:00:02|Bob's|7|NULL|0,"
        "1700000000|02:5c:00:00:00:03|host|1|1|1,1700000000|02:5c:00:00:00:05|host|1|1|1",
        info("time, client_mac, host_name, ap_id, ssid_id, coalesce(active, 0)"));
    EXPECT_EQ(tallyd_avp_dvcinfo_lookup_name("Pixel"),
              query_int(stat_db(),
                        "SELECT dvcinfo_id FROM statis_client_info_h WHERE "
                        "client_mac='02:5c:00:00:00:03'"));
    EXPECT_EQ(
        "1700000000|02:5c:00:00:00:01|1|0|1|0|0|4|3|7|750|250|1000|integer,"
        "1700000000|02:5c:00:00:00:03|1|4|1|2|-60|4|3|7|1.38350580552822e+19|4611686018427387902|"
        "1.84467440737096e+19|real",
        rows(stat_db(),
             "SELECT time, client_mac, ap_id, apgroup_id, ssid_id, wlangroup_id, rssi, tx_pkts, "
             "rx_pkts, total_pkts, tx_bytes, rx_bytes, total_bytes, typeof(total_bytes) FROM "
             "statis_client_h WHERE client_mac LIKE '02:5c:00:00:00:0_' AND client_mac <> "
             "'02:5c:00:00:00:02' AND client_mac <> '02:5c:00:00:00:05' ORDER BY client_mac"));
    EXPECT_EQ("kept,02:5c:00:00:00:01,02:5c:00:00:00:02,02:5c:00:00:00:03,02:5c:00:00:00:05",
              rows(stat_db(), "SELECT client_mac FROM statis_client_h ORDER BY rowid"));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, sta count = 5\n"));
    EXPECT_EQ(0, log_count("aErrMsg"));
}

TEST_F(EventsStation, BigBatchesDropQuietStationsAndCountsAreBounded) {
    std::vector<station> list;
    for (int i = 0; i < 101; ++i) list.push_back(sta(i, i % 2 ? 500000 : 499999));
    batch(kStartTime, std::vector<station>(list.begin(), list.begin() + 100));
    EXPECT_EQ(100, count_rows(stat_db(), "statis_client_h"));
    batch(kStartTime, list);
    EXPECT_EQ(150, count_rows(stat_db(), "statis_client_h"));

    // A count beyond the records present reads no further than the message;
    // a negative count reads none.
    batch(kStartTime, {sta(1, 600000)}, 1000);
    batch(kStartTime, {sta(1, 600000)}, -1000);
    EXPECT_EQ(151, count_rows(stat_db(), "statis_client_h"));
}

TEST_F(EventsStation, ABatchStopsOnceTwelveSecondsHavePassedSinceItsTime) {
    station bad = sta(9);
    bad.client_mac = "short";
    const std::vector<station> list = {bad, sta(1), sta(2)};
    batch(kStartTime - 11, list);
    EXPECT_EQ(2, count_rows(stat_db(), "statis_client_h"));
    batch(kStartTime - 12, list);
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, update STA timeout=12-sec, count=1\n")) << log_dump();
    batch(kStartTime + 3, list);  // a time ahead of the clock is late as well
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, update STA timeout=-3-sec, count=1\n"));
    EXPECT_EQ(4, count_rows(stat_db(), "statis_client_h"));
}

TEST_F(EventsStation, ARefusedNameIsRetriedAsHashAndAMalformedDatabaseIsRebuilt) {
    exec(stat_db(),
         "CREATE TRIGGER refuse BEFORE INSERT ON statis_client_info_h WHEN NEW.host_name <> '#' "
         "BEGIN SELECT RAISE(ABORT, 'name refused'); END");
    station s = sta(1);
    s.host_name = "Bob's";
    batch(kStartTime, {s});
    const std::string pixel = std::to_string(tallyd_avp_dvcinfo_lookup_name("Pixel"));
    EXPECT_TRUE(logged(LOG_DEBUG,
                       "tallyd = INSERT INTO statis_client_info_h(\ntime, client_mac, dvcinfo_id, "
                       "host_name, ap_id, ssid_id, active) \nVALUES(1700000000, "
                       "'02:5c:00:00:00:01', " +
                           pixel + ", 'Bob''s', 1, 1, 1), aErrMsg = name refused\n"))
        << log_dump();
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, success to try again\n"));
    EXPECT_EQ("#", info("host_name"));
    EXPECT_EQ(1, count_rows(stat_db(), "statis_client_h"));

    ASSERT_TRUE(corrupt_table(tallyd_db_set.statistic_db, path("/tmp/tallyd/statistic.db").c_str(),
                              "statis_client_info_h"));
    batch(kStartTime, {sta(2), sta(3)});
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, value = SELECT client_mac, host_name FROM statis_client_info_h "
                       "\nWHERE client_mac='02:5c:00:00:00:03', aErrMsg = database disk image is "
                       "malformed\n"))
        << log_dump();
    // Rebuilt empty, and the next batch is stored.
    batch(kStartTime, {sta(4)});
    EXPECT_EQ("02:5c:00:00:00:04", info("client_mac"));
}

}  // namespace
