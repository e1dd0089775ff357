// Stretches of the band list within which values are smoothed.
#pragma once

#include <string>
#include <vector>

namespace kscli {

/// First and last value, 0-based, inclusive.
struct Segment {
    int first = 0;
    int last = 0;
};

/// How --segments is written, for help texts.
extern const char* const kSegmentsHelp;

/// The segments of a list, in order of the values. Wavelengths are nanometres, not positive where unknown; a stretch
/// given in wavelengths, and the whole of an empty list, is cut where the wavelengths turn back, as they do where the
/// next detector begins, and where wavelengths are left out. Throws a Failure that shows what is allowed.
std::vector<Segment> parseSegments(const std::string& list, const std::vector<double>& wavelengths);

/// "bands 1 to 97, 105 to 224".
std::string segmentsText(const std::vector<Segment>& segments);

}  // namespace kscli
