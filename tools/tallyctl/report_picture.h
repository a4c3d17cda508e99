// Pictures of the usage reports, drawn with cairo into a PNG or SVG file:
// a line chart of one or more series over time, and a pie. tallyctl only;
// the daemon never links cairo.
#pragma once

#include <string>
#include <utility>
#include <vector>

enum class tallyctl_picture_format { png, svg };

// One line of a chart: (seconds since 1970, value) points in any order.
struct tallyctl_line {
    std::string name;
    std::vector<std::pair<double, double>> points;
};

struct tallyctl_slice {
    std::string label;
    double value;
};

// What the y axis of a line chart counts.
enum class tallyctl_axis { rate, count };

// Line chart with local times along the x axis, values up the y axis (bits
// per second in human units, or plain counts), and a legend naming the
// lines. true when the file was written; false with *error set.
bool tallyctl_draw_lines(const std::string &path, tallyctl_picture_format format,
                         const std::string &title, const std::vector<tallyctl_line> &lines,
                         std::string *error, tallyctl_axis axis = tallyctl_axis::rate);

// Pie of the slices (largest first as given) with a legend of labels and
// shares of the sum. Slices of no value are left out.
bool tallyctl_draw_pie(const std::string &path, tallyctl_picture_format format,
                       const std::string &title, const std::vector<tallyctl_slice> &slices,
                       std::string *error);
