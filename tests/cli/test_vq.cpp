// The vector-quantization commands. What the tests expect is computed here by plain loops over samples that were read
// from ENVI files byte by byte.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <set>
#include <sstream>

#include <nlohmann/json.hpp>

#include "clikit.hpp"
#include "image/dataset.hpp"
#include "image/quantized.hpp"

namespace clitest {
namespace {

using kscli::DataSet;
using nlohmann::json;

using Pixel = std::vector<double>;

// A little scene: a few materials in patches, with a texture that makes neighbours differ.
double sceneValue(int x, int y, int b) {
    const int material = (x / 5 + 2 * (y / 4)) % 4;
    const int texture = (x * 7 + y * 13 + b * 5 + x * y) % 11;
    return 400 + 900 * material + 40 * b * (material + 1) + 6 * texture;
}

Cube sceneCube() {
    Cube cube;
    cube.width = 23;
    cube.height = 17;
    cube.bands = 9;
    cube.value = sceneValue;
    cube.header =
        "wavelength units = Nanometers\n"
        "wavelength = {450.123456, 500.5, 550, 600, 650, 700, 750, 800, 900.987654}\n"
        "fwhm = {9.852108, 9.8, 9.7, 9.6, 9.5, 9.4, 9.3, 9.2, 9.1}\nbbl = {1, 1, 0, 1, 1, 1, 1, 1, 1}\n"
        "data gain values = {1.23456789e-7, 0.0001, 0.0002, 0.0003, 0.0004, 0.0005, 0.0006, 0.0007, 0.0008}\n"
        "data offset values = {0.125, 0, 0, 0, 0, 0, 0, 0, 3}\n"
        "map info = {UTM, 1, 1, 365055, 5807085, 30, 30, 33, North, WGS-84, units=Meters}\n";
    return cube;
}

std::string headerValue(const std::string& header, const std::string& key) {
    std::istringstream lines(header);
    for (std::string line; std::getline(lines, line);) {
        if (line.compare(0, key.size() + 3, key + " = ") == 0) return line.substr(key.size() + 3);
    }
    return "";
}

class Vq : public CliTest {
protected:
    // All pixels of an ENVI file, in image order.
    std::vector<Pixel> pixels(const std::string& name) const {
        const std::string header = read(fs::path(name).replace_extension(".hdr").string());
        const auto number = [&](const char* key) { return std::stoul(headerValue(header, key)); };
        EXPECT_EQ(headerValue(header, "interleave"), "bip");
        const std::size_t count = number("samples") * number("lines");
        const std::size_t bands = number("bands");
        const std::string bytes = read(name);
        std::vector<Pixel> result(count, Pixel(bands));
        std::size_t at = 0;
        for (Pixel& pixel : result) {
            for (double& value : pixel) value = sample(bytes, number("data type"), at++);
        }
        return result;
    }

    static double sample(const std::string& bytes, unsigned long type, std::size_t i) {
        const auto as = [&](auto value) {
            if (bytes.size() < (i + 1) * sizeof(value)) throw std::runtime_error("the image is too short");
            std::memcpy(&value, bytes.data() + i * sizeof(value), sizeof(value));
            return static_cast<double>(value);
        };
        switch (type) {
            case 1:
                return as(std::uint8_t{});
            case 2:
                return as(std::int16_t{});
            case 12:
                return as(std::uint16_t{});
            default:
                return as(float{});
        }
    }

    // The codebook, vector after vector, as the library reads it.
    std::vector<Pixel> codebook(const std::string& name) const {
        const DataSet cube = DataSet::open(path(name));
        const kscli::Codebook stored = kscli::Codebook::of(cube, 0);
        std::vector<Pixel> vectors;
        for (int v = 0; v < stored.vectorCount(); ++v) {
            vectors.emplace_back(stored.vector(v), stored.vector(v) + stored.bandCount());
        }
        return vectors;
    }

