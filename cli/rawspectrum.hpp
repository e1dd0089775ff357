// What readers of spectra find in files, and the one way from there to a spectrum: nanometres, increasing, each
// wavelength once, missing values masked.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "report.hpp"
#include "speclib.hpp"

namespace kscli {

enum class WavelengthUnit { unknown, nanometres, micrometres, wavenumbers };

/// The unit that a text such as "Wavelength (micrometers)" names.
WavelengthUnit wavelengthUnitIn(const std::string& text);

struct RawSpectrum {
    std::string name;
    int quantity = KS_RQ_UNKNOWN;
    WavelengthUnit unit = WavelengthUnit::unknown;
    std::vector<double> wavelengths;  // in that unit, in any order
    std::vector<double> values;       // not-a-numbers and masked values are missing
    std::vector<int> quality;         // empty: plot
};

/// Turns what was read from one file into spectra, and says once what had to be guessed or merged.
std::vector<LibrarySpectrum> finishSpectra(std::vector<RawSpectrum> raw, const std::string& file);

/// A file that goes with spectra and holds none itself.
struct NotASpectrum : Failure {
    using Failure::Failure;
};

// ---- texts ----

std::string trimmed(const std::string& text);
std::string lowerCase(std::string text);
/// UTF-8 as it is; anything else is taken as Latin-1.
std::string asUtf8(const std::string& text);
std::vector<std::string> linesOf(const std::string& text);
std::vector<std::string> wordsOf(const std::string& line);

/// A decimal number, times ten to a power, rounded once; nothing when the text is anything else.
std::optional<double> parseNumber(const std::string& text, int powerOfTen = 0);
/// The shortest text that parseNumber reads back as value with the negated power.
std::string numberText(double value, int powerOfTen = 0);

}  // namespace kscli
