#include <cstdio>
#include <filesystem>
#include <string>

#include "base/clock.h"
#include "entity/dict.h"
#include "entity/text.h"
#include "platform/xrepo.h"
#include "support/test_root.h"

namespace {

constexpr const char *kXrepo = "/etc/corvane/xrepo/";

class EntityDict : public root_test {
   protected:
    void SetUp() override {
        root_test::SetUp();
        tallyd_dict_reset(&tallyd_sys_info);
        small_platform();
    }
    void TearDown() override {
        tallyd_dict_reset(&tallyd_sys_info);
        root_test::TearDown();
    }

    static void small_platform() {
        tallyd_sys_info.ap_max = 56;
        tallyd_sys_info.ssid_max = 54;
        tallyd_sys_info.apgroup_max = 256;
        tallyd_sys_info.dvcinfo_max = 256;
    }

    void seed(const char *list, const std::string &children = "") {
        write_file(std::string(kXrepo) + list + ".xml",
                   "<" + std::string(list) + ">" + children + "</" + list + ">");
    }
    void seed_all() {
        for (const char *l : {"avpap-list", "avpssid-list", "avpapgroup-list", "avpdvcinfo-list"})
            seed(l);
    }

    // What the next start sees after a run saved its entries: a reload.
    void restart() {
        tallyd_dict_flush();
        tallyd_dict_reset(&tallyd_sys_info);
        small_platform();
        tallyd_load_dictionaries(&tallyd_sys_info);
    }

    // "id=key" pairs of a list on disk, in document order.
    std::string stored(const char *list, const char *key_attr) {
        xconf_ptr conf(xGetConfImpl("test", 0, list, 0));
        std::string out;
        for (xnode *c = xGetFirstChild(conf.get()); c; c = xGetNextSibling(c))
            out += std::to_string(xGetAttrInt(c, "id", -1)) + "=" +
                   xGetAttrString(c, key_attr, "?") + " ";
        return out;
    }