    std::vector<int> indexes(const std::string& name) const {
        const DataSet cube = DataSet::open(path(name));
        kscli::IndexMap map(cube->nXSize, cube->nYSize);
        map.place(0, 0);
        map.read(cube);
        std::vector<int> result;
        for (int y = 0; y < cube->nYSize; ++y) {
            for (int x = 0; x < cube->nXSize; ++x) result.push_back(map.index(x, y));
        }
        return result;
    }

    void succeed(const std::vector<std::string>& arguments) const {
        const Result result = ks(arguments);
        ASSERT_EQ(result.status, 0) << result.err;
    }
    Result refused(const std::vector<std::string>& arguments, const std::string& reason, int status = 1) const {
        const std::vector<std::string> before = files();
        Result result = ks(arguments);
        EXPECT_EQ(result.status, status) << result.err;
        EXPECT_TRUE(contains(result.err, reason)) << result.err;
        EXPECT_EQ(files(), before);
        return result;
    }
};

double cityBlock(const Pixel& a, const Pixel& b) {
    double sum = 0;
    for (std::size_t i = 0; i < a.size(); ++i) sum += std::fabs(a[i] - b[i]);
    return sum;
}

int nearest(const Pixel& pixel, const std::vector<Pixel>& vectors) {
    int best = 0;
    double least = std::numeric_limits<double>::infinity();
    for (std::size_t v = 0; v < vectors.size(); ++v) {
        const double distance = cityBlock(pixel, vectors[v]);
        if (distance < least) {
            least = distance;
            best = static_cast<int>(v);
        }
    }
    return best;
}

TEST_F(Vq, EncodingTakesTheNearestVectorOfEveryPixel) {
    writeCube(dir() / "scene.img", sceneCube());
    succeed({"vq", "train", "scene.img", "vq.tif", "--vectors", "7", "--seed", "5"});
    const Result encoded = ks({"vq", "encode", "scene.img", "vq.tif", "--json"});
    ASSERT_EQ(encoded.status, 0) << encoded.err;
    const auto vectors = codebook("vq.tif");
    ASSERT_EQ(vectors.size(), 7U);
    const auto found = indexes("vq.tif");
    const auto image = pixels("scene.img");
    ASSERT_EQ(found.size(), image.size());
    std::set<int> used;
    for (std::size_t i = 0; i < image.size(); ++i) {
        EXPECT_EQ(found[i], nearest(image[i], vectors)) << "pixel " << i;
        used.insert(found[i]);
    }
    EXPECT_GT(used.size(), 4U);
}

TEST_F(Vq, DecodingGivesTheVectorsAndTheErrorsThatWereReported) {
    const Cube cube = sceneCube();
    writeCube(dir() / "scene.img", cube);
    succeed({"vq", "train", "scene.img", "vq.tif", "--vectors", "6"});
    const Result encoded = ks({"vq", "encode", "scene.img", "vq.tif", "--json"});
    ASSERT_EQ(encoded.status, 0) << encoded.err;
    succeed({"vq", "decode", "vq.tif", "decoded.img"});

    const auto before = pixels("scene.img");
    const auto after = pixels("decoded.img");
    ASSERT_EQ(before.size(), after.size());
    const json report = json::parse(encoded.out);
    ASSERT_EQ(report["bands"].size(), 9U);
    const double gains[] = {1.23456789e-7, 0.0001, 0.0002, 0.0003, 0.0004, 0.0005, 0.0006, 0.0007, 0.0008};
    for (std::size_t b = 0; b < 9; ++b) {
        double squares = 0;
        double largest = 0;
        for (std::size_t i = 0; i < before.size(); ++i) {
            const double error = before[i][b] - after[i][b];
            squares += error * error;
            largest = std::max(largest, std::fabs(error));
        }
        const double rmse = std::sqrt(squares / static_cast<double>(before.size()));
        const json& band = report["bands"][b];
        EXPECT_GT(rmse, 0);
        EXPECT_NEAR(band["rmse_stored"], rmse, 1e-12 * rmse) << b;
        EXPECT_EQ(band["largest_stored"], largest) << b;
        EXPECT_NEAR(band["rmse_calibrated"], gains[b] * rmse, 1e-6 * gains[b] * rmse) << b;
        EXPECT_NEAR(band["largest_calibrated"], gains[b] * largest, 1e-6 * gains[b] * largest) << b;
    }
    // 23 x 17 pixels of 9 bands of 2 bytes, against 3 bits a pixel and 6 vectors of 9 values of 2 bytes.
    EXPECT_EQ(report["bits_per_index"], 3);
    EXPECT_DOUBLE_EQ(report["raw_bytes"], 23 * 17 * 9 * 2);
    EXPECT_DOUBLE_EQ(report["compression_ratio"], 23.0 * 17 * 9 * 2 / (23.0 * 17 * 3 / 8 + 6 * 9 * 2));
}

TEST_F(Vq, EnoughVectorsLoseNothing) {
    Cube cube = sceneCube();
    cube.value = [](int x, int y, int b) { return 10.0 * ((x + 3 * y) % 13) + 100.0 * b * ((x + 3 * y) % 13); };
    writeCube(dir() / "few.img", cube);
    const Result trained = ks({"vq", "train", "few.img", "vq.tif", "--vectors", "256", "--json"});
    ASSERT_EQ(trained.status, 0) << trained.err;
    EXPECT_EQ(json::parse(trained.out)["code_vectors"], 13);
    const json info = json::parse(ks({"info", "vq.tif", "--json"}).out);
    EXPECT_EQ(info["quantized"], (json{{"code_vectors", 13}, {"bits_per_index", 4}}));
    EXPECT_TRUE(json::parse(ks({"info", "few.img", "--json"}).out)["quantized"].is_null());
    EXPECT_TRUE(contains(trained.err, "only 13 different pixels")) << trained.err;
    succeed({"vq", "encode", "few.img", "vq.tif"});
    succeed({"vq", "decode", "vq.tif", "decoded.img"});
    EXPECT_TRUE(read("decoded.img") == read("few.img"));
}

TEST_F(Vq, TheMetadataOfADecodedImageIsThatOfTheSource) {
    writeCube(dir() / "scene.img", sceneCube());
    succeed({"vq", "encode", "scene.img", "vq.tif", "--train", "8"});
    succeed({"vq", "decode", "vq.tif", "decoded.img"});
    const DataSet source = DataSet::open(path("scene.img"));
    for (const char* name : {"vq.tif", "decoded.img"}) {
        SCOPED_TRACE(name);
        const DataSet copy = DataSet::open(path(name));
        ASSERT_EQ(copy.bandCount(), source.bandCount());
        ASSERT_EQ(copy->nNumRadTrans, source->nNumRadTrans);
        for (int band = 0; band < source.bandCount(); ++band) {
            EXPECT_EQ(copy.wavelength(band), source.wavelength(band)) << band;
            EXPECT_EQ(copy.fwhm(band), source.fwhm(band)) << band;
            EXPECT_STREQ(copy.qualityName(band), source.qualityName(band)) << band;
            EXPECT_EQ(copy->papRadTransSeq[0]->pafGains[band], source->papRadTransSeq[0]->pafGains[band]) << band;
            EXPECT_EQ(copy->papRadTransSeq[0]->pafOffsets[band], source->papRadTransSeq[0]->pafOffsets[band]) << band;
        }
        double a[6] = {};
        double b[6] = {};
        ASSERT_EQ(KSHostGetGeoTransform(source.file(), a), 1);
        ASSERT_EQ(KSHostGetGeoTransform(copy.file(), b), 1);
        for (int i = 0; i < 6; ++i) EXPECT_EQ(a[i], b[i]) << i;
    }
    EXPECT_FLOAT_EQ(source->papRadTransSeq[0]->pafGains[0], 1.23456789e-7F);
}

TEST_F(Vq, TrainingFollowsFromTheSeed) {
    writeCube(dir() / "scene.img", sceneCube());
    succeed({"vq", "train", "scene.img", "a.tif", "--vectors", "9", "--sample", "100", "--seed", "3"});
    succeed({"vq", "train", "scene.img", "b.tif", "--vectors", "9", "--sample", "100", "--seed", "3"});
    succeed({"vq", "train", "scene.img", "c.tif", "--vectors", "9", "--sample", "100", "--seed", "4"});
    EXPECT_EQ(codebook("a.tif"), codebook("b.tif"));
    EXPECT_NE(codebook("a.tif"), codebook("c.tif"));
}

// Training must be better than not training: the mean distance to the vectors falls against no rounds at all.
TEST_F(Vq, RoundsOfMediansBringTheVectorsNearer) {
    writeCube(dir() / "scene.img", sceneCube());
    const auto meanDistance = [&](const char* rounds, const char* name) {
        EXPECT_EQ(ks({"vq", "train", "scene.img", name, "--vectors", "6", "--iterations", rounds}).status, 0);
        const auto vectors = codebook(name);
        const auto image = pixels("scene.img");
        double sum = 0;
        for (const Pixel& pixel : image) {
            sum += cityBlock(pixel, vectors[static_cast<std::size_t>(nearest(pixel, vectors))]);
        }
        return sum / static_cast<double>(image.size());
    };
    const double start = meanDistance("0", "none.tif");
    const double end = meanDistance("20", "twenty.tif");
    EXPECT_LT(end, 0.95 * start);
}

// One vector: its best place is the median of every band.
TEST_F(Vq, ASingleVectorIsTheMedianOfTheBands) {
    Cube cube;
    cube.width = 5;
    cube.height = 1;
    cube.bands = 2;
    const double values[2][5] = {{7, 1, 900, 3, 5}, {60, 10, 20, 50, 40}};
    cube.value = [&](int x, int, int b) { return values[b][x]; };
    writeCube(dir() / "five.img", cube);
    succeed({"vq", "train", "five.img", "vq.tif", "--vectors", "1"});
    EXPECT_EQ(codebook("vq.tif"), (std::vector<Pixel>{{5, 40}}));
}

TEST_F(Vq, ValuesAreRoundedToTheStoredTypeAndNotCutOff) {
    Cube cube;
    cube.width = 3;
    cube.height = 1;
    cube.bands = 2;
    cube.type = 4;
    const double values[3][2] = {{1.75, -2.75}, {100.5, 40000}, {300.25, -40000}};
    cube.value = [&](int x, int, int b) { return values[x][b]; };
    writeCube(dir() / "floats.img", cube);
    const Result trained = ks({"vq", "train", "floats.img", "vq.tif", "--vectors", "3", "--type", "int16"});
    ASSERT_EQ(trained.status, 0) << trained.err;
    EXPECT_TRUE(contains(trained.err, "rounded or clamped")) << trained.err;
    const auto vectors = codebook("vq.tif");
    EXPECT_EQ(std::set<Pixel>(vectors.begin(), vectors.end()), (std::set<Pixel>{{2, -3}, {100, 32767}, {300, -32768}}));
}

TEST_F(Vq, PixelsWithoutDataStayOutOfTrainingAndComeBackWithoutData) {
    Cube cube = sceneCube();
    cube.type = 2;
    cube.value = [](int x, int y, int b) { return x < 4 ? -9999 : sceneValue(x, y, b) / 2; };
    cube.header += "data ignore value = -9999\n";
    writeCube(dir() / "gaps.img", cube);
    const Result trained = ks({"vq", "train", "gaps.img", "vq.tif", "--vectors", "6", "--json"});
    ASSERT_EQ(trained.status, 0) << trained.err;
    EXPECT_EQ(json::parse(trained.out)["pixels_without_data"], 4 * 17);
    const auto vectors = codebook("vq.tif");
    ASSERT_EQ(vectors.size(), 6U);
    EXPECT_EQ(vectors[0], Pixel(9, -9999));
    for (std::size_t v = 1; v < vectors.size(); ++v) {
        for (double value : vectors[v]) EXPECT_GT(value, 0);
    }
    const Result encoded = ks({"vq", "encode", "gaps.img", "vq.tif", "--json"});
    ASSERT_EQ(encoded.status, 0) << encoded.err;
    EXPECT_EQ(json::parse(encoded.out)["pixels_without_data"], 4 * 17);
    EXPECT_LT(json::parse(encoded.out)["bands"][0]["largest_stored"], 5000);
    succeed({"vq", "decode", "vq.tif", "decoded.img"});
    const auto decoded = pixels("decoded.img");
    for (std::size_t i = 0; i < decoded.size(); ++i) EXPECT_EQ(decoded[i][0] == -9999, i % 23 < 4) << i;
}

TEST_F(Vq, NotANumberIsNoData) {
    Cube cube = sceneCube();
    cube.type = 4;
    cube.value = [](int x, int y, int b) { return x == 2 && y == 3 && b == 1 ? NAN : sceneValue(x, y, b); };
    writeCube(dir() / "nan.img", cube);
    succeed({"vq", "encode", "nan.img", "vq.tif", "--train", "5"});
    succeed({"vq", "decode", "vq.tif", "decoded.img"});
    const auto decoded = pixels("decoded.img");
    for (std::size_t i = 0; i < decoded.size(); ++i) EXPECT_EQ(std::isnan(decoded[i][5]), i == 3 * 23 + 2) << i;
}

TEST_F(Vq, BlocksOfAnySizeGiveTheSameResult) {
    Cube cube = sceneCube();
    cube.width = 300;
    cube.height = 260;
    writeCube(dir() / "scene.img", cube);
    succeed({"vq", "encode", "scene.img", "whole.tif", "--train", "20", "--sample", "500"});
    ASSERT_EQ(setenv("KSHOST_MEMORY", "60000", 1), 0);
    const Result train = ks({"vq", "train", "scene.img", "parts.tif", "--vectors", "20", "--sample", "200"});
    const Result encode = ks({"vq", "encode", "scene.img", "whole2.tif", "--train", "20", "--sample", "200"});
    const Result decode = ks({"vq", "decode", "whole.tif", "parts.img"});
    unsetenv("KSHOST_MEMORY");
    ASSERT_EQ(train.status, 0) << train.err;
    ASSERT_EQ(encode.status, 0) << encode.err;
    ASSERT_EQ(decode.status, 0) << decode.err;
    succeed({"vq", "decode", "whole.tif", "whole.img"});
    EXPECT_TRUE(read("parts.img") == read("whole.img"));
    succeed({"vq", "train", "scene.img", "big.tif", "--vectors", "20", "--sample", "200"});
    EXPECT_EQ(codebook("parts.tif"), codebook("big.tif"));
    succeed({"vq", "encode", "scene.img", "big.tif"});
    EXPECT_EQ(indexes("whole2.tif"), indexes("big.tif"));
}

TEST_F(Vq, ReportsAreWrittenAsTheirNamesSay) {
    writeCube(dir() / "scene.img", sceneCube());
    const Result result = ks({"vq", "encode", "scene.img", "vq.tif", "--train", "4", "--report", "e.csv", "--report",
                              "e.json", "--report", "e.svg", "--report", "e.png"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(count(result.out, "\n"), 11);  // a heading, nine bands, a summary
    EXPECT_EQ(count(read("e.csv"), "\n"), 10);
    EXPECT_EQ(json::parse(read("e.json"))["code_vectors"], 4);
    EXPECT_TRUE(contains(read("e.svg"), "<svg"));
    EXPECT_GT(readPicture(dir() / "e.png").width, 100);
    refused({"vq", "encode", "scene.img", "vq.tif", "--report", "e.csv"}, "e.csv exists");
    refused({"vq", "encode", "scene.img", "vq.tif", "--report", "e.txt"}, "ends in .csv or .json");
}

TEST_F(Vq, OneColumnAndTwoPixelsAreEnough) {
    Cube cube;
    cube.width = 1;
    cube.height = 2;
    writeCube(dir() / "tiny.img", cube);
    succeed({"vq", "encode", "tiny.img", "vq.tif", "--train", "256"});
    succeed({"vq", "decode", "vq.tif", "decoded.img"});
    EXPECT_TRUE(read("decoded.img") == read("tiny.img"));
}

TEST_F(Vq, WhatDoesNotFitIsRefusedWithBothNumbers) {
    writeCube(dir() / "scene.img", sceneCube());
    Cube other = sceneCube();
    other.width = 22;
    writeCube(dir() / "narrow.img", other);
    Cube fewer;
    fewer.width = 23;
    fewer.height = 17;
    writeCube(dir() / "fewer.img", fewer);
    succeed({"vq", "train", "scene.img", "vq.tif", "--vectors", "4"});
    refused({"vq", "encode", "narrow.img", "vq.tif"}, "narrow.img has 22 x 17 pixels, vq.tif has 23 x 17");
    refused({"vq", "encode", "fewer.img", "vq.tif"}, "fewer.img has 5 bands, the code vectors of vq.tif have 9");
}

TEST_F(Vq, MistakesAreRefusedAndLeaveNothing) {
    writeCube(dir() / "scene.img", sceneCube());
    succeed({"vq", "train", "scene.img", "vq.tif", "--vectors", "4"});
    refused({"vq", "train", "none.img", "x.tif"}, "no such file");
    refused({"vq", "train", "scene.img", "x.img"}, "ends in .tif");
    refused({"vq", "train", "scene.img", "vq.tif"}, "vq.tif exists");
    refused({"vq", "train", "scene.img", "vq.tif", "--vectors", "0"}, "--vectors");
    refused({"vq", "train", "scene.img", "x.tif", "--vectors", "65536"}, "--vectors");
    refused({"vq", "train", "scene.img", "x.tif", "--type", "int32"}, "--type");
    refused({"vq", "encode", "scene.img", "scene.img"}, "into itself");
    refused({"vq", "encode", "scene.img", "none.tif"}, "no such file");
    refused({"vq", "encode", "vq.tif", "scene.img"}, "not a vector-quantized cube");
    refused({"vq", "encode", "scene.img", "x.tif", "--seed", "2"}, "--train");
    refused({"vq", "decode", "scene.img", "x.img"}, "not a vector-quantized cube");
    refused({"vq", "decode", "vq.tif", "vq.tif", "--force"}, "onto itself");
    refused({"vq"}, "subcommand");
}

TEST_F(Vq, AnImageWithoutDataTeachesNothing) {
    Cube cube;
    cube.value = [](int, int, int) { return 7; };
    cube.header = "data ignore value = 7\n";
    writeCube(dir() / "empty.img", cube);
    refused({"vq", "train", "empty.img", "vq.tif"}, "no pixel with data");
}

TEST_F(Vq, AShortImageIsIncompleteAndNotKept) {
    writeCube(dir() / "scene.img", sceneCube());
    succeed({"vq", "train", "scene.img", "vq.tif", "--vectors", "4"});
    succeed({"vq", "encode", "scene.img", "vq.tif"});
    const auto before = indexes("vq.tif");
    const auto setLines = [&](const std::string& name) {
        const std::string bytes = read("scene.img");
        write(name, bytes.substr(0, bytes.size() / 2));
        fs::copy_file(dir() / "scene.hdr", dir() / fs::path(name).replace_extension(".hdr"));
    };
    setLines("short.img");
    const Result encoded = ks({"vq", "encode", "short.img", "vq.tif"});
    EXPECT_NE(encoded.status, 0);
    EXPECT_EQ(indexes("vq.tif"), before);
    refused({"vq", "train", "short.img", "x.tif"}, "short.img", ks({"info", "short.img"}).status == 0 ? 2 : 1);
}

TEST_F(Vq, HelpShowsAnExample) {
    for (const char* command : {"train", "encode", "decode"}) {
        const Result result = ks({"vq", command, "--help"});
        EXPECT_EQ(result.status, 0);
        EXPECT_TRUE(contains(result.out, std::string("ks vq ") + command + " ")) << result.out;
    }
}

}  // namespace
}  // namespace clitest
