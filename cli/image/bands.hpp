// Which bands: what users write ("b12", "640", "400-700", "good"), and sensible choices where they write nothing.
#pragma once

#include <string>
#include <utility>
#include <vector>

#include "image/dataset.hpp"

namespace kscli {

/// How --bands is written, for help texts.
extern const char* const kBandListHelp;

/// The 0-based bands of a list, in the order written, each once: bN (from 1), bN-bM, wavelengths in nm (nearest band),
/// ranges of wavelengths, "good", "all". Throws a Failure that shows what is allowed.
std::vector<int> parseBands(const DataSet& dataSet, const std::string& list);

std::vector<int> allBands(const DataSet& dataSet);
std::vector<int> goodBands(const DataSet& dataSet);

/// The shortest and the longest wavelength; the first is the larger when no band has one.
std::pair<double, double> wavelengthRange(const DataSet& dataSet);

/// The band whose centre lies nearest among `candidates`, or -1 when none has a wavelength.
int nearestBand(const DataSet& dataSet, const std::vector<int>& candidates, double wavelengthNm);

/// Three bands for a colour picture, or one for a grey one: those that the image names, else the good bands nearest
/// red, green and blue, else the first bands.
std::vector<int> displayBands(const DataSet& dataSet);

/// "b29 (675.6 nm)", or "b29".
std::string bandName(const DataSet& dataSet, int band);

/// "b1-b20, b29": bands in the order given, as --bands takes them.
std::string bandRanges(const std::vector<int>& bands);

}  // namespace kscli
