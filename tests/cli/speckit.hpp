// Spectra for tests of libraries: small ones made here, files of the formats that are around, and the folder of sample
// data.
#pragma once

#include <gtest/gtest.h>

#include <string>
#include <vector>

#include "clikit.hpp"
#include "spectra/speclib.hpp"

namespace clitest {

using kscli::LibrarySpectrum;
using Library = std::vector<LibrarySpectrum>;

/// Of quality plot throughout; masked where a value is kMaskedValue.
LibrarySpectrum makeSpectrum(const std::string& name, const std::vector<float>& wavelengths,
                             const std::vector<double>& values);

/// A table of one column a spectrum, every digit of the values.
std::string tableOf(const Library& library);

/// Names, wavelengths, values and qualities agree exactly; quantities too where a format keeps them.
void expectSame(const Library& actual, const Library& expected, bool withQuantity = true);

/// A file of the sample data, or an empty text when there is none.
std::string sampleData(const std::string& name);

}  // namespace clitest
