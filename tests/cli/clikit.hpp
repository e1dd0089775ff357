// Runs the ks program in a folder of the test's own, and makes and reads small images independently of it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

namespace clitest {

namespace fs = std::filesystem;

struct Result {
    int status = -1;  // exit status; 128 + signal when killed
    std::string out;
    std::string err;
};

/// What to do in the child before the program starts.
struct RunOptions {
    bool heedPermissions = false;  // root too may only do what permissions allow
    std::string standardOutput;    // a file instead of Result::out
    int interruptAfterMilliseconds = 0;
    long largestFileBytes = 0;  // 0: as large as may be
};

class CliTest : public testing::Test {
protected:
    void SetUp() override;
    void TearDown() override;

    fs::path dir() const { return dir_; }
    std::string path(const std::string& name) const { return (dir_ / name).string(); }
    /// Runs ks with the folder as working directory.
    Result ks(const std::vector<std::string>& arguments, const RunOptions& options = {}) const;
    /// The names in the folder, sorted.
    std::vector<std::string> files() const;
    void write(const std::string& name, const std::string& bytes) const;
    std::string read(const std::string& name) const;
    /// The float32 samples of a raw file.
    std::vector<float> floats(const std::string& name) const;

private:
    fs::path dir_;
};

/// A small ENVI cube. Sample (x, y, band) is value(x, y, band).
struct Cube {
    int width = 4;
    int height = 3;
    int bands = 5;
    int type = 12;       // ENVI data type: 1 uint8, 2 int16, 4 float32, 12 uint16
    std::string header;  // further header lines
    std::function<double(int, int, int)> value = [](int x, int y, int b) { return 100.0 * b + 10.0 * y + x; };
};
/// Writes name (band-interleaved by pixel) and its header beside it.
void writeCube(const fs::path& name, const Cube& cube);
/// "{1, 2, 3}".
std::string braces(const std::vector<double>& values);

struct Picture {
    int width = 0;
    int height = 0;
    std::vector<std::uint8_t> rgb;
    std::vector<int> at(int x, int y) const;
};
Picture readPicture(const fs::path& name);

/// The cells of CSV without quotes, row by row.
std::vector<std::vector<std::string>> cellsOf(const std::string& csv);

bool contains(const std::string& text, const std::string& part);
int count(const std::string& text, const std::string& part);

}  // namespace clitest
