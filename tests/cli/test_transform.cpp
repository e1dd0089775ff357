// The transform commands. Parameter files are written here through the library's own writer, expected values computed
// by plain loops.
#include <cmath>
#include <fstream>
#include <limits>

#include <kslib.h>

#include "clikit.hpp"
#include "image/bands.hpp"
#include "image/dataset.hpp"
#include "image/entries.hpp"
#include "image/quantized.hpp"

namespace clitest {
namespace {

using kscli::DataSet;
using Rows = std::vector<std::vector<double>>;

constexpr int kBands = 5;

double value(int x, int y, int b) { return 1000 + 37 * x + 11 * y * (b + 1) + (x * y * 7 + b * 13) % 29; }

Cube calibratedCube() {
    Cube cube;
    cube.width = 7;
    cube.height = 6;
    cube.value = value;
    cube.header =
        "wavelength units = Nanometers\nwavelength = {450, 550, 650, 750, 850.125}\nfwhm = {10, 10, 10, 10, 11.5}\n"
        "data gain values = {0.01, 0.02, 0.03, 0.04, 0.05}\ndata offset values = {1, 2, 3, 4, 5}\n"
        "default bands = {3, 2, 1}\nmap info = {UTM, 1, 1, 365055, 5807085, 30, 30, 33, North, WGS-84, units=Meters}\n";
    return cube;
}

MAT* matrixOf(const Rows& rows) {
    MAT* matrix = m_get(static_cast<int>(rows.size()), static_cast<int>(rows[0].size()));
    for (std::size_t i = 0; i < rows.size(); ++i) {
        for (std::size_t j = 0; j < rows[i].size(); ++j) matrix->me[i][j] = rows[i][j];
    }
    return matrix;
}

class Transform : public CliTest {
protected:
    void writeParameters(const std::string& name, const Rows& forward, const Rows& inverse,
                         const std::vector<double>& shift) const {
        MAT* tf = matrixOf(forward);
        MAT* ti = matrixOf(inverse);
        VEC* s = v_get(static_cast<int>(shift.size()));
        std::copy(shift.begin(), shift.end(), s->ve);
        IVEC* c = iv_get(1);
        EXPECT_EQ(KSWriteLTP(path(name).c_str(), tf, ti, s, c), 0);
        m_free(tf);
        m_free(ti);
        v_free(s);
        iv_free(c);
    }

    // A strong diagonal keeps the matrix far from singular; its inverse is computed by elimination.
    Rows wellConditioned() const {
        Rows rows(kBands, std::vector<double>(kBands));
        std::uint32_t state = 12345;
        for (int i = 0; i < kBands; ++i) {
            for (int j = 0; j < kBands; ++j) {
                state = state * 1664525U + 1013904223U;
                const double noise = static_cast<double>(state >> 16U) / 65536 - 0.5;
                rows[static_cast<std::size_t>(i)][static_cast<std::size_t>(j)] = noise + (i == j ? 3 : 0);
            }
        }
        return rows;
    }

    static Rows inverseOf(Rows a) {
        const std::size_t n = a.size();
        Rows b(n, std::vector<double>(n, 0.0));
        for (std::size_t i = 0; i < n; ++i) b[i][i] = 1;
        for (std::size_t p = 0; p < n; ++p) {
            const double pivot = a[p][p];
            for (std::size_t j = 0; j < n; ++j) a[p][j] /= pivot, b[p][j] /= pivot;
            for (std::size_t i = 0; i < n; ++i) {
                const double factor = a[i][p];
                if (i == p) continue;
                for (std::size_t j = 0; j < n; ++j) a[i][j] -= factor * a[p][j], b[i][j] -= factor * b[p][j];
            }
        }
        return b;
    }

    void succeed(const std::vector<std::string>& arguments) const {
        const Result result = ks(arguments);
        ASSERT_EQ(result.status, 0) << result.err;
    }
    void refused(const std::vector<std::string>& arguments, const std::string& reason) const {
        const std::vector<std::string> before = files();
        const Result result = ks(arguments);
        EXPECT_EQ(result.status, 1) << result.err;
        EXPECT_TRUE(contains(result.err, reason)) << result.err;
        EXPECT_EQ(files(), before);
    }

