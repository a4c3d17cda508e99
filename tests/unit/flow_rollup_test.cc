// The five-minute rollup task against sums the test computes itself.
#include <algorithm>
#include <map>
#include <random>
#include <set>
#include <tuple>

#include "flow/hour_rollup.h"
#include "flow/tasks.h"
#include "flow_rollup_fixture.h"

namespace {

using flows_t = std::vector<rollup_flow>;

// A heavy-tailed mix: a few apps and clients carry most bytes; one app name
// holds a quote and one client never moves a byte.
flows_t make_flows(uint32_t seed, int n) {
    static const char *apps[] = {"http", "dns", "it's", "video", "ssh", "mail"};
    std::mt19937 rng(seed);
    flows_t out;
    for (int i = 0; i < n; ++i) {
        const int a = static_cast<int>(rng() % 6);
        const uint64_t up = uint64_t{rng() % 1000} << (rng() % 20);
        const uint64_t down = uint64_t{rng() % 1000} << (rng() % 20);
        char mac[18];
        std::snprintf(mac, sizeof mac, "aa:bb:cc:00:00:%02x", static_cast<int>(rng() % 9));
        out.push_back({apps[a], 80 + a, mac, 1 + static_cast<int>(rng() % 4),
                       1 + static_cast<int>(rng() % 3), up, down, up + down,
                       1 + static_cast<int>(rng() % 2)});
    }
    out.push_back({"http", 80, "aa:bb:cc:00:00:ff", 1, 1, 0, 0, 0, 1});
    return out;
}

std::string mac12(const std::string &mac17) {
    std::string s;
    for (char c : mac17)
        if (c != ':') s += c;
    return s;
}

using row_set = std::set<std::vector<std::string>>;

row_set as_set(const rows_t &rows) {
    return {rows.begin(), rows.end()};
}

// Expected rows of the three hour tables for flows, stamped `time`.
row_set expect_app_all(const flows_t &flows, uint32_t time) {
    std::map<std::tuple<std::string, int, int>, std::pair<uint64_t, uint64_t>> sums;
    for (const auto &f : flows) {
        auto &s = sums[{f.app, f.port, f.group}];
        s.first += f.up;
        s.second += f.down;
    }
    row_set out;
    for (const auto &[k, v] : sums)
        out.insert({std::to_string(time), std::get<0>(k), std::to_string(std::get<1>(k)),
                    std::to_string(v.first), std::to_string(v.second),
                    std::to_string(std::get<2>(k))});
    return out;
}

row_set expect_ap_ssid(const flows_t &flows, uint32_t time) {
    std::map<std::tuple<int, std::string, int, int, int>, std::pair<uint64_t, uint64_t>> sums;
    for (const auto &f : flows) {
        auto &s = sums[{f.ap, f.app, f.port, f.ssid, f.group}];
        s.first += f.up;
        s.second += f.down;
    }
    row_set out;
    for (const auto &[k, v] : sums)
        out.insert({std::to_string(time), std::get<1>(k), std::to_string(std::get<2>(k)),
                    std::to_string(std::get<0>(k)), std::to_string(std::get<3>(k)),
                    std::to_string(static_cast<uint32_t>(v.first)),
                    std::to_string(static_cast<uint32_t>(v.second)),
                    std::to_string(std::get<4>(k))});
    return out;
}

// (client, ap) -> total, and the SSIDs the client used on that AP.
std::map<std::pair<std::string, int>, std::pair<uint64_t, std::set<int>>> client_totals(
    const flows_t &flows) {
    std::map<std::pair<std::string, int>, std::pair<uint64_t, std::set<int>>> sums;
    for (const auto &f : flows) {
        auto &s = sums[{mac12(f.client), f.ap}];
        s.first += f.total;
        s.second.insert(f.ssid);
    }
    return sums;
}

const char *kAppAll = "SELECT time, app, port, uplink, downlink, group_id FROM avp_all_group_hour";
const char *kApSsid =
    "SELECT time, app, port, ap_mac, ssid, uplink, downlink, group_id FROM avp_ap_ssid_hour";
const char *kTopClient = "SELECT client_mac, ap_mac, ssid, total, time FROM avp_top_client_hour";

}  // namespace

