// The units of radiance that an image names, whatever way it writes them.
#pragma once

#include <optional>
#include <string>

#include "image/dataset.hpp"

namespace kscli {

struct RadianceUnits {
    std::string text;  // as the image has it
    double scale = 1;  // to uW cm-2 nm-1 sr-1
};

/// "uW/(cm2 nm sr)", "W m-2 um-1 sr-1", "microwatts per cm^2 ..."; nothing for a text that names no radiance.
std::optional<double> radianceScale(const std::string& text);

/// Nothing when no entry of the image names units of radiance.
std::optional<RadianceUnits> radianceUnitsOf(const DataSet& image);

}  // namespace kscli