    const std::vector<double> shift_ = {1000, 1010.5, -3, 20, 1100};
};

TEST_F(Transform, ApplyIsTheMatrixTimesTheDifference) {
    writeCube(dir() / "scene.img", calibratedCube());
    const Rows forward = {{1, 2, 0, 0, 0}, {0, 0.5, -1, 0.25, 0}, {0, 0, 0, 0, 3}};
    writeParameters("p.mat", forward, Rows(5, std::vector<double>(3)), shift_);
    succeed({"transform", "apply", "scene.img", "p.mat", "out.img"});
    const auto found = floats("out.img");
    ASSERT_EQ(found.size(), 7U * 6 * 3);
    std::size_t at = 0;
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 7; ++x) {
            for (const auto& row : forward) {
                double sum = 0;
                for (int b = 0; b < kBands; ++b) {
                    const auto i = static_cast<std::size_t>(b);
                    sum += row[i] * (value(x, y, b) - shift_[i]);
                }
                EXPECT_EQ(found[at++], static_cast<float>(sum)) << x << "," << y;
            }
        }
    }
}

TEST_F(Transform, ForwardThenInverseReturnsTheImage) {
    writeCube(dir() / "scene.img", calibratedCube());
    const Rows forward = wellConditioned();
    writeParameters("p.mat", forward, inverseOf(forward), shift_);
    succeed({"transform", "apply", "scene.img", "p.mat", "components.img"});
    succeed({"transform", "invert", "components.img", "p.mat", "back.img", "--like", "scene.img"});
    const auto found = floats("back.img");
    ASSERT_EQ(found.size(), 7U * 6 * kBands);
    std::size_t at = 0;
    for (int y = 0; y < 6; ++y) {
        for (int x = 0; x < 7; ++x) {
            for (int b = 0; b < kBands; ++b) EXPECT_NEAR(found[at++], value(x, y, b), 4e-7 * 4000) << x << "," << y;
        }
    }
    const DataSet source = DataSet::open(path("scene.img"));
    const DataSet back = DataSet::open(path("back.img"));
    ASSERT_EQ(back->nNumRadTrans, 1);
    for (int b = 0; b < kBands; ++b) {
        EXPECT_EQ(back.wavelength(b), source.wavelength(b));
        EXPECT_EQ(back.fwhm(b), source.fwhm(b));
        EXPECT_EQ(back->papRadTransSeq[0]->pafGains[b], source->papRadTransSeq[0]->pafGains[b]);
    }
}

TEST_F(Transform, CalibratedValuesGoThereAndBack) {
    writeCube(dir() / "scene.img", calibratedCube());
    const Rows forward = wellConditioned();
    writeParameters("p.mat", forward, inverseOf(forward), {10, 20, 30, 40, 50});
    succeed({"transform", "apply", "scene.img", "p.mat", "c.img", "--level", "1"});
    succeed({"transform", "invert", "c.img", "p.mat", "back.img", "--like", "scene.img", "--level", "1"});
    const auto found = floats("back.img");
    for (int b = 0; b < kBands; ++b) {
        const double calibrated = 0.01 * (b + 1) * value(0, 0, b) + (b + 1);
        EXPECT_NEAR(found[static_cast<std::size_t>(b)], calibrated, 1e-5 * calibrated) << b;
    }
    EXPECT_EQ(DataSet::open(path("back.img"))->nNumRadTrans, 0);
}

