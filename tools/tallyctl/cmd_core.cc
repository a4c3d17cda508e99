// tallyctl probe and send: the daemon's liveness and raw datagrams.
#include <cstdio>
#include <fstream>
#include <iterator>

#include "commands.h"
#include "ipc/msg_layout.h"

namespace {

constexpr int kProbeWaitMs = 2000;
constexpr int kReportWaitMs = 2000;  // a report may take a while to gather
constexpr int kEventWaitMs = 300;    // events and settings are not answered
constexpr int kGapMs = 300;          // between the datagrams of one reply

// Report requests and the probe are answered; nothing else is.
bool answered(uint32_t id) {
    return (id >= TALLYD_MSG_GET_CLIENTS_SUMMARY && id <= TALLYD_MSG_STATIS_CLIENT_CHART &&
            id != TALLYD_MSG_IGNORED_49) ||
           id == TALLYD_MSG_TAC_PROBE;
}

// The id and, when it has one, its name.
std::string id_text(uint32_t id) {
    const tallyd_msg_name *m = tallyd_msg_find(id);
    return m ? tallyctl_hex32(id) + " " + std::string(m->name) : tallyctl_hex32(id);
}

int usage(const char *what) {
    std::fprintf(stderr, "tallyctl: %s\n", what);
    return 2;
}

struct send_options {
    uint32_t id = 0;
    bool have_id = false;
    tallyd_socket_kind socket = tallyd_socket_kind::control;
    tallyctl_bytes payload;
    bool raw = false;  // payload is the whole datagram, no header added
    bool length_set = false;
    uint32_t length = 0;
    uint32_t module = 0;
    int wait_ms = -1;
};

bool read_file(const std::string &path, tallyctl_bytes *out) {
    std::ifstream in(path, std::ios::binary);
    if (!in) return false;
    out->assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return true;
}

// Parses the send options; returns 0, or the usage status after printing.
int parse_send(const std::vector<std::string> &args, send_options *o) {
    for (size_t i = 0; i < args.size(); ++i) {
        const std::string &a = args[i];
        bool has_value = i + 1 < args.size();
        const std::string v = has_value ? args[i + 1] : "";
        uint32_t n = 0;
        if (a == "--raw") {
            o->raw = true;
            continue;
        }
        if (!has_value) return usage(("missing value after " + a).c_str());
        ++i;
        if (a == "--id") {
            if (!tallyctl_parse_id(v, &o->id)) return usage(("bad message id: " + v).c_str());
            o->have_id = true;
        } else if (a == "--socket") {
            if (!tallyctl_parse_socket(v, &o->socket))
                return usage(("bad socket (control, stat, monitor): " + v).c_str());
        } else if (a == "--hex") {
            if (!tallyctl_parse_hex(v, &o->payload))
                return usage(("bad hex payload: " + v).c_str());
        } else if (a == "--file") {
            if (!read_file(v, &o->payload)) return usage(("cannot read " + v).c_str());
        } else if (a == "--length" || a == "--module" || a == "--wait") {
            if (!tallyctl_parse_u32(v, &n)) return usage(("bad number: " + v).c_str());
            if (a == "--length") o->length_set = true, o->length = n;
            if (a == "--module") o->module = n;
            if (a == "--wait") o->wait_ms = static_cast<int>(n);
        } else {
            return usage(("unknown option " + a).c_str());
        }
    }
    if (!o->have_id && !o->raw) return usage("send needs --id ID (or --raw)");
    return 0;
}

}  // namespace

int tallyctl_send_datagram(const tallyctl_ctx &ctx, tallyd_socket_kind kind,
                           const tallyctl_bytes &datagram, int wait_ms) {
    uint32_t id = static_cast<uint32_t>(wire_get_num(datagram, TALLYD_HDR_MSG_ID));
    if (wait_ms < 0) wait_ms = answered(id) ? kReportWaitMs : kEventWaitMs;
    std::vector<tallyctl_bytes> replies;
    std::string error;
    if (!tallyctl_request(kind, datagram, wait_ms, kGapMs, &replies, &error)) {
        std::fprintf(stderr, "tallyctl: %s\n", error.c_str());
        return 1;
    }
    std::string name(tallyctl_socket_name(kind));
    if (ctx.json) {
        nlohmann::json out = {
            {"sent",
             {{"msg_id", tallyctl_hex32(id)}, {"socket", name}, {"bytes", datagram.size()}}},
            {"replies", nlohmann::json::array()}};
        for (const tallyctl_bytes &r : replies) out["replies"].push_back(tallyctl_reply_json(r));
        std::printf("%s\n", out.dump().c_str());
        return 0;
    }
    std::string what =
        datagram.size() < TALLYD_MSG_HDR_LEN ? "a datagram without a full header" : id_text(id);
    std::printf("sent %s to %s: %zu bytes\n", what.c_str(), name.c_str(), datagram.size());
    for (const tallyctl_bytes &r : replies)
        std::printf("reply: %s\n", tallyctl_format_reply(r).c_str());
    if (replies.empty()) std::printf("no reply\n");
    return 0;
}

int tallyctl_cmd_probe(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    if (!args.empty()) return usage("probe takes no arguments");
    tallyctl_bytes reply;
    std::string error;
    if (!tallyctl_probe(kProbeWaitMs, &reply, &error)) {
        std::fprintf(stderr, "tallyctl: %s\n", error.c_str());
        return 1;
    }
    if (ctx.json)
        std::printf("%s\n",
                    nlohmann::json{{"answered", true}, {"reply", tallyctl_reply_json(reply)}}
                        .dump()
                        .c_str());
    else
        std::printf("tallyd answered: %s\n", tallyctl_format_reply(reply).c_str());
    return 0;
}

int tallyctl_cmd_send(const tallyctl_ctx &ctx, const std::vector<std::string> &args) {
    send_options o;
    if (int rc = parse_send(args, &o)) return rc;
    tallyctl_bytes datagram = o.raw ? o.payload : tallyctl_message(o.id, o.payload, o.module);
    if (o.length_set && datagram.size() >= TALLYD_MSG_HDR_LEN)
        wire_put_num(datagram, TALLYD_HDR_LENGTH, o.length);
    return tallyctl_send_datagram(ctx, o.socket, datagram, o.wait_ms);
}
