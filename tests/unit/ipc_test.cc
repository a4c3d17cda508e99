#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "base/path.h"
#include "base/sys_info.h"
#include "eloop/eloop.h"
#include "ipc/dispatch.h"
#include "ipc/msg_layout.h"
#include "ipc/reply.h"
#include "ipc/unix_server.h"
#include "ipc/unix_sock.h"
#include "support/test_root.h"

namespace {

using bytes = std::vector<uint8_t>;

bytes message(uint32_t id, size_t payload, uint8_t module = 7) {
    bytes m(TALLYD_MSG_HDR_LEN + payload, 0);
    tallyd_msg_header_put(m, module, id, static_cast<uint32_t>(payload));
    for (size_t i = TALLYD_MSG_HDR_LEN; i < m.size(); ++i) m[i] = static_cast<uint8_t>(i);
    return m;
}

// What the handlers of the test route table saw.
struct seen_call {
    char who;
    bytes msg;
};
std::vector<seen_call> calls;

void first(std::span<const uint8_t> m) {
    calls.push_back({'1', bytes(m.begin(), m.end())});
}
void second(std::span<const uint8_t> m) {
    calls.push_back({'2', bytes(m.begin(), m.end())});
}

// Answers the request with a three-byte payload, as a report would.
void answer(std::span<const uint8_t> m) {
    tallyd_reply_start(wire_be32(m, TALLYD_HDR_MSG_ID.offset));
    const uint8_t payload[] = {0xaa, 0xbb, 0xcc};
    ASSERT_EQ(0, tallyd_reply_append(payload));
    tallyd_reply_set_word(5);
    EXPECT_EQ(0, tallyd_reply_send(0));
}

const tallyd_route ctrl_rows[] = {
    tallyd_route_of(TALLYD_MSG_AP_ADD, first, second),
    tallyd_route_of(TALLYD_MSG_IGNORED_49),
    tallyd_route_of(TALLYD_MSG_GET_TOP_SUMMARY, answer),
};
const tallyd_route stat_rows[] = {tallyd_route_of(TALLYD_MSG_CLIENT_STATS, first)};
const tallyd_route_table ctrl_table{ctrl_rows};
const tallyd_route_table stat_table{stat_rows};

// A daemon socket in the temporary root and a client bound beside it.
class Ipc : public root_test {
   protected:
    void SetUp() override {
        root_test::SetUp();
        std::filesystem::create_directories(path("/tmp"));
        std::filesystem::create_directories(path("/var/run/tac"));
        calls.clear();
        server_ = tallyd_open_unix_server(path("/var/run/tac/test.socket").c_str());
        ASSERT_GE(server_, 0);
        ASSERT_GE(unix_sock_open_client(path("/var/run/tac/test.socket").c_str(), &client_, 1), 0);
    }
    void TearDown() override {
        unix_sock_close(&client_);
        close(server_);
        root_test::TearDown();
    }

    void send_raw(const bytes &m) {
        ASSERT_EQ(static_cast<ssize_t>(m.size()), send(client_.fd, m.data(), m.size(), 0));
    }
    // Whatever came back to the client, or nothing.
    bytes reply() {
        bytes b(TALLYD_REPLY_BUF_SIZE);
        if (!unix_sock_poll(&client_)) return {};
        ssize_t n = recv(client_.fd, b.data(), b.size(), 0);
        b.resize(n > 0 ? n : 0);
        return b;
    }

