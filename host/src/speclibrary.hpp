// ENVI spectral libraries: an image of one band whose lines are spectra, seen as the layer that it means.
#pragma once

#include <string>
#include <vector>

#include "facts.hpp"
#include "store.hpp"
#include "tableformat.hpp"

namespace kshost {

struct SpectralLibrary {
    RasterFacts facts;  // width: wavelengths, height: spectra; no channels
    ForeignLayer layer;
};

/// The header beside a file that says that it is a spectral library; empty when there is none.
std::string findLibraryHeader(const std::string& path);
/// Opens a library for reading its spectra one by one; false with a reason when header and file do not agree.
bool readLibrary(const std::string& path, const std::string& header, SpectralLibrary& library, std::string& why);

/// The format for writing one, as `path` and a header beside it.
std::unique_ptr<TableFormat> newLibraryFormat(const std::string& path);

/// The name of the field of measurements at a wavelength: "m450_500" at 450.5 nanometres.
std::string measurementField(double wavelengthNm);

}  // namespace kshost
