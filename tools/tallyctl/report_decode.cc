#include "report_decode.h"

#include <algorithm>
#include <charconv>

#include "client.h"
#include "ipc/msg_layout.h"

using namespace report_wire;

namespace {

bool all_zero(std::span<const uint8_t> b) {
    return std::all_of(b.begin(), b.end(), [](uint8_t v) { return v == 0; });
}

nlohmann::json value_of(std::span<const uint8_t> b, const field &f) {
    if (f.wire.kind != wire_kind::text) return wire_get_num(b, f.wire);
    const std::string_view text = wire_get_text(b, f.wire);
    if (f.shown != unit::series) return std::string(text);
    nlohmann::json points = nlohmann::json::array();
    for (const auto &[t, rate] : tallyctl_parse_series(text)) points.push_back({t, rate});
    return points;
}

}  // namespace

std::span<const uint8_t> tallyctl_reply_data(std::span<const uint8_t> reply) {
    if (reply.size() <= TALLYD_REPLY_HDR_LEN) return {};
    const size_t len = wire_be32(reply, TALLYD_REPLY_PAYLOAD_LEN.offset);
    return reply.subspan(TALLYD_REPLY_HDR_LEN, std::min(len, reply.size() - TALLYD_REPLY_HDR_LEN));
}

std::vector<std::pair<uint32_t, uint64_t>> tallyctl_parse_series(std::string_view text) {
    std::vector<uint64_t> numbers;
    while (!text.empty()) {
        const size_t comma = std::min(text.find(','), text.size());
        uint64_t v = 0;
        std::from_chars(text.data(), text.data() + comma, v);
        numbers.push_back(v);
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    std::vector<std::pair<uint32_t, uint64_t>> out;
    for (size_t i = 0; i + 1 < numbers.size(); i += 2)
        out.emplace_back(static_cast<uint32_t>(numbers[i]), numbers[i + 1]);
    return out;
}

nlohmann::json tallyctl_decode_report(std::span<const uint8_t> reply, const layout &l) {
    const std::span<const uint8_t> data = tallyctl_reply_data(reply);
    nlohmann::json out = {
        {"report", l.name},
        {"request_id", tallyctl_hex32(wire_be32(reply, TALLYD_REPLY_REQUEST_ID.offset))},
        {"data_length", data.size()},
        {"fields", nlohmann::json::object()},
        {"records", nlohmann::json::array()},
    };
    if (data.empty()) return out;
    for (const field &f : l.fields) out["fields"][f.wire.name] = value_of(data, f);
    for (size_t i = 0; i < l.records.count; ++i) {
        const std::span<const uint8_t> rec = record(data, l.records, i);
        if (rec.empty() || all_zero(rec)) break;
        nlohmann::json row = nlohmann::json::object();
        for (const field &f : l.records.fields) row[f.wire.name] = value_of(rec, f);
        out["records"].push_back(std::move(row));
    }
    return out;
}