    int server_ = -1;
    unix_sock client_{};
};

TEST_F(Ipc, AddressesAndListeningSockets) {
    sockaddr_un a;
    memset(&a, 0x55, sizeof a);
    EXPECT_EQ(13, tallyd_fill_unix_addr(&a, "/tmp/x.sock"));
    EXPECT_EQ(AF_UNIX, a.sun_family);
    EXPECT_STREQ("/tmp/x.sock", a.sun_path);
    EXPECT_EQ(0, a.sun_path[107]);
    std::string long_path(150, 'p');
    EXPECT_EQ(152, tallyd_fill_unix_addr(&a, long_path.c_str()));  // uncut length
    EXPECT_EQ(107u, strlen(a.sun_path));

    // A plain file where the socket goes is replaced by the socket.
    write_file("/var/run/tac/stale.socket", "left over");
    int s = tallyd_open_unix_server(path("/var/run/tac/stale.socket").c_str());
    ASSERT_GE(s, 0);
    struct stat st {};
    ASSERT_EQ(0, stat(path("/var/run/tac/stale.socket").c_str(), &st));
    EXPECT_TRUE(S_ISSOCK(st.st_mode));
    close(s);

    EXPECT_EQ(-1, tallyd_open_unix_server(path("/no/such/dir/x.socket").c_str()));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, can not bind Unit socket\n"));
}

TEST_F(Ipc, ControlHeaderFailuresAreLoggedAndDropped) {
    send_raw(bytes(11, 1));
    tallyd_ctrl_receive(server_, const_cast<tallyd_route_table *>(&ctrl_table), nullptr);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, recvfrom msg too short, len = 11\n")) << log_dump();

    bytes m = message(TALLYD_MSG_AP_ADD, 8);
    be32_put(&m[8], 4);  // 20 bytes received, 4 announced
    send_raw(m);
    tallyd_ctrl_receive(server_, const_cast<tallyd_route_table *>(&ctrl_table), nullptr);
    EXPECT_TRUE(logged(
        LOG_ERR, "tallyd, received msg of 20 bytes from module 7 but len specified is = 4\n"));

    // 8,192 bytes with a consistent header: cut to 8,191 by the receive.
    send_raw(message(TALLYD_MSG_AP_ADD, 8180, 3));
    tallyd_ctrl_receive(server_, const_cast<tallyd_route_table *>(&ctrl_table), nullptr);
    EXPECT_TRUE(logged(
        LOG_ERR, "tallyd, received msg of 8191 bytes from module 3 but len specified is = 8180\n"));

    send_raw(message(0x03000047, 0));
    tallyd_ctrl_receive(server_, const_cast<tallyd_route_table *>(&ctrl_table), nullptr);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, received invalid msg id 0x03000047 from module 7\n"));
    // An id of the statistics socket is as unknown here as any other.
    send_raw(message(TALLYD_MSG_CLIENT_STATS, 4, 200));
    tallyd_ctrl_receive(server_, const_cast<tallyd_route_table *>(&ctrl_table), nullptr);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, received invalid msg id 0x12000006 from module 200\n"));

    EXPECT_TRUE(calls.empty());
    EXPECT_TRUE(reply().empty());
    EXPECT_EQ(nullptr, tallyd_sys_info.peer_addr);
    EXPECT_EQ(nullptr, tallyd_sys_info.peer_addr_len);
}

TEST_F(Ipc, RoutedIdsRunTheirHandlersOnTheWholeZeroedBuffer) {
    // A long message first, so stale bytes would show after the short one.
    send_raw(message(TALLYD_MSG_AP_ADD, 600));
    tallyd_ctrl_receive(server_, const_cast<tallyd_route_table *>(&ctrl_table), nullptr);
    send_raw(message(TALLYD_MSG_AP_ADD, 4));
    tallyd_ctrl_receive(server_, const_cast<tallyd_route_table *>(&ctrl_table), nullptr);
    ASSERT_EQ(4u, calls.size());
    EXPECT_EQ('1', calls[2].who);
    EXPECT_EQ('2', calls[3].who);
    const bytes &m = calls[3].msg;
    ASSERT_EQ(TALLYD_RECV_BUF_SIZE, m.size());
    EXPECT_EQ(TALLYD_MSG_AP_ADD, be32_get(&m[4]));
    EXPECT_EQ(15, m[15]);  // last payload byte
    for (size_t i = 16; i < m.size(); ++i) ASSERT_EQ(0, m[i]) << "offset " << i;

    // An id routed without handlers is accepted silently.
    send_raw(message(TALLYD_MSG_IGNORED_49, 0));
    tallyd_ctrl_receive(server_, const_cast<tallyd_route_table *>(&ctrl_table), nullptr);
    EXPECT_EQ(4u, calls.size());
    EXPECT_TRUE(log_.empty()) << log_dump();
    EXPECT_TRUE(reply().empty());
}

TEST_F(Ipc, ReplyGoesBackToTheSenderByteForByte) {
    send_raw(message(TALLYD_MSG_GET_TOP_SUMMARY, 0));
    tallyd_ctrl_receive(server_, const_cast<tallyd_route_table *>(&ctrl_table), nullptr);
    bytes r = reply();
    const bytes want = {0,    18,   0,   0,     // reserved, module 18, flag, reserved
                        0x03, 0,    0,   0x03,  // reply id
                        0,    0,    0,   19,    // 16 + payload
                        0x03, 0,    0,   0x45,  // request id echoed
                        0,    0,    0,   5,     // reply word
                        0,    0,    0,   3,     // payload length
                        0,    0,    0,   28,    // write position
                        0xaa, 0xbb, 0xcc};
    EXPECT_EQ(want, r);
    EXPECT_EQ(TALLYD_MSG_GET_TOP_SUMMARY, wire_get_num(r, TALLYD_REPLY_REQUEST_ID));

    // After a send the buffer is ready for the next reply: empty payload.
    EXPECT_EQ(0u, tallyd_reply_payload_len());
    EXPECT_EQ(16u, wire_be32(tallyd_reply_buffer(), TALLYD_HDR_LENGTH.offset));
}

TEST_F(Ipc, ReplyLimitsAndSendFailure) {
    tallyd_reply_start(1);
    EXPECT_EQ(TALLYD_REPLY_BUF_SIZE - 28, tallyd_reply_reserve(TALLYD_REPLY_BUF_SIZE - 28).size());
    EXPECT_TRUE(tallyd_reply_reserve(1).empty());
    const uint8_t one = 1;
    EXPECT_EQ(-1, tallyd_reply_append({&one, 1}));
    EXPECT_EQ(TALLYD_REPLY_BUF_SIZE - 28, tallyd_reply_payload_len());

    tallyd_reply_start(1);
    ASSERT_EQ(0, tallyd_reply_append({&one, 1}));
    tallyd_sys_info.reply_sock = -1;
    EXPECT_EQ(-1, tallyd_reply_send(0));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, failed fd: -1, reason: Bad file descriptor\n"))
        << log_dump();
    EXPECT_EQ(1u, tallyd_reply_payload_len());  // not reset
    tallyd_sys_info.reply_sock = 0;
}

TEST_F(Ipc, MonitorAnswersTheProbeWhateverItsLength) {
    bytes probe = message(TALLYD_MSG_TAC_PROBE, 0);
    be32_put(&probe[8], 999);
    send_raw(probe);
    tallyd_monitor_receive(server_, nullptr, nullptr);
    const bytes want = {0, 18,   0, 0, 0x08, 0, 0, 0x02, 0, 0, 0, 16, 0x08, 0,
                        0, 0x01, 0, 0, 0,    0, 0, 0,    0, 0, 0, 0,  0,    0};
    EXPECT_EQ(want, reply());

    send_raw(message(TALLYD_MSG_AP_ADD, 0, 9));
    tallyd_monitor_receive(server_, nullptr, nullptr);
    send_raw(bytes(5, 0));
    tallyd_monitor_receive(server_, nullptr, nullptr);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, received invalid msg id 0x12000002 from module 9\n"));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, recvfrom msg too short, len = 5\n"));
    EXPECT_TRUE(reply().empty());
}

