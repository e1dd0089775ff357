#include "image/region.hpp"

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <new>

#include "app/report.hpp"
#include "image/blocks.hpp"

namespace kscli {
namespace {

bool isInside(const KSROI& region, const Extent& extent, int x, int y) {
    return region.eROIType != KS_ROI_BITMAP || KSGetROIBit(&region, x - extent.x, y - extent.y) != 0;
}

// Whether samples of some bands hold data, by their stored values. Calibration moves numbers to numbers, so that it
// matters only where it has a gain or an offset that is none.
class DataTest {
public:
    DataTest(const DataSet& dataSet, const std::vector<int>& bands, int level) {
        const Calibration calibrated = calibration(dataSet, bands, level);
        const auto values = noDataValues(dataSet, bands);
        for (std::size_t i = 0; i < bands.size(); ++i) {
            usable_.push_back(std::isfinite(calibrated.gains[i]) && std::isfinite(calibrated.offsets[i]) ? 1 : 0);
            // No value equals not-a-number.
            noData_.push_back(static_cast<float>(values[i].value_or(std::numeric_limits<double>::quiet_NaN())));
            const bool floats = dataSet->pBandRefs[bands[i]].nChanType >= kFloat32;
            always_ = always_ && usable_[i] != 0 && !values[i] && !floats;
        }
    }

    /// No sample can be without data.
    bool always() const { return always_; }
    bool all(const float* pixel) const {
        unsigned bad = 0;
        for (std::size_t i = 0; i < noData_.size(); ++i) bad |= holdsNone(pixel, i);
        return bad == 0;
    }
    bool one(const float* pixel, std::size_t band) const { return holdsNone(pixel, band) == 0; }

private:
    // Without branches, so that many bands are tested at once.
    unsigned holdsNone(const float* pixel, std::size_t band) const {
        constexpr std::uint32_t kExponent = 0x7f800000U;  // all set in what is infinite or not a number
        std::uint32_t bits = 0;
        std::memcpy(&bits, pixel + band, sizeof bits);
        return static_cast<unsigned>((bits & kExponent) == kExponent) |
               static_cast<unsigned>(pixel[band] == noData_[band]) | (usable_[band] ^ 1U);
    }

    std::vector<unsigned> usable_;
    std::vector<float> noData_;
    bool always_ = true;
};

// Which pixels hold data, when the bands that never do have still to be found out. A band counts as empty until its
// first value; all pixels before that one lack it and are taken back then.
class ValidPixelSearch {
public:
    ValidPixelSearch(const DataTest& test, std::size_t bandCount, const Extent& extent)
        : test_(test),
          isEmpty_(bandCount, true),
          emptyCount_(bandCount),
          extent_(extent),
          found_(emptyBitmap(extent)) {}

    void look(int x, int y, const float* pixel) {
        if (test_.all(pixel)) {
            if (emptyCount_ > 0) meet(pixel);
        } else if (!hasAllBandsMet(pixel)) {
            return;
        }
        KSSetROIBit(found_.get(), x - extent_.x, y - extent_.y);
        ++count_;
    }

    long long count() const { return count_; }
    const std::vector<bool>& isEmpty() const { return isEmpty_; }
    Region take() { return std::move(found_); }

private:
    // Bands that have their first value here.
    void meet(const float* pixel) {
        bool anyMet = false;
        for (std::size_t band = 0; band < isEmpty_.size(); ++band) {
            if (!isEmpty_[band] || !test_.one(pixel, band)) continue;
            isEmpty_[band] = false;
            --emptyCount_;
            anyMet = true;
        }
        if (!anyMet || count_ == 0) return;
        found_ = emptyBitmap(extent_);
        count_ = 0;
    }
    bool hasAllBandsMet(const float* pixel) {
        if (emptyCount_ == 0) return false;
        meet(pixel);
        for (std::size_t band = 0; band < isEmpty_.size(); ++band) {
            if (!isEmpty_[band] && !test_.one(pixel, band)) return false;
        }
        return emptyCount_ < isEmpty_.size();
    }

