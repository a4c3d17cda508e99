// Fixture of the report tests: the daemon's databases and dictionaries in a
// temporary root, and a socket pair standing in for the requester, so that
// each test sees every datagram a handler sends.
#pragma once

#include <sys/socket.h>
#include <unistd.h>

#include <cstdint>
#include <string>
#include <vector>

#include "base/sys_info.h"
#include "db/db_files.h"
#include "entity/dict.h"
#include "ipc/msg_layout.h"
#include "reports/report_wire.h"
#include "support/db_test.h"

using bytes_t = std::vector<uint8_t>;

class report_test : public db_root_test {
   protected:
    void SetUp() override {
        db_root_test::SetUp();
        tallyd_sys_info = {};
        tallyd_sys_info.db_max_size = tallyd_sys_info.db_flash_max_size = 15000000;
        tallyd_sys_info.ap_max = 56;
        tallyd_sys_info.ssid_max = 54;
        tallyd_sys_info.apgroup_max = tallyd_sys_info.dvcinfo_max = 256;
        for (const char *list : {"avpap", "avpssid", "avpdvcinfo", "avpapgroup"})
            write_file(std::string("/etc/corvane/xrepo/") + list + "-list.xml",
                       std::string("<") + list + "-list/>");
        write_file("/etc/corvane/xrepo/ap-list.xml", "<ap-list/>");
        ASSERT_EQ(0, tallyd_init_avp_db(&tallyd_db_set));
        ASSERT_EQ(0, socketpair(AF_UNIX, SOCK_DGRAM, 0, fds_));
        tallyd_sys_info.reply_sock = fds_[0];
    }
    void TearDown() override {
        close(fds_[0]);
        close(fds_[1]);
        tallyd_dict_reset(&tallyd_sys_info);
        tallyd_sys_info = {};
        db_root_test::TearDown();
    }

    // Every datagram the requester received since the last call.
    std::vector<bytes_t> replies() {
        std::vector<bytes_t> out;
        bytes_t b(90000);
        ssize_t n;
        while ((n = recv(fds_[1], b.data(), b.size(), MSG_DONTWAIT)) >= 0)
            out.emplace_back(b.begin(), b.begin() + n);
        return out;
    }

    // Runs handler on msg (the request without its header, as the builders
    // make it) as the dispatcher would: a header with id, zeros after the
    // received bytes. Returns the one reply's data area; fails the test when
    // not exactly one reply was sent.
    template <class Handler>
    bytes_t ask(Handler handler, uint32_t id, bytes_t msg) {
        tallyd_msg_header_put(msg, 9, id, static_cast<uint32_t>(msg.size() - 12));
        msg.resize(8192);
        handler(msg);
        std::vector<bytes_t> got = replies();
        EXPECT_EQ(1u, got.size());
        if (got.size() != 1) return {};
        const bytes_t &r = got[0];
        EXPECT_EQ(id, wire_be32(r, TALLYD_REPLY_REQUEST_ID.offset));
        EXPECT_EQ(r.size(), TALLYD_REPLY_HDR_LEN + wire_be32(r, TALLYD_REPLY_PAYLOAD_LEN.offset));
        return bytes_t(r.begin() + TALLYD_REPLY_HDR_LEN, r.end());
    }

    // Field f of record i of layout l in data.
    static uint64_t num(const bytes_t &data, const report_wire::layout &l, size_t i,
                        const wire_field &f) {
        return wire_get_num(report_wire::record(data, l.records, i), f);
    }
    static std::string text(const bytes_t &data, const report_wire::layout &l, size_t i,
                            const wire_field &f) {
        return std::string(wire_get_text(report_wire::record(data, l.records, i), f));
    }
    // Number of records before the first all-zero one.
    static size_t filled(const bytes_t &data, const report_wire::layout &l) {
        size_t n = 0;
        for (; n < l.records.count; ++n) {
            std::span<const uint8_t> rec = report_wire::record(data, l.records, n);
            if (rec.empty() || std::all_of(rec.begin(), rec.end(), [](uint8_t b) { return !b; }))
                break;
        }
        return n;
    }

    sql_conn &db() { return tallyd_db_set.db; }

    int fds_[2] = {-1, -1};
};
