// The OpenMetrics text format, as tallyctl metrics writes it.
//
// Families are written one after the other, each with its TYPE, UNIT (when it
// has one) and HELP lines before its samples; the text ends with "# EOF". A
// family is written only once it has a sample. Label values may hold any
// bytes: backslash, double quote and line feed are escaped, and bytes that
// are not UTF-8 are replaced by U+FFFD, so the text is always valid UTF-8 and
// parses whatever the databases hold. The same text is read by Prometheus and
// by node exporter's textfile collector.
#pragma once

#include <cstdint>
#include <set>
#include <span>
#include <string>
#include <string_view>
#include <vector>

// One label of a sample. An empty value leaves the label out (Prometheus
// reads a missing label and an empty one alike).
struct om_label {
    std::string_view name;
    std::string value;
};

// Appends value to out escaped as a label value needs it.
void om_escape_label_value(std::string_view value, std::string *out);

class om_writer {
   public:
    // Starts a family: type "gauge"; unit "" or the suffix the name ends in
    // ("bytes", "seconds"); help a plain text without backslash, quote or
    // line feed.
    void family(std::string_view name, std::string_view type, std::string_view unit,
                std::string_view help);

    // A sample of the current family. A label set the family already holds
    // (two names that differ only in bytes that are not UTF-8) is dropped:
    // false.
    bool sample(std::span<const om_label> labels, uint64_t value);
    bool sample(std::span<const om_label> labels, int64_t value);

    // The text so far with its closing "# EOF" line.
    std::string finish();

   private:
    bool begin_sample(std::span<const om_label> labels);

    std::string out_;
    std::string name_, header_;   // the current family; header_ until its first sample
    std::set<std::string> seen_;  // label texts of the current family
};

// A series of a capped family before it is written.
struct om_series {
    std::vector<om_label> labels;
    uint64_t value;
};

// Writes the series of the current family, at most top of them: series with
// equal label texts are summed first, then the largest values are written
// (ties by label text) and the rest are summed into one series labelled
// other="true", written only when something was left over.
void om_write_top(om_writer &w, std::vector<om_series> series, size_t top);
