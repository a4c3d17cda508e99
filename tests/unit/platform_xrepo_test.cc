#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>

#include "platform/xrepo.h"
#include "support/test_root.h"

namespace {

constexpr const char *kApList = "/etc/corvane/xrepo/avpap-list.xml";

class PlatformXrepo : public root_test {
   protected:
    xconf_ptr fetch(const char *list) { return xconf_ptr(xGetConfImpl("test", 1, list, 0)); }

    // Appends <avpap id=.. ap=..> the way the dictionaries do.
    static void add_ap(xnode *list, int id, const char *mac) {
        xnode *n = xNewImpl("avpap", 0);
        ASSERT_NE(nullptr, n);
        EXPECT_EQ(0, xSetAttrFormat(n, "id", "%d", id));
        EXPECT_EQ(0, xSetAttr(n, "ap", mac));
        ASSERT_NE(nullptr, xLinkChild(list, n));
    }

    std::string dir_listing() const {
        std::string names;
        for (auto &e : std::filesystem::directory_iterator(path("/etc/corvane/xrepo")))
            names += e.path().filename().string() + " ";
        return names;
    }
};

TEST_F(PlatformXrepo, SavedListReadsBackAndCopiesArePrivate) {
    write_file(kApList,
               "<?xml version=\"1.0\"?>\n<avpap-list>\n  <!-- seed -->\n"
               "  <avpap id=\"7\" ap=\"00:11:22:33:44:55\"/>\n</avpap-list>\n");
    xconf_ptr list = fetch("avpap-list");
    ASSERT_TRUE(list);
    EXPECT_STREQ("avpap-list", xGetName(list.get()));
    add_ap(list.get(), 8, "aa:bb:cc:dd:ee:ff");

    // Until saved, the change lives in this copy only.
    xconf_ptr other = fetch("avpap-list");
    ASSERT_TRUE(other);
    xnode *first = xGetFirstChild(other.get());  // the comment is not a child
    ASSERT_NE(nullptr, first);
    EXPECT_EQ(7, xGetAttrInt(first, "id", 0));
    EXPECT_EQ(nullptr, xGetNextSibling(first));

    ASSERT_EQ(0, repoSaveCurrent("avpap-list", list.get()));
    other = fetch("avpap-list");
    xnode *second = xGetNextSibling(xGetFirstChild(other.get()));
    ASSERT_NE(nullptr, second);
    EXPECT_STREQ("avpap", xGetName(second));
    EXPECT_EQ(8, xGetAttrInt(second, "id", 0));
    EXPECT_STREQ("aa:bb:cc:dd:ee:ff", xGetAttrString(second, "ap", ""));
    EXPECT_EQ(0, log_count("tallyd"));
}

TEST_F(PlatformXrepo, NavigationAndAttributeDefaults) {
    write_file("/etc/corvane/xrepo/system.xml",
               "<system><internal arc-app-enable=\"false\"/><qpx qpxpushenabled=\"yes\" n=\"12x\"/>"
               "<wlan id=\"1\"/><qpx/><wlan id=\"2\"/></system>");
    xconf_ptr sys = fetch("system");
    ASSERT_TRUE(sys);
    xnode *internal = xGetChild(sys.get(), "internal");
    xnode *qpx = xGetChild(sys.get(), "qpx");
    EXPECT_FALSE(xGetAttrBool(internal, "arc-app-enable", true));
    EXPECT_TRUE(xGetAttrBool(qpx, "qpxpushenabled", false));
    EXPECT_TRUE(xGetAttrBool(qpx, "missing", true));
    EXPECT_EQ(12, xGetAttrInt(qpx, "n", 0));
    EXPECT_EQ(-3, xGetAttrInt(qpx, "missing", -3));
    EXPECT_STREQ("dflt", xGetAttrString(qpx, "missing", "dflt"));
    EXPECT_EQ(nullptr, xGetChild(sys.get(), "nothing"));
    // Null nodes answer with defaults instead of crashing.
    EXPECT_EQ(5, xGetAttrInt(nullptr, "id", 5));
    EXPECT_STREQ("", xGetName(nullptr));
    EXPECT_EQ(nullptr, xGetFirstChild(nullptr));

    xiter_ptr it(xFindChildrenImpl(sys.get(), "wlan", 0));
    std::string ids;
    while (xIterHasNext(it.get())) ids += xGetAttrString(xIterNext(it.get()), "id", "?");
    EXPECT_EQ("12", ids);
    EXPECT_EQ(nullptr, xIterNext(it.get()));
    xiter_ptr all(xFindChildrenImpl(sys.get(), nullptr, 0));
    int n = 0;
    while (xIterNext(all.get())) ++n;
    EXPECT_EQ(5, n);
}

TEST_F(PlatformXrepo, MissingListIsAbsentAndANewListCanBeSaved) {
    EXPECT_FALSE(fetch("avpap-list"));
    EXPECT_FALSE(fetch("../etc"));
    EXPECT_FALSE(fetch(""));
    EXPECT_EQ(0, log_count("tallyd"));

    xnode *list = xNewImpl("avpap-list", 0);
    add_ap(list, 1, "m1");
    EXPECT_EQ(-1, repoSaveCurrent("avpssid-list", list));  // named after another list
    EXPECT_FALSE(exists(kApList));
    EXPECT_EQ(0, repoSaveCurrent("avpap-list", list));
    xFree(list);
    xconf_ptr back = fetch("avpap-list");
    ASSERT_TRUE(back);
    EXPECT_STREQ("m1", xGetAttrString(xGetFirstChild(back.get()), "ap", ""));
}

TEST_F(PlatformXrepo, MalformedListIsLoggedAbsentAndNeverOverwritten) {
    const std::string broken = "<avpap-list><avpap id=\"1\" ap=\"x\"></avpap-list>";
    write_file(kApList, broken);
    EXPECT_FALSE(fetch("avpap-list"));
    EXPECT_EQ(1, log_count("tallyd, test:1: repository list avpap-list is malformed"));

    xnode *fresh = xNewImpl("avpap-list", 0);
    add_ap(fresh, 2, "y");
    EXPECT_EQ(-1, repoSaveCurrent("avpap-list", fresh));
    xFree(fresh);
    EXPECT_TRUE(
        logged(LOG_ERR, "tallyd, repository list avpap-list is malformed, not overwritten\n"));
    EXPECT_EQ(broken, read_file(kApList));

    // A well-formed file holding another list is just as unusable.
    write_file("/etc/corvane/xrepo/avpssid-list.xml", "<avpap-list/>");
    EXPECT_FALSE(fetch("avpssid-list"));
    EXPECT_EQ(1, log_count("avpssid-list is malformed (document element <avpap-list>)"));
    write_file("/etc/corvane/xrepo/ap-list.xml", "");
    EXPECT_FALSE(fetch("ap-list"));
    EXPECT_EQ(1, log_count("list ap-list is malformed"));
}

TEST_F(PlatformXrepo, SaveReplacesTheFileWholeOrNotAtAll) {
    const std::string old_text = "<avpap-list><avpap id=\"1\" ap=\"old\"/></avpap-list>";
    write_file(kApList, old_text);
    // A second name for the old file: an in-place rewrite would change it.
    ASSERT_EQ(0, ::link(path(kApList).c_str(), path("/etc/corvane/xrepo/keep").c_str()));

    xconf_ptr list = fetch("avpap-list");
    add_ap(list.get(), 2, "new");
    ASSERT_EQ(0, repoSaveCurrent("avpap-list", list.get()));
    EXPECT_EQ(old_text, read_file("/etc/corvane/xrepo/keep"));
    EXPECT_NE(std::string::npos, read_file(kApList).find("ap=\"new\""));
    EXPECT_EQ(std::string::npos, dir_listing().find(".tmp")) << dir_listing();

    // A save that cannot write its temporary file leaves the list as it was.
    const std::string saved = read_file(kApList);
    ASSERT_EQ(0, ::mkdir(path("/etc/corvane/xrepo/.avpap-list.xml.tmp").c_str(), 0755));
    add_ap(list.get(), 3, "lost");
    EXPECT_EQ(-1, repoSaveCurrent("avpap-list", list.get()));
    EXPECT_EQ(saved, read_file(kApList));
    EXPECT_EQ(1, log_count("tallyd, failed to save repository list avpap-list: open"));
}

TEST_F(PlatformXrepo, LinkingTakesOnlyDetachedNodes) {
    write_file(kApList, "<avpap-list><avpap id=\"1\"/></avpap-list>");
    xconf_ptr list = fetch("avpap-list");
    xnode *member = xGetFirstChild(list.get());
    EXPECT_EQ(nullptr, xLinkChild(list.get(), member));  // already in a list
    EXPECT_EQ(nullptr, xLinkChild(list.get(), nullptr));

    xnode *outer = xNewImpl("avpap", 0);
    xnode *inner = xLinkChild(outer, xNewImpl("x", 0));
    ASSERT_NE(nullptr, inner);
    EXPECT_EQ(nullptr, xLinkChild(inner, outer));  // would link a node into itself
    xFree(outer);                                  // releases inner with it

    xnode *unused = xNewImpl("avpap", 0);
    xFree(unused);  // never linked: released, no leak under the sanitizer build
    EXPECT_EQ(nullptr, xNewImpl("", 0));
}

TEST_F(PlatformXrepo, SeedListsLoadEmpty) {
    const char *lists[] = {"avpap-list",      "avpssid-list", "avpapgroup-list",
                           "avpdvcinfo-list", "apgroup-list", "wlangroup-list",
                           "ap-list",         "wlansvc-list", "sta-rename-list"};
    for (const char *l : lists) {
        std::string name = std::string(l) + ".xml";
        std::filesystem::create_directories(path("/etc/corvane/xrepo"));
        std::filesystem::copy_file(std::string(TALLYD_SOURCE_DIR) + "/tools/xrepo-seed/" + name,
                                   path("/etc/corvane/xrepo/" + name));
        xconf_ptr list = fetch(l);
        ASSERT_TRUE(list) << l;
        EXPECT_EQ(nullptr, xGetFirstChild(list.get())) << l;
    }
    EXPECT_EQ(0, log_count("tallyd"));
}

}  // namespace
