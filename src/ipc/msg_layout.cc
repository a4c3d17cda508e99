#include "ipc/msg_layout.h"

#include <algorithm>

void tallyd_msg_header_put(std::span<uint8_t> b, uint8_t module, uint32_t msg_id, uint32_t length) {
    std::fill_n(b.begin(), std::min(b.size(), TALLYD_MSG_HDR_LEN), uint8_t{0});
    wire_put_num(b, TALLYD_HDR_MODULE, module);
    wire_put_num(b, TALLYD_HDR_MSG_ID, msg_id);
    wire_put_num(b, TALLYD_HDR_LENGTH, length);
}