TEST_F(rollup_test, HourBucketsHoldTheSumsOfAvpBase) {
    const flows_t flows = make_flows(7, 400);
    add_flows(flows);
    tallyd_pre_handle_hour(nullptr, nullptr);

    EXPECT_TRUE(armed(tallyd_pre_handle_hour));
    EXPECT_EQ(tallyd_sys_info.hour_stamp, kStartTime);
    sqlite3 *db = tallyd_db_set.db;
    EXPECT_EQ(as_set(query(db, kAppAll)), expect_app_all(flows, kStartTime));
    EXPECT_EQ(as_set(query(db, kApSsid)), expect_ap_ssid(flows, kStartTime));

    // One row per client and AP in the 12-character MAC form, whatever SSIDs
    // the client used there; the client without traffic is left out.
    auto totals = client_totals(flows);
    totals.erase({"aabbcc0000ff", 1});
    rows_t top = query(db, kTopClient);
    ASSERT_EQ(top.size(), totals.size());
    for (const auto &r : top) {
        auto it = totals.find({r[0], std::stoi(r[1])});
        ASSERT_NE(it, totals.end()) << r[0];
        EXPECT_EQ(r[3], std::to_string(it->second.first));
        EXPECT_EQ(it->second.second.count(std::stoi(r[2])), 1u);
        EXPECT_EQ(r[4], std::to_string(kStartTime));
    }

    // Stored as the printed statements store: the quoted name as text, the
    // numbers as integers; the escape is logged with the statement's form.
    EXPECT_EQ(scalar(db,
                     "SELECT count(*) FROM avp_all_group_hour WHERE app='it''s' AND "
                     "typeof(app)='text' AND typeof(uplink)='integer' AND "
                     "typeof(port)='integer'"),
              2);
    EXPECT_EQ(scalar(db,
                     "SELECT count(*) FROM avp_top_client_hour WHERE "
                     "typeof(client_mac)<>'text' OR typeof(total)<>'integer'"),
              0);
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, avp_ap_ssid escaped app = it''s"));
    EXPECT_EQ(scalar(tallyd_db_set.temp_db, "SELECT count(*) FROM avp_base"), 0);
}

TEST_F(rollup_test, HourSumsKeepTheirWidthAndMacsTheDeviceForm) {
    // 5,000,000,000 bytes: 64-bit everywhere but in avp_ap_ssid_hour, which
    // prints its sums with "%lu" and keeps their low 32 bits.
    add_flows({{"video", 443, "00:11:22:33:44:55", 1, 1, 3000000000, 1, 3000000001, 1},
               {"video", 443, "00:11:22:33:44:55", 1, 1, 2000000000, 2, 2000000002, 1},
               // A MAC of the wrong length leaves the buffer as the row before
               // (ordered by total) left it.
               {"dns", 53, "bad-mac", 2, 1, 10, 10, 20, 1}});
    tallyd_pre_handle_hour(nullptr, nullptr);
    sqlite3 *db = tallyd_db_set.db;
    EXPECT_EQ(query(db, "SELECT uplink, downlink FROM avp_ap_ssid_hour WHERE app='video'"),
              (rows_t{{"705032704", "3"}}));
    EXPECT_EQ(query(db, "SELECT uplink FROM avp_all_group_hour WHERE app='video'"),
              (rows_t{{"5000000000"}}));
    EXPECT_EQ(query(db, "SELECT client_mac, ap_mac, total FROM avp_top_client_hour ORDER BY total"),
              (rows_t{{"001122334455", "2", "20"}, {"001122334455", "1", "5000000003"}}));
}

