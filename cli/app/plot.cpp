#include "app/plot.hpp"

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>

#include <cairo-svg.h>
#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include "app/report.hpp"
#include "app/staging.hpp"

namespace kscli {
namespace {

constexpr double kWidth = 1000;
constexpr double kHeight = 600;
constexpr double kPngScale = 1.6;  // pixels per unit
constexpr double kFontSize = 15;
constexpr double kTitleSize = 18;
constexpr double kTick = 5;
constexpr double kGap = 10;
constexpr std::size_t kMostLegendRows = 18;

using Colour = std::array<double, 3>;
// Okabe and Ito's colours, told apart with every kind of colour vision; the pale yellow comes last, darkened.
constexpr std::array<Colour, 8> kColours = {{{0.00, 0.45, 0.70},
                                             {0.84, 0.37, 0.00},
                                             {0.00, 0.62, 0.45},
                                             {0.80, 0.47, 0.65},
                                             {0.34, 0.71, 0.91},
                                             {0.90, 0.62, 0.00},
                                             {0.15, 0.15, 0.15},
                                             {0.65, 0.60, 0.10}}};
constexpr Colour kText = {0.13, 0.13, 0.13};
constexpr Colour kGrid = {0.88, 0.88, 0.88};
constexpr Colour kShade = {0.94, 0.94, 0.94};

struct Axis {
    double low = 0;
    double high = 1;
    double step = 0.2;
    int exponent = 0;  // tick texts are divided by 10^exponent