    const DataTest& test_;
    std::vector<bool> isEmpty_;
    std::size_t emptyCount_;
    Extent extent_;
    Region found_;
    long long count_ = 0;
};

// Calls body(x, y, samples) for the pixels of a region.
template <class Body>
void forEachPixel(const DataSet& dataSet, const std::vector<int>& bands, const KSROI& region, const Area& area,
                  Body body) {
    const Extent extent = extentOf(region);
    const double bytes = sizeof(float) * static_cast<double>(area.columns) * static_cast<double>(bands.size());
    const int rowsAtOnce = rowsPerBlock(bytes, area.rows);
    Window window(area.columns * area.xInt, rowsAtOnce * area.yInt, area.xInt, area.yInt, bands);
    forEachBlock(area.rows, rowsAtOnce, [&](int first, int count) {
        window.resizeRows(count);
        window.place(area.x, area.lineOf(first));
        window.read(dataSet, 0);
        for (int row = 0; row < count; ++row) {
            const int y = area.lineOf(first + row);
            for (int column = 0; column < area.columns; ++column) {
                const int x = area.columnOf(column);
                if (isInside(region, extent, x, y)) body(x, y, window.pixel(column, row));
            }
        }
    });
}

Area areaOf(const Extent& extent, int every) {
    return makeArea(extent.x, extent.y, extent.width, extent.height, every);
}

Region newRegion(int type, const Extent& extent) {
    Region region(KSCreateROI());
    if (region == nullptr) throw std::bad_alloc();
    region->eROIType = type;
    region->nXOff = extent.x;
    region->nYOff = extent.y;
    region->nXSize = extent.width;
    region->nYSize = extent.height;
    return region;
}

}  // namespace

Extent extentOf(const KSROI& region) {
    if (region.eROIType != KS_ROI_POINT) return {region.nXOff, region.nYOff, region.nXSize, region.nYSize};
    const int half = region.nXSize / 2;
    return {region.nXOff - half, region.nYOff - half, region.nXSize, region.nXSize};
}

long long pixelCount(const KSROI& region, int every) {
    const Extent extent = extentOf(region);
    const Area area = areaOf(extent, every);
    if (region.eROIType != KS_ROI_BITMAP) return static_cast<long long>(area.columns) * area.rows;
    long long count = 0;
    for (int row = 0; row < area.rows; ++row) {
        for (int column = 0; column < area.columns; ++column) {
            count += isInside(region, extent, area.columnOf(column), area.lineOf(row)) ? 1 : 0;
        }
    }
    return count;
}

std::string regionText(const KSROI& region) {
    char* text = _ROIStructToStr(&region);
    if (text == nullptr) throw std::bad_alloc();
    std::string copy = text;
    std::free(text);
    return copy;
}

Region rectangleRegion(const Extent& extent) { return newRegion(KS_ROI_RECTANGLE, extent); }

Region emptyBitmap(const Extent& extent) {
    Region region = newRegion(KS_ROI_BITMAP, extent);
    if (KSAllocROIBitmap(region.get()) != 0) throw std::bad_alloc();
    return region;
}

Region trimmedBitmap(Region bitmap) {
    const Extent old = extentOf(*bitmap);
    int left = old.width;
    int right = -1;
    int top = old.height;
    int bottom = -1;
    for (int y = 0; y < old.height; ++y) {
        for (int x = 0; x < old.width; ++x) {
            if (KSGetROIBit(bitmap.get(), x, y) == 0) continue;
            left = std::min(left, x);
            right = std::max(right, x);
            top = std::min(top, y);
            bottom = y;
        }
    }
    if (right < 0) return nullptr;
    if (right - left + 1 == old.width && bottom - top + 1 == old.height) return bitmap;
    Region trimmed = emptyBitmap({old.x + left, old.y + top, right - left + 1, bottom - top + 1});
    for (int y = top; y <= bottom; ++y) {
        for (int x = left; x <= right; ++x) {
            if (KSGetROIBit(bitmap.get(), x, y) != 0) KSSetROIBit(trimmed.get(), x - left, y - top);
        }
    }
    trimmed->nBitmapID = bitmap->nBitmapID;
    return trimmed;
}

Region unionOf(const std::vector<const KSROI*>& regions) {
    std::vector<KSROI> records;
    for (const KSROI* region : regions) records.push_back(*region);  // the bitmaps stay with their owners
    Region all(KSConsolidateROIs(records.data(), static_cast<int>(records.size()), nullptr));
    if (all == nullptr || all->pbyBitmap == nullptr) throw std::bad_alloc();
    return all;
}

ValidPixels validPixels(const DataSet& dataSet, const std::vector<int>& bands, int level, const KSROI* within,
                        int every) {
    const Region image = rectangleRegion({0, 0, dataSet->nXSize, dataSet->nYSize});
    const KSROI& region = within != nullptr ? *within : *image;
    const long long all = pixelCount(region, every);
    ValidPixels result;
    const DataTest test(dataSet, bands, level);
    if (test.always()) {
        result.valid = all;
        return result;
    }
    const Extent extent = extentOf(region);
    ValidPixelSearch search(test, bands.size(), extent);
    forEachPixel(dataSet, bands, region, areaOf(extent, every),
                 [&search](int x, int y, const float* pixel) { search.look(x, y, pixel); });
    result.valid = search.count();
    result.excluded = all - search.count();
    for (std::size_t i = 0; i < bands.size(); ++i) {
        if (search.isEmpty()[i]) result.emptyBands.push_back(bands[i]);
    }
    if (result.excluded > 0) result.region = search.take();
    return result;
}

}  // namespace kscli
