// The two solvers of unmixing against known and independently checked solutions, and the decomposition by itself.
#include <kslib.h>

#include <algorithm>
#include <cctype>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

#include "fixture.hpp"
#include "ksunmix/nnls.hpp"
#include "ksunmix/svd.hpp"
#include "unmixing.hpp"

using namespace kit;
using namespace kit::unmixing;

namespace {

const Report kTooFewRows = {
    false, 83, 0, "Inappropriately sized matrix in SVD\n", "", "Inappropriately sized matrix in SVD\n"};

using UnmixingSolvers = LibraryTest;

// ---- known answers ----

TEST_F(UnmixingSolvers, APixelThatIsAnEndmemberIsThatEndmemberAlone) {
    Random random(3);
    for (const Options& options : everyOption()) {
        const Spectra spectra = random.reflectances(50, 5);
        for (std::size_t e = 0; e < 5; ++e) {
            Caller caller(spectra, options);
            const Values& found = caller.solve(column(spectra, e));
            for (std::size_t k = 0; k < 5; ++k) {
                // The sum-to-one equation is many times as long as the others: less is left of seven digits for them.
                EXPECT_NEAR(found[k], k == e ? 1.0F : 0.0F, options.nonNegative ? 1e-6F : 2e-3F) << options << k;
            }
            EXPECT_NEAR(caller.misfit(), 0.0F, options.nonNegative ? 1e-3F : 1.0F) << options;
        }
    }
}

/// A problem with a known non-negative solution.
struct Known {
    const char* name;
    Spectra rows;
    Values pixel;
    Values solution;
    float residual;  // its length, below 0 where none is known
};

// The first two are the cases of the test set of NonNegLeastSquares.jl, with solutions by SciPy.
const Known kKnown[] = {
    {"four by two",
     {{0.53879488F, 0.65816267F}, {0.12873446F, 0.98669198F}, {0.24555042F, 0.00598804F}, {0.80491791F, 0.32793762F}},
     {0.888F, 0.562F, 0.255F, 0.077F},
     {0.15512102F, 0.69328985F},
     0.51222408F},
    {"five by five",
     {{-0.24F, -0.82F, 1.35F, 0.36F, 0.35F},
      {-0.53F, -0.20F, -0.76F, 0.98F, -0.54F},
      {0.22F, 1.25F, -1.60F, -1.37F, -1.94F},
      {-0.51F, -0.56F, -0.08F, 0.96F, 0.46F},
      {0.48F, -2.25F, 0.38F, 0.06F, -1.29F}},
     {-1.6F, 0.19F, 0.17F, 0.31F, -1.27F},
     {2.2010416F, 1.19009924F, 0.0F, 1.55001345F, 0.0F},
     0.98827937F},
    {"three by two", {{1, 0}, {1, 0}, {0, 1}}, {2, 1, 1}, {1.5F, 1}, std::sqrt(0.5F)},
    {"nothing helps", {{1, 2}, {1, 3}}, {-1, -1}, {0, 0}, std::sqrt(2.0F)},
    {"one by one", {{4}}, {2}, {0.5F}, 0},
    {"an empty column", {{0, 2}, {0, 2}}, {3, 3}, {0, 1.5F}, 0},
    {"a pixel of zeros", {{1, 2}, {3, 4}, {5, 6}}, {0, 0, 0}, {0, 0}, 0}};

TEST_F(UnmixingSolvers, FindsKnownNonNegativeSolutions) {
    for (const Known& known : kKnown) {
        Caller caller(known.rows, kNonNegative);
        const Values& found = caller.solve(known.pixel);
        for (std::size_t e = 0; e < known.solution.size(); ++e) {
            EXPECT_NEAR(found[e], known.solution[e], 2e-6F) << known.name << " " << e;
        }
        const float bands = static_cast<float>(known.pixel.size());
        EXPECT_NEAR(caller.misfit(), known.residual / std::sqrt(bands), 1e-6F) << known.name;
    }
}

TEST_F(UnmixingSolvers, TheSolverGivesTheResidualNormAndTheBooksModes) {
    for (const Known& known : kKnown) {
        const int equations = static_cast<int>(known.pixel.size());
        const int unknowns = static_cast<int>(known.solution.size());
        std::vector<double> a;
        for (const Values& row : known.rows) a.insert(a.end(), row.begin(), row.end());
        std::vector<double> b(known.pixel.begin(), known.pixel.end());
        std::vector<double> x(at(unknowns));
        std::vector<double> w(at(unknowns));
        std::vector<double> zz(at(equations));
        std::vector<int> index(at(unknowns));
        const ks::NnlsVectors vectors = {b.data(), x.data(), w.data(), zz.data()};
        double residual = -1.0;
        EXPECT_EQ(ks::solveNnls(a.data(), equations, unknowns, vectors, &residual, index.data()), 1);
        EXPECT_NEAR(residual, static_cast<double>(known.residual), 1e-6) << known.name;
        EXPECT_EQ(ks::solveNnls(a.data(), 0, unknowns, vectors, &residual, index.data()), 2);
        EXPECT_EQ(ks::solveNnls(a.data(), equations, 0, vectors, &residual, index.data()), 2);
    }
}

TEST_F(UnmixingSolvers, UnconstrainedFractionsOfAnOrthogonalSystem) {
    Caller caller({{2, 0}, {0, 4}, {0, 0}}, kPlain);
    const Values& found = caller.solve({1, -2, 3});
    EXPECT_NEAR(found[0], 0.5F, 1e-6F);
    EXPECT_NEAR(found[1], -0.5F, 1e-6F);
    EXPECT_NEAR(caller.misfit(), std::sqrt(3.0F), 1e-6F);
}

// ---- optimality on random problems ----

TEST_F(UnmixingSolvers, NonNegativeSolutionsAreOptimal) {
    Random random(4);
    int atBound = 0;
    for (int trial = 0; trial < 400; ++trial) {
        const int bands = 1 + trial % 23;
        const int endmembers = 1 + trial % 11;
        const Spectra spectra = random.spectra(bands, endmembers);
        const Values pixel = random.pixel(bands);
        Caller caller(spectra, kNonNegative);
        const Values& x = caller.solve(pixel);
        std::vector<double> residual;
        for (int b = 0; b < bands; ++b) {
            double sum = static_cast<double>(pixel[at(b)]);
            for (int e = 0; e < endmembers; ++e) {
                sum -= static_cast<double>(spectra[at(b)][at(e)]) * static_cast<double>(x[at(e)]);
            }
            residual.push_back(sum);
        }
        // Karush, Kuhn, Tucker: no fraction below zero, none that would grow, and those above zero at rest. The
        // tolerance is the rounding of the fractions to single precision.
        double size = 1.0;
        for (int e = 0; e < endmembers; ++e) size = std::max(size, static_cast<double>(x[at(e)]));
        const double tolerance = 1e-6 * size * bands * endmembers;
        for (int e = 0; e < endmembers; ++e) {
            double gradient = 0.0;
            for (int b = 0; b < bands; ++b) gradient += static_cast<double>(spectra[at(b)][at(e)]) * residual[at(b)];
            EXPECT_GE(x[at(e)], 0.0F);
            EXPECT_LE(gradient, tolerance) << trial << " " << e;
            EXPECT_TRUE(x[at(e)] == 0.0F || gradient >= -tolerance) << trial << " " << e << " " << gradient;
            if (x[at(e)] == 0.0F) ++atBound;
        }
        double squares = 0.0;
        for (const double value : residual) squares += value * value;
        EXPECT_NEAR(static_cast<double>(caller.misfit()), std::sqrt(squares / bands), 1e-5 * size);
    }
    EXPECT_GT(atBound, 200) << "the bound was hardly tried";
}

TEST_F(UnmixingSolvers, UnconstrainedSolutionsLeaveAResidualAtRightAngles) {
    Random random(5);
    for (int trial = 0; trial < 100; ++trial) {
        const int endmembers = 1 + trial % 9;
        const int bands = endmembers + 3 + trial % 40;
        const Spectra spectra = random.spectra(bands, endmembers);
        const Values pixel = random.pixel(bands);
        Caller caller(spectra, kPlain);
        const Values& x = caller.solve(pixel);
        for (int e = 0; e < endmembers; ++e) {
            double projection = 0.0;
            for (int b = 0; b < bands; ++b) {
                double residual = static_cast<double>(pixel[at(b)]);
                for (int k = 0; k < endmembers; ++k) {
                    residual -= static_cast<double>(spectra[at(b)][at(k)]) * static_cast<double>(x[at(k)]);
                }
                projection += residual * static_cast<double>(spectra[at(b)][at(e)]);
            }
            EXPECT_NEAR(projection, 0.0, 1e-4 * bands) << trial;
        }
    }
}

// ---- the decomposition by itself ----

/// U, w and V of a matrix, by the library.
struct Factors {
    Spectra u;
    Values w;
    Values v;
    explicit Factors(const Spectra& matrix) : u(matrix) {
        const int columns = static_cast<int>(matrix[0].size());
        w.resize(at(columns));
        v.resize(at(columns * columns));
        std::vector<float*> rows;
        for (Values& row : u) rows.push_back(row.data());
        EXPECT_TRUE(ks::decompose(rows.data(), static_cast<int>(rows.size()), columns, w.data(), v.data()));
    }
};

/// Tests U diag(w) V' = A and the angles between the columns, relative to the largest singular value.
void expectDecomposed(const Spectra& matrix, const std::string& name, bool tall) {
    const Factors factors(matrix);
    const std::size_t rows = matrix.size();
    const std::size_t columns = matrix[0].size();
    const float largest = *std::max_element(factors.w.begin(), factors.w.end());
    const double tolerance = 3e-6 * static_cast<double>(columns);
    for (std::size_t i = 0; i < rows; ++i) {
        for (std::size_t j = 0; j < columns; ++j) {
            double sum = 0.0;
            for (std::size_t k = 0; k < columns; ++k) {
                sum += static_cast<double>(factors.u[i][k]) * static_cast<double>(factors.w[k]) *
                       static_cast<double>(factors.v[j * columns + k]);
            }
            // Singular values of the smallest numbers have few digits.
            const double steps =
                static_cast<double>(columns + 4) * static_cast<double>(std::numeric_limits<float>::denorm_min());
            EXPECT_NEAR(sum, static_cast<double>(matrix[i][j]), tolerance * static_cast<double>(largest) + steps)
                << name;
        }
    }
    for (std::size_t a = 0; a < columns; ++a) {
        EXPECT_GE(factors.w[a], 0.0F) << name;
        for (std::size_t b = 0; b <= a; ++b) {
            double inU = 0.0;
            double inV = 0.0;
            for (std::size_t i = 0; i < rows; ++i) {
                inU += static_cast<double>(factors.u[i][a]) * static_cast<double>(factors.u[i][b]);
            }
            for (std::size_t i = 0; i < columns; ++i) {
                inV +=
                    static_cast<double>(factors.v[i * columns + a]) * static_cast<double>(factors.v[i * columns + b]);
            }
            EXPECT_NEAR(inV, a == b ? 1.0 : 0.0, tolerance) << name;
            EXPECT_TRUE(!tall || std::abs(inU - (a == b ? 1.0 : 0.0)) <= tolerance) << name << " " << inU;
        }
    }
}

TEST_F(UnmixingSolvers, TheDecompositionReproducesTheMatrixWithOrthogonalFactors) {
    Random random(15);
    const int sizes[][2] = {{1, 1}, {5, 1}, {2, 2}, {3, 3}, {7, 3}, {40, 12}, {200, 30}, {12, 12}};
    for (const auto& size : sizes) {
        for (const float scale : {1.0F, 1e-30F, 1e-41F, 1e30F}) {
            Spectra matrix = random.spectra(size[0], size[1]);
            for (Values& row : matrix) {
                for (float& value : row) value *= scale;
            }
            expectDecomposed(matrix, std::to_string(size[0]) + "x" + std::to_string(size[1]), true);
        }
    }
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(UnmixingSolvers, TheDecompositionBearsRankDeficiencyAndSteepGrading) {
    Random random(16);
    for (int rank = 0; rank <= 6; ++rank) {
        Spectra matrix(15, Values(6, 0.0F));
        for (int r = 0; r < rank; ++r) {
            const Values down = random.pixel(15);
            const Values across = random.pixel(6);
            for (std::size_t i = 0; i < 15; ++i) {
                for (std::size_t j = 0; j < 6; ++j) matrix[i][j] += down[i] * across[j];
            }
        }
        expectDecomposed(matrix, "rank " + std::to_string(rank), true);
        Factors factors(matrix);
        std::sort(factors.w.begin(), factors.w.end());
        for (int zero = 0; zero < 6 - rank; ++zero) EXPECT_LE(factors.w[at(zero)], 1e-5F * factors.w[5]);
        for (int used = 6 - rank; used < 6; ++used) EXPECT_GT(factors.w[at(used)], 1e-4F * factors.w[5]);
    }
    // Two diagonals with zeros on them from the start.
    expectDecomposed({{1, 1, 0, 0}, {0, 0, 1, 0}, {0, 0, 2, 1}, {0, 0, 0, 0}}, "zeros on the diagonal", true);
    expectDecomposed({{0, 1, 0}, {0, 0, 1}, {0, 0, 0}}, "shift", true);
    Spectra graded = random.spectra(20, 8);
    for (Values& row : graded) {
        for (std::size_t j = 0; j < 8; ++j) row[j] *= std::pow(10.0F, -static_cast<float>(j));
    }
    expectDecomposed(graded, "graded", true);
    EXPECT_EQ(host().reports, Reports{});
}

TEST_F(UnmixingSolvers, TheDecompositionOfAWideMatrixIsThatOfTheMatrixWithRowsOfZeros) {
    Random random(17);
    for (const int rows : {1, 2, 5}) {
        host().forget();
        expectDecomposed(random.spectra(rows, 6), "wide", false);
        EXPECT_EQ(host().reports, (Reports{kTooFewRows}));
    }
}

TEST_F(UnmixingSolvers, SingularValuesOfAKnownMatrix) {
    // [[3, 0], [4, 5]] has the singular values sqrt(45) and sqrt(5).
    Factors factors({{3, 0}, {4, 5}});
    std::sort(factors.w.begin(), factors.w.end());
    EXPECT_NEAR(factors.w[0], std::sqrt(5.0F), 1e-6F);
    EXPECT_NEAR(factors.w[1], std::sqrt(45.0F), 1e-5F);
}

// ---- the real scene ----

struct ReferenceLine {
    int x;
    int y;
    Values nonNegative;  // fractions, then the misfit
    Values unconstrained;
};

struct Reference {
    std::vector<int> bands;
    std::vector<std::pair<int, int>> endmembers;
    std::vector<ReferenceLine> lines;
};

std::vector<std::string> split(const std::string& text, char separator) {
    std::vector<std::string> parts;
    std::stringstream stream(text);
    for (std::string part; std::getline(stream, part, separator);) {
        if (!part.empty()) parts.push_back(part);
    }
    return parts;
}

Reference readReference(const std::string& path) {
    Reference reference;
    std::ifstream file(path);
    for (std::string line; std::getline(file, line);) {
        const std::string after = line.substr(line.find(':') + 1);
        if (line.rfind("# bands", 0) == 0) {
            for (const std::string& band : split(after, ' ')) reference.bands.push_back(std::stoi(band));
        } else if (line.rfind("# endmember pixels", 0) == 0) {
            for (const std::string& pair : split(after, ' ')) {
                const std::size_t colon = pair.find(':');
                if (colon == std::string::npos || colon + 1 == pair.size() || colon == 0) continue;
                reference.endmembers.emplace_back(std::stoi(pair.substr(0, colon)), std::stoi(pair.substr(colon + 1)));
            }
        } else if (!line.empty() && std::isdigit(static_cast<unsigned char>(line[0])) != 0) {
            const std::vector<std::string> cells = split(line, ',');
            ReferenceLine read = {std::stoi(cells.at(0)), std::stoi(cells.at(1)), {}, {}};
            for (std::size_t i = 2; i < 7; ++i) read.nonNegative.push_back(std::stof(cells.at(i)));
            for (std::size_t i = 7; i < 12; ++i) read.unconstrained.push_back(std::stof(cells.at(i)));
            reference.lines.push_back(read);
        }
    }
    return reference;
}

/// The scene of 100 x 100 pixels and 198 bands, 16-bit, a line of each band after the other.
class JasperRidge {
public:
    explicit JasperRidge(const std::string& path) {
        std::ifstream file(path, std::ios::binary);
        values_.resize(at(100 * 198 * 100));
        file.read(reinterpret_cast<char*>(values_.data()), static_cast<std::streamsize>(2 * values_.size()));
        if (!file) values_.clear();
    }
    bool isRead() const { return !values_.empty(); }
    Values pixel(int x, int y, const std::vector<int>& bands) const {
        Values spectrum;
        for (const int band : bands) spectrum.push_back(static_cast<float>(values_.at(at((y * 198 + band) * 100 + x))));
        return spectrum;
    }

private:
    std::vector<std::int16_t> values_;
};

TEST_F(UnmixingSolvers, AgreesWithSciPyOnARealScene) {
    const char* data = std::getenv("KSLIB_DATA");
    if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA names no folder of sample data";
    const std::string folder = data;
    const Reference reference = readReference(folder + "/unmixing-reference/jasper_ridge_fractions.csv");
    const JasperRidge scene(folder + "/cube-aviris-jasper-ridge/jasperRidge2_R198.img");
    ASSERT_EQ(reference.bands.size(), 33U);
    ASSERT_EQ(reference.endmembers.size(), 4U);
    ASSERT_EQ(reference.lines.size(), 40U);
    ASSERT_TRUE(scene.isRead());
    Spectra spectra(33, Values(4));
    for (std::size_t e = 0; e < 4; ++e) {
        const Values values =
            scene.pixel(reference.endmembers[e].first, reference.endmembers[e].second, reference.bands);
        for (std::size_t b = 0; b < 33; ++b) spectra[b][e] = values[b];
    }
    for (const bool nonNegative : {true, false}) {
        Caller caller(spectra, {false, nonNegative, false});
        bool first = true;
        for (const ReferenceLine& line : reference.lines) {
            ASSERT_EQ(caller.call(scene.pixel(line.x, line.y, reference.bands), first), 0);
            first = false;
            const Values& expected = nonNegative ? line.nonNegative : line.unconstrained;
            for (std::size_t e = 0; e < 4; ++e) {
                EXPECT_NEAR(caller.fractions()[e], expected[e], 1e-4F) << line.x << "," << line.y << " " << e;
            }
            EXPECT_NEAR(caller.misfit(), expected[4], 1e-4F * expected[4]);
        }
    }
}

}  // namespace
