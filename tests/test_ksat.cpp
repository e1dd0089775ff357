// Interpolation between 256 spectra, to the bit and at every vector width, and the coefficients of the reflectance.
#include <kslib/ksat.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstddef>
#include <limits>
#include <random>
#include <vector>

#include "bits.hpp"
#include "fixture.hpp"
#include "targets.hpp"

using namespace kit;

namespace {

constexpr std::size_t kCorners = 256;
constexpr std::size_t kDimensions = 8;
constexpr float kUntouched = -4711.0F;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();

using Point = std::array<float, kDimensions>;
using Bounds = std::array<float, 2 * kDimensions>;
using Spectrum = std::vector<RLUTEntry>;
using Corners = std::vector<Spectrum>;

std::vector<float> valuesOf(const Spectrum& spectrum) {
    std::vector<float> values;
    for (const RLUTEntry& entry : spectrum) values.insert(values.end(), {entry.fFirst, entry.fSecond});
    return values;
}

Spectrum interpolate(const Point& point, const Bounds& bounds, const Corners& corners) {
    const std::size_t count = corners[0].size();
    std::vector<const RLUTEntry*> starts;
    for (const Spectrum& corner : corners) starts.push_back(corner.data());
    Spectrum out(count + 3, RLUTEntry{kUntouched, kUntouched});
    KSInterpSpec(point.data(), bounds.data(), starts.data(), out.data(), static_cast<int>(count));
    for (std::size_t i = count; i < out.size(); ++i) {
        EXPECT_EQ(out[i].fFirst, kUntouched);
        EXPECT_EQ(out[i].fSecond, kUntouched);
    }
    out.resize(count);
    return out;
}

/// The same, one value after another. Volatile products cannot be fused with the sums.
Spectrum plain(const Point& point, const Bounds& bounds, const Corners& corners) {
    std::array<double, kCorners> weights{};
    for (std::size_t k = 0; k < kCorners; ++k) {
        weights[k] = 1.0;
        for (std::size_t i = 0; i < kDimensions; ++i) {
            const double low = static_cast<double>(bounds[2 * i]);
            const double high = static_cast<double>(bounds[2 * i + 1]);
            const double t = (static_cast<double>(point[i]) - low) / (high - low);
            weights[k] *= (k >> i & 1U) != 0 ? t : 1.0 - t;
        }
    }
    Spectrum out;
    for (std::size_t j = 0; j < corners[0].size(); ++j) {
        double first = 0.0;
        double second = 0.0;
        for (std::size_t k = 0; k < kCorners; ++k) {
            volatile const double one = static_cast<double>(corners[k][j].fFirst) * weights[k];
            volatile const double two = static_cast<double>(corners[k][j].fSecond) * weights[k];
            first += one;
            second += two;
        }
        out.push_back({static_cast<float>(first), static_cast<float>(second)});
    }
    return out;
}

Corners cornersOf(const std::vector<float>& values, std::size_t count) {
    Corners corners(kCorners, Spectrum(count));
    std::size_t at = 0;
    for (Spectrum& corner : corners) {
        for (RLUTEntry& entry : corner) {
            entry.fFirst = values[at++ % values.size()];
            entry.fSecond = values[at++ % values.size()];
        }
    }
    return corners;
}

Corners randomCorners(std::size_t count) {
    static const std::vector<float> kValues = kindsOfData(kCorners * 2 * 40)[0].values;
    return cornersOf(kValues, count);
}

constexpr Bounds kBounds = {0, 2, -1, 1, 300, 500, 0.5F, 0.75F, -90, 90, 1e-3F, 2e-3F, 7, 5, 0, 1e6F};
constexpr Point kInside = {0.3F, 0.1F, 471.0F, 0.6F, -12.5F, 1.7e-3F, 5.5F, 123456.0F};

struct KSInterpSpecTest : LibraryTest {
    void TearDown() override {
        EXPECT_EQ(host().calls, std::vector<Call>{});
        EXPECT_EQ(allocations(), 0);
        LibraryTest::TearDown();
    }
};

TEST_F(KSInterpSpecTest, IsThePlainLoopToTheBitAtEveryWidth) {
    const Point outside = {-5.0F, 17.0F, 0.0F, 1.0F, 100.0F, 0.0F, 20.0F, -1.0F};
    forEachTarget([&](const char* target) {
        SCOPED_TRACE(target);
        for (std::size_t count = 0; count <= 40; ++count) {
            const Corners corners = randomCorners(count);
            for (const Point& point : {kInside, outside}) {
                ASSERT_TRUE(
                    sameBits(valuesOf(interpolate(point, kBounds, corners)), valuesOf(plain(point, kBounds, corners))))
                    << count << " entries";
            }
        }
    });
}

TEST_F(KSInterpSpecTest, IsThePlainLoopToTheBitOnEverySortOfData) {
    forEachTarget([&](const char* target) {
        for (const Kind& kind : kindsOfData(kCorners * 2 * 23 + 1)) {
            const Corners corners = cornersOf(kind.values, 23);
            EXPECT_TRUE(
                sameBits(valuesOf(interpolate(kInside, kBounds, corners)), valuesOf(plain(kInside, kBounds, corners))))
                << kind.name << " on " << target;
        }
    });
}

TEST_F(KSInterpSpecTest, AtACornerTheResultIsTheCorner) {
    const Corners corners = randomCorners(11);
    for (std::size_t k = 0; k < kCorners; ++k) {
        Point point{};
        for (std::size_t i = 0; i < kDimensions; ++i) point[i] = kBounds[2 * i + (k >> i & 1U)];
        EXPECT_TRUE(sameBits(valuesOf(interpolate(point, kBounds, corners)), valuesOf(corners[k]))) << k;
    }
}

TEST_F(KSInterpSpecTest, InTheMiddleEveryCornerWeighsTheSame) {
    constexpr Bounds bounds = {0, 2, -1, 1, 300, 500, 1, 2, -90, 90, 4, 8, 7, 5, 0, 16};
    Point middle{};
    for (std::size_t i = 0; i < kDimensions; ++i) middle[i] = (bounds[2 * i] + bounds[2 * i + 1]) / 2.0F;
    for (std::size_t k = 0; k < kCorners; k += 5) {
        Corners corners(kCorners, Spectrum(5, RLUTEntry{0.0F, 0.0F}));
        corners[k] = Spectrum(5, RLUTEntry{256.0F, -512.0F});
        for (const RLUTEntry& entry : interpolate(middle, bounds, corners)) {
            EXPECT_EQ(entry.fFirst, 1.0F) << k;
            EXPECT_EQ(entry.fSecond, -2.0F) << k;
        }
    }
}

TEST_F(KSInterpSpecTest, BitsOfACornersNumberAreItsDimensions) {
    Corners corners(kCorners, Spectrum(3));
    for (std::size_t k = 0; k < kCorners; ++k) {
        for (RLUTEntry& entry : corners[k]) entry = {static_cast<float>(k), static_cast<float>(kCorners - k)};
    }
    constexpr Bounds units = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1};
    for (std::size_t i = 0; i < kDimensions; ++i) {
        Point point{};
        point[i] = 0.5F;  // half of the value of bit i
        const Spectrum out = interpolate(point, units, corners);
        EXPECT_EQ(out[2].fFirst, 0.5F * static_cast<float>(1U << i));
        EXPECT_EQ(out[2].fSecond, 256.0F - 0.5F * static_cast<float>(1U << i));
        point[i] = -1.0F;  // and beyond a bound the line goes on
        EXPECT_EQ(interpolate(point, units, corners)[0].fFirst, -static_cast<float>(1U << i));
    }
}

