// A line plot with axes, units and a legend, drawn with cairo as SVG or PNG.
#pragma once

#include <string>
#include <utility>
#include <vector>

namespace kscli {

struct Curve {
    std::string label;
    /// Polylines in order; a curve is interrupted between them. A piece of one point is drawn as a dot.
    std::vector<std::vector<std::pair<double, double>>> pieces;
};

/// Adds a point to a curve that is interrupted where there is no number; isBroken starts as true.
void addPoint(Curve& curve, double x, double y, bool& isBroken);

struct Plot {
    std::string title;
    std::string xLabel;
    bool countedX = false;  // x are numbers of things: ticks at whole numbers only
    std::string yLabel;
    std::string legendTitle;
    std::vector<Curve> curves;
    /// Stretches of the x axis drawn grey, and what they mean.
    std::vector<std::pair<double, double>> shaded;
    std::string shadedLabel;
};

/// Writes the plot; the name's extension, .svg or .png, says how. Throws a Failure.
void drawPlot(const Plot& plot, const std::string& name);

}  // namespace kscli
