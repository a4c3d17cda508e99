#include <gtest/gtest.h>

#include <string>

#include "entity/port_name.h"

namespace {

std::string label(int32_t port) {
    char out[TALLYD_PORT_NAME_SIZE];
    int n = tallyd_port_to_name(port, out);
    EXPECT_EQ(static_cast<int>(std::string(out).size()), n);
    return out;
}

TEST(EntityPortName, KnownPortsKeepTheirLabelsOddOnesIncluded) {
    EXPECT_EQ("gre(port 70)", label(47));
    EXPECT_EQ("eigrp(port 70)", label(88));
    EXPECT_EQ("nfs(port 2049", label(2049));
    EXPECT_EQ("icmp(port 1)", label(1));
    EXPECT_EQ("https(port 443)", label(443));
    EXPECT_EQ("cuseeme(port 24032)", label(24032));
    for (int p = 6881; p <= 6889; ++p)
        EXPECT_EQ("bittorrent(port " + std::to_string(p) + ")", label(p));

    EXPECT_EQ("port 8080", label(8080));
    EXPECT_EQ("port 0", label(0));
    EXPECT_EQ("port -1", label(-1));
    EXPECT_EQ("port 65536", label(65536));

    // Exactly 65 labelled ports, each naming its own number except the two
    // that say 70.
    int labelled = 0;
    for (int32_t p = 0; p <= 65535; ++p) {
        std::string l = label(p);
        if (l.rfind("port ", 0) == 0) continue;
        ++labelled;
        std::string own = "(port " + std::to_string(p);
        if (p != 47 && p != 88) {
            EXPECT_NE(std::string::npos, l.find(own)) << p << " " << l;
        }
    }
    EXPECT_EQ(65, labelled);
}

}  // namespace