TEST_F(rollup_test, HourRowLimitsFollowThePlatformClass) {
    // 801 applications, 801 clients, 2001 AP/app/SSID groups; the traffic
    // grows with the index, so the first of each is the smallest.
    flows_t flows;
    for (int i = 0; i < 2001; ++i) {
        char mac[18];
        std::snprintf(mac, sizeof mac, "00:00:00:00:%02x:%02x", i / 256, i % 256);
        const uint64_t up = 1000 + static_cast<uint64_t>(i);
        flows.push_back({"app" + std::to_string(i % 801), 1, mac, 1 + i, 1, up, 0, up, 1});
    }
    add_flows(flows);
    tallyd_pre_handle_hour(nullptr, nullptr);
    sqlite3 *db = tallyd_db_set.db;
    EXPECT_EQ(scalar(db, "SELECT count(*) FROM avp_all_group_hour"), 800);
    std::vector<int64_t> app_sums(801);
    for (const auto &f : flows) app_sums[std::stoul(f.app.substr(3))] += f.up;
    std::sort(app_sums.begin(), app_sums.end());
    EXPECT_EQ(scalar(db, "SELECT min(uplink) FROM avp_all_group_hour"), app_sums[1]);
    EXPECT_EQ(scalar(db, "SELECT count(*) FROM avp_top_client_hour"), 500);
    EXPECT_EQ(scalar(db, "SELECT min(total) FROM avp_top_client_hour"), 1000 + 2001 - 500);
    // Without an ORDER the first 2000 groups in grouping order survive: the
    // AP with the most traffic is the one left out.
    EXPECT_EQ(scalar(db, "SELECT count(*) FROM avp_ap_ssid_hour"), 2000);
    EXPECT_EQ(scalar(db, "SELECT max(ap_mac) FROM avp_ap_ssid_hour"), 2000);

    tallyd_sys_info.platform_class = 2;
    add_flows(flows, kStartTime + 300);
    tallyd_clock_advance(300);
    tallyd_pre_handle_hour(nullptr, nullptr);
    const std::string bucket = " WHERE time=" + std::to_string(kStartTime + 300);
    EXPECT_EQ(scalar(db, "SELECT count(*) FROM avp_all_group_hour" + bucket), 801);
    EXPECT_EQ(scalar(db, "SELECT count(*) FROM avp_top_client_hour" + bucket), 2001);
    EXPECT_EQ(scalar(db, "SELECT count(*) FROM avp_ap_ssid_hour" + bucket), 2001);
}

TEST_F(rollup_test, HourStampFollowsTheTimerAndResyncsOnDrift) {
    const flows_t one = {{"http", 80, "00:11:22:33:44:55", 1, 1, 1, 1, 2, 1}};
    auto run = [&](int32_t step) {
        tallyd_clock_advance(step);
        add_flows(one);
        tallyd_pre_handle_hour(nullptr, nullptr);
        return tallyd_sys_info.hour_stamp;
    };
    const uint32_t t = kStartTime;
    EXPECT_EQ(run(0), t);
    EXPECT_EQ(run(350), t + 300);     // 50 s late: still exactly 300 on
    EXPECT_EQ(run(310), t + 600);     // 60 s behind the clock: kept
    EXPECT_EQ(run(301), t + 961);     // 61 s behind: reset to the clock
    EXPECT_EQ(run(-2000), t - 1039);  // clock stepped back: reset
    // The buckets now lying in the future are purged with the old ones.
    EXPECT_EQ(query(tallyd_db_set.db, "SELECT DISTINCT time FROM avp_all_group_hour"),
              (rows_t{{std::to_string(t - 1039)}}));
    EXPECT_EQ(run(240), t - 739);  // 60 s ahead of the clock: kept
    EXPECT_EQ(run(299), t - 500);  // 61 s ahead: reset

    // In the steady state the hour tables hold twelve buckets.
    for (int i = 0; i < 13; ++i) run(300);
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(DISTINCT time) FROM avp_all_group_hour"), 12);
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(DISTINCT time) FROM avp_top_client_hour"), 12);
}

