// The order in which bands make a line, and where it breaks.
#pragma once

#include <cstddef>
#include <utility>
#include <vector>

#include "image/dataset.hpp"

namespace kscli {

/// Band positions (into `bands`) in the order to draw them, cut where a line between neighbours would say something
/// that was not measured: at a bad band, where the next detector begins (the wavelength steps back), across a gap in
/// the wavelengths.
class LineOrder {
public:
    LineOrder(const DataSet& dataSet, const std::vector<int>& bands);

    const std::vector<std::vector<std::size_t>>& pieces() const { return pieces_; }
    double x(std::size_t position) const;
    /// Stretches of the axis that only bad bands cover.
    std::vector<std::pair<double, double>> badStretches() const;

private:
    struct Point {
        std::size_t position;
        double x;
        int band;
        bool good;
    };

    void arrange();
    void cut();
    double halfStep(std::size_t i) const;

    std::vector<Point> points_;
    std::vector<std::vector<std::size_t>> pieces_;
    double usualStep_ = 1;
};

}  // namespace kscli