    static std::string mac(int i) {
        char b[18];
        std::snprintf(b, sizeof b, "00:1a:2b:3c:%02x:%02x", (i >> 8) & 0xff, i & 0xff);
        return b;
    }
};

TEST_F(EntityDict, IdsArePersistedAndStableAcrossRestart) {
    seed_all();
    EXPECT_EQ(1, tallyd_avp_ap_mapping("00:11:22:33:44:55"));
    EXPECT_EQ(2, tallyd_avp_ap_mapping("00:11:22:33:44:66"));
    EXPECT_EQ(1, tallyd_avp_ap_mapping("00:11:22:33:44:55"));   // known: no new entry
    EXPECT_EQ(3, tallyd_avp_ap_mapping("00:11:22:33:44:55 "));  // exact, case-sensitive keys
    EXPECT_EQ(4, tallyd_avp_ap_mapping("00:11:22:33:44:6F"));
    EXPECT_EQ(1, tallyd_avp_ssid_mapping("corp"));
    EXPECT_EQ(2, tallyd_avp_ssid_mapping("it's guest"));
    EXPECT_EQ(4, tallyd_sys_info.ap_count);
    // Nothing is written until the message or run ends; then each list that
    // gained entries is saved once, in the order the ids were given.
    const uint64_t saves = tallyd_dict_save_count();
    EXPECT_EQ("", stored("avpap-list", "ap"));
    EXPECT_EQ(0, tallyd_dict_flush());
    EXPECT_EQ(saves + 2, tallyd_dict_save_count());
    EXPECT_EQ("1=00:11:22:33:44:55 2=00:11:22:33:44:66 3=00:11:22:33:44:55  4=00:11:22:33:44:6F ",
              stored("avpap-list", "ap"));
    EXPECT_EQ("1=corp 2=it's guest ", stored("avpssid-list", "ssid"));

    restart();
    EXPECT_EQ(4, tallyd_sys_info.ap_count);
    EXPECT_EQ(2, tallyd_sys_info.ssid_count);
    EXPECT_EQ(2, tallyd_avp_ap_lookup_name("00:11:22:33:44:66"));
    EXPECT_EQ(0, tallyd_avp_ap_lookup_name("00:11:22:33:44:77"));
    EXPECT_STREQ("00:11:22:33:44:55", tallyd_avp_ap_lookup_id(1));
    EXPECT_EQ(nullptr, tallyd_avp_ap_lookup_id(5));
    EXPECT_EQ(nullptr, tallyd_avp_ap_lookup_id(0));
    EXPECT_EQ(2, tallyd_avp_ssid_mapping("it's guest"));
    EXPECT_STREQ("corp", tallyd_avp_ssid_lookup_id(1));
    EXPECT_EQ(5, tallyd_avp_ap_mapping("00:11:22:33:44:77"));
}

TEST_F(EntityDict, GroupAndDeviceIdsNameTheirBucket) {
    seed_all();
    const int32_t phone = static_cast<int32_t>(tallyd_str_hash("phone") % 256);
    const int32_t tablet = static_cast<int32_t>(tallyd_str_hash("tablet") % 256);
    EXPECT_EQ(1 * 256 + phone, tallyd_avp_dvcinfo_mapping("phone"));
    EXPECT_EQ(2 * 256 + tablet, tallyd_avp_dvcinfo_mapping("tablet"));
    EXPECT_EQ(0, tallyd_avp_dvcinfo_mapping(""));  // refused, not a new id
    EXPECT_EQ(0, tallyd_avp_dvcinfo_mapping(nullptr));
    EXPECT_EQ(2, tallyd_sys_info.dvcinfo_count);
    // The repository keeps the counter, not the composed id.
    tallyd_dict_flush();
    EXPECT_EQ("1=phone 2=tablet ", stored("avpdvcinfo-list", "dvcinfo"));
    EXPECT_EQ(nullptr, tallyd_avp_dvcinfo_lookup_id(1 * 256 + phone + 1));

    const int32_t grp = static_cast<int32_t>(tallyd_str_hash("floor 2") % 256);
    EXPECT_EQ(256 + grp, tallyd_avp_apgroup_mapping("floor 2"));

    // What tools read from the list is what the daemon hands out.
    std::vector<tallyd_dict_stored> stored_entries;
    ASSERT_EQ(0, tallyd_dict_read_stored("dvcinfo", &stored_entries));
    ASSERT_EQ(2u, stored_entries.size());
    EXPECT_EQ(static_cast<uint32_t>(2 * 256 + tablet), stored_entries[1].id);
    EXPECT_EQ(2, stored_entries[1].counter);
    EXPECT_EQ("tablet", stored_entries[1].key);
    EXPECT_EQ(-2, tallyd_dict_read_stored("vendor", &stored_entries));

    restart();
    EXPECT_EQ(256 + phone, tallyd_avp_dvcinfo_lookup_name("phone"));
    EXPECT_STREQ("tablet", tallyd_avp_dvcinfo_lookup_id(2 * 256 + tablet));
    EXPECT_STREQ("floor 2", tallyd_avp_apgroup_lookup_id(256 + grp));
    EXPECT_EQ(3 * 256 + static_cast<int32_t>(tallyd_str_hash("laptop") % 256),
              tallyd_avp_dvcinfo_mapping("laptop"));
}

TEST_F(EntityDict, CounterContinuesAfterTheHighestStoredId) {
    seed("avpap-list",
         "<avpap id=\"3\" ap=\"a\"/><avpap id=\"40\" ap=\"b\"/><avpap id=\"7\" ap=\"c\"/>"
         "<avpap id=\"0\" ap=\"skipped\"/><avpap ap=\"no id\"/>");
    seed("avpapgroup-list", "<avpapgroup id=\"5\" apgroup=\"lobby\"/>");
    // The same key twice: both are entries, the one read first answers.
    seed("avpssid-list", "<avpssid id=\"4\" ssid=\"dup\"/><avpssid id=\"9\" ssid=\"dup\"/>");
    tallyd_load_dictionaries(&tallyd_sys_info);

    EXPECT_EQ(40, tallyd_sys_info.ap_count);
    EXPECT_EQ(0, tallyd_avp_ap_lookup_name("skipped"));
    EXPECT_EQ(41, tallyd_avp_ap_mapping("new"));
    EXPECT_EQ(4, tallyd_avp_ssid_lookup_name("dup"));
    EXPECT_STREQ("dup", tallyd_avp_ssid_lookup_id(9));
    EXPECT_EQ(10, tallyd_avp_ssid_mapping("next"));
    const int32_t lobby = static_cast<int32_t>(tallyd_str_hash("lobby") % 256);
    EXPECT_EQ(5 * 256 + lobby, tallyd_avp_apgroup_lookup_name("lobby"));
    EXPECT_EQ(5, tallyd_sys_info.apgroup_count);
}

TEST_F(EntityDict, FiftySeventhApOnASmallPlatformChainsBehindAnEarlierOne) {
    seed_all();
    for (int i = 1; i <= 56; ++i) ASSERT_EQ(i, tallyd_avp_ap_mapping(mac(i).c_str()));
    // A MAC for the 57th AP that falls into the bucket of the first one.
    const uint32_t bucket = tallyd_str_hash(mac(1).c_str()) % 56;
    std::string extra;
    for (int i = 57; extra.empty(); ++i)
        if (tallyd_str_hash(mac(i).c_str()) % 56 == bucket) extra = mac(i);
    ASSERT_EQ(57, tallyd_avp_ap_mapping(extra.c_str()));

    const tallyd_dict *head = &tallyd_sys_info.ap_dict[bucket];
    EXPECT_EQ(1u, head->id);
    const tallyd_dict *tail = head;
    while (tail->next) tail = tail->next;
    EXPECT_EQ(57u, tail->id);
    EXPECT_STREQ(extra.c_str(), tallyd_avp_ap_lookup_id(57));
    EXPECT_EQ(57, tallyd_avp_ap_lookup_name(extra.c_str()));

    restart();
    for (int i = 1; i <= 56; ++i) EXPECT_EQ(i, tallyd_avp_ap_lookup_name(mac(i).c_str()));
    EXPECT_EQ(57, tallyd_avp_ap_lookup_name(extra.c_str()));
}

TEST_F(EntityDict, EmptyKeysAreRefusedByEveryDictionary) {
    seed_all();
    for (auto map : {tallyd_avp_ap_mapping, tallyd_avp_ssid_mapping, tallyd_avp_apgroup_mapping,
                     tallyd_avp_dvcinfo_mapping}) {
        EXPECT_EQ(0, map(""));
        EXPECT_EQ(0, map(nullptr));
    }
    EXPECT_EQ(0, tallyd_sys_info.ap_count);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, avpdvcinfo-list: an empty key gets no id\n"));
    EXPECT_EQ("", stored("avpap-list", "ap"));
    EXPECT_EQ(1, tallyd_avp_ap_mapping("a"));
}

// Ids are signed 32-bit wherever they go; a counter that reached the last id
// of its type refuses new keys rather than wrap, and a stored id that no
// counter may reach is not taken in at all.
TEST_F(EntityDict, IdsNeverWrapOrComeFromOutOfRangeEntries) {
    seed("avpap-list",
         "<avpap id=\"-3\" ap=\"neg\"/><avpap id=\"99999999999\" ap=\"huge\"/>"
         "<avpap id=\"2147483647\" ap=\"last\"/><avpap id=\"2147483648\" ap=\"past\"/>");
    seed("avpssid-list", "<avpssid id=\"7\" ssid=\"s\"/>");
    // Counter 8388607 composes 8388607 x 256 + bucket <= INT32_MAX; one more would not.
    seed("avpapgroup-list", "<avpapgroup id=\"8388608\" apgroup=\"past\"/>");
    seed("avpdvcinfo-list", "<avpdvcinfo id=\"8388606\" dvcinfo=\"d\"/>");
    restart();

    EXPECT_EQ(4, log_count("out of range, skipped")) << log_dump();
    EXPECT_EQ(1, log_count(path(kXrepo) + "avpap-list.xml: ap=\"neg\" has id -3"));
    EXPECT_EQ(1, log_count(path(kXrepo) + "avpapgroup-list.xml: apgroup=\"past\""));
    EXPECT_EQ(2147483647, tallyd_avp_ap_lookup_name("last"));
    EXPECT_EQ(0, tallyd_avp_ap_lookup_name("neg"));
    EXPECT_EQ(0, tallyd_avp_ap_lookup_name("huge"));
    EXPECT_EQ(8, tallyd_avp_ssid_mapping("new"));
    EXPECT_EQ(0, tallyd_avp_apgroup_lookup_name("past"));

    EXPECT_EQ(0, tallyd_avp_ap_mapping("new1"));
    EXPECT_EQ(0, tallyd_avp_ap_mapping("new2"));
    EXPECT_EQ(2147483647, tallyd_sys_info.ap_count);
    EXPECT_EQ(1, log_count("avpap-list has given its last id (counter 2147483647)"));

    int32_t d1 = tallyd_avp_dvcinfo_mapping("phone");
    EXPECT_EQ(8388607 * 256 + static_cast<int32_t>(tallyd_str_hash("phone") % 256), d1);
    EXPECT_GT(d1, 0);
    EXPECT_EQ(0, tallyd_avp_dvcinfo_mapping("tablet"));
    EXPECT_EQ(d1, tallyd_avp_dvcinfo_mapping("phone"));
    EXPECT_EQ(1, log_count("avpdvcinfo-list has given its last id"));
}

// A flood of new keys stops at the bound: ids up to it, then 0 with one
// line a minute, while known keys keep their ids.
TEST_F(EntityDict, UniqueKeysStopAtTheBoundWithOneLineAMinute) {
    const int32_t bound = tallyd_dict_max_entries(56);
    ASSERT_EQ(56 * TALLYD_DICT_MAX_ENTRIES_PER_BUCKET, bound);
    for (int i = 1; i <= bound; ++i) ASSERT_EQ(i, tallyd_avp_ap_mapping(mac(i).c_str()));
    for (int i = 0; i < 500; ++i) EXPECT_EQ(0, tallyd_avp_ap_mapping(mac(bound + 1 + i).c_str()));
    EXPECT_EQ(bound, tallyd_avp_ap_mapping(mac(bound).c_str()));
    EXPECT_EQ(1, log_count("avpap-list holds its maximum of 3584 entries, new keys refused"));
    tallyd_clock_advance(59);
    EXPECT_EQ(0, tallyd_avp_ap_mapping("x"));
    EXPECT_EQ(1, log_count("holds its maximum"));
    tallyd_clock_advance(1);
    EXPECT_EQ(0, tallyd_avp_ap_mapping("x"));
    EXPECT_EQ(2, log_count("holds its maximum"));
    EXPECT_EQ(bound, tallyd_sys_info.ap_count);
    EXPECT_EQ(1, tallyd_avp_ssid_mapping("other dictionaries are not full"));
}

TEST_F(EntityDict, MissingOrMalformedListKeepsNewIdsInMemoryOnly) {
    // No lists at all: ids are still handed out, nothing is created on disk.
    tallyd_load_dictionaries(&tallyd_sys_info);
    EXPECT_EQ(1, tallyd_avp_ap_mapping("a"));
    EXPECT_EQ(1, tallyd_avp_ap_lookup_name("a"));
    EXPECT_FALSE(exists(std::string(kXrepo) + "avpap-list.xml"));
    EXPECT_EQ(0, log_count("tallyd"));
    std::vector<tallyd_dict_stored> entries;
    EXPECT_EQ(0, tallyd_dict_flush());
    EXPECT_EQ(-1, tallyd_dict_read_stored("ap", &entries));

    const std::string broken = "<avpssid-list><avpssid id=\"1\" ssid=\"x\">";
    write_file(std::string(kXrepo) + "avpssid-list.xml", broken);
    tallyd_update_avp_ssid_hash(&tallyd_sys_info);
    EXPECT_EQ(1, log_count("tallyd_update_avp_ssid_hash"));
    EXPECT_EQ(1, tallyd_avp_ssid_mapping("y"));
    tallyd_dict_flush();
    EXPECT_EQ(1, log_count("tallyd_add_avpssid_xml"));
    EXPECT_EQ(broken, read_file(std::string(kXrepo) + "avpssid-list.xml"));
}

TEST_F(EntityDict, AFailedSaveKeepsTheIdsAndIsRetriedByTheNextFlush) {
    seed_all();
    // A directory where the save's temporary file goes makes the write fail.
    const std::string blocker = path(std::string(kXrepo) + ".avpap-list.xml.tmp");
    std::filesystem::create_directories(blocker);
    EXPECT_EQ(1, tallyd_avp_ap_mapping("a"));
    EXPECT_EQ(-1, tallyd_dict_flush());
    EXPECT_EQ(2, tallyd_avp_ap_mapping("b"));
    EXPECT_EQ(-1, tallyd_dict_flush());
    EXPECT_EQ(2, log_count("failed to save repository list avpap-list"));
    std::filesystem::remove(blocker);
    EXPECT_EQ(0, tallyd_dict_flush());
    EXPECT_EQ("1=a 2=b ", stored("avpap-list", "ap"));
}

TEST_F(EntityDict, UnusableTableSizeFailsWithoutTouchingTheCounter) {
    seed_all();
    tallyd_sys_info.ap_max = 0;
    EXPECT_EQ(0, tallyd_avp_ap_mapping("a"));
    EXPECT_EQ(0, tallyd_sys_info.ap_count);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, failed to add ap node\n"));
    tallyd_sys_info.dvcinfo_max = TALLYD_DVCINFO_DICT_CAP + 1;
    EXPECT_EQ(0, tallyd_avp_dvcinfo_mapping("phone"));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, failed to add dvcinfo node\n"));
    EXPECT_EQ("", stored("avpap-list", "ap"));
}

}  // namespace
