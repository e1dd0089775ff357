// Which bytes of a multi-dimensional array a transfer moves: a rectangle of elements in row-major order, the last
// dimension fastest, cut into the longest runs that lie together.
#pragma once

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace kshost {

/// A transfer as it is asked for. The arrays have one value for each dimension.
struct ArrayTransfer {
    int dimensions = 0;
    const std::int64_t* sizes = nullptr;  // of the whole array
    int elementSize = 0;                  // bytes
    const std::int64_t* offset = nullptr;
    const std::int64_t* count = nullptr;
    const std::int64_t* step = nullptr;    // null: 1
    const std::int64_t* resume = nullptr;  // index within the rectangle to begin at; null: its first element
    std::int64_t limit = 0;                // most elements to move; 0: no limit
    std::int64_t room = 0;                 // bytes of the buffer
};

class HyperRectangle {
public:
    /// Nothing, with a reason, when the transfer leaves the array or makes no sense.
    static std::optional<HyperRectangle> of(const ArrayTransfer& transfer, std::string& why);

    std::int64_t arrayBytes() const { return arrayBytes_; }
    /// What the transfer moves.
    std::int64_t bytes() const { return elements_ * elementSize_; }

    /// Calls run(first byte in the array, bytes) for each run, in increasing order.
    template <class Run>
    void forEachRun(Run run) const {
        Walk walk = start();
        for (std::int64_t left = elements_; left > 0;) {
            const std::int64_t moved = std::min(runLength_ - walk.within, left);
            run((walk.address + walk.within) * elementSize_, moved * elementSize_);
            left -= moved;
            advance(walk);
        }
    }

private:
    /// A dimension that cannot be part of a run.
    struct Axis {
        std::int64_t count;
        std::int64_t stride;  // elements from one index of the rectangle to the next
    };
    struct Walk {
        std::vector<std::int64_t> index;  // along the axes
        std::int64_t address;             // element at which the run begins
        std::int64_t within;              // elements of the run to skip
    };

    Walk start() const;
    void advance(Walk& walk) const;

    std::vector<Axis> axes_;
    std::int64_t origin_ = 0;     // element
    std::int64_t runLength_ = 1;  // elements
    std::int64_t first_ = 0;      // element of the rectangle to begin at
    std::int64_t elements_ = 0;   // to be moved
    std::int64_t elementSize_ = 0;
    std::int64_t arrayBytes_ = 0;
};

}  // namespace kshost
