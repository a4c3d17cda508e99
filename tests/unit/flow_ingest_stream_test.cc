// The spool reader: a message decodes the same whatever the read buffer's
// size, and a file cut short or unreadable never passes for a whole message.

#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdio>
#include <memory>
#include <string>
#include <vector>

#include "base/file.h"
#include "flow/ingest_stream.h"
#include "sim/arc_writer.h"
#include "support/test_root.h"

namespace {

class FlowStream : public root_test {
   protected:
    // A message of n entries whose texts vary in length, so that fields of
    // every size straddle buffer boundaries somewhere.
    std::vector<uint8_t> report(pb_size_t n) {
        auto msg = std::make_unique<ArcMessage>();
        *msg = ArcMessage_init_zero;
        msg->has_serial = true;
        std::snprintf(msg->serial, sizeof msg->serial, "SN-%u", n);
        for (pb_size_t i = 0; i < n; ++i) {
            ArcFlowRecord &r = msg->records[msg->records_count++];
            r = ArcFlowRecord_init_zero;
            std::snprintf(r.app, sizeof r.app, "%.*s", static_cast<int>(i % 40 + 1),
                          "application-name-of-some-length-0123456789");
            r.port = 1000 + i;
            std::snprintf(r.client_mac, sizeof r.client_mac, "02:00:00:00:00:%02x", i & 0xffu);
            std::snprintf(r.ap_mac, sizeof r.ap_mac, "00:1a:2b:00:00:01");
            std::snprintf(r.ssid, sizeof r.ssid, "corp");
            r.uplink = 1ull << (i % 60);
            r.downlink = i;
            r.total = r.uplink + r.downlink;
        }
        return arc_encode(*msg);
    }

    // Decodes the bytes from a file through a buffer of buffer_size bytes.
    bool decode(const std::vector<uint8_t> &bytes, size_t buffer_size, ArcMessage *out) {
        write_file("/f", std::string(bytes.begin(), bytes.end()));
        unique_fd fd(open(path("/f").c_str(), O_RDONLY));
        EXPECT_TRUE(fd);
        std::vector<pb_byte_t> buffer(buffer_size);
        arc_source src{.fd = fd.get(), .buffer = buffer};
        return tallyd_decode_arc(&src, out);
    }
};

TEST_F(FlowStream, DecodesAlikeAcrossBufferSizesAndFileEnds) {
    std::vector<uint8_t> bytes = report(50);
    auto out = std::make_unique<ArcMessage>();
    // One byte at a time, sizes that split fields, the file size exactly (the
    // end is only seen by a second, empty read) and much larger than the file.
    for (size_t size : {size_t{1}, size_t{7}, size_t{64}, bytes.size(), bytes.size() / 2,
                        bytes.size() + 1, size_t{65536}}) {
        SCOPED_TRACE(size);
        ASSERT_TRUE(decode(bytes, size, out.get()));
        ASSERT_EQ(out->records_count, 50);
        EXPECT_STREQ(out->serial, "SN-50");
        EXPECT_STREQ(out->records[49].app, "applicatio");
        EXPECT_EQ(out->records[49].uplink, 1ull << 49);
        EXPECT_EQ(out->records[0].port, 1000u);
    }
    ASSERT_TRUE(decode({}, 64, out.get()));  // an empty file: an empty message
    EXPECT_FALSE(out->has_serial);
    EXPECT_EQ(out->records_count, 0);
}

TEST_F(FlowStream, CutOrUnreadableFilesFail) {
    std::vector<uint8_t> bytes = report(3);
    auto out = std::make_unique<ArcMessage>();
    for (size_t cut : {size_t{1}, bytes.size() / 2, bytes.size() - 1}) {
        SCOPED_TRACE(cut);
        std::vector<uint8_t> part(bytes.begin(), bytes.begin() + static_cast<long>(cut));
        EXPECT_FALSE(decode(part, 7, out.get()));
        EXPECT_FALSE(decode(part, 4096, out.get()));
    }
    // A descriptor that cannot be read is an error, not an empty message.
    pb_byte_t buffer[64];
    arc_source src{.fd = -1, .buffer = buffer};
    EXPECT_FALSE(tallyd_decode_arc(&src, out.get()));
}

}  // namespace
