#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "base/clock.h"
#include "base/log_limit.h"
#include "base/path.h"
#include "base/wire.h"
#include "support/test_root.h"

TEST(BaseWire, BigEndianRoundTripIsByteExact) {
    uint8_t b[8] = {};
    be32_put(b, 0x03000045);
    EXPECT_EQ(0x03, b[0]);
    EXPECT_EQ(0x45, b[3]);
    EXPECT_EQ(0x03000045u, be32_get(b));
    be64_put(b, 0x0102030405060708ULL);
    EXPECT_EQ(0x01, b[0]);
    EXPECT_EQ(0x08, b[7]);
    EXPECT_EQ(0x0102030405060708ULL, be64_get(b));
    be16_put(b, 0xabcd);
    EXPECT_EQ(0xabcd, be16_get(b));
}

TEST(BaseWire, BoundedReadersNeverLeaveTheBuffer) {
    const uint8_t msg[6] = {0, 0, 0, 7, 'a', 'b'};
    std::span<const uint8_t> s(msg);
    EXPECT_EQ(7u, wire_be32(s, 0));
    EXPECT_EQ(0u, wire_be32(s, 4));  // only two bytes left
    EXPECT_EQ(0u, wire_be64(s, 0));  // longer than the buffer
    EXPECT_EQ(0u, wire_u8(s, 6));    // just past the end
    EXPECT_EQ(0u, wire_be32(s, SIZE_MAX - 1));
    EXPECT_EQ("ab", wire_text(s, 4, 32));  // no zero: cut at the buffer
    EXPECT_EQ("", wire_text(s, 9, 4));

    const uint8_t field[4] = {'x', 'y', 'z', 'w'};  // no terminating zero
    char out[8];
    EXPECT_EQ(3u, wire_text_copy(out, sizeof out, field, 0, 3));
    EXPECT_STREQ("xyz", out);
    EXPECT_EQ(1u, wire_text_copy(out, 2, field, 0, 4));
    EXPECT_STREQ("x", out);
}

TEST(BaseWire, FieldTablesReadAndWriteTheSameLayout) {
    static constexpr wire_field kId{"id", 4, 4, wire_kind::be32};
    static constexpr wire_field kName{"name", 8, 6, wire_kind::text};
    static constexpr wire_field kOutside{"far", 20, 8, wire_kind::be64};
    uint8_t buf[14];
    std::memset(buf, 0xee, sizeof buf);
    wire_put_num(buf, kId, 0x12000005);
    wire_put_text(buf, kName, "abcdefgh");  // cut to 5 + zero
    wire_put_num(buf, kOutside, 1);         // skipped, no write
    EXPECT_EQ(0x12000005u, wire_get_num(buf, kId));
    EXPECT_EQ("abcde", wire_get_text(buf, kName));
    EXPECT_EQ(0, buf[13]);
    EXPECT_EQ(0u, wire_get_num(buf, kOutside));
}

class BaseRoot : public root_test {};

TEST_F(BaseRoot, PathsArePrefixedAndLogIsCaptured) {
    EXPECT_EQ(root_->path() + "/tmp/tallyd", tallyd_path("/tmp/tallyd"));
    char small[8];
    int n = tallyd_path_buf(small, sizeof small, "/var/run/tac");
    EXPECT_EQ(static_cast<int>(root_->path().size() + 12), n);
    EXPECT_EQ(7u, std::strlen(small));
    tallyd_root_set("/");
    EXPECT_EQ("/var/run/tac", tallyd_path("/var/run/tac"));
    tallyd_root_set(root_->path() + "//");
    EXPECT_EQ(root_->path() + "/x", tallyd_path("/x"));

    tallyd_log(LOG_ERR, "tallyd, value = %s, aErrMsg = %s\n", "a", "b");
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, value = a, aErrMsg = b\n"));
    EXPECT_FALSE(logged(LOG_WARNING, "tallyd, value = a, aErrMsg = b\n"));
}

TEST_F(BaseRoot, PinnedClockMovesOnlyWhenTold) {
    EXPECT_EQ(kStartTime, tallyd_now());
    tallyd_clock_advance(300);
    EXPECT_EQ(kStartTime + 300, tallyd_now());
    tallyd_clock_advance(-600);
    EXPECT_EQ(kStartTime - 300, tallyd_now());
    tallyd_clock_release();
    EXPECT_GT(tallyd_now(), 1600000000u);
    tallyd_timeval a{}, b{};
    tallyd_monotonic(&a);
    tallyd_monotonic(&b);
    EXPECT_TRUE(b.sec > a.sec || (b.sec == a.sec && b.usec >= a.usec));
    EXPECT_LT(a.usec, 1000000);
}

// Each kind is cut at ten lines a second on its own, and what was cut is
// counted in one line once its second is over (or at a flush).
TEST(BaseLogLimit, EachKindIsCutOnItsOwnAndTheCutIsCounted) {
    static std::vector<std::string> reported;
    auto report = [](int priority, const char *text) {
        reported.push_back(std::to_string(priority) + " " + text);
    };
    reported.clear();
    log_limiter lim;
    int written = 0;
    for (int i = 0; i < 500; ++i) written += lim.admit("len = %d\n", LOG_ERR, i, report);
    EXPECT_EQ(10, written);
    EXPECT_TRUE(lim.admit("other %s\n", LOG_WARNING, 600, report));  // not silenced by the flood
    EXPECT_TRUE(reported.empty());

    EXPECT_TRUE(lim.admit("len = %d\n", LOG_ERR, 1000, report));  // a new second
    ASSERT_EQ(1u, reported.size());
    EXPECT_EQ("3 tallyd, 490 lines like \"len = %d\" suppressed\n", reported[0]);

    for (int i = 0; i < 12; ++i) lim.admit("other %s\n", LOG_WARNING, 1600 + i, report);
    lim.flush(report);
    ASSERT_EQ(2u, reported.size());
    EXPECT_EQ("4 tallyd, 2 lines like \"other %s\" suppressed\n", reported[1]);

    // More kinds than slots: the oldest give way, nothing is stuck refusing.
    for (int k = 0; k < 100; ++k)
        EXPECT_TRUE(lim.admit("kind " + std::to_string(k), LOG_ERR, 5000, report)) << k;
}
