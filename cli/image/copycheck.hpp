// Compares a copy of an image with its source, as it was planned: every sample, and everything that describes them.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "image/copyplan.hpp"

namespace kscli {

struct CopyCheck {
    std::uint64_t samples = 0;          // compared
    std::uint64_t differing = 0;        // of those
    std::uint64_t entries = 0;          // metadata entries compared
    std::vector<std::string> problems;  // what differs, in words; the first of many
    bool passed() const { return differing == 0 && problems.empty(); }
};

/// Opens the copy anew and compares.
CopyCheck checkCopy(const DataSet& source, const CopyPlan& plan, const std::string& copyName);

}  // namespace kscli
