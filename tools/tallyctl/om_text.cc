#include "om_text.h"

#include <algorithm>
#include <map>

namespace {

constexpr std::string_view kReplacement = "\xEF\xBF\xBD";  // U+FFFD

// Length of the well-formed UTF-8 sequence starting at s[i], 0 when the byte
// there does not start one (overlong forms, surrogates and code points above
// U+10FFFF are not well-formed).
size_t utf8_length(std::string_view s, size_t i) {
    auto at = [&](size_t k) { return static_cast<unsigned char>(s[k]); };
    const unsigned c = at(i);
    if (c < 0x80) return 1;
    size_t n = 0;
    unsigned lo = 0x80, hi = 0xBF;  // range of the second byte
    if (c >= 0xC2 && c <= 0xDF) {
        n = 2;
    } else if (c >= 0xE0 && c <= 0xEF) {
        n = 3;
        if (c == 0xE0) lo = 0xA0;
        if (c == 0xED) hi = 0x9F;
    } else if (c >= 0xF0 && c <= 0xF4) {
        n = 4;
        if (c == 0xF0) lo = 0x90;
        if (c == 0xF4) hi = 0x8F;
    } else {
        return 0;
    }
    if (i + n > s.size() || at(i + 1) < lo || at(i + 1) > hi) return 0;
    for (size_t k = 2; k < n; ++k)
        if (at(i + k) < 0x80 || at(i + k) > 0xBF) return 0;
    return n;
}

std::string label_text(std::span<const om_label> labels) {
    std::string text;
    for (const om_label &l : labels) {
        if (l.value.empty()) continue;
        text += text.empty() ? "{" : ",";
        text.append(l.name);
        text += "=\"";
        om_escape_label_value(l.value, &text);
        text += '"';
    }
    return text.empty() ? text : text + "}";
}

}  // namespace

void om_escape_label_value(std::string_view value, std::string *out) {
    for (size_t i = 0; i < value.size();) {
        const size_t n = utf8_length(value, i);
        if (n == 0) {
            out->append(kReplacement);
            ++i;
            continue;
        }
        const char c = value[i];
        if (c == '\\')
            out->append("\\\\");
        else if (c == '"')
            out->append("\\\"");
        else if (c == '\n')
            out->append("\\n");
        else
            out->append(value.substr(i, n));
        i += n;
    }
}

void om_writer::family(std::string_view name, std::string_view type, std::string_view unit,
                       std::string_view help) {
    name_ = name;
    seen_.clear();
    header_ = "# TYPE " + name_ + " " + std::string(type) + "\n";
    if (!unit.empty()) header_ += "# UNIT " + name_ + " " + std::string(unit) + "\n";
    header_ += "# HELP " + name_ + " " + std::string(help) + "\n";
}

bool om_writer::begin_sample(std::span<const om_label> labels) {
    std::string text = label_text(labels);
    if (!seen_.insert(text).second) return false;
    out_ += header_;
    header_.clear();
    out_ += name_ + text + " ";
    return true;
}

bool om_writer::sample(std::span<const om_label> labels, uint64_t value) {
    if (!begin_sample(labels)) return false;
    out_ += std::to_string(value) + "\n";
    return true;
}

bool om_writer::sample(std::span<const om_label> labels, int64_t value) {
    if (!begin_sample(labels)) return false;
    out_ += std::to_string(value) + "\n";
    return true;
}

std::string om_writer::finish() {
    return out_ + "# EOF\n";
}

void om_write_top(om_writer &w, std::vector<om_series> series, size_t top) {
    // Equal label texts (two ids with one name) become one series.
    std::map<std::string, size_t> by_text;
    std::vector<std::pair<std::string, size_t>> merged;  // label text, index into series
    for (size_t i = 0; i < series.size(); ++i) {
        auto [it, fresh] = by_text.emplace(label_text(series[i].labels), i);
        if (fresh)
            merged.emplace_back(it->first, i);
        else
            series[it->second].value += series[i].value;
    }
    auto larger = [&](const auto &a, const auto &b) {
        const uint64_t va = series[a.second].value, vb = series[b.second].value;
        return va != vb ? va > vb : a.first < b.first;
    };
    const size_t kept = std::min(top, merged.size());
    std::partial_sort(merged.begin(), merged.begin() + static_cast<ptrdiff_t>(kept), merged.end(),
                      larger);
    for (size_t i = 0; i < kept; ++i)
        w.sample(series[merged[i].second].labels, series[merged[i].second].value);
    if (kept == merged.size()) return;
    uint64_t rest = 0;
    for (size_t i = kept; i < merged.size(); ++i) rest += series[merged[i].second].value;
    const om_label other[] = {{"other", "true"}};
    w.sample(other, rest);
}