TEST_F(KSInterpSpecTest, MultilinearFunctionsAreMet) {
    // Products of one factor from each dimension.
    const auto factor = [](std::size_t i, double x) { return 1.0 + x * (0.1 + 0.05 * static_cast<double>(i)); };
    constexpr Bounds bounds = {0, 2, -1, 1, 3, 5, 0.5F, 0.75F, -3, 3, 1, 4, 7, 5, 0, 1};
    constexpr Point point = {0.3F, 0.1F, 4.7F, 0.6F, -1.25F, 1.7F, 5.5F, 0.123F};
    Corners corners(kCorners, Spectrum(1));
    for (std::size_t k = 0; k < kCorners; ++k) {
        double product = 1.0;
        for (std::size_t i = 0; i < kDimensions; ++i) {
            product *= factor(i, static_cast<double>(bounds[2 * i + (k >> i & 1U)]));
        }
        corners[k][0] = {static_cast<float>(product), static_cast<float>(-2.0 * product)};
    }
    double expected = 1.0;
    for (std::size_t i = 0; i < kDimensions; ++i) expected *= factor(i, static_cast<double>(point[i]));
    const RLUTEntry found = interpolate(point, bounds, corners)[0];
    EXPECT_NEAR(static_cast<double>(found.fFirst), expected, 2e-7 * expected);
    EXPECT_NEAR(static_cast<double>(found.fSecond), -2.0 * expected, 4e-7 * expected);
}