TEST_F(Ipc, StatisticsSocketRoutesOnlyItsOwnIds) {
    send_raw(message(TALLYD_MSG_CLIENT_STATS, 8));
    tallyd_stat_receive(server_, const_cast<tallyd_route_table *>(&stat_table), nullptr);
    ASSERT_EQ(1u, calls.size());
    EXPECT_EQ(TALLYD_STAT_BUF_SIZE, calls[0].msg.size());

    send_raw(message(TALLYD_MSG_AP_ADD, 0, 1));
    tallyd_stat_receive(server_, const_cast<tallyd_route_table *>(&stat_table), nullptr);
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, received invalid msg id 0x12000002 from module 1\n"));
    bytes m = message(TALLYD_MSG_CLIENT_STATS, 8);
    be32_put(&m[8], 9);
    send_raw(m);
    tallyd_stat_receive(server_, const_cast<tallyd_route_table *>(&stat_table), nullptr);
    EXPECT_TRUE(logged(
        LOG_ERR, "tallyd, received msg of 20 bytes from module 7 but len specified is = 9\n"));
    EXPECT_EQ(1u, calls.size());
    EXPECT_TRUE(reply().empty());
}

TEST_F(Ipc, InterfacesOpenUnderTheRunDirectory) {
    eloop_init(nullptr);
    ASSERT_EQ(0, tallyd_monitor_iface_init());
    ASSERT_EQ(0, tallyd_ipc_ctrl_iface_init(&ctrl_table, &stat_table));
    for (auto p : {TALLYD_MONITOR_SOCKET, TALLYD_CTRL_SOCKET, TALLYD_STAT_SOCKET})
        EXPECT_TRUE(exists(p)) << p;
    eloop_destroy();

    std::filesystem::remove_all(path("/var/run/tac"));
    eloop_init(nullptr);
    EXPECT_EQ(-1, tallyd_monitor_iface_init());
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, failed to init monitor sock_id: -1\n"));
    EXPECT_EQ(-1, tallyd_ipc_ctrl_iface_init(&ctrl_table, &stat_table));
    EXPECT_TRUE(logged(LOG_ERR, "tallyd, failed to init UNIT sock_id: -1\n"));
    eloop_destroy();

    // The statistics socket cannot bind (a directory holds its name): the
    // control socket that did open is not left in the loop either.
    std::filesystem::create_directories(path(TALLYD_STAT_SOCKET));
    eloop_init(nullptr);
    EXPECT_EQ(-1, tallyd_ipc_ctrl_iface_init(&ctrl_table, &stat_table));
    EXPECT_EQ(0, eloop_unregister_read_sock(-1));  // 0: no reader registered
    eloop_destroy();
}