TEST_F(Transform, ComponentsAreNumberedAndHaveNoWavelengths) {
    writeCube(dir() / "scene.img", calibratedCube());
    writeParameters("p.mat", {{1, 0, 0, 0, 0}, {0, 1, 0, 0, 0}}, {{1, 0}, {0, 1}}, shift_);
    succeed({"transform", "apply", "scene.img", "p.mat", "out.img"});
    const DataSet out = DataSet::open(path("out.img"));
    ASSERT_EQ(out.bandCount(), 2);
    EXPECT_FALSE(out.hasWavelengths());
    EXPECT_EQ(out->nNumRadTrans, 0);
    EXPECT_EQ(out->pBandRefs[0].nID, 1);
    EXPECT_EQ(out->pBandRefs[1].nID, 2);
    EXPECT_FALSE(contains(read("out.hdr"), "wavelength ="));
    EXPECT_FALSE(contains(read("out.hdr"), "default bands"));
    double place[6] = {};
    EXPECT_EQ(KSHostGetGeoTransform(out.file(), place), 1);
    EXPECT_EQ(place[0], 365055);
}

TEST_F(Transform, BandsAreTakenInTheOrderGiven) {
    writeCube(dir() / "scene.img", calibratedCube());
    writeParameters("p.mat", {{1, 0}, {0, 1}}, {{1, 0}, {0, 1}}, {0, 0});
    succeed({"transform", "apply", "scene.img", "p.mat", "out.img", "--bands", "b4,b2"});
    const auto found = floats("out.img");
    EXPECT_EQ(found[0], static_cast<float>(value(0, 0, 3)));
    EXPECT_EQ(found[1], static_cast<float>(value(0, 0, 1)));
    succeed({"transform", "invert", "out.img", "p.mat", "back.img", "--like", "scene.img", "--like-bands", "b4,b2"});
    const DataSet back = DataSet::open(path("back.img"));
    EXPECT_EQ(back.wavelength(0), 750);
    EXPECT_EQ(back.wavelength(1), 550);
}

TEST_F(Transform, PixelsWithoutDataBecomeNotANumber) {
    Cube cube = calibratedCube();
    cube.type = 2;
    cube.value = [](int x, int y, int b) { return x == 1 && y == 0 && b == 2 ? -9999 : value(x, y, b); };
    cube.header += "data ignore value = -9999\n";
    writeCube(dir() / "scene.img", cube);
    const Rows forward = wellConditioned();
    writeParameters("p.mat", forward, inverseOf(forward), shift_);
    const Result result = ks({"transform", "apply", "scene.img", "p.mat", "out.img"});
    ASSERT_EQ(result.status, 0);
    EXPECT_TRUE(contains(result.err, "1 of 42 pixels")) << result.err;
    const auto found = floats("out.img");
    for (std::size_t i = 0; i < found.size(); ++i) EXPECT_EQ(std::isnan(found[i]), i / kBands == 1) << i;
    double noData = 0;
    const DataSet out = DataSet::open(path("out.img"));
    EXPECT_EQ(KSHostGetNoData(out.file(), 1, &noData), 1);
    EXPECT_TRUE(std::isnan(noData));
}

TEST_F(Transform, SmallBlocksGiveTheSameBytes) {
    Cube cube = calibratedCube();
    cube.width = 200;
    cube.height = 150;
    writeCube(dir() / "scene.img", cube);
    const Rows forward = wellConditioned();
    writeParameters("p.mat", forward, inverseOf(forward), shift_);
    succeed({"transform", "apply", "scene.img", "p.mat", "whole.img"});
    ASSERT_EQ(setenv("KSHOST_MEMORY", "20000", 1), 0);
    const Result result = ks({"transform", "apply", "scene.img", "p.mat", "parts.img"});
    unsetenv("KSHOST_MEMORY");
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_TRUE(read("parts.img") == read("whole.img"));
}

