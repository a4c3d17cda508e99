#include "report_picture.h"

#include <cairo-svg.h>
#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <ctime>
#include <memory>

#include "report_table.h"

namespace {

constexpr double kWidth = 900, kHeight = 500;
constexpr double kPi = 3.14159265358979323846;

struct rgb {
    double r, g, b;
};
constexpr rgb kPalette[] = {{0.12, 0.47, 0.71}, {1.00, 0.50, 0.05}, {0.17, 0.63, 0.17},
                            {0.84, 0.15, 0.16}, {0.58, 0.40, 0.74}, {0.55, 0.34, 0.29},
                            {0.89, 0.47, 0.76}, {0.50, 0.50, 0.50}, {0.74, 0.74, 0.13},
                            {0.09, 0.75, 0.81}};

rgb color(size_t i) {
    return kPalette[i % std::size(kPalette)];
}

struct surface_free {
    void operator()(cairo_surface_t *s) const { cairo_surface_destroy(s); }
};
struct cairo_free {
    void operator()(cairo_t *c) const { cairo_destroy(c); }
};

// A drawing on a surface of the chosen format; finish() writes the file.
class canvas {
   public:
    canvas(const std::string &path, tallyctl_picture_format f) : path_(path), format_(f) {
        surface_.reset(f == tallyctl_picture_format::svg
                           ? cairo_svg_surface_create(path.c_str(), kWidth, kHeight)
                           : cairo_image_surface_create(CAIRO_FORMAT_ARGB32, kWidth, kHeight));
        cr_.reset(cairo_create(surface_.get()));
        cairo_set_source_rgb(cr_.get(), 1, 1, 1);
        cairo_paint(cr_.get());
        cairo_select_font_face(cr_.get(), "sans-serif", CAIRO_FONT_SLANT_NORMAL,
                               CAIRO_FONT_WEIGHT_NORMAL);
    }
    cairo_t *cr() { return cr_.get(); }

    bool finish(std::string *error) {
        cairo_status_t st = cairo_status(cr_.get());
        if (st == CAIRO_STATUS_SUCCESS && format_ == tallyctl_picture_format::png)
            st = cairo_surface_write_to_png(surface_.get(), path_.c_str());
        cr_.reset();
        cairo_surface_finish(surface_.get());
        if (st == CAIRO_STATUS_SUCCESS) st = cairo_surface_status(surface_.get());
        surface_.reset();
        // One picture per run: the font caches cairo and fontconfig keep for
        // the life of the process go with it.
        cairo_debug_reset_static_data();
        FcFini();
        if (st == CAIRO_STATUS_SUCCESS) return true;
        *error = "cannot write " + path_ + ": " + cairo_status_to_string(st);
        return false;
    }

    void text(double x, double y, const std::string &s, double size, double align = 0) {
        cairo_set_font_size(cr(), size);
        cairo_text_extents_t e;
        cairo_text_extents(cr(), s.c_str(), &e);
        cairo_move_to(cr(), x - align * e.x_advance, y);
        cairo_show_text(cr(), s.c_str());
    }

    // Legend entries from (x, y) downwards: a swatch and a label each.
    void legend(double x, double y, const std::vector<std::string> &labels) {
        for (size_t i = 0; i < labels.size(); ++i) {
            const rgb c = color(i);
            cairo_set_source_rgb(cr(), c.r, c.g, c.b);
            cairo_rectangle(cr(), x, y + i * 20 - 10, 12, 12);
            cairo_fill(cr());
            cairo_set_source_rgb(cr(), 0, 0, 0);
            text(x + 18, y + i * 20, labels[i], 12);
        }
    }

   private:
    std::string path_;
    tallyctl_picture_format format_;
    std::unique_ptr<cairo_surface_t, surface_free> surface_;
    std::unique_ptr<cairo_t, cairo_free> cr_;
};

// The smallest 1, 2 or 5 times a power of ten at or above v.
double nice_ceiling(double v) {
    if (v <= 0) return 1;
    const double p = std::pow(10, std::floor(std::log10(v)));
    for (double m : {1.0, 2.0, 5.0, 10.0})
        if (m * p >= v) return m * p;
    return 10 * p;
}

std::string clock_label(double t, bool with_date) {
    const time_t tt = static_cast<time_t>(t);
    struct tm tm {};
    localtime_r(&tt, &tm);
    char b[32];
    std::strftime(b, sizeof b, with_date ? "%m-%d %H:%M" : "%H:%M", &tm);
    return b;
}

}  // namespace

