// The five-minute rollup task against sums the test computes itself.
#include <sys/stat.h>

#include <map>
#include <random>
#include <set>

#include "flow/hour_task.h"
#include "flow_rollup_fixture.h"

namespace {

struct flow {
    std::string app, port, client, ap, ssid;
    uint64_t up, down;
    std::string group;
};
using flows_t = std::vector<flow>;
using row_set = std::set<std::vector<std::string>>;

// A heavy-tailed mix: a few apps and clients carry most bytes; one app name
// holds a quote, one client never moves a byte, clients roam over SSIDs.
flows_t make_flows(uint32_t seed, int n) {
    static const char *apps[] = {"http", "dns", "it's", "video", "ssh", "mail"};
    std::mt19937 rng(seed);
    auto pick = [&](uint32_t k) { return std::to_string(1 + rng() % k); };
    flows_t out;
    for (int i = 0; i < n; ++i) {
        const uint32_t a = rng() % 6;
        char mac[18];
        std::snprintf(mac, sizeof mac, "aa:bb:cc:00:00:%02x", static_cast<int>(rng() % 9));
        const uint64_t up = uint64_t{rng() % 1000} << (rng() % 16);
        out.push_back({apps[a], std::to_string(80 + a), mac, pick(4), pick(3), up,
                       uint64_t{rng() % 1000} << (rng() % 16), pick(2)});
    }
    out.push_back({"http", "80", "aa:bb:cc:00:00:ff", "1", "1", 0, 0, "1"});
    return out;
}

constexpr uint32_t kT0 = 1700000000;  // the fixture's pinned clock

void add_flows(const flows_t &flows, uint32_t time = kT0) {
    rows_t rows;
    for (const flow &f : flows)
        rows.push_back({std::to_string(time), f.app, f.port, f.client, f.ap, f.ssid,
                        std::to_string(f.up), std::to_string(f.down), std::to_string(f.up + f.down),
                        "", f.group});
    FlowRollup::insert(tallyd_db_set.temp_db, "avp_base", rows);
}

// Rows "key..., sums..." of the flows grouped by key().
template <class Key, class Val>
row_set sums(const flows_t &flows, Key key, Val val) {
    std::map<std::vector<std::string>, std::vector<uint64_t>> acc;
    for (const flow &f : flows) {
        const std::vector<uint64_t> v = val(f);
        auto &s = acc[key(f)];
        s.resize(v.size());
        for (size_t i = 0; i < v.size(); ++i) s[i] += v[i];
    }
    row_set out;
    for (const auto &[key, s] : acc) {
        std::vector<std::string> row = key;
        for (uint64_t x : s) row.push_back(std::to_string(x));
        out.insert(row);
    }
    return out;
}

std::string mac12(std::string mac) {
    std::erase(mac, ':');
    return mac;
}

row_set app_all(const flows_t &f) {
    return sums(
        f,
        [](const flow &x) {
            return std::vector{x.app, x.port, x.group};
        },
        [](const flow &x) {
            return std::vector{x.up, x.down};
        });
}
row_set ap_ssid(const flows_t &f) {
    return sums(
        f,
        [](const flow &x) {
            return std::vector{x.ap, x.app, x.port, x.ssid, x.group};
        },
        [](const flow &x) {
            return std::vector{x.up, x.down};
        });
}
row_set top_client(const flows_t &f) {
    row_set r = sums(
        f,
        [](const flow &x) {
            return std::vector{mac12(x.client), x.ap};
        },
        [](const flow &x) { return std::vector{x.up + x.down}; });
    std::erase_if(r, [](const auto &row) { return row[2] == "0"; });  // no traffic, no row
    return r;
}

const char *kAppAll = "SELECT app, port, group_id, uplink, downlink FROM avp_all_group_hour";
const char *kApSsid =
    "SELECT ap_mac, app, port, ssid, group_id, uplink, downlink FROM avp_ap_ssid_hour";
const char *kTopClient = "SELECT client_mac, ap_mac, total FROM avp_top_client_hour";

row_set rows_of(const std::string &sql, sql_conn &conn = tallyd_db_set.db) {
    rows_t r = FlowRollup::query(conn, sql);
    return {r.begin(), r.end()};
}

}  // namespace