TEST_F(Transform, CodebooksAreTransformedAndTheIndexMapStays) {
    Cube cube = calibratedCube();
    cube.width = 20;
    cube.height = 15;
    writeCube(dir() / "scene.img", cube);
    const Rows forward = wellConditioned();
    writeParameters("p.mat", forward, inverseOf(forward), shift_);
    succeed({"vq", "encode", "scene.img", "vq.tif", "--train", "12"});
    succeed({"transform", "apply", "vq.tif", "p.mat", "cvq.tif", "--codebook"});
    succeed({"transform", "invert", "cvq.tif", "p.mat", "bvq.tif", "--codebook", "--like", "scene.img"});
    // Decoding and transforming may change places.
    succeed({"vq", "decode", "cvq.tif", "a.img"});
    succeed({"transform", "apply", "vq.tif", "p.mat", "b.img"});
    EXPECT_TRUE(read("a.img") == read("b.img"));
    ASSERT_EQ(read("a.img").size(), 20U * 15 * kBands * 4);
    succeed({"vq", "decode", "bvq.tif", "back.img"});
    succeed({"convert", "vq.tif", "decoded.img", "--type", "float32"});
    const auto back = floats("back.img");
    const auto decoded = floats("decoded.img");
    ASSERT_EQ(back.size(), decoded.size());
    for (std::size_t i = 0; i < back.size(); ++i) EXPECT_NEAR(back[i], decoded[i], 4e-7F * 4000) << i;
    EXPECT_EQ(DataSet::open(path("bvq.tif")).wavelength(4), 850.125);
    refused({"transform", "apply", "scene.img", "p.mat", "x.tif", "--codebook"}, "not a vector-quantized cube");
    refused({"transform", "apply", "vq.tif", "p.mat", "x.tif", "--codebook", "--bands", "b1"}, "leave --bands away");
}

TEST_F(Transform, WhatDoesNotFitIsRefusedWithBothNumbers) {
    writeCube(dir() / "scene.img", calibratedCube());
    writeParameters("four.mat", Rows(2, std::vector<double>(4, 1)), Rows(4, std::vector<double>(2, 1)), {1, 2, 3, 4});
    refused({"transform", "apply", "scene.img", "four.mat", "x.img"}, "TF of four.mat has 4 columns, but 5 bands");
    refused({"transform", "invert", "scene.img", "four.mat", "x.img"}, "TI of four.mat has 2 columns, but 5 bands");
    refused({"transform", "invert", "scene.img", "four.mat", "x.img", "--like", "scene.img"},
            "TI of four.mat has 4 rows, but 5 bands");
    writeParameters("shift.mat", wellConditioned(), wellConditioned(), {1, 2});
    refused({"transform", "apply", "scene.img", "shift.mat", "x.img"}, "S has 2 elements, TF has 5 columns");
    refused({"transform", "invert", "scene.img", "shift.mat", "x.img"}, "S has 2 elements, TI has 5 rows");
}

TEST_F(Transform, BadParameterFilesAreRefused) {
    writeCube(dir() / "scene.img", calibratedCube());
    Rows rows = wellConditioned();
    writeParameters("good.mat", rows, inverseOf(rows), shift_);
    rows[2][3] = std::numeric_limits<double>::quiet_NaN();
    writeParameters("nan.mat", rows, rows, shift_);
    refused({"transform", "apply", "scene.img", "nan.mat", "x.img"}, "nan.mat");
    refused({"transform", "apply", "scene.img", "none.mat", "x.img"}, "no such parameter file");
    const std::string good = read("good.mat");
    write("short.mat", good.substr(0, good.size() - 9));
    refused({"transform", "apply", "scene.img", "short.mat", "x.img"}, "not a transform parameter file");
    write("noise.mat", "TF, TI, C, S");
    refused({"transform", "apply", "scene.img", "noise.mat", "x.img"}, "not a transform parameter file");
    refused({"transform", "apply", "scene.img", "good.mat", "scene.img", "--force"}, "onto itself");
    refused({"transform", "apply", "scene.img", "good.mat", "x.img", "--level", "2"}, "level 2 does not exist");
    refused({"transform", "invert", "scene.img", "good.mat", "x.img", "--level", "1"}, "--like");
    refused({"transform"}, "subcommand");
}

TEST_F(Transform, HelpShowsAnExample) {
    for (const char* command : {"apply", "invert"}) {
        const Result result = ks({"transform", command, "--help"});
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(contains(result.out, std::string("ks transform ") + command + " ")) << result.out;
    }
}

}  // namespace
}  // namespace clitest
