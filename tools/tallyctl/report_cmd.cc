#include "report_cmd.h"

#include <cstdio>

#include "ipc/msg_layout.h"
#include "report_decode.h"
#include "report_table.h"

namespace {

constexpr int kReportWaitMs = 10000;  // a day report over full tables takes a while
constexpr int kGapMs = 100;

std::string hex_dump(std::span<const uint8_t> b) {
    std::string out;
    for (size_t off = 0; off < b.size(); off += 16) {
        char line[96];
        int n = std::snprintf(line, sizeof line, "%06zx ", off);
        for (size_t i = off; i < std::min(b.size(), off + 16); ++i)
            n += std::snprintf(line + n, sizeof line - static_cast<size_t>(n), " %02x", b[i]);
        out += std::string(line) + "\n";
    }
    return out;
}

// Sends the request and collects the reply; false (printed) when the
// daemon is not there or did not answer.
bool request(uint32_t id, const std::vector<uint8_t> &msg, tallyctl_bytes *reply) {
    std::vector<tallyctl_bytes> replies;
    std::string error;
    const tallyctl_bytes datagram =
        tallyctl_message(id, std::span(msg).subspan(TALLYD_MSG_HDR_LEN));
    if (!tallyctl_request(tallyd_socket_kind::control, datagram, kReportWaitMs, kGapMs, &replies,
                          &error)) {
        std::fprintf(stderr, "tallyctl: %s\n", error.c_str());
        return false;
    }
    if (replies.empty()) {
        std::fprintf(stderr, "tallyctl: tallyd did not answer within %d ms\n", kReportWaitMs);
        return false;
    }
    *reply = std::move(replies.front());
    return true;
}

}  // namespace

int tallyctl_usage_error(const char *cmd, const std::string &what) {
    std::fprintf(stderr, "tallyctl %s: %s\n", cmd, what.c_str());
    return 2;
}

int tallyctl_word_index(const std::string &w, std::initializer_list<const char *> words) {
    int i = 0;
    for (const char *c : words) {
        if (w == c) return i;
        ++i;
    }
    return -1;
}

int tallyctl_show_report(const tallyctl_ctx &ctx, uint32_t id, const std::vector<uint8_t> &msg,
                         const report_wire::layout &l, const report_output &o, tallyctl_drawer draw,
                         const std::string &title) {
    tallyctl_bytes reply;
    if (!request(id, msg, &reply)) return 1;
    if (o.raw) {
        std::fputs(hex_dump(reply).c_str(), stdout);
        return 0;
    }
    const nlohmann::json d = tallyctl_decode_report(reply, l);
    if (ctx.json)
        std::printf("%s\n", d.dump().c_str());
    else
        std::fputs(tallyctl_report_text(d, l).c_str(), stdout);
    if (!o.picture) return 0;
    std::string error;
    if (!draw || !draw(d, o, title, &error)) {
        std::fprintf(stderr, "tallyctl: %s\n", draw ? error.c_str() : "draws no picture");
        return 1;
    }
    return 0;
}