TEST_F(FlowRollup, HourBucketsHoldTheSumsOfAvpBase) {
    const flows_t flows = make_flows(7, 400);
    add_flows(flows);
    tallyd_pre_handle_hour(nullptr, nullptr);

    EXPECT_TRUE(armed(tallyd_pre_handle_hour));
    EXPECT_EQ(rows_of(kAppAll), app_all(flows));
    EXPECT_EQ(rows_of(kApSsid), ap_ssid(flows));
    // One row per client and AP whatever SSIDs it used there, in the short
    // MAC form; the client without traffic is left out.
    EXPECT_EQ(rows_of(kTopClient), top_client(flows));
    for (const char *t : {"avp_all_group_hour", "avp_ap_ssid_hour", "avp_top_client_hour"})
        EXPECT_EQ(rows_of(std::string("SELECT DISTINCT time FROM ") + t),
                  row_set{{std::to_string(kStartTime)}});
    // Stored as the printed statements store: quoted texts as text, numbers
    // as integers; the escape is logged in the statement's form.
    EXPECT_EQ(scalar(tallyd_db_set.db,
                     "SELECT count(*) FROM avp_all_group_hour WHERE app='it''s' AND "
                     "typeof(app)='text' AND typeof(uplink)='integer' AND typeof(port)='integer'"),
              2);
    EXPECT_EQ(scalar(tallyd_db_set.db,
                     "SELECT count(*) FROM avp_top_client_hour WHERE "
                     "typeof(client_mac)<>'text' OR typeof(total)<>'integer'"),
              0);
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, avp_ap_ssid escaped app = it''s"));
    EXPECT_EQ(scalar(tallyd_db_set.temp_db, "SELECT count(*) FROM avp_base"), 0);
}

TEST_F(FlowRollup, HourSumsKeepTheirWidthAndMacsTheDeviceForm) {
    // 5,000,000,000 bytes: 64-bit everywhere but in avp_ap_ssid_hour, which
    // prints its sums with "%lu" and keeps their low 32 bits.
    add_flows({{"video", "443", "00:11:22:33:44:55", "1", "1", 3000000000, 1, "1"},
               {"video", "443", "00:11:22:33:44:55", "1", "1", 2000000000, 2, "1"},
               // A MAC of the wrong length leaves the MAC buffer as the row
               // before it (ordered by total) left it.
               {"dns", "53", "bad-mac", "2", "1", 10, 10, "1"}});
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_EQ(rows_of("SELECT uplink, downlink FROM avp_ap_ssid_hour WHERE app='video'"),
              (row_set{{"705032704", "3"}}));
    EXPECT_EQ(rows_of("SELECT uplink FROM avp_all_group_hour WHERE app='video'"),
              row_set{{"5000000000"}});
    EXPECT_EQ(rows_of(kTopClient),
              (row_set{{"001122334455", "2", "20"}, {"001122334455", "1", "5000000003"}}));
}

