#include "sim/arc_writer.h"

#include <pb_encode.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>

namespace {

bool vector_write(pb_ostream_t *stream, const pb_byte_t *buf, size_t count) {
    auto *out = static_cast<std::vector<uint8_t> *>(stream->state);
    out->insert(out->end(), buf, buf + count);
    return true;
}

pb_ostream_t vector_stream(std::vector<uint8_t> *out) {
    pb_ostream_t s{};
    s.callback = vector_write;
    s.state = out;
    s.max_size = SIZE_MAX;
    return s;
}

bool put_text(pb_ostream_t *s, uint32_t tag, std::string_view text) {
    return pb_encode_tag(s, PB_WT_STRING, tag) &&
           pb_encode_string(s, reinterpret_cast<const pb_byte_t *>(text.data()), text.size());
}

bool put_number(pb_ostream_t *s, uint32_t tag, uint64_t v) {
    return pb_encode_tag(s, PB_WT_VARINT, tag) && pb_encode_varint(s, v);
}

// One entry written field by field, so that it can break the rules the
// generated encoder enforces: a required field left out (skip_tag), an
// application name longer than its storage.
bool put_entry_fields(pb_ostream_t *s, const ArcFlowRecord &r, uint32_t skip_tag,
                      std::string_view app) {
    bool ok = true;
    auto text = [&](uint32_t tag, bool present, const char *v) {
        if (ok && present && tag != skip_tag) ok = put_text(s, tag, v);
    };
    auto number = [&](uint32_t tag, bool present, uint64_t v) {
        if (ok && present && tag != skip_tag) ok = put_number(s, tag, v);
    };
    if (skip_tag != 1) ok = put_text(s, 1, app);
    number(2, true, r.port);
    text(3, true, r.client_mac);
    text(4, true, r.ap_mac);
    text(5, true, r.ssid);
    number(6, true, r.uplink);
    number(7, true, r.downlink);
    number(8, true, r.total);
    text(9, r.has_category, r.category);
    text(10, r.has_sub_category, r.sub_category);
    number(11, r.has_protocol, r.protocol);
    text(12, r.has_os_name, r.os_name);
    number(13, r.has_vlan, r.vlan);
    number(14, true, r.start_time);
    number(15, true, r.end_time);
    text(16, r.has_user_name, r.user_name);
    number(17, r.has_radio, r.radio);
    number(18, r.has_channel, r.channel);
    text(19, r.has_client_ip, r.client_ip);
    text(20, r.has_host_name, r.host_name);
    return ok;
}

// Appends field 4 (one entry) to the message's encoding.
bool append_entry(std::vector<uint8_t> *out, const ArcFlowRecord &r, uint32_t skip_tag,
                  std::string_view app) {
    std::vector<uint8_t> body;
    pb_ostream_t bs = vector_stream(&body);
    if (!put_entry_fields(&bs, r, skip_tag, app)) return false;
    pb_ostream_t s = vector_stream(out);
    return pb_encode_tag(&s, PB_WT_STRING, ArcMessage_records_tag) &&
           pb_encode_string(&s, body.data(), body.size());
}

}  // namespace

bool arc_bad_parse(std::string_view text, arc_bad *out) {
    static constexpr std::pair<std::string_view, arc_bad> kinds[] = {
        {"too-many", arc_bad::too_many}, {"missing-field", arc_bad::missing_field},
        {"oversize", arc_bad::oversize}, {"truncated", arc_bad::truncated},
        {"no-colon", arc_bad::no_colon},
    };
    for (const auto &[name, kind] : kinds) {
        if (text == name) {
            *out = kind;
            return true;
        }
    }
    return false;
}

std::vector<uint8_t> arc_encode(const ArcMessage &msg, arc_bad bad) {
    std::vector<uint8_t> out;
    pb_ostream_t s = vector_stream(&out);
    if (!pb_encode(&s, ArcMessage_fields, &msg)) return {};

    ArcFlowRecord extra = msg.records_count ? msg.records[msg.records_count - 1]
                                            : ArcFlowRecord(ArcFlowRecord_init_zero);
    bool ok = true;
    switch (bad) {
        case arc_bad::none:
        case arc_bad::no_colon:
            break;
        case arc_bad::too_many:
            ok = append_entry(&out, extra, 0, extra.app);
            break;
        case arc_bad::missing_field:
            ok = append_entry(&out, extra, ArcFlowRecord_port_tag, extra.app);
            break;
        case arc_bad::oversize:
            ok = append_entry(&out, extra, 0, std::string(sizeof extra.app, 'x'));
            break;
        case arc_bad::truncated: {
            size_t before = out.size();
            ok = append_entry(&out, extra, 0, extra.app);
            out.resize(before + (out.size() - before) / 2);
            break;
        }
    }
    return ok ? out : std::vector<uint8_t>{};
}

std::string arc_spool_name(std::string_view ap_mac, uint32_t n, arc_bad bad) {
    std::string name(ap_mac);
    if (bad == arc_bad::no_colon) std::erase(name, ':');
    return name + "-" + std::to_string(n);
}

int arc_write_file(const std::string &dir, const std::string &name,
                   const std::vector<uint8_t> &bytes) {
    namespace fs = std::filesystem;
    fs::path final_path = fs::path(dir) / name;
    // The temporary file lives beside the spool, not in it: the daemon must
    // neither read a half-written file nor lose one it is about to receive.
    fs::path tmp =
        fs::path(dir).parent_path() / (".flowgen-" + std::to_string(getpid()) + "-" + name);
    FILE *f = std::fopen(tmp.c_str(), "wb");
    if (!f) return -1;
    bool ok = std::fwrite(bytes.data(), 1, bytes.size(), f) == bytes.size();
    ok = std::fclose(f) == 0 && ok;
    std::error_code ec;
    if (ok) fs::rename(tmp, final_path, ec);
    if (!ok || ec) {
        fs::remove(tmp, ec);
        return -1;
    }
    return 0;
}
