// Unmixing as a caller meets it: arrays of exactly the promised size, made-up spectra and mixtures.
#pragma once

#include <kslib.h>

#include <algorithm>
#include <cmath>
#include <limits>
#include <ostream>
#include <random>
#include <vector>

#include "fixture.hpp"

namespace kit::unmixing {

inline constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
inline constexpr float kInfinite = std::numeric_limits<float>::infinity();
using Values = std::vector<float>;
using Spectra = std::vector<Values>;  // a row for each band

inline std::size_t at(int i) { return static_cast<std::size_t>(i); }

struct Options {
    bool sumToOne;
    bool nonNegative;
    bool normalise;
};

inline std::vector<Options> everyOption() {
    std::vector<Options> all;
    for (const bool sum : {false, true}) {
        for (const bool positive : {false, true}) {
            for (const bool normalise : {false, true}) all.push_back({sum, positive, normalise});
        }
    }
    return all;
}

inline std::ostream& operator<<(std::ostream& out, const Options& options) {
    return out << (options.sumToOne ? "sum to one " : "") << (options.nonNegative ? "non-negative " : "")
               << (options.normalise ? "normalised" : "");
}

/// A caller's arrays: exactly what a call is promised, so that a sanitizer sees every step beyond.
class Caller {
public:
    Caller(const Spectra& spectra, const Options& options)
        : options_(options), bands_(static_cast<int>(spectra.size())) {
        rows_ = spectra;
        endmembers_ = spectra.empty() ? 0 : static_cast<int>(spectra[0].size());
        if (options.sumToOne) rows_.emplace_back(at(endmembers_), -77.0F);
        for (Values& row : rows_) pointers_.push_back(row.data());
        fractions_.assign(at(endmembers_) + 1, -55.0F);
    }
    int call(const Values& pixel, bool newEndmembers) {
        pixel_.resize(at(bands_) + (options_.sumToOne ? 1 : 0), pixel_.empty() ? 0.0F : pixel_.back());
        std::copy(pixel.begin(), pixel.end(), pixel_.begin());
        return get_endmember_fractions(pointers_.data(), pixel_.data(), fractions_.data(), endmembers_, bands_,
                                       options_.sumToOne ? 1 : 0, options_.nonNegative ? 1 : 0,
                                       options_.normalise ? 1 : 0, newEndmembers ? 1 : 0);
    }
    /// Set-up and solution of one pixel; it must succeed without a report.
    const Values& solve(const Values& pixel) {
        EXPECT_EQ(call(pixel, true), 0);
        EXPECT_EQ(host().reports, Reports{});
        return fractions_;
    }
    Values& fractions() { return fractions_; }
    float misfit() const { return fractions_.back(); }
    Spectra& rows() { return rows_; }
    Values& pixel() { return pixel_; }
    float** pointers() { return pointers_.data(); }

private:
    Options options_;
    Spectra rows_;
    std::vector<float*> pointers_;
    Values pixel_;
    Values fractions_;
    int bands_;
    int endmembers_ = 0;
};

inline constexpr Options kPlain = {false, false, false};
inline constexpr Options kNonNegative = {false, true, false};

struct Random {
    std::mt19937 engine;
    explicit Random(unsigned seed) : engine(seed) {}
    float normal() { return std::normal_distribution<float>()(engine); }
    float uniform() { return std::uniform_real_distribution<float>()(engine); }
    Spectra spectra(int bands, int endmembers) {
        Spectra made(at(bands), Values(at(endmembers)));
        for (Values& row : made) {
            for (float& value : row) value = normal();
        }
        return made;
    }
    /// Smooth positive spectra, as alike as those of a scene.
    Spectra reflectances(int bands, int endmembers) {
        Spectra made(at(bands), Values(at(endmembers)));
        for (int e = 0; e < endmembers; ++e) {
            const float level = 500.0F + 3000.0F * uniform();
            const float slope = uniform() - 0.5F;
            const float phase = 6.0F * uniform();
            const float frequency = 4.0F + 12.0F * uniform();
            for (int b = 0; b < bands; ++b) {
                const float t = static_cast<float>(b) / static_cast<float>(bands);
                made[at(b)][at(e)] = level * (1.0F + slope * t + 0.3F * std::sin(frequency * t + phase));
            }
        }
        return made;
    }
    Values pixel(int bands) {
        Values made(at(bands));
        for (float& value : made) value = normal();
        return made;
    }
    /// A mixture of endmembers, some of them absent, with noise.
    Values mixture(const Spectra& spectra, float noise) {
        Values weights(spectra[0].size());
        for (float& weight : weights) weight = uniform() < 0.5F ? 0.0F : uniform();
        Values made;
        for (const Values& row : spectra) {
            float sum = noise * normal();
            for (std::size_t e = 0; e < row.size(); ++e) sum += weights[e] * row[e];
            made.push_back(sum);
        }
        return made;
    }
};

inline Values column(const Spectra& spectra, std::size_t endmember) {
    Values values;
    for (const Values& row : spectra) values.push_back(row[endmember]);
    return values;
}

// Found by a search for a problem that keeps the solver busy: more than three times as many triangular systems as
// unknowns.
inline const Spectra kLongWay = {{5.45750999F, -8.63554859F, 6.19194841F, -9.41195869F, 5.15099335F},
                                 {0.00110908749F, 4.9981637F, -2.19372582F, 1.2670809F, -6.88698435F},
                                 {11.9149857F, 3.71959043F, 0.103904128F, -3.12390041F, -21.2290707F},
                                 {-1.075459F, -0.686508715F, -1.12072778F, -2.23418045F, 0.931820154F},
                                 {2.04995179F, -2.97204947F, 1.63625145F, -3.49475241F, 0.761345029F},
                                 {-8.77896118F, 17.1500149F, -1.78644466F, 9.27678299F, -8.35423565F}};
inline const Values kLongWayPixel = {15.2121878F,  -3.74323416F, -0.265815645F,
                                     -7.33122015F, -3.56268787F, -1.54237711F};

}  // namespace kit::unmixing