TEST_F(FlowRollup, HourRowLimitsFollowThePlatformClass) {
    // 2001 clients, each on its own AP with its own app/AP/SSID group; 801
    // applications. Traffic grows with the index.
    flows_t flows;
    for (int i = 0; i < 2001; ++i) {
        char mac[18];
        std::snprintf(mac, sizeof mac, "00:00:00:00:%02x:%02x", i / 256, i % 256);
        flows.push_back({"app" + std::to_string(i % 801), "1", mac, std::to_string(1 + i), "1",
                         1000 + static_cast<uint64_t>(i), 0, "1"});
    }
    add_flows(flows);
    tallyd_pre_handle_hour(nullptr, nullptr);
    // The largest 800 applications (app399 has the least) and 500 clients...
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(*) FROM avp_all_group_hour"), 800);
    EXPECT_EQ(
        scalar(tallyd_db_set.db, "SELECT count(*) FROM avp_all_group_hour WHERE app='app399'"), 0);
    EXPECT_EQ(rows_of("SELECT min(total) FROM avp_top_client_hour"), row_set{{"2501"}});
    // ...but without an ORDER the first 2000 groups in grouping order: the
    // AP with the most traffic is the one left out.
    EXPECT_EQ(rows_of("SELECT count(*), max(ap_mac) FROM avp_ap_ssid_hour"),
              (row_set{{"2000", "2000"}}));

    tallyd_sys_info.platform_class = 2;
    add_flows(flows, kStartTime + 300);
    tallyd_clock_advance(300);
    tallyd_pre_handle_hour(nullptr, nullptr);
    const std::string bucket = " WHERE time=" + std::to_string(kStartTime + 300);
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(*) FROM avp_all_group_hour" + bucket), 801);
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(*) FROM avp_top_client_hour" + bucket), 2001);
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(*) FROM avp_ap_ssid_hour" + bucket), 2001);
}

TEST_F(FlowRollup, HourStampFollowsTheTimerAndResyncsOnDrift) {
    auto run = [&](int32_t step) {
        tallyd_clock_advance(step);
        add_flows({{"http", "80", "00:11:22:33:44:55", "1", "1", 1, 1, "1"}});
        tallyd_pre_handle_hour(nullptr, nullptr);
        return tallyd_sys_info.hour_stamp - kStartTime;
    };
    EXPECT_EQ(run(0), 0u);
    EXPECT_EQ(run(350), 300u);      // 50 s late: still exactly 300 on
    EXPECT_EQ(run(310), 600u);      // 60 s behind the clock: kept
    EXPECT_EQ(run(301), 961u);      // 61 s behind: reset to the clock
    EXPECT_EQ(run(-2000), -1039u);  // clock stepped back: reset, and the
    EXPECT_EQ(rows_of("SELECT DISTINCT time FROM avp_all_group_hour"),  // buckets now in
              row_set{{std::to_string(kStartTime - 1039)}});            // the future purged
    EXPECT_EQ(run(240), -739u);  // 60 s ahead of the clock: kept
    EXPECT_EQ(run(299), -500u);  // 61 s ahead: reset
    // In the steady state the hour tables hold twelve buckets.
    for (int i = 0; i < 13; ++i) run(300);
    EXPECT_EQ(scalar(tallyd_db_set.db, "SELECT count(DISTINCT time) FROM avp_top_client_hour"), 12);
}

TEST_F(FlowRollup, FailedInsertLeavesItsTransactionOpenForTheNextCommit) {
    // Any failure but a malformed database is logged and counts as success:
    // avp_base is emptied, but the failed rollup neither commits nor rolls back.
    const flows_t first = make_flows(1, 50), second = make_flows(2, 50);
    add_flows(first);
    exec(tallyd_db_set.db, "DROP TABLE avp_top_client_hour");
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_hour));
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, INSERT top_client aErrMsg = no such table: avp_top_client_hour\n"));
    EXPECT_EQ(log_count("was failed"), 0);
    EXPECT_EQ(scalar(tallyd_db_set.temp_db, "SELECT count(*) FROM avp_base"), 0);
    EXPECT_EQ(sqlite3_get_autocommit(tallyd_db_set.db.get()), 0);

    // The next run cannot begin its purge inside that transaction; its first
    // rollup's COMMIT commits what the open transaction held.
    exec(tallyd_db_set.db,
         "CREATE TABLE avp_top_client_hour(time, client_mac, ap_mac, ssid, total)");
    add_flows(second);
    tallyd_clock_advance(300);
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_EQ(log_count("tallyd, delete record BEGIN,  aErrMsg = cannot start a transaction"), 1);
    sql_conn reader;
    ASSERT_EQ(tallyd_db_open(path("/tmp/tallyd/avp_1.0.db"), SQLITE_OPEN_READONLY, reader),
              SQLITE_OK);
    EXPECT_EQ(rows_of("SELECT count(DISTINCT time) FROM avp_all_group_hour", reader),
              row_set{{"2"}});
    EXPECT_EQ(rows_of(kTopClient, reader), top_client(second));
}