bool tallyctl_draw_lines(const std::string &path, tallyctl_picture_format format,
                         const std::string &title, const std::vector<tallyctl_line> &lines,
                         std::string *error, tallyctl_axis axis) {
    double t0 = INFINITY, t1 = -INFINITY, top = 0;
    for (const auto &l : lines)
        for (const auto &[t, v] : l.points) {
            t0 = std::min(t0, t), t1 = std::max(t1, t), top = std::max(top, v);
        }
    if (!(t0 < t1)) t0 = (t1 > -INFINITY ? t1 : 0) - 1, t1 = t0 + 2;
    top = nice_ceiling(top);

    canvas cv(path, format);
    cairo_t *cr = cv.cr();
    const double left = 110, right = kWidth - 170, up = 50, bottom = kHeight - 60;
    auto x_of = [&](double t) { return left + (t - t0) / (t1 - t0) * (right - left); };
    auto y_of = [&](double v) { return bottom - v / top * (bottom - up); };

    cairo_set_source_rgb(cr, 0, 0, 0);
    cv.text(kWidth / 2, 30, title, 16, 0.5);
    cairo_set_line_width(cr, 1);
    for (int i = 0; i <= 5; ++i) {  // y grid and labels
        const double v = top * i / 5, y = y_of(v);
        cairo_set_source_rgb(cr, 0.85, 0.85, 0.85);
        cairo_move_to(cr, left, y);
        cairo_line_to(cr, right, y);
        cairo_stroke(cr);
        cairo_set_source_rgb(cr, 0, 0, 0);
        const uint64_t n = static_cast<uint64_t>(v);
        cv.text(left - 8, y + 4,
                axis == tallyctl_axis::rate ? tallyctl_human_rate(n) : std::to_string(n), 11, 1);
    }
    const bool with_date = t1 - t0 > 86400;
    for (int i = 0; i <= 4; ++i) {  // x labels
        const double t = t0 + (t1 - t0) * i / 4;
        cv.text(x_of(t), bottom + 20, clock_label(t, with_date), 11, 0.5);
    }
    cairo_move_to(cr, left, up);
    cairo_line_to(cr, left, bottom);
    cairo_line_to(cr, right, bottom);
    cairo_stroke(cr);

    std::vector<std::string> names;
    cairo_set_line_width(cr, 2);
    for (size_t i = 0; i < lines.size(); ++i) {
        auto pts = lines[i].points;
        std::sort(pts.begin(), pts.end());
        const rgb c = color(i);
        cairo_set_source_rgb(cr, c.r, c.g, c.b);
        for (size_t p = 0; p < pts.size(); ++p)
            (p ? cairo_line_to : cairo_move_to)(cr, x_of(pts[p].first), y_of(pts[p].second));
        cairo_stroke(cr);
        names.push_back(lines[i].name);
    }
    cv.legend(right + 20, up + 10, names);
    return cv.finish(error);
}

bool tallyctl_draw_pie(const std::string &path, tallyctl_picture_format format,
                       const std::string &title, const std::vector<tallyctl_slice> &slices,
                       std::string *error) {
    double sum = 0;
    for (const auto &s : slices) sum += std::max(0.0, s.value);
    canvas cv(path, format);
    cairo_t *cr = cv.cr();
    cairo_set_source_rgb(cr, 0, 0, 0);
    cv.text(kWidth / 2, 30, title, 16, 0.5);
    const double cx = 260, cy = kHeight / 2 + 15, radius = 180;
    double angle = -kPi / 2;
    std::vector<std::string> labels;
    size_t i = 0;
    for (const auto &s : slices) {
        if (s.value <= 0) continue;
        const double sweep = 2 * kPi * s.value / sum;
        const rgb c = color(i++);
        cairo_set_source_rgb(cr, c.r, c.g, c.b);
        cairo_move_to(cr, cx, cy);
        cairo_arc(cr, cx, cy, radius, angle, angle + sweep);
        cairo_close_path(cr);
        cairo_fill(cr);
        angle += sweep;
        labels.push_back(s.label + "  " +
                         tallyctl_percent(static_cast<uint64_t>(s.value / sum * 10000 + 0.5)));
    }
    if (labels.empty()) {
        cairo_set_source_rgb(cr, 0.5, 0.5, 0.5);
        cv.text(cx, cy, "no traffic", 14, 0.5);
    }
    cv.legend(cx + radius + 60, cy - radius + 10, labels);
    return cv.finish(error);
}
