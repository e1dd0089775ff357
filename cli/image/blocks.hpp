// Walking an image in blocks of whole lines that fit the host's memory allowance, with progress, and reading samples
// with those that hold no data marked.
#pragma once

#include <algorithm>
#include <array>
#include <climits>
#include <cstddef>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "app/report.hpp"
#include "image/dataset.hpp"

namespace kscli {

/// A rectangle of an image, every n-th pixel and line of it: columns x rows samples.
struct Area {
    int x = 0;
    int y = 0;
    int xInt = 1;
    int yInt = 1;
    int columns = 0;
    int rows = 0;

    int lineOf(int row) const { return y + row * yInt; }
    int columnOf(int column) const { return x + column * xInt; }
};
/// Every `every`-th sample of a rectangle that lies inside the image; at least one sample is left in each direction.
Area makeArea(int x, int y, int width, int height, int every);
Area wholeImage(const DataSet& dataSet, int every = 1);

/// The rectangle that a user asked for as X,Y,WIDTH,HEIGHT, or the whole image for nothing. Throws a Failure when it
/// does not lie inside the image.
std::array<int, 4> chooseWindow(const DataSet& dataSet, const std::vector<int>& asked);

/// A progress bar for as long as it lives; also the place where Ctrl-C takes effect.
class Progress {
public:
    Progress() { IMPCounter(0, -1.0); }
    ~Progress() { IMPCounter(0, 2.0); }
    Progress(const Progress&) = delete;
    Progress& operator=(const Progress&) = delete;
    void advance(int done, int of) {
        IMPCounter(0, static_cast<double>(done) / of);
        throwIfInterrupted();
    }
};

/// How many rows of so many bytes a block may have under the memory allowance: 1 or more.
int rowsPerBlock(double bytesPerRow, int rows);

/// Calls body(firstRow, rowCount) for all blocks of `rows` rows, in order, showing progress.
template <class Body>
void forEachBlock(int rows, int rowsAtOnce, Body body) {
    Progress progress;
    for (int first = 0; first < rows; first += rowsAtOnce) {
        body(first, std::min(rowsAtOnce, rows - first));
        progress.advance(std::min(first + rowsAtOnce, rows), rows);
    }
}

/// Each band's no-data value, where it has one.
std::vector<std::optional<double>> noDataValues(const DataSet& dataSet, const std::vector<int>& bands);

/// Reads bands at a level. Samples that equal the no-data value are never calibrated: they come back as NaN or as the
/// stored value.
class SampleReader {
public:
    enum class NoData { asNaN, asStored };
    SampleReader(const DataSet& dataSet, std::vector<int> bands, int level, NoData noData);

    const std::vector<int>& bands() const { return bands_; }
    /// Reads the window where it was placed.
    void read(Window& window) const;

private:
    void calibrate(Window& window) const;

    const DataSet& dataSet_;
    std::vector<int> bands_;
    int level_;
    NoData noData_;
    bool anyNoData_ = false;
    std::vector<std::optional<double>> noDataValues_;
    Calibration calibration_;
};

/// Reads all of an area's samples block by block; body(firstRow, window). A block has at most mostRows rows.
template <class Body>
void readBlocks(const SampleReader& reader, const Area& area, double shareOfMemory, Body body, int mostRows = INT_MAX) {
    const double bytes = sizeof(float) * static_cast<double>(area.columns) * static_cast<double>(reader.bands().size());
    const int rowsAtOnce = std::min(mostRows, rowsPerBlock(bytes / shareOfMemory, area.rows));
    Window window(area.columns * area.xInt, rowsAtOnce * area.yInt, area.xInt, area.yInt, reader.bands());
    forEachBlock(area.rows, rowsAtOnce, [&](int first, int count) {
        window.resizeRows(count);
        window.place(area.x, area.lineOf(first));
        reader.read(window);
        body(first, window);
    });
}

/// Writes blocks of samples into all bands of an image that was made for them.
class BlockWriter {
public:
    /// `result` names what is given up when samples cannot be moved: they would look like data in it.
    BlockWriter(const DataSet& target, std::string result) : target_(target), result_(std::move(result)) {}
    void write(Window& samples, int firstRow);

private:
    const DataSet& target_;
    std::string result_;
    std::unique_ptr<Window> window_;
};

}  // namespace kscli