TEST_F(Ipc, ClientSocketsCleanUpAfterThemselves) {
    auto uds_files = [&] {
        int n = 0;
        for (auto &e : std::filesystem::directory_iterator(path("/tmp")))
            if (e.path().filename().string().rfind("uds-", 0) == 0) ++n;
        return n;
    };
    EXPECT_EQ(1, uds_files());  // the fixture's client

    unix_sock h;
    EXPECT_EQ(-1, unix_sock_open_client(path("/var/run/tac/nobody").c_str(), &h, 1));
    EXPECT_EQ(-1, h.fd);
    EXPECT_EQ(1, uds_files());
    EXPECT_EQ(-1, unix_sock_open(path("/var/run/tac/x").c_str(), &h, 1, 1));

    // A request to a socket nobody reads times out.
    uint8_t req[4] = {1, 2, 3, 4}, rep[8];
    size_t rep_len = sizeof rep;
    EXPECT_EQ(-2, unix_sock_request(&client_, req, sizeof req, rep, &rep_len));
    EXPECT_EQ(0, unix_sock_poll(&client_));

    EXPECT_GE(unix_sock_close(&client_), 0);
    EXPECT_EQ(0, uds_files());
    EXPECT_EQ(-1, unix_sock_close(&client_));
}

}  // namespace
