// The bands of a sensor and how they respond to light: from the metadata of an image, from a list of centres and
// widths, or from a table of measured responses.
#pragma once

#include <string>
#include <vector>

#include <kslib.h>

namespace kscli {

struct SensorBand {
    std::string name;          // empty: known by its wavelength only
    KSBandResp response = {};  // as the library takes it, but for the samples
    std::vector<float> samples;

    /// Borrows the samples.
    KSBandResp record() const;
    double centre() const { return static_cast<double>(response.fCentre); }
    /// Where the response reaches.
    double low() const;
    double high() const;
    /// "B2 (492.4 nm)" or "492.4 nm".
    std::string label() const;
};

/// Bands in order of their centres, each centre once. Throws a Failure that says which files are known.
std::vector<SensorBand> readSensor(const std::string& name);

}  // namespace kscli
