#include "lut/blocks.hpp"

#include <algorithm>
#include <cmath>

namespace kscli {

BoxWalk::BoxWalk(const LookupTable& table, std::int64_t mostElements, int wholeAxis)
    : sizes_(table.wholeBox().count), extents_(sizes_.size(), 1), offset_(sizes_.size(), 0) {
    std::int64_t room = std::max<std::int64_t>(mostElements, 1);
    if (wholeAxis != kNoAxis) {
        const auto whole = static_cast<std::size_t>(wholeAxis);
        extents_[whole] = sizes_[whole];
        room = std::max<std::int64_t>(room / sizes_[whole], 1);
    }
    // Only what is whole behind an axis makes several of its indices one long run.
    for (std::size_t d = sizes_.size(); d-- > 0;) {
        if (static_cast<int>(d) == wholeAxis) continue;
        extents_[d] = std::min(sizes_[d], room);
        room /= extents_[d];
        if (extents_[d] < sizes_[d]) break;
    }
}

bool BoxWalk::next(TableBox& box) {
    if (isAtEnd_) return false;
    box.offset = offset_;
    box.count = extents_;
    for (std::size_t d = 0; d < sizes_.size(); ++d) box.count[d] = std::min(extents_[d], sizes_[d] - offset_[d]);
    done_ += box.elements();
    isAtEnd_ = true;
    for (std::size_t d = sizes_.size(); d-- > 0 && isAtEnd_;) {
        offset_[d] += extents_[d];
        isAtEnd_ = offset_[d] >= sizes_[d];
        if (isAtEnd_) offset_[d] = 0;
    }
    return true;
}

void BoxWalk::showOn(Progress& progress) const {
    double all = 1;
    for (std::int64_t size : sizes_) all *= static_cast<double>(size);
    constexpr int kSteps = 1000;
    progress.advance(static_cast<int>(kSteps * static_cast<double>(done_) / all), kSteps);
}

std::int64_t elementsAtOnce(int workingBytes) {
    constexpr double kComfortableBytes = 64.0 * 1024 * 1024;  // larger transfers are no faster
    int isLimit = 0;
    const double allowed = std::min(static_cast<double>(IMPGetMemory(&isLimit)) / 2, kComfortableBytes);
    return static_cast<std::int64_t>(std::max(1.0, std::floor(allowed / workingBytes)));
}

std::vector<std::int64_t> indexOf(const TableBox& box, std::int64_t i) {
    std::vector<std::int64_t> index(box.count.size());
    for (std::size_t d = index.size(); d-- > 0;) {
        index[d] = box.offset[d] + i % box.count[d];
        i /= box.count[d];
    }
    return index;
}

}  // namespace kscli
