#include "hyperrectangle.hpp"

#include <algorithm>

namespace kshost {
namespace {

using Numbers = std::vector<std::int64_t>;

/// Elements between neighbours along each dimension. Empty when the array has more bytes than can be counted.
Numbers distances(const ArrayTransfer& transfer, std::int64_t& arrayBytes) {
    const auto dimensions = static_cast<std::size_t>(transfer.dimensions);
    Numbers distance(dimensions);
    std::int64_t product = 1;
    for (std::size_t d = dimensions; d-- > 0;) {
        distance[d] = product;
        if (__builtin_mul_overflow(product, transfer.sizes[d], &product)) return {};
    }
    if (__builtin_mul_overflow(product, std::int64_t{transfer.elementSize}, &arrayBytes)) return {};
    return distance;
}

std::string whyNotAlong(const ArrayTransfer& transfer, int d) {
    const std::int64_t size = transfer.sizes[d];
    const std::int64_t offset = transfer.offset[d];
    const std::int64_t count = transfer.count[d];
    const std::int64_t step = transfer.step != nullptr ? transfer.step[d] : 1;
    const std::string place = " in dimension " + std::to_string(d);
    if (size < 1) return "the size " + std::to_string(size) + place + " is below 1";
    if (count < 0) return "the count " + std::to_string(count) + place + " is negative";
    if (step < 1) return "the step " + std::to_string(step) + place + " is below 1";
    const bool outside = offset < 0 || offset >= size || (count > 0 && count - 1 > (size - 1 - offset) / step);
    if (outside) {
        return std::to_string(count) + " indexes from " + std::to_string(offset) + " on in steps of " +
               std::to_string(step) + place + " leave the array, which has " + std::to_string(size);
    }
    if (transfer.resume != nullptr && count > 0 && (transfer.resume[d] < 0 || transfer.resume[d] >= count))
        return "the index to resume at, " + std::to_string(transfer.resume[d]) + place + ", is not in the rectangle";
    return {};
}

std::string whyNot(const ArrayTransfer& transfer) {
    if (transfer.dimensions < 1) return "an array has at least one dimension";
    if (transfer.sizes == nullptr || transfer.offset == nullptr || transfer.count == nullptr)
        return "no sizes, offsets or counts given";
    if (transfer.elementSize < 1) return "an element has at least one byte";
    if (transfer.limit < 0) return "the most elements to move cannot be negative";
    if (transfer.room < 0) return "a buffer cannot have a negative size";
    for (int d = 0; d < transfer.dimensions; ++d) {
        std::string why = whyNotAlong(transfer, d);
        if (!why.empty()) return why;
    }
    return {};
}

}  // namespace

std::optional<HyperRectangle> HyperRectangle::of(const ArrayTransfer& transfer, std::string& why) {
    why = whyNot(transfer);
    if (!why.empty()) return std::nullopt;
    HyperRectangle rectangle;
    const Numbers distance = distances(transfer, rectangle.arrayBytes_);
    if (distance.empty()) {
        why = "the array has more bytes than can be counted";
        return std::nullopt;
    }
    std::int64_t total = 1;  // at most the elements of the array
    bool together = true;
    for (auto d = static_cast<std::size_t>(transfer.dimensions); d-- > 0;) {
        const std::int64_t count = transfer.count[d];
        const std::int64_t step = transfer.step != nullptr ? transfer.step[d] : 1;
        if (transfer.resume != nullptr) rectangle.first_ += transfer.resume[d] * total;
        rectangle.origin_ += transfer.offset[d] * distance[d];
        together = together && (step == 1 || count == 1);
        if (together) {
            rectangle.runLength_ *= count;
            together = count == transfer.sizes[d];
        } else if (count > 1) {
            rectangle.axes_.push_back({count, step * distance[d]});
        }
        total *= count;
    }
    rectangle.elementSize_ = transfer.elementSize;
    const std::int64_t room = transfer.room / transfer.elementSize;
    rectangle.elements_ = total == 0 ? 0 : std::min(total - rectangle.first_, room);
    if (transfer.limit > 0) rectangle.elements_ = std::min(rectangle.elements_, transfer.limit);
    return rectangle;
}

HyperRectangle::Walk HyperRectangle::start() const {
    Walk walk = {Numbers(axes_.size()), origin_, 0};
    if (elements_ == 0) return walk;
    walk.within = first_ % runLength_;
    std::int64_t rest = first_ / runLength_;
    for (std::size_t a = 0; a < axes_.size(); ++a) {
        walk.index[a] = rest % axes_[a].count;
        walk.address += walk.index[a] * axes_[a].stride;
        rest /= axes_[a].count;
    }
    return walk;
}

/// On to the next run. The first axis is the fastest.
void HyperRectangle::advance(Walk& walk) const {
    walk.within = 0;
    for (std::size_t a = 0; a < axes_.size(); ++a) {
        if (walk.index[a] + 1 < axes_[a].count) {
            ++walk.index[a];
            walk.address += axes_[a].stride;
            return;
        }
        walk.address -= walk.index[a] * axes_[a].stride;
        walk.index[a] = 0;
    }
}

}  // namespace kshost
