#include <climits>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "base/clock.h"
#include "db/db_files.h"
#include "db/db_set.h"
#include "db/sql.h"
#include "entity/ap_value.h"
#include "entity/arc.h"
#include "entity/dict.h"
#include "entity/entity_wire.h"
#include "entity/handlers.h"
#include "entity/hostname.h"
#include "platform/xrepo.h"
#include "support/test_root.h"

using namespace entity_wire;

namespace {

// A receive buffer as the dispatcher hands it over: header, payload, zeros.
struct message {
    std::vector<uint8_t> buf = std::vector<uint8_t>(8192, 0);
    size_t len = 12;

    explicit message(uint32_t id) { be32_put(buf.data() + 4, id); }
    void text(size_t off, std::string_view t) {
        std::memcpy(buf.data() + off, t.data(), t.size());
        len = std::max(len, off + t.size() + 1);
    }
    void u32(size_t off, uint32_t v) {
        be32_put(buf.data() + off, v);
        len = std::max(len, off + 4);
    }
    std::span<const uint8_t> whole() {
        be32_put(buf.data() + 8, static_cast<uint32_t>(len - 12));
        return buf;
    }
    // Only the received bytes, for the bound checks.
    std::span<const uint8_t> received() { return whole().first(len); }
};

class EntityHandlers : public root_test {
   protected:
    void SetUp() override {
        root_test::SetUp();
        tallyd_dict_reset(&tallyd_sys_info);
        tallyd_sys_info.ap_max = 56;
        write_file("/etc/corvane/xrepo/avpap-list.xml", "<avpap-list/>");
    }
    void TearDown() override {
        tallyd_db_set.statistic_db.close();
        tallyd_dict_reset(&tallyd_sys_info);
        tallyd_sys_info.qpx_push = 0;
        root_test::TearDown();
    }

    sql_conn &statistic() {
        if (!tallyd_db_set.statistic_db) {
            std::filesystem::create_directories(path("/tmp/tallyd"));
            tallyd_create_statistic_db(&tallyd_db_set);
        }
        return tallyd_db_set.statistic_db;
    }
    std::string query(const char *sql) {
        sql_table t;
        std::string out;
        if (sql_get_table(statistic().get(), sql, t) != SQLITE_OK) return "error";
        for (int r = 0; r < t.rows(); ++r)
            for (int c = 0; c < t.cols(); ++c)
                out += std::string(t.at(r, c) ? t.at(r, c) : "NULL") + "|";
        return out;
    }

    // Through the builder tallyctl uses; a MAC of 32 characters or more is
    // written by hand to leave its field without the terminating zero.
    void set_hostname(std::string_view mac, std::string_view name) {
        std::vector<uint8_t> m = build_set_hostname(mac, name);
        if (mac.size() >= kHostnameMac.width)
            std::memcpy(m.data() + kHostnameMac.offset, mac.data(), kHostnameMac.width);
        m.resize(8192);
        tallyd_handle_set_sta_hostname(m);
    }