TEST_F(KSInterpSpecTest, EqualBoundsAreNotGuarded) {
    Bounds bounds = kBounds;
    bounds[7] = bounds[6];
    Point point = kInside;
    for (const float at : {bounds[6], 0.7F}) {
        point[3] = at;
        for (const RLUTEntry& entry : interpolate(point, bounds, randomCorners(9))) {
            EXPECT_TRUE(std::isnan(entry.fFirst) && std::isnan(entry.fSecond));
        }
    }
}

TEST_F(KSInterpSpecTest, SumsAreFormedInDoublePrecision) {
    Corners corners(kCorners, Spectrum(1, RLUTEntry{1.0F, 0.0F}));
    corners[0][0] = {1e8F, 3e38F};  // beside which single precision has no ones
    corners[255][0] = {-1e8F, 3e38F};
    const Bounds units = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1};
    Point middle{};
    middle.fill(0.5F);
    EXPECT_EQ(interpolate(middle, units, corners)[0].fFirst, 254.0F / 256.0F);
    EXPECT_FLOAT_EQ(interpolate(middle, units, corners)[0].fSecond, 3e38F / 128.0F);
    middle.fill(-9.0F);  // weights of millions: the sum is beyond single precision
    EXPECT_TRUE(std::isinf(interpolate(middle, units, corners)[0].fSecond));
}

TEST_F(KSInterpSpecTest, WeightsAreProductsInOrderOfTheDimensions) {
    // Three corners whose values cancel leave nothing but what rounding did to their weights.
    const Bounds units = {0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1, 0, 1};
    std::mt19937 engine(11U);
    std::uniform_real_distribution<float> inside(0.2F, 0.8F);
    std::uniform_int_distribution<std::size_t> any(0, kCorners - 1);
    for (int round = 0; round < 50; ++round) {
        Point point{};
        for (float& x : point) x = inside(engine);
        const auto weight = [&point](std::size_t k) {
            double product = 1.0;
            for (std::size_t i = 0; i < kDimensions; ++i) {
                const double t = static_cast<double>(point[i]);
                product *= (k >> i & 1U) != 0 ? t : 1.0 - t;
            }
            return product;
        };
        const std::array<std::size_t, 3> chosen = {any(engine), any(engine), any(engine)};
        Corners corners(kCorners, Spectrum(1, RLUTEntry{0.0F, 0.0F}));
        double sum = 0.0;
        for (const std::size_t k : chosen) {
            const auto value = static_cast<float>(sum == 0.0 ? 1.0 : -sum / weight(k));
            corners[k][0] = {value, -value};
            sum += static_cast<double>(value) * weight(k);
        }
        EXPECT_TRUE(sameBits(valuesOf(interpolate(point, units, corners)), valuesOf(plain(point, units, corners))));
    }
}

TEST_F(KSInterpSpecTest, WithoutEntriesNothingIsTouched) {
    const std::vector<const RLUTEntry*> corners(kCorners, nullptr);
    RLUTEntry out = {kUntouched, kUntouched};
    for (const int none : {0, -1, std::numeric_limits<int>::min()}) {
        KSInterpSpec(kInside.data(), kBounds.data(), corners.data(), &out, none);
    }
    EXPECT_EQ(out.fFirst, kUntouched);
    EXPECT_EQ(out.fSecond, kUntouched);
}

// ---- coefficients ----

constexpr double kUnset = -4711.0;

struct Coefficients {
    int status = -1;
    double c1 = kUnset, c2 = kUnset, c3 = kUnset, c4 = kUnset;
};

Coefficients coefficients(float a1, float a2, float b1, float b2, float r1, float r2) {
    Coefficients c;
    c.status = KSEvalSRCoeffs(a1, a2, b1, b2, r1, r2, &c.c1, &c.c2, &c.c3, &c.c4);
    return c;
}

