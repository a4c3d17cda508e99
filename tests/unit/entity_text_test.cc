#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "entity/text.h"

namespace {

TEST(EntityMacText, ConversionsCheckLengthAndKeepCase) {
    char out[20];
    std::memset(out, 'z', sizeof out);
    EXPECT_EQ(0, tallyd_mac17_to_mac12("00-1A-2b-3C-4d-5E", out));
    EXPECT_STREQ("001A2b3C4d5E", out);
    EXPECT_EQ(0, tallyd_mac17_to_mac12("00:11:22:33:44:55", out));
    EXPECT_STREQ("001122334455", out);

    std::memset(out, 'z', sizeof out);
    EXPECT_EQ(-1, tallyd_mac17_to_mac12("00:11:22:33:44:5", out));
    EXPECT_EQ(-1, tallyd_mac17_to_mac12("00:11:22:33:44:555", out));
    EXPECT_EQ(-1, tallyd_mac17_to_mac12(nullptr, out));
    EXPECT_EQ(std::string(sizeof out, 'z'), std::string(out, sizeof out));

    EXPECT_EQ(0, tallyd_mac12_to_mac17("001a2B3c4d5e", out));
    EXPECT_STREQ("00:1a:2B:3c:4d:5e", out);
    EXPECT_EQ(-1, tallyd_mac12_to_mac17("001a2b3c4d5", out));
    EXPECT_EQ(-1, tallyd_mac12_to_mac17("00:1a:2b:3c:4d:5e", out));

    char mac[] = "aa:Bb:cC:dd:ee:0f-ZZ";
    EXPECT_STREQ("AA:BB:CC:DD:EE:0F-ZZ", tallyd_str_toupper(mac));
    EXPECT_STREQ("aa:bb:cc:dd:ee:0f-zz", tallyd_str_tolower(mac));
    char other[] = "@[`{\xc3\xa9";  // neighbours of the letter ranges and UTF-8 stay
    EXPECT_STREQ("@[`{\xc3\xa9", tallyd_str_toupper(other));
    EXPECT_STREQ("@[`{\xc3\xa9", tallyd_str_tolower(other));
}

TEST(EntityStrHash, TwoMultipliersAndSignedBytes) {
    EXPECT_EQ(0u, tallyd_str_hash(""));
    EXPECT_EQ(65u, tallyd_str_hash("A"));
    EXPECT_EQ(4294967295u, tallyd_str_hash("\xff"));
    EXPECT_EQ(3751655857u, tallyd_str_hash("AB"));
    EXPECT_EQ(3614608372u, tallyd_str_hash("00:11:22:33:44:55"));
    EXPECT_EQ(3445204268u, tallyd_str_hash("\xe9t\xe9"));
}

}  // namespace