    static std::string values() {
        std::string out;
        for (int32_t i = 0; i < TALLYD_AP_VALUE_SLOTS; ++i)
            if (uint32_t v = tallyd_ap_value_get(i))
                out += std::to_string(i) + "=" + std::to_string(v) + " ";
        return out;
    }
};

TEST_F(EntityHandlers, HostNameStoresOnlyAMarkAsALiteral) {
    ASSERT_TRUE(statistic());
    const std::string mac32(32, 'c');
    ASSERT_EQ("", query(("INSERT INTO statis_client_info_h(time, client_mac, host_name) VALUES"
                         "(5, 'aa', 'old'), (5, 'bb', 'keep'), (5, '" +
                         mac32 + "', 'long')")
                            .c_str()));

    set_hostname("aa", "Bob's phone");
    EXPECT_EQ("1700000000|integer|#|text|", query("SELECT time, typeof(time), host_name, "
                                                  "typeof(host_name) FROM statis_client_info_h "
                                                  "WHERE client_mac='aa'"));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, update sta: aa, host_name: Bob's phone\n"));
    EXPECT_EQ(0, log_count("set default host name"));

    tallyd_clock_advance(60);
    set_hostname("aa", "");
    EXPECT_EQ("1700000060||", query("SELECT time, host_name FROM statis_client_info_h WHERE "
                                    "client_mac='aa'"));
    EXPECT_TRUE(logged(LOG_NOTICE, "tallyd, set default host name"));

    // A MAC is a value, never part of the statement.
    set_hostname("x' OR '1'='1", "evil");
    set_hostname(mac32 + "tail", "n");  // field without its zero: cut at 32
    EXPECT_EQ("aa||bb|keep|" + mac32 + "|#|",
              query("SELECT client_mac, host_name FROM statis_client_info_h ORDER BY client_mac"));
    EXPECT_EQ(0, log_count("aErrMsg"));

    query("DROP TABLE statis_client_info_h");
    set_hostname("aa", "x");
    EXPECT_TRUE(logged(LOG_ERR,
                       "tallyd, value = UPDATE statis_client_info_h SET time=1700000060, "
                       "host_name='#' WHERE client_mac='aa', aErrMsg = no such table: "
                       "statis_client_info_h\n"))
        << log_dump();
}

TEST_F(EntityHandlers, ConfiguredNameIsReadFromTheRepositoryEachTime) {
    char buf[8];
    EXPECT_EQ(0, tallyd_get_sta_hostname("aa", buf, sizeof buf));  // no list
    write_file("/etc/corvane/xrepo/sta-rename-list.xml",
               "<sta-rename-list><sta mac=\"AA\" rename=\"upper\"/><sta mac=\"aa\" "
               "rename=\"printer\"/><sta mac=\"aa\" rename=\"second\"/><sta mac=\"bb\" "
               "rename=\"a-very-long-name\"/></sta-rename-list>");
    EXPECT_EQ(7, tallyd_get_sta_hostname("aa", buf, sizeof buf));
    EXPECT_STREQ("printer", buf);
    EXPECT_EQ(7, tallyd_get_sta_hostname("bb", buf, sizeof buf));  // cut at size - 1
    EXPECT_STREQ("a-very-", buf);
    EXPECT_EQ(0, tallyd_get_sta_hostname("Bb", buf, sizeof buf));
    EXPECT_EQ(0, tallyd_get_sta_hostname(nullptr, buf, sizeof buf));

    write_file("/etc/corvane/xrepo/sta-rename-list.xml",
               "<sta-rename-list><sta mac=\"aa\" rename=\"fax\"/></sta-rename-list>");
    EXPECT_EQ(3, tallyd_get_sta_hostname("aa", buf, sizeof buf));
    EXPECT_STREQ("fax", buf);
}

TEST_F(EntityHandlers, ArcSwitchAndItsFiles) {
    for (const char *f : {"arc_app.db", "search.db", "avp_1.0.db", "ARC.txt", "x.arc"})
        write_file(std::string("/tmp/tallyd/") + f, "x");

    auto arc = [](uint32_t v) {
        std::vector<uint8_t> m = build_arc(v);
        m.resize(8192);  // the receive buffer, zero past the message
        tallyd_handle_arc_qpx_interface(m);
        return tallyd_sys_info.qpx_push;
    };
    EXPECT_EQ(1, arc(2));  // enabled, but traced as disabled
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, arc qpx interface: disabled\n"));
    EXPECT_TRUE(exists("/tmp/tallyd/arc_app.db"));
    EXPECT_EQ(1, arc(1));
    EXPECT_TRUE(logged(LOG_DEBUG, "tallyd, arc qpx interface: enabled\n"));

    EXPECT_EQ(0, arc(0));
    EXPECT_FALSE(exists("/tmp/tallyd/arc_app.db"));
    EXPECT_FALSE(exists("/tmp/tallyd/search.db"));
    EXPECT_FALSE(exists("/tmp/tallyd/x.arc"));
    EXPECT_TRUE(exists("/tmp/tallyd/avp_1.0.db"));
    EXPECT_TRUE(exists("/tmp/tallyd/ARC.txt"));  // the match is case-sensitive
    std::filesystem::remove_all(path("/tmp/tallyd"));
    EXPECT_EQ(0, arc(0));  // no directory: nothing to do

    // Start-up: both settings must be on.
    auto load = [this](const char *system_xml) {
        if (system_xml) write_file("/etc/corvane/xrepo/system.xml", system_xml);
        tallyd_sys_info.qpx_push = 7;
        tallyd_load_arc_from_xml(&tallyd_sys_info);
        return tallyd_sys_info.qpx_push;
    };
    EXPECT_EQ(0, load(nullptr));
    EXPECT_EQ(1, load("<system><qpx qpxpushenabled=\"true\"/></system>"));
    EXPECT_EQ(0, load("<system><internal arc-app-enable=\"true\"/></system>"));
    EXPECT_EQ(0, load("<system><internal arc-app-enable=\"false\"/>"
                      "<qpx qpxpushenabled=\"true\"/></system>"));
    EXPECT_EQ(1, load("<system><internal arc-app-enable=\"1\"/>"
                      "<qpx qpxpushenabled=\"1\"/></system>"));
}

TEST_F(EntityHandlers, PerApValuesStayInsideTheMessage) {
    auto record = [](message &m, int i, std::string_view mac, uint32_t value) {
        size_t off = kStat0aFirstRecord + kStat0aRecordSize * static_cast<size_t>(i);
        m.text(off + kStat0aApMac.offset, mac);
        m.u32(off + kStat0aValue.offset, value);
    };
    tallyd_avp_ap_mapping("known");  // id 1
    // Later values of the same slot win.
    std::vector<uint8_t> m =
        build_stat_0a({{"known", 10}, {"skipped", 0}, {"fresh", 20}, {"known", 30}});
    tallyd_handle_stat_0a(m);
    EXPECT_EQ("1=30 2=20 ", values());
    EXPECT_EQ(0, tallyd_avp_ap_lookup_name("skipped"));
    EXPECT_EQ(2, tallyd_avp_ap_lookup_name("fresh"));

    // A count beyond the datagram: the rest reads as zeros, also when the
    // span ends with the received bytes (the last record lacks its value).
    message big(0x1200000a);
    big.u32(kStat0aCount.offset, INT32_MAX);
    record(big, 0, "fresh", 5);
    record(big, 1, "cut", 0);
    big.len = kStat0aFirstRecord + kStat0aRecordSize + 8;
    big.text(kStat0aFirstRecord + kStat0aRecordSize, "cut");
    tallyd_handle_stat_0a(big.whole());
    EXPECT_EQ("2=5 ", values());
    tallyd_handle_stat_0a(big.received());
    EXPECT_EQ("2=5 ", values());
    EXPECT_EQ(0, tallyd_avp_ap_lookup_name("cut"));

    // A 36-byte MAC field without its zero is a 36-character key.
    message full(0x1200000a);
    full.u32(kStat0aCount.offset, 1);
    record(full, 0, std::string(36, 'm'), 9);
    tallyd_handle_stat_0a(full.whole());
    EXPECT_EQ(3, tallyd_avp_ap_lookup_name(std::string(36, 'm').c_str()));

    message none(0x1200000a);
    none.u32(kStat0aCount.offset, 0);
    record(none, 0, "known", 10);
    tallyd_handle_stat_0a(none.whole());
    EXPECT_EQ("", values());
    none.u32(kStat0aCount.offset, static_cast<uint32_t>(-1));
    tallyd_handle_stat_0a(none.whole());
    EXPECT_EQ("", values());

    // A mapping that fails ends the message.
    tallyd_sys_info.ap_max = 0;
    tallyd_handle_stat_0a(m);
    EXPECT_EQ("", values());
    EXPECT_EQ(1, log_count("tallyd, failed to add ap node"));
}

}  // namespace