/// The formulas, step by step.
Coefficients plainCoefficients(float fa1, float fa2, float fb1, float fb2, float fr1, float fr2) {
    const double a1 = static_cast<double>(fa1), a2 = static_cast<double>(fa2);
    const double b1 = static_cast<double>(fb1), b2 = static_cast<double>(fb2);
    const double r1 = static_cast<double>(fr1), r2 = static_cast<double>(fr2);
    Coefficients c;
    c.status = 1;
    const double q = r2 / r1;
    const double d = a1 * r1 * q - a2 * r2;
    if (!(d >= 1e-12)) return c;
    c.c3 = (q * a1 - a2) / d;
    if (!(r1 >= 1e-12)) return c;
    if (!(r2 * c.c3 - 1.0 - (r1 * c.c3 - 1.0) * q >= 1e-12)) return c;
    c.c1 = (a1 - a1 * r1 * c.c3) / r1;
    const double p = b1 * r1 * c.c3;
    c.c4 = b2 * r2 * c.c3 - p * q;
    c.c2 = ((r1 * c.c3 - 1.0) * c.c4 - p) / r1;
    c.status = 0;
    return c;
}

void expectSame(const Coefficients& found, const Coefficients& expected) {
    EXPECT_EQ(found.status, expected.status);
    const auto same = [](double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); };
    EXPECT_PRED2(same, found.c1, expected.c1);
    EXPECT_PRED2(same, found.c2, expected.c2);
    EXPECT_PRED2(same, found.c3, expected.c3);
    EXPECT_PRED2(same, found.c4, expected.c4);
}

struct KSEvalSRCoeffsTest : KSInterpSpecTest {};

TEST_F(KSEvalSRCoeffsTest, AnExampleByHand) {
    // q = 2, D = 8 * 0.25 * 2 - 4 * 0.5 = 2, c3 = (16 - 4) / 2 = 6, c1 = (8 - 12) / 0.25 = -16,
    // P = 2 * 0.25 * 6 = 3, c4 = 5 * 0.5 * 6 - 6 = 9, c2 = (0.5 * 9 - 3) / 0.25 = 6.
    const Coefficients c = coefficients(8.0F, 4.0F, 2.0F, 5.0F, 0.25F, 0.5F);
    EXPECT_EQ(c.status, 0);
    EXPECT_EQ(c.c1, -16.0);
    EXPECT_EQ(c.c2, 6.0);
    EXPECT_EQ(c.c3, 6.0);
    EXPECT_EQ(c.c4, 9.0);
}

TEST_F(KSEvalSRCoeffsTest, FollowsTheFormulas) {
    std::mt19937 engine(20240611U);
    std::uniform_real_distribution<float> values(-20.0F, 20.0F);
    std::uniform_real_distribution<float> reflectances(0.01F, 1.0F);
    int solved = 0;
    for (int i = 0; i < 2000; ++i) {
        const float a1 = values(engine), a2 = values(engine), b1 = values(engine), b2 = values(engine);
        const float r1 = reflectances(engine), r2 = reflectances(engine);
        const Coefficients expected = plainCoefficients(a1, a2, b1, b2, r1, r2);
        expectSame(coefficients(a1, a2, b1, b2, r1, r2), expected);
        if (expected.status == 0) ++solved;
    }
    EXPECT_GT(solved, 200);
    EXPECT_LT(solved, 1800);
}

TEST_F(KSEvalSRCoeffsTest, TheFirstDeterminantComesFirst) {
    for (const Coefficients& c : {coefficients(1.0F, 1.0F, 1.0F, 1.0F, 0.1F, 0.5F),  // D = 0
                                  coefficients(1.0F, 2.0F, 1.0F, 1.0F, 0.1F, 0.5F),  // D < 0
                                  coefficients(1.0F, 0.5F, 1.0F, 1.0F, 0.0F, 0.5F),  // q is infinite, D not a number
                                  coefficients(1.0F, 0.5F, 1.0F, 1.0F, 0.0F, 0.0F),  //
                                  coefficients(kNaN, 0.5F, 1.0F, 1.0F, 0.1F, 0.5F),  //
                                  coefficients(1.0F, 0.5F, 1.0F, 1.0F, 0.1F, 0.0F),  // D = 0
                                  coefficients(1.5e-12F, 0.0F, 1.0F, 1.0F, 0.1F, 0.5F)}) {  // D = 0.75e-12
        expectSame(c, Coefficients{1, kUnset, kUnset, kUnset, kUnset});
    }
    EXPECT_NE(coefficients(2.5e-12F, 0.0F, 1.0F, 1.0F, 0.1F, 0.5F).c3, kUnset) << "D = 1.25e-12";
}

