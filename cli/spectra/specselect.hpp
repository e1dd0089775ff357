// Choosing and preparing spectra of libraries as users ask for it.
#pragma once

#include <string>
#include <vector>

#include "spectra/speclib.hpp"

namespace kscli {

/// How --select is written, for help texts.
extern const char* const kSelectHelp;

/// The spectra of the lists, each once, in the order of the library; all of them for no list. An item is a name, a
/// number from 1 or a range of numbers. Throws a Failure that names what is not there.
std::vector<LibrarySpectrum> selectSpectra(std::vector<LibrarySpectrum> spectra, const std::vector<std::string>& lists);

/// How --grid is written, for help texts.
extern const char* const kGridHelp;

/// Wavelengths from START:STOP:STEP in nm, or those of the first spectrum of a library.
std::vector<float> parseGrid(const std::string& text);
/// Values interpolated linearly; masked beyond the ends of a spectrum, across gaps in its wavelengths and
/// beside values that are not usable.
LibrarySpectrum interpolated(const LibrarySpectrum& spectrum, const std::vector<float>& grid);

}  // namespace kscli
