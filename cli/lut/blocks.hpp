// Walking a look-up table of any size in hyper-rectangles that fit the host's memory allowance.
#pragma once

#include <cstdint>
#include <vector>

#include "image/blocks.hpp"
#include "lut/table.hpp"

namespace kscli {

constexpr int kNoAxis = -1;

/// Cuts a table into boxes of at most so many elements, in the order of the elements; `wholeAxis` is never cut.
class BoxWalk {
public:
    BoxWalk(const LookupTable& table, std::int64_t mostElements, int wholeAxis = kNoAxis);
    /// The next box, or false at the end.
    bool next(TableBox& box);
    /// Shows how much was handed out.
    void showOn(Progress& progress) const;

private:
    std::vector<std::int64_t> sizes_;
    std::vector<std::int64_t> extents_;
    std::vector<std::int64_t> offset_;
    bool isAtEnd_ = false;
    std::int64_t done_ = 0;
};

/// How many elements may be worked on at once, so many bytes each.
std::int64_t elementsAtOnce(int workingBytes);

/// The index in the table of element number i of a box.
std::vector<std::int64_t> indexOf(const TableBox& box, std::int64_t i);

/// Calls body(box, values) for all of the table, with progress; values as readValues gives them.
template <class Body>
void forEachBox(const LookupTable& table, int wholeAxis, Body body) {
    constexpr int kCopies = 2;  // narrow values while they are read
    const int workingBytes = kCopies * static_cast<int>(sizeof(double)) * valuesPerElement(table.type());
    BoxWalk walk(table, elementsAtOnce(workingBytes), wholeAxis);
    Progress progress;
    TableBox box;
    while (walk.next(box)) {
        body(box, table.readValues(box));
        walk.showOn(progress);
    }
}

}  // namespace kscli