TEST_F(KSEvalSRCoeffsTest, TheLeastDeterminantIsEnough) {
    const float a1 = 0x1.023be4p-38F, a2 = 0x1.0d0e4p-61F, r1 = 0x1.47ae14p-9F, r2 = 0x1.170a3ep-2F;
    const double q = static_cast<double>(r2) / static_cast<double>(r1);
    ASSERT_EQ(static_cast<double>(a1) * static_cast<double>(r1) * q - static_cast<double>(a2) * static_cast<double>(r2),
              1e-12);
    EXPECT_EQ(coefficients(a1, a2, 1.0F, 2.0F, r1, r2).status, 0);
    EXPECT_EQ(coefficients(a1, 2.0F * a2, 1.0F, 2.0F, r1, r2).status, 1) << "one step below";
}

TEST_F(KSEvalSRCoeffsTest, TheFirstReflectanceComesSecond) {
    // Both it and the last quantity are bad in the second, where q = -1.
    for (const auto& [r1, r2] : std::vector<std::pair<float, float>>{{1e-13F, 0.5F}, {-0.25F, 0.25F}}) {
        const Coefficients c = coefficients(8.0F, 4.0F, 2.0F, 5.0F, r1, r2);
        EXPECT_EQ(c.status, 1);
        const double one = static_cast<double>(r1), two = static_cast<double>(r2);
        EXPECT_DOUBLE_EQ(c.c3, (two / one * 8.0 - 4.0) / (8.0 * one * (two / one) - 4.0 * two));
        EXPECT_EQ(c.c1, kUnset);
        EXPECT_EQ(c.c2, kUnset);
        EXPECT_EQ(c.c4, kUnset);
    }
}

TEST_F(KSEvalSRCoeffsTest, TheLastQuantityLeavesTheThirdCoefficient) {
    // It is q - 1: the second reflectance must be the greater one.
    for (const float r2 : {0.25F, 0.125F}) {
        const Coefficients c = coefficients(8.0F, 4.0F, 2.0F, 5.0F, 0.25F, r2);
        EXPECT_EQ(c.status, 1);
        const double q = static_cast<double>(r2) / 0.25;
        EXPECT_DOUBLE_EQ(c.c3, (8.0 * q - 4.0) / (4.0 * static_cast<double>(r2)));
        EXPECT_EQ(c.c1, kUnset);
        EXPECT_EQ(c.c2, kUnset);
        EXPECT_EQ(c.c4, kUnset);
    }
}

TEST_F(KSEvalSRCoeffsTest, AThirdCoefficientThatIsNoNumberFailsTheLastTest) {
    const Coefficients c = coefficients(std::numeric_limits<float>::infinity(), 4.0F, 2.0F, 5.0F, 0.25F, 0.5F);
    EXPECT_EQ(c.status, 1);
    EXPECT_TRUE(std::isnan(c.c3)) << "infinity over infinity";
    EXPECT_EQ(c.c1, kUnset);
    EXPECT_EQ(c.c4, kUnset);
}

TEST_F(KSEvalSRCoeffsTest, TheFirstValueComesBackFromItsCoefficients) {
    // A(r) = c1 r / (1 - c3 r), with c3 as a spherical albedo; it must fall with the reflectance, so c1 is negative.
    for (const double albedo : {0.05, 0.2, 0.6}) {
        for (const double slope : {-3.0, -80.0}) {
            const auto first = [&](float r) {
                return static_cast<float>(slope * static_cast<double>(r) / (1.0 - albedo * static_cast<double>(r)));
            };
            const float r1 = 0.1F, r2 = 0.5F;
            const Coefficients c = coefficients(first(r1), first(r2), 1.0F, 2.0F, r1, r2);
            ASSERT_EQ(c.status, 0);
            EXPECT_NEAR(c.c3, albedo, 1e-6);
            EXPECT_NEAR(c.c1, slope, -1e-6 * slope);
        }
    }
}

TEST_F(KSEvalSRCoeffsTest, TheSecondValueBelongsToItsCoefficients) {
    // c2 r + c4 (1 - c3 r) = -c3 r B(r) at the first reflectance, and also at the second when it is twice as large.
    const float r1 = 0.25F, r2 = 0.5F;
    const Coefficients c = coefficients(-1.0F, -2.5F, 3.5F, 7.25F, r1, r2);
    ASSERT_EQ(c.status, 0);
    const auto left = [&c](double r) { return c.c2 * r + c.c4 * (1.0 - c.c3 * r); };
    EXPECT_NEAR(left(0.25), -c.c3 * 0.25 * 3.5, 1e-12);
    EXPECT_NEAR(left(0.5), -c.c3 * 0.5 * 7.25, 1e-12);
}

}  // namespace
