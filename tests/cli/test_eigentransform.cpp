// The transforms as mathematics: known eigenvalues, Jacobi's rotations, and covariances built from known components.
#include <gtest/gtest.h>

#include <algorithm>
#include <numeric>

#include "eigencheck.hpp"

namespace clitest {
namespace {

using kscli::EigenTransform;
using kscli::noiseAdjusted;
using kscli::principalComponents;

constexpr double kPi = 3.14159265358979323846;

Matrix diagonal(const std::vector<double>& values) {
    Matrix m(values.size(), values.size());
    for (std::size_t i = 0; i < values.size(); ++i) m.at(i, i) = values[i];
    return m;
}

Matrix congruent(const Matrix& a, const Matrix& middle) { return product(product(a, middle), transposed(a)); }

void expectNear(const Matrix& found, const Matrix& expected, double tolerance) {
    ASSERT_EQ(found.rows, expected.rows);
    ASSERT_EQ(found.columns, expected.columns);
    for (std::size_t i = 0; i < found.rows; ++i) {
        for (std::size_t j = 0; j < found.columns; ++j) {
            EXPECT_NEAR(found.at(i, j), expected.at(i, j), tolerance) << i << "," << j;
        }
    }
}

void expectInverse(const EigenTransform& transform, double tolerance) {
    const std::vector<double> ones(transform.forward.rows, 1.0);
    expectNear(product(transform.inverse, transform.forward), diagonal(ones), tolerance);
    expectNear(product(transform.forward, transform.inverse), diagonal(ones), tolerance);
}

void expectFinite(const EigenTransform& transform) {
    const auto isFinite = [](double value) { return std::isfinite(value); };
    for (const auto* values : {&transform.forward.values, &transform.inverse.values, &transform.eigenvalues}) {
        EXPECT_TRUE(std::all_of(values->begin(), values->end(), isFinite));
    }
}

double largestIn(const Matrix& m, std::size_t row) {
    double largest = 0;
    for (std::size_t j = 0; j < m.columns; ++j) {
        if (std::abs(m.at(row, j)) > std::abs(largest)) largest = m.at(row, j);
    }
    return largest;
}

TEST(PrincipalComponents, TwoBandsOfEqualVarianceGiveSumAndDifference) {
    const EigenTransform found = principalComponents(Matrix(2, 2, {2, 1, 1, 2}), false);
    const double h = std::sqrt(0.5);
    EXPECT_NEAR(found.eigenvalues[0], 3, 1e-14);
    EXPECT_NEAR(found.eigenvalues[1], 1, 1e-14);
    // Coefficients of equal size: the first is the positive one.
    expectNear(found.forward, Matrix(2, 2, {h, h, h, -h}), 1e-14);
    expectNear(found.inverse, Matrix(2, 2, {h, h, h, -h}), 1e-14);
}

TEST(PrincipalComponents, SecondDifferencesHaveSinesForComponents) {
    constexpr std::size_t n = 9;
    Matrix m(n, n);
    for (std::size_t i = 0; i < n; ++i) {
        m.at(i, i) = 2;
        if (i > 0) m.at(i, i - 1) = m.at(i - 1, i) = -1;
    }
    const EigenTransform found = principalComponents(m, false);
    for (std::size_t k = 0; k < n; ++k) {
        const double angle = static_cast<double>(n - k) * kPi / static_cast<double>(n + 1);
        EXPECT_NEAR(found.eigenvalues[k], 2 - 2 * std::cos(angle), 1e-13);
        for (std::size_t i = 0; i < n; ++i) {
            const double sine = std::sqrt(2.0 / (n + 1)) * std::sin(angle * static_cast<double>(i + 1));
            EXPECT_NEAR(std::abs(found.forward.at(k, i)), std::abs(sine), 1e-12);
        }
    }
}

TEST(PrincipalComponents, AgreeWithJacobisRotations) {
    const Matrix a = Numbers(3).matrix(12, 12);
    const Matrix covariance = product(a, transposed(a));
    const EigenTransform found = principalComponents(covariance, false);
    const Jacobi expected(covariance);
    for (std::size_t k = 0; k < 12; ++k) {
        EXPECT_NEAR(found.eigenvalues[k], expected.values[k], 1e-12 * expected.values[0]);
        EXPECT_GT(largestIn(found.forward, k), 0);
        const double sign = largestIn(transposed(expected.vectors), k) < 0 ? -1 : 1;
        for (std::size_t i = 0; i < 12; ++i) {
            EXPECT_NEAR(found.forward.at(k, i), sign * expected.vectors.at(i, k), 1e-9);
        }
    }
    expectInverse(found, 1e-12);
}

TEST(PrincipalComponents, StandardisedAreThoseOfTheCorrelation) {
    Matrix a = Numbers(5).matrix(6, 6);
    for (std::size_t j = 0; j < 6; ++j) a.at(2, j) *= 1e5;
    const Matrix covariance = product(a, transposed(a));
    Matrix correlation(6, 6);
    for (std::size_t i = 0; i < 6; ++i) {
        for (std::size_t j = 0; j < 6; ++j) {
            correlation.at(i, j) = covariance.at(i, j) / std::sqrt(covariance.at(i, i) * covariance.at(j, j));
        }
    }
    const EigenTransform found = principalComponents(covariance, true);
    const Jacobi expected(correlation);
    for (std::size_t k = 0; k < 6; ++k) EXPECT_NEAR(found.eigenvalues[k], expected.values[k], 1e-12);
    EXPECT_NEAR(std::accumulate(found.eigenvalues.begin(), found.eigenvalues.end(), 0.0), 6, 1e-12);
    expectNear(congruent(found.forward, covariance), diagonal(found.eigenvalues), 1e-9);
    expectNear(product(found.forward, found.inverse), diagonal({1, 1, 1, 1, 1, 1}), 1e-9);
}

TEST(PrincipalComponents, BandsWithoutVarianceAndCopiesStayInvertible) {
    // Band 1 is constant, bands 0 and 3 are the same.
    const Matrix covariance(4, 4, {4, 0, 1, 4, 0, 0, 0, 0, 1, 0, 2, 1, 4, 0, 1, 4});
    for (const bool standardised : {false, true}) {
        const EigenTransform found = principalComponents(covariance, standardised);
        expectFinite(found);
        expectInverse(found, 1e-12);
        EXPECT_NEAR(found.eigenvalues[2], 0, 1e-14);
        EXPECT_NEAR(found.eigenvalues[3], 0, 1e-14);
        EXPECT_GE(found.eigenvalues[3], 0);
    }
}

TEST(PrincipalComponents, KeepingTheFirstGivesTheNearestValues) {
    EigenTransform found = principalComponents(Matrix(3, 3, {5, 2, 0, 2, 5, 0, 0, 0, 1}), false);
    found.keep(2);
    ASSERT_EQ(found.forward.rows, 2U);
    ASSERT_EQ(found.inverse.columns, 2U);
    EXPECT_EQ(found.eigenvalues.size(), 3U);
    // Only the third band is lost.
    expectNear(product(found.inverse, found.forward), diagonal({1, 1, 0}), 1e-14);
}

// Values of mixing A times components of variance d and unit noise have covariances A diag(d) A' and A A'.
class NoiseAdjusted : public testing::Test {
protected:
    const Matrix mixing_ = Numbers(11).matrix(7, 7);
    const std::vector<double> variances_ = {900, 120, 30, 8, 2.5, 1.5, 1};
    const Matrix covariance_ = congruent(mixing_, diagonal(variances_));
    const Matrix noise_ = product(mixing_, transposed(mixing_));
};

TEST_F(NoiseAdjusted, RecoversTheVariancesThatTheBandsWereMixedOf) {
    const EigenTransform found = noiseAdjusted(covariance_, noise_);
    for (std::size_t k = 0; k < 7; ++k) EXPECT_NEAR(found.eigenvalues[k], variances_[k], 1e-9 * variances_[k]);
    expectNear(congruent(found.forward, noise_), diagonal({1, 1, 1, 1, 1, 1, 1}), 1e-9);
    expectNear(congruent(found.forward, covariance_), diagonal(variances_), 1e-7);
    expectInverse(found, 1e-9);
    EXPECT_EQ(found.withoutNoise, 0U);
    // The components come back as the columns that they were mixed with, up to the sign.
    for (std::size_t i = 0; i < 7; ++i) {
        EXPECT_NEAR(std::abs(found.inverse.at(i, 0)), std::abs(mixing_.at(i, 0)), 1e-9);
    }
}

TEST_F(NoiseAdjusted, DoNotDependOnTheUnitsOfTheBands) {
    Matrix scale = diagonal({1, 1e4, 1, 1e-5, 1, 1, 10});
    const EigenTransform plain = noiseAdjusted(covariance_, noise_);
    const EigenTransform scaled = noiseAdjusted(congruent(scale, covariance_), congruent(scale, noise_));
    const Matrix back = product(scaled.forward, scale);
    for (std::size_t k = 0; k < 7; ++k) {
        EXPECT_NEAR(scaled.eigenvalues[k], plain.eigenvalues[k], 1e-9 * plain.eigenvalues[k]);
        for (std::size_t i = 0; i < 7; ++i) EXPECT_NEAR(back.at(k, i), plain.forward.at(k, i), 1e-8);
    }
}

TEST_F(NoiseAdjusted, WhiteNoiseLeavesThePrincipalComponents) {
    const EigenTransform found = noiseAdjusted(covariance_, diagonal(std::vector<double>(7, 4.0)));
    const EigenTransform principal = principalComponents(covariance_, false);
    for (std::size_t k = 0; k < 7; ++k) {
        EXPECT_NEAR(found.eigenvalues[k], principal.eigenvalues[k] / 4, 1e-10 * principal.eigenvalues[0]);
        for (std::size_t i = 0; i < 7; ++i) {
            EXPECT_NEAR(found.forward.at(k, i), principal.forward.at(k, i) / 2, 1e-8);
        }
    }
}

TEST_F(NoiseAdjusted, CopiedBandsComeLastAndStayInvertible) {
    // Band 7 is band 2 again, band 8 the sum of bands 0 and 1.
    Matrix more(9, 7);
    for (std::size_t i = 0; i < 7; ++i) more.at(i, i) = 1;
    more.at(7, 2) = more.at(8, 0) = more.at(8, 1) = 1;
    const EigenTransform found = noiseAdjusted(congruent(more, covariance_), congruent(more, noise_));
    EXPECT_EQ(found.withoutNoise, 2U);
    for (std::size_t k = 0; k < 7; ++k) EXPECT_NEAR(found.eigenvalues[k], variances_[k], 1e-6 * variances_[k]);
    EXPECT_LT(found.eigenvalues[7], 0.01);
    EXPECT_LT(found.eigenvalues[8], 0.01);
    expectFinite(found);
    expectNear(product(found.inverse, found.forward), diagonal(std::vector<double>(9, 1.0)), 1e-9);
}

TEST_F(NoiseAdjusted, ConstantBandsComeLast) {
    Matrix more(8, 7);
    for (std::size_t i = 0; i < 7; ++i) more.at(i < 3 ? i : i + 1, i) = 1;
    const EigenTransform found = noiseAdjusted(congruent(more, covariance_), congruent(more, noise_));
    EXPECT_EQ(found.withoutNoise, 0U);
    for (std::size_t k = 0; k < 7; ++k) EXPECT_NEAR(found.eigenvalues[k], variances_[k], 1e-9 * variances_[k]);
    EXPECT_EQ(found.eigenvalues[7], 0);
    // In its own unit, and nothing else.
    for (std::size_t b = 0; b < 8; ++b) EXPECT_NEAR(found.forward.at(7, b), b == 3 ? 1 : 0, 1e-12) << b;
    expectInverse(found, 1e-9);
}

TEST_F(NoiseAdjusted, BandsWithoutNoiseComeFirst) {
    Matrix covariance = diagonal({25, 100, 9});
    const EigenTransform found = noiseAdjusted(covariance, diagonal({1, 0, 1}));
    EXPECT_EQ(found.withoutNoise, 1U);
    EXPECT_NEAR(found.eigenvalues[0], 1 / kscli::kLeastNoise, 1);
    EXPECT_NEAR(found.eigenvalues[1], 25, 1e-12);
    EXPECT_NEAR(found.eigenvalues[2], 9, 1e-12);
    EXPECT_NEAR(found.forward.at(0, 1), 1 / (10 * std::sqrt(kscli::kLeastNoise)), 1e-6);
    expectInverse(found, 1e-12);
}

}  // namespace
}  // namespace clitest
