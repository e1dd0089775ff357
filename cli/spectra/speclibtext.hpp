// Spectra as text for people: ECOSTRESS (formerly ASTER) files, a heading of "name: value" lines and two columns, and
// USGS ASCII, either a title and one value a line with the wavelengths in a file of their own, or columns under a
// heading.
#pragma once

#include <string>
#include <vector>

#include "spectra/rawspectrum.hpp"

namespace kscli {

enum class SpectrumText { ecostress, usgs, columns };

/// Which of these a text is.
SpectrumText kindOfSpectrumText(const std::vector<std::string>& lines);

/// Throw a Failure, or NotASpectrum for a file that only goes with spectra.
RawSpectrum readEcostress(const std::vector<std::string>& lines, const std::string& file);
RawSpectrum readUsgs(const std::vector<std::string>& lines, const std::string& file, const std::string& wavelengthFile);
RawSpectrum readColumns(const std::vector<std::string>& lines, const std::string& file);

/// One file for each spectrum in a folder, named after it; for USGS also the file of wavelengths. Reads back equal but
/// for what the format has no place for.
void writeEcostress(const std::vector<LibrarySpectrum>& spectra, const std::string& folder);
void writeUsgs(const std::vector<LibrarySpectrum>& spectra, const std::string& folder, const std::string& libraryName);
/// One spectrum, one file.
std::string ecostressText(const LibrarySpectrum& spectrum);

}  // namespace kscli