    std::vector<double> ticks() const {
        std::vector<double> values;
        for (double k = std::ceil(low / step - 1e-9); k * step <= high + step * 1e-9; ++k) values.push_back(k * step);
        return values;
    }
    std::string text(double value) const {
        const double scale = std::pow(10.0, exponent);
        const int decimals = std::clamp(static_cast<int>(std::ceil(-std::log10(step / scale) - 1e-9)), 0, 6);
        const double shown = std::abs(value) < step * 1e-9 ? 0.0 : value / scale;
        return fmt::format("{:.{}f}", shown, decimals);
    }
};

// 1, 2 or 5 times a power of ten, so that about `count` steps cover the span.
double niceStep(double span, int count) {
    const double rough = span / count;
    const double power = std::pow(10.0, std::floor(std::log10(rough)));
    for (double factor : {1.0, 2.0, 5.0}) {
        if (factor * power >= rough * 0.999) return factor * power;
    }
    return 10 * power;
}

Axis makeAxis(double low, double high, int count, bool toWholeSteps) {
    Axis axis;
    if (!(low <= high)) return axis;
    if (high - low <= 1e-6 * std::max(std::abs(low), std::abs(high))) {
        const double margin = low == 0 ? 1 : std::abs(low) * 0.1;
        low -= margin;
        high += margin;
    }
    axis.step = niceStep(high - low, count);
    axis.low = toWholeSteps ? std::floor(low / axis.step + 1e-9) * axis.step : low;
    axis.high = toWholeSteps ? std::ceil(high / axis.step - 1e-9) * axis.step : high;
    const double largest = std::max(std::abs(axis.low), std::abs(axis.high));
    if (largest < 1e-2 || largest >= 1e6) axis.exponent = static_cast<int>(std::floor(std::log10(largest)));
    return axis;
}

struct Rectangle {
    double left, top, right, bottom;
};

class Painter {
public:
    Painter(const Plot& plot, cairo_t* cairo) : plot_(plot), cairo_(cairo) {
        cairo_select_font_face(cairo_, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
        cairo_set_line_join(cairo_, CAIRO_LINE_JOIN_ROUND);
        cairo_set_line_cap(cairo_, CAIRO_LINE_CAP_ROUND);
    }

    void paint() {
        colour({1, 1, 1});
        cairo_paint(cairo_);
        layOut();
        drawBackground();
        drawFrame();
        drawCurves();
        drawLegend();
    }

private:
    void colour(const Colour& c) { cairo_set_source_rgb(cairo_, c[0], c[1], c[2]); }

    double textWidth(const std::string& text, double size) {
        cairo_text_extents_t extents;
        cairo_set_font_size(cairo_, size);
        cairo_text_extents(cairo_, text.c_str(), &extents);
        return extents.x_advance;
    }

    // align: 0 starts at x, 0.5 is centred on it, 1 ends at it.
    void text(const std::string& words, double x, double y, double size, double align) {
        const double width = textWidth(words, size);
        colour(kText);
        cairo_move_to(cairo_, x - align * width, y);
        cairo_show_text(cairo_, words.c_str());
    }

    // Cuts a text that is too wide at its start, where paths are least telling; never inside a UTF-8 character.
    std::string fitted(const std::string& words, double size, double room) {
        if (textWidth(words, size) <= room) return words;
        std::size_t start = 0;
        std::string shorter;
        do {
            do ++start;
            while (start < words.size() && (static_cast<unsigned char>(words[start]) & 0xC0U) == 0x80U);
            shorter = "\u2026" + words.substr(start);
        } while (start < words.size() && textWidth(shorter, size) > room);
        return shorter;
    }

    void findRanges() {
        double xLow = INFINITY;
        double xHigh = -INFINITY;
        double yLow = INFINITY;
        double yHigh = -INFINITY;
        for (const Curve& curve : plot_.curves) {
            for (const auto& piece : curve.pieces) {
                for (const auto& [x, y] : piece) {
                    xLow = std::min(xLow, x), xHigh = std::max(xHigh, x);
                    yLow = std::min(yLow, y), yHigh = std::max(yHigh, y);
                }
            }
        }
        for (const auto& [from, to] : plot_.shaded) xLow = std::min(xLow, from), xHigh = std::max(xHigh, to);
        // Zero belongs in the picture where it is near.
        if (yLow > 0 && yLow < 0.5 * yHigh) yLow = 0;
        x_ = makeAxis(xLow, xHigh, 10, false);
        y_ = makeAxis(yLow, yHigh, 6, true);
        if (plot_.countedX) x_.step = std::max(x_.step, 1.0);
        const double margin = 0.01 * (x_.high - x_.low);
        x_.low -= margin;
        x_.high += margin;
    }

    void layOut() {
        findRanges();
        double tickWidth = 0;
        for (double value : y_.ticks()) tickWidth = std::max(tickWidth, textWidth(y_.text(value), kFontSize));
        double legendWidth = 0;
        for (const std::string& label : legendLabels()) {
            legendWidth = std::max(legendWidth, textWidth(label, kFontSize));
        }
        legendWidth = std::max(legendWidth + 36, textWidth(plot_.legendTitle, kFontSize)) + 14;
        frame_ = {kFontSize + 2 * kGap + tickWidth + kTick + kGap, kTitleSize + 3 * kGap,
                  kWidth - legendWidth - 2 * kGap, kHeight - 2 * kFontSize - 4 * kGap};
    }

    std::vector<std::string> legendLabels() const {
        std::vector<std::string> labels;
        for (const Curve& curve : plot_.curves) labels.push_back(curve.label);
        if (labels.size() > kMostLegendRows) {
            const std::size_t hidden = labels.size() - kMostLegendRows;
            labels.resize(kMostLegendRows);
            labels.push_back(fmt::format("and {} more", hidden));
        }
        if (!plot_.shaded.empty()) labels.push_back(plot_.shadedLabel);
        return labels;
    }

    double xAt(double value) const {
        return frame_.left + (value - x_.low) / (x_.high - x_.low) * (frame_.right - frame_.left);
    }
    double yAt(double value) const {
        return frame_.bottom - (value - y_.low) / (y_.high - y_.low) * (frame_.bottom - frame_.top);
    }

    void drawBackground() {
        colour(kShade);
        for (const auto& [from, to] : plot_.shaded) {
            cairo_rectangle(cairo_, xAt(from), frame_.top, xAt(to) - xAt(from), frame_.bottom - frame_.top);
        }
        cairo_fill(cairo_);
        cairo_set_line_width(cairo_, 0.8);
        colour(kGrid);
        for (double value : x_.ticks()) line(xAt(value), frame_.top, xAt(value), frame_.bottom);
        for (double value : y_.ticks()) line(frame_.left, yAt(value), frame_.right, yAt(value));
    }

    void line(double x0, double y0, double x1, double y1) {
        cairo_move_to(cairo_, x0, y0);
        cairo_line_to(cairo_, x1, y1);
        cairo_stroke(cairo_);
    }

    void drawCurves() {
        cairo_save(cairo_);
        // Lines along an edge of the frame keep their whole width.
        cairo_rectangle(cairo_, frame_.left - 2, frame_.top - 2, frame_.right - frame_.left + 4,
                        frame_.bottom - frame_.top + 4);
        cairo_clip(cairo_);
        cairo_set_line_width(cairo_, 1.6);
        for (std::size_t i = 0; i < plot_.curves.size(); ++i) {
            colour(kColours[i % kColours.size()]);
            setDash(i);
            for (const auto& piece : plot_.curves[i].pieces) drawPiece(piece);
        }
        cairo_set_dash(cairo_, nullptr, 0, 0);
        cairo_restore(cairo_);
    }

    // Once the colours are used up they come again dashed, then dotted.
    void setDash(std::size_t curve) {
        const double dashes[] = {7, 5};
        const double dots[] = {1.5, 4};
        const std::size_t turn = curve / kColours.size() % 3;
        cairo_set_dash(cairo_, turn == 1 ? dashes : dots, turn == 0 ? 0 : 2, 0);
    }

    void drawPiece(const std::vector<std::pair<double, double>>& piece) {
        if (piece.size() == 1) {
            cairo_arc(cairo_, xAt(piece[0].first), yAt(piece[0].second), 2.5, 0, 2 * std::acos(-1.0));
            cairo_fill(cairo_);
            return;
        }
        for (const auto& [x, y] : piece) cairo_line_to(cairo_, xAt(x), yAt(y));
        cairo_stroke(cairo_);
    }

    void drawFrame() {
        colour(kText);
        cairo_set_line_width(cairo_, 1.2);
        cairo_rectangle(cairo_, frame_.left, frame_.top, frame_.right - frame_.left, frame_.bottom - frame_.top);
        cairo_stroke(cairo_);
        for (double value : x_.ticks()) {
            line(xAt(value), frame_.bottom, xAt(value), frame_.bottom + kTick);
            text(x_.text(value), xAt(value), frame_.bottom + kTick + kFontSize + 2, kFontSize, 0.5);
        }
        for (double value : y_.ticks()) {
            line(frame_.left - kTick, yAt(value), frame_.left, yAt(value));
            text(y_.text(value), frame_.left - kTick - 4, yAt(value) + kFontSize * 0.36, kFontSize, 1);
        }
        const double middle = (frame_.left + frame_.right) / 2;
        const std::string title = fitted(plot_.title, kTitleSize, kWidth - frame_.left - 2 * kGap);
        text(title, frame_.left, frame_.top - kGap - 2, kTitleSize, 0);
        text(withExponent(plot_.xLabel, x_), middle, kHeight - kGap - 4, kFontSize, 0.5);
        cairo_save(cairo_);
        cairo_translate(cairo_, kGap + kFontSize, (frame_.top + frame_.bottom) / 2);
        cairo_rotate(cairo_, -std::acos(-1.0) / 2);
        text(fitted(withExponent(plot_.yLabel, y_), kFontSize, frame_.bottom - frame_.top), 0, 0, kFontSize, 0.5);
        cairo_restore(cairo_);
    }

    static std::string withExponent(const std::string& label, const Axis& axis) {
        return axis.exponent == 0 ? label : fmt::format("{} (\u00d7 1e{})", label, axis.exponent);
    }

    void drawLegend() {
        const std::vector<std::string> labels = legendLabels();
        const double left = frame_.right + kGap + 4;
        text(plot_.legendTitle, left, frame_.top + 12 + kFontSize * 0.36, kFontSize, 0);
        for (std::size_t i = 0; i < labels.size(); ++i) {
            const double y = frame_.top + 12 + static_cast<double>(i + 1) * (kFontSize + 8);
            const bool isShade = !plot_.shaded.empty() && i + 1 == labels.size();
            const bool isCurve = !isShade && i < std::min(plot_.curves.size(), kMostLegendRows);
            if (isShade) {
                colour(kShade);
                cairo_rectangle(cairo_, left, y - 7, 28, 14);
                cairo_fill(cairo_);
            } else if (isCurve) {
                colour(kColours[i % kColours.size()]);
                cairo_set_line_width(cairo_, 2.5);
                setDash(i);
                line(left, y, left + 28, y);
                cairo_set_dash(cairo_, nullptr, 0, 0);
            }
            text(labels[i], left + 36, y + kFontSize * 0.36, kFontSize, 0);
        }
    }

    const Plot& plot_;
    cairo_t* cairo_;
    Axis x_;
    Axis y_;
    Rectangle frame_ = {};
};

struct SurfaceDeleter {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
};
using Surface = std::unique_ptr<cairo_surface_t, SurfaceDeleter>;

void check(cairo_status_t status, const std::string& name) {
    if (status == CAIRO_STATUS_WRITE_ERROR) fail("{} cannot be written; is the disk full?", name);
    if (status != CAIRO_STATUS_SUCCESS) fail("{} cannot be written: {}.", name, cairo_status_to_string(status));
}

void paintOn(cairo_surface_t* surface, const Plot& plot, double scale, const std::string& name) {
    cairo_t* const cairo = cairo_create(surface);
    cairo_scale(cairo, scale, scale);
    Painter(plot, cairo).paint();
    const cairo_status_t status = cairo_status(cairo);
    cairo_destroy(cairo);
    check(status, name);
}

// cairo and fontconfig keep the fonts that a plot used until they are told that it was the last one.
struct FontCacheRelease {
    ~FontCacheRelease() {
        cairo_debug_reset_static_data();
        FcFini();
    }
};

}  // namespace

void addPoint(Curve& curve, double x, double y, bool& isBroken) {
    const bool isNumber = std::isfinite(x) && std::isfinite(y);
    if (isNumber && isBroken) curve.pieces.emplace_back();
    if (isNumber) curve.pieces.back().emplace_back(x, y);
    isBroken = !isNumber;
}

void drawPlot(const Plot& plot, const std::string& name) {
    const FontCacheRelease release;  // after the surfaces below
    if (lowerExtension(name) == ".svg") {
        const Surface surface(cairo_svg_surface_create(name.c_str(), kWidth, kHeight));
        paintOn(surface.get(), plot, 1, name);
        cairo_surface_finish(surface.get());
        check(cairo_surface_status(surface.get()), name);
        return;
    }
    const Surface surface(cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(kWidth * kPngScale),
                                                     static_cast<int>(kHeight * kPngScale)));
    paintOn(surface.get(), plot, kPngScale, name);
    check(cairo_surface_write_to_png(surface.get(), name.c_str()), name);
}

}  // namespace kscli
