#include "app/contactsheet.hpp"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>

#include "app/image_png.hpp"

namespace kscli {
namespace {

constexpr int kGap = 4;
constexpr std::uint8_t kBackground = 255;
constexpr double kLowPercent = 2;
constexpr double kHighPercent = 98;

struct Stretch {
    double low = 0;
    double high = 0;

    std::uint8_t shade(float value) const {
        if (std::isnan(value)) return 0;
        // A constant picture has nothing to stretch: it is middle grey.
        if (!(high > low)) return 128;
        const double position = (static_cast<double>(value) - low) / (high - low);
        return static_cast<std::uint8_t>(std::lround(255 * std::clamp(position, 0.0, 1.0)));
    }
};

Stretch stretchOf(const std::vector<float>& picture) {
    std::vector<float> values;
    std::copy_if(picture.begin(), picture.end(), std::back_inserter(values), [](float v) { return std::isfinite(v); });
    if (values.empty()) return {};
    const auto quantile = [&values](double percent) {
        const double position = percent / 100 * static_cast<double>(values.size() - 1);
        const auto middle = values.begin() + static_cast<std::ptrdiff_t>(std::lround(position));
        std::nth_element(values.begin(), middle, values.end());
        return static_cast<double>(*middle);
    };
    const double low = quantile(kLowPercent);
    return {low, quantile(kHighPercent)};
}

// As near a square as whole rows allow.
int columnsOf(const Tiles& tiles) {
    const double pictures = static_cast<double>(tiles.pictures.size());
    const double columns = std::sqrt(pictures * tiles.height / tiles.width);
    return static_cast<int>(std::clamp(std::ceil(columns), 1.0, pictures));
}

}  // namespace

void writeContactSheet(Tiles tiles, const std::string& name) {
    const int count = static_cast<int>(tiles.pictures.size());
    const int columns = columnsOf(tiles);
    const int rows = (count + columns - 1) / columns;
    std::vector<Stretch> stretches;
    for (const auto& picture : tiles.pictures) stretches.push_back(stretchOf(picture));

    const int width = columns * (tiles.width + kGap) - kGap;
    const int height = rows * (tiles.height + kGap) - kGap;
    PngWriter png(name, width, height, 1);
    std::vector<std::uint8_t> line(static_cast<std::size_t>(width));
    for (int y = 0; y < height; ++y) {
        std::fill(line.begin(), line.end(), kBackground);
        const int inTile = y % (tiles.height + kGap);
        const int first = y / (tiles.height + kGap) * columns;
        for (int t = first; inTile < tiles.height && t < std::min(first + columns, count); ++t) {
            const auto index = static_cast<std::size_t>(t);
            const float* const from = tiles.pictures[index].data() + static_cast<std::ptrdiff_t>(inTile) * tiles.width;
            std::transform(from, from + tiles.width, line.begin() + (t - first) * (tiles.width + kGap),
                           [&](float value) { return stretches[index].shade(value); });
        }
        png.writeRow(line);
    }
    png.finish();
}

}  // namespace kscli
