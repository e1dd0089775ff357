#include "image/pixelsample.hpp"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <queue>

#include "app/random.hpp"
#include "image/blocks.hpp"

namespace kscli {
namespace {

constexpr std::uint64_t kSamplingPurpose = 16;

/// Keeps the pixels of smallest priority; the priority is a hash of the position, so that it does not matter in which
/// blocks the image comes.
class Reservoir {
public:
    Reservoir(std::size_t capacity, std::size_t bandCount, std::uint64_t seed)
        : capacity_(capacity), bandCount_(bandCount), seed_(seed) {}

    void offer(int x, int y, const float* pixel) {
        const Kept candidate{hash(seed_, kSamplingPurpose, x, y), y, x, kept_.size()};
        if (kept_.size() < capacity_) {
            values_.insert(values_.end(), pixel, pixel + bandCount_);
            kept_.push(candidate);
        } else if (candidate.priority < kept_.top().priority) {
            Kept replacement = candidate;
            replacement.slot = kept_.top().slot;
            kept_.pop();
            kept_.push(replacement);
            std::copy_n(pixel, bandCount_, values_.begin() + offset(replacement.slot));
        }
    }

    std::vector<float> inImageOrder() {
        std::vector<Kept> order;
        for (; !kept_.empty(); kept_.pop()) order.push_back(kept_.top());
        std::sort(order.begin(), order.end(),
                  [](const Kept& a, const Kept& b) { return a.y != b.y ? a.y < b.y : a.x < b.x; });
        std::vector<float> values;
        values.reserve(values_.size());
        for (const Kept& kept : order) {
            const auto first = values_.begin() + offset(kept.slot);
            values.insert(values.end(), first, first + static_cast<std::ptrdiff_t>(bandCount_));
        }
        return values;
    }

private:
    struct Kept {
        std::uint64_t priority;
        int y;
        int x;
        std::size_t slot;
        bool operator<(const Kept& other) const { return priority < other.priority; }
    };
    std::ptrdiff_t offset(std::size_t slot) const { return static_cast<std::ptrdiff_t>(slot * bandCount_); }

    std::size_t capacity_;
    std::size_t bandCount_;
    std::uint64_t seed_;
    std::priority_queue<Kept> kept_;
    std::vector<float> values_;
};

}  // namespace

DataTest::DataTest(const DataSet& dataSet, const std::vector<int>& bands) : bandCount_(bands.size()) {
    for (const auto& value : noDataValues(dataSet, bands)) {
        if (value) noData_.push_back(static_cast<float>(*value));
    }
    if (noData_.size() != bandCount_) noData_.clear();
}

bool DataTest::hasData(const float* pixel) const {
    if (!std::all_of(pixel, pixel + bandCount_, [](float value) { return std::isfinite(value); })) return false;
    return noData_.empty() || !std::equal(noData_.begin(), noData_.end(), pixel);
}

PixelSample samplePixels(const DataSet& dataSet, const std::vector<int>& bands, std::size_t most, std::uint64_t seed) {
    const SampleReader reader(dataSet, bands, 0, SampleReader::NoData::asStored);
    const DataTest test(dataSet, bands);
    Reservoir reservoir(most, bands.size(), seed);
    PixelSample sample;
    readBlocks(reader, wholeImage(dataSet), 1, [&](int first, Window& window) {
        for (int y = 0; y < window.rows(); ++y) {
            for (int x = 0; x < window.columns(); ++x) {
                const float* pixel = window.pixel(x, y);
                const bool hasData = test.hasData(pixel);
                ++(hasData ? sample.withData : sample.withoutData);
                if (hasData) reservoir.offer(x, first + y, pixel);
            }
        }
    });
    sample.values = reservoir.inImageOrder();
    sample.pixels = sample.values.size() / bands.size();
    return sample;
}

}  // namespace kscli
