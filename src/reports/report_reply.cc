#include "reports/report_reply.h"

#include <algorithm>

#include "base/wire.h"
#include "ipc/msg_layout.h"
#include "ipc/reply.h"

namespace {

constexpr size_t kDataRoom = TALLYD_REPLY_BUF_SIZE - TALLYD_REPLY_HDR_LEN;

}  // namespace

report_reply::report_reply(std::span<const uint8_t> request, size_t zeroed) {
    tallyd_reply_start(wire_be32(request, TALLYD_HDR_MSG_ID.offset));
    std::span<uint8_t> d = data();
    std::fill_n(d.begin(), std::min(zeroed, d.size()), uint8_t{0});
}

report_reply::~report_reply() {
    send();
}

std::span<uint8_t> report_reply::data() {
    return tallyd_reply_buffer().subspan(TALLYD_REPLY_HDR_LEN, kDataRoom);
}

std::span<uint8_t> report_reply::fill(size_t n) {
    n = std::min(n, kDataRoom);
    std::span<uint8_t> d = data().first(n);
    std::fill(d.begin(), d.end(), uint8_t{0});
    set_length(n);
    return d;
}

void report_reply::set_length(size_t n) {
    wire_put_num(tallyd_reply_buffer(), TALLYD_REPLY_PAYLOAD_LEN, std::min(n, kDataRoom));
}

size_t report_reply::length() const {
    return tallyd_reply_payload_len();
}

int report_reply::send() {
    if (!sent_) {
        sent_ = true;
        result_ = tallyd_reply_send(0);
    }
    return result_;
}
