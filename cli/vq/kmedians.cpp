#include "vq/kmedians.hpp"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numeric>

#include "app/random.hpp"
#include "app/report.hpp"
#include "image/blocks.hpp"

namespace kscli {
namespace {

constexpr std::uint64_t kSeedingPurpose = 17;

// Eight sums side by side, which the processor adds at once; always added up in the same order.
double cityBlock(const float* a, const float* b, std::size_t count) {
    constexpr std::size_t kLanes = 8;
    double sums[kLanes] = {};
    std::size_t i = 0;
    for (; i + kLanes <= count; i += kLanes) {
        for (std::size_t lane = 0; lane < kLanes; ++lane) {
            sums[lane] += std::abs(static_cast<double>(a[i + lane]) - static_cast<double>(b[i + lane]));
        }
    }
    for (; i < count; ++i) sums[0] += std::abs(static_cast<double>(a[i]) - static_cast<double>(b[i]));
    return std::accumulate(sums, sums + kLanes, 0.0);
}

class Pixels {
public:
    Pixels(const std::vector<float>& values, std::size_t bandCount) : values_(values), bandCount_(bandCount) {}
    std::size_t count() const { return values_.size() / bandCount_; }
    std::size_t bandCount() const { return bandCount_; }
    const float* pixel(std::size_t i) const { return values_.data() + i * bandCount_; }

private:
    const std::vector<float>& values_;
    std::size_t bandCount_;
};

// Each new start is drawn with a chance proportional to the distance from those before it (k-means++ in the city-block
// metric). A pixel equal to a start has no chance, so this ends early when the different pixels are used up.
std::vector<std::size_t> chooseStarts(const Pixels& pixels, const Clustering& clustering) {
    std::vector<double> nearest(pixels.count(), std::numeric_limits<double>::infinity());
    std::vector<std::size_t> starts;
    const auto take = [&](std::size_t start) {
        starts.push_back(start);
        for (std::size_t i = 0; i < pixels.count(); ++i) {
            if (nearest[i] == 0) continue;
            nearest[i] = std::min(nearest[i], cityBlock(pixels.pixel(i), pixels.pixel(start), pixels.bandCount()));
        }
    };
    const auto draw = [&](std::size_t n) {
        return unit(hash(clustering.seed, kSeedingPurpose, static_cast<std::int64_t>(n), 0));
    };
    const auto count = static_cast<std::size_t>(clustering.vectors);
    Progress progress;
    take(std::min(static_cast<std::size_t>(draw(0) * static_cast<double>(pixels.count())), pixels.count() - 1));
    while (starts.size() < count) {
        const double total = std::accumulate(nearest.begin(), nearest.end(), 0.0);
        if (!(total > 0)) break;
        double left = draw(starts.size()) * total;
        std::size_t chosen = pixels.count();
        for (std::size_t i = 0; i < pixels.count(); ++i) {
            if (nearest[i] == 0) continue;
            chosen = i;
            left -= nearest[i];
            if (left < 0) break;
        }
        take(chosen);
        progress.advance(static_cast<int>(starts.size()), clustering.vectors);
    }
    return starts;
}

class KMedians {
public:
    KMedians(const Pixels& pixels, const std::vector<int>& bands, Codebook& codebook,
             const std::function<void(float*, std::size_t)>& fit)
        : pixels_(pixels),
          codebook_(codebook),
          fit_(fit),
          window_(static_cast<int>(pixels.count()), 1, 1, 1, bands),
          map_(static_cast<int>(pixels.count()), 1),
          members_(static_cast<std::size_t>(codebook.vectorCount())) {
        std::copy_n(pixels.pixel(0), pixels.count() * pixels.bandCount(), window_.samples());
    }

    /// Returns the number of rounds until nothing changed any more, or `most`.
    int run(int most) {
        Progress progress;
        for (int round = 1; round <= most; ++round) {
            if (!assign()) return round - 1;
            moveToMedians();
            fillEmpty();
            fit_(codebook_.values(), members_.size());
            progress.advance(round, most);
        }
        assign();
        return most;
    }

    double meanDistance() const {
        double sum = 0;
        for (std::size_t i = 0; i < pixels_.count(); ++i) sum += distance(i);
        return sum / static_cast<double>(pixels_.count());
    }

private:
    /// Finds every pixel's nearest code vector; false when nothing changed.
    bool assign() {
        if (KSXVQEncodeNearest(codebook_.record(), map_.record(), window_.record()) != 0) throw std::bad_alloc();
        std::vector<std::uint16_t> now(map_.record()->pau16Samples, map_.record()->pau16Samples + pixels_.count());
        if (now == indexes_) return false;
        indexes_ = std::move(now);
        for (auto& members : members_) members.clear();
        for (std::size_t i = 0; i < indexes_.size(); ++i) members_[indexes_[i]].push_back(i);
        return true;
    }

    // Of an even number the lower middle: a value that was measured, like every other median.
    void moveToMedians() {
        std::vector<float> column;
        for (std::size_t v = 0; v < members_.size(); ++v) {
            const auto& members = members_[v];
            if (members.empty()) continue;
            column.resize(members.size());
            const auto middle = column.begin() + static_cast<std::ptrdiff_t>((members.size() - 1) / 2);
            float* const vector = codebook_.vector(static_cast<int>(v));
            for (std::size_t band = 0; band < pixels_.bandCount(); ++band) {
                for (std::size_t i = 0; i < members.size(); ++i) column[i] = pixels_.pixel(members[i])[band];
                std::nth_element(column.begin(), middle, column.end());
                vector[band] = *middle;
            }
        }
    }

    /// A code vector that no pixel chose starts again at the pixel that is served worst.
    void fillEmpty() {
        std::vector<std::size_t> empty;
        for (std::size_t v = 0; v < members_.size(); ++v) {
            if (members_[v].empty()) empty.push_back(v);
        }
        if (empty.empty()) return;
        std::vector<std::pair<double, std::size_t>> served;
        for (std::size_t i = 0; i < pixels_.count(); ++i) served.emplace_back(-distance(i), i);
        std::sort(served.begin(), served.end());
        for (std::size_t n = 0; n < empty.size() && n < served.size() && served[n].first < 0; ++n) {
            const float* const pixel = pixels_.pixel(served[n].second);
            std::copy_n(pixel, pixels_.bandCount(), codebook_.vector(static_cast<int>(empty[n])));
        }
    }

    double distance(std::size_t i) const {
        return cityBlock(pixels_.pixel(i), codebook_.vector(indexes_[i]), pixels_.bandCount());
    }

    const Pixels& pixels_;
    Codebook& codebook_;
    const std::function<void(float*, std::size_t)>& fit_;
    Window window_;
    IndexMap map_;
    std::vector<std::vector<std::size_t>> members_;
    std::vector<std::uint16_t> indexes_;
};

}  // namespace

Clusters clusterPixels(const std::vector<float>& values, const std::vector<int>& bands, const Clustering& clustering,
                       const std::function<void(float*, std::size_t)>& fit) {
    const Pixels pixels(values, bands.size());
    const std::vector<std::size_t> starts = chooseStarts(pixels, clustering);
    Clusters result{Codebook(static_cast<int>(starts.size()), bands)};
    for (std::size_t v = 0; v < starts.size(); ++v) {
        std::copy_n(pixels.pixel(starts[v]), bands.size(), result.codebook.vector(static_cast<int>(v)));
    }
    fit(result.codebook.values(), starts.size());
    KMedians medians(pixels, bands, result.codebook, fit);
    result.iterations = medians.run(clustering.iterations);
    result.meanDistance = medians.meanDistance();
    return result;
}

}  // namespace kscli
