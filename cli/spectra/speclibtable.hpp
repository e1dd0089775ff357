// Libraries as tables: a column of wavelengths and one column a spectrum, or one row a spectrum with the wavelengths in
// the heading, as plain numbers or as the field names of layers ("m450_500", "q450_500").
#pragma once

#include <string>
#include <vector>

#include "spectra/rawspectrum.hpp"

namespace kscli {

std::vector<RawSpectrum> readSpectraTable(const std::vector<std::string>& lines, const std::string& file);

/// A column of wavelengths in nanometres and a column for each spectrum; missing values are empty cells.
std::string spectraTable(const std::vector<LibrarySpectrum>& spectra);

}  // namespace kscli