TEST_F(FlowRollup, MalformedDatabasesAreRebuiltAndTheScheduleGoesOn) {
    // A corrupt temp_db: the first SELECT fails; temp_db and db are rebuilt.
    add_flows(make_flows(3, 50));
    corrupt(tallyd_db_set.temp_db, "/tmp/tallyd/avp_temp.db", "avp_base");
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_hour));
    EXPECT_TRUE(
        logged(LOG_ERR, "tallyd, SELECT app_all aErrMsg = database disk image is malformed\n"));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, tallyd_pre_handle_avp_app_all was failed\n"));
    EXPECT_TRUE(logged(LOG_WARNING, "tallyd, recover hour and day tables from malformed\n"));
    EXPECT_EQ(scalar(tallyd_db_set.temp_db, "SELECT count(*) FROM avp_base"), 0);

    // A corrupt hour table: the purge meets it first (its mask rebuilds
    // nothing), then the first rollup fails in the same database. The rebuild
    // leaves the flash directory alone, with no flash copy of db in it.
    add_flows(make_flows(4, 50));
    tallyd_create_avp_flash_db(&tallyd_db_set);
    exec(tallyd_db_set.db_flash, "INSERT INTO avp_ap_week(time) VALUES(0)");
    const std::string flash = path("/etc/corvane-images/tallyd/avp_flash.db");
    struct stat before {};
    ASSERT_EQ(0, stat(flash.c_str(), &before));
    corrupt(tallyd_db_set.db, "/tmp/tallyd/avp_1.0.db", "avp_top_client_hour");
    log_.clear();
    tallyd_clock_advance(300);
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_TRUE(armed(tallyd_pre_handle_hour));
    EXPECT_EQ(log_count("aErrMsg = database disk image is malformed"), 2) << log_dump();
    EXPECT_TRUE(
        logged(LOG_ERR, "tallyd, INSERT app_all aErrMsg = database disk image is malformed\n"));
    EXPECT_EQ(log_count("recover hour and day tables"), 1);
    EXPECT_EQ(scalar(tallyd_db_set.temp_db, "SELECT count(*) FROM avp_base"), 0);
    struct stat after {};
    EXPECT_TRUE(stat(flash.c_str(), &after) == 0 && after.st_ino == before.st_ino);
    exec(tallyd_db_set.db_flash, "INSERT INTO avp_ap_week(time) VALUES(1)");
    EXPECT_EQ(2, count_rows(open_db(flash), "avp_ap_week"));

    // The rebuilt databases take the next bucket.
    const flows_t next = make_flows(5, 50);
    add_flows(next);
    tallyd_clock_advance(300);
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_EQ(rows_of(kAppAll), app_all(next));
}

TEST_F(FlowRollup, ABucketHeldInTheStagingFileIsCountedOnce) {
    const flows_t flows = make_flows(5, 200);
    add_flows(flows);
    sql_conn reader = open_db(path("/tmp/tallyd/avp_temp.db"));
    exec(reader, "BEGIN; SELECT COUNT(*) FROM avp_base");
    // Rolled up but not deleted: no run rolls them up again; once the reader
    // goes, they are deleted before newer rows are rolled up.
    for (int run = 0; run < 2; ++run) {
        tallyd_pre_handle_hour(nullptr, nullptr);
        tallyd_clock_advance(300);
    }
    EXPECT_EQ(static_cast<int64_t>(app_all(flows).size()),
              count_rows(tallyd_db_set.db, "avp_all_group_hour"));
    exec(reader, "COMMIT");
    add_flows(flows, kT0 + 600);
    tallyd_pre_handle_hour(nullptr, nullptr);
    EXPECT_EQ(0, count_rows(tallyd_db_set.temp_db, "avp_base"));
    EXPECT_EQ(static_cast<int64_t>(2 * app_all(flows).size()),
              count_rows(tallyd_db_set.db, "avp_all_group_hour"));
}