TEST_F(rollup_test, FailedInsertLeavesItsTransactionOpenForTheNextCommit) {
    // Any failure but a malformed database is logged and counts as success:
    // the later rollups run and avp_base is emptied.
    const flows_t first = make_flows(1, 50), second = make_flows(2, 50);
    add_flows(first);
    exec(tallyd_db_set.db, "DROP TABLE avp_top_client_hour");
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_hour));
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, INSERT top_client aErrMsg = no such table: avp_top_client_hour\n"));
    EXPECT_EQ(log_count("was failed"), 0);
    EXPECT_EQ(scalar(tallyd_db_set.temp_db, "SELECT count(*) FROM avp_base"), 0);
    // The failed rollup neither committed nor rolled back.
    EXPECT_EQ(sqlite3_get_autocommit(tallyd_db_set.db), 0);

    // The next run cannot begin its purge inside that transaction; its first
    // rollup's COMMIT then commits what the open transaction held.
    exec(tallyd_db_set.db,
         "CREATE TABLE avp_top_client_hour(time INTEGER, client_mac VARCHAR(12), ap_mac INTEGER, "
         "ssid INTEGER, total INTEGER)");
    add_flows(second);
    tallyd_clock_advance(300);
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_EQ(log_count("tallyd, delete record BEGIN,  aErrMsg = cannot start a transaction"), 1);
    EXPECT_EQ(sqlite3_get_autocommit(tallyd_db_set.db), 1);
    sqlite3 *reader = nullptr;
    ASSERT_EQ(sqlite3_open_v2(path("/tmp/tallyd/avp_1.0.db").c_str(), &reader, SQLITE_OPEN_READONLY,
                              nullptr),
              SQLITE_OK);
    EXPECT_EQ(as_set(query(reader, kAppAll)), [&] {
        row_set both = expect_app_all(first, kStartTime);
        row_set next = expect_app_all(second, kStartTime + 300);
        both.insert(next.begin(), next.end());
        return both;
    }());
    EXPECT_EQ(scalar(reader, "SELECT count(DISTINCT time) FROM avp_top_client_hour"), 1);
    sqlite3_close_v2(reader);
}

TEST_F(rollup_test, MalformedDatabasesAreRebuiltAndTheScheduleGoesOn) {
    // A corrupt temp_db: the first SELECT fails; temp_db and db are rebuilt.
    add_flows(make_flows(3, 50));
    corrupt_table(&tallyd_db_set.temp_db, "/tmp/tallyd/avp_temp.db", "avp_base");
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_hour));
    EXPECT_TRUE(
        logged(LOG_ERR, "tallyd, SELECT app_all aErrMsg = database disk image is malformed\n"));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, tallyd_pre_handle_avp_app_all was failed\n"));
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, recover hour and day tables from malformed\n"));
    ASSERT_NE(tallyd_db_set.temp_db, nullptr);
    EXPECT_EQ(scalar(tallyd_db_set.temp_db, "SELECT count(*) FROM avp_base"), 0);

    // A corrupt hour table of db.
    add_flows(make_flows(4, 50));
    corrupt_table(&tallyd_db_set.db, "/tmp/tallyd/avp_1.0.db", "avp_top_client_hour");
    log_.clear();
    tallyd_clock_advance(300);
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_hour));
    // The purge meets the corrupt table first (its mask rebuilds nothing);
    // the first rollup then fails in the same database and starts the rebuild.
    EXPECT_EQ(log_count("aErrMsg = database disk image is malformed"), 2) << log_dump();
    EXPECT_TRUE(
        logged(LOG_ERR, "tallyd, INSERT app_all aErrMsg = database disk image is malformed\n"));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, tallyd_pre_handle_avp_app_all was failed\n"));
    EXPECT_EQ(log_count("recover hour and day tables"), 1);
    ASSERT_NE(tallyd_db_set.db, nullptr);
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(*) FROM avp_all_group_hour"), 0);
    EXPECT_EQ(scalar(tallyd_db_set.temp_db, "SELECT count(*) FROM avp_base"), 0);

    // The rebuilt databases take the next bucket.
    const flows_t next = make_flows(5, 50);
    add_flows(next);
    tallyd_clock_advance(300);
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_EQ(as_set(query(tallyd_db_set.db, kAppAll)),
              expect_app_all(next, tallyd_sys_info.hour_stamp));
}
