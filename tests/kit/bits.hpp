// Comparison to the bit, and the data that arithmetic is compared on. NaN equals any NaN.
#pragma once

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

namespace kit {

inline bool sameBits(float a, float b) {
    if (std::isnan(a) || std::isnan(b)) return std::isnan(a) && std::isnan(b);
    return std::memcmp(&a, &b, sizeof a) == 0;
}

/// EXPECT_PRED-style: passes when both hold the same values to the bit, signs of zero included.
inline testing::AssertionResult sameBits(const std::vector<float>& actual, const std::vector<float>& expected) {
    if (actual.size() != expected.size()) {
        return testing::AssertionFailure() << actual.size() << " values, not " << expected.size();
    }
    for (std::size_t i = 0; i < actual.size(); ++i) {
        if (!sameBits(actual[i], expected[i])) {
            return testing::AssertionFailure() << "value " << i << " is " << actual[i] << ", not " << expected[i];
        }
    }
    return testing::AssertionSuccess();
}

struct Kind {
    const char* name;
    std::vector<float> values;
};

/// Samples of every sort that arithmetic can meet, the same at every run.
inline std::vector<Kind> kindsOfData(std::size_t count) {
    constexpr float kHuge = std::numeric_limits<float>::max();
    constexpr float kTiny = std::numeric_limits<float>::denorm_min();
    constexpr float kInfinite = std::numeric_limits<float>::infinity();
    constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
    std::mt19937 engine(20240607U);
    std::uniform_real_distribution<float> reals(-1000.0F, 1000.0F);
    const auto made = [count](const char* name, auto value) {
        std::vector<float> values;
        for (std::size_t i = 0; i < count; ++i) values.push_back(value(i));
        return Kind{name, values};
    };
    const auto cycle = [](std::vector<float> of) { return [of](std::size_t i) { return of[i % of.size()]; }; };
    return {made("random", [&](std::size_t) { return reals(engine); }),
            made("counts", [](std::size_t i) { return static_cast<float>((i * 7919) % 65536); }),
            made("constant", [](std::size_t) { return 42.5F; }),
            made("huge", cycle({kHuge, -kHuge, kHuge / 3, 1e30F})),
            made("tiny", cycle({kTiny, -kTiny, std::numeric_limits<float>::min(), 1e-40F, 0.0F, -0.0F})),
            made("NaN", cycle({kNaN, 1.0F, 2.0F})),
            made("infinite", cycle({kInfinite, -kInfinite, 1.0F}))};
}

}  // namespace kit
