#include "report_decode.h"

#include <algorithm>
#include <charconv>

#include "client.h"
#include "ipc/msg_layout.h"
#include "reports/statis_wire.h"

using namespace report_wire;

namespace {

bool all_zero(std::span<const uint8_t> b) {
    return std::all_of(b.begin(), b.end(), [](uint8_t v) { return v == 0; });
}

// Numbers of a "v,v,..." or "a,b;a,b;..." text as [time, v...] points,
// step i ending at now - i * 300.
nlohmann::json steps_of(std::string_view text, uint64_t now, bool pairs) {
    nlohmann::json points = nlohmann::json::array();
    const char sep = pairs ? ';' : ',';
    for (uint64_t i = 0; !text.empty(); ++i) {
        const size_t end = std::min(text.find(sep), text.size());
        nlohmann::json point = {now - i * kChartStep};
        for (uint64_t v : tallyctl_parse_numbers(text.substr(0, end))) point.push_back(v);
        points.push_back(std::move(point));
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return points;
}

nlohmann::json value_of(std::span<const uint8_t> b, const field &f, uint64_t now) {
    if (f.wire.kind != wire_kind::text) return wire_get_num(b, f.wire);
    const std::string_view text = wire_get_text(b, f.wire);
    if (unit_is_steps(f.shown)) return steps_of(text, now, f.shown == unit::byte_pairs);
    if (f.shown != unit::series) return std::string(text);
    nlohmann::json points = nlohmann::json::array();
    for (const auto &[t, rate] : tallyctl_parse_series(text)) points.push_back({t, rate});
    return points;
}

// The records of an array in use: as many as its count field says, or up
// to the first all-zero record.
nlohmann::json records_of(std::span<const uint8_t> data, const array &a) {
    nlohmann::json out = nlohmann::json::array();
    const size_t used = a.used ? std::min<size_t>(wire_get_num(data, *a.used), a.count) : a.count;
    for (size_t i = 0; i < used; ++i) {
        const std::span<const uint8_t> rec = record(data, a, i);
        if (rec.empty() || (!a.used && all_zero(rec))) break;
        nlohmann::json row = nlohmann::json::object();
        for (const field &f : a.fields) row[f.wire.name] = value_of(rec, f, 0);
        out.push_back(std::move(row));
    }
    return out;
}

}  // namespace

std::span<const uint8_t> tallyctl_reply_data(std::span<const uint8_t> reply) {
    if (reply.size() <= TALLYD_REPLY_HDR_LEN) return {};
    const size_t len = wire_be32(reply, TALLYD_REPLY_PAYLOAD_LEN.offset);
    return reply.subspan(TALLYD_REPLY_HDR_LEN, std::min(len, reply.size() - TALLYD_REPLY_HDR_LEN));
}

std::vector<uint64_t> tallyctl_parse_numbers(std::string_view text) {
    std::vector<uint64_t> numbers;
    while (!text.empty()) {
        const size_t comma = std::min(text.find(','), text.size());
        uint64_t v = 0;
        std::from_chars(text.data(), text.data() + comma, v);
        numbers.push_back(v);
        text.remove_prefix(std::min(comma + 1, text.size()));
    }
    return numbers;
}

std::vector<std::pair<uint32_t, uint64_t>> tallyctl_parse_series(std::string_view text) {
    const std::vector<uint64_t> numbers = tallyctl_parse_numbers(text);
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
    uint64_t now = 0;
    for (const field &f : l.fields)
        if (f.shown == unit::time) now = wire_get_num(data, f.wire);
    for (const field &f : l.fields) out["fields"][f.wire.name] = value_of(data, f, now);
    out["records"] = records_of(data, l.records);
    if (l.more.count) out[l.more.name] = records_of(data, l.more);
    return out;
}
