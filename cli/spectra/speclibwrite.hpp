// Libraries on their way out, in every format that the application writes.
#pragma once

#include <string>
#include <vector>

#include "spectra/speclib.hpp"

namespace kscli {

/// How --as is written, for help texts.
extern const char* const kLibraryFormatHelp;
/// What --as takes.
std::vector<std::string> libraryFormatNames();

/// Writes spectra to a new file or folder, whole or not at all, and says what the format does not keep.
/// format: one of the names above; empty: as the output's extension says.
void writeLibrary(const std::vector<LibrarySpectrum>& spectra, const std::string& output, const std::string& format,
                  bool force);
/// Refuses an output that cannot be written, before the work is done.
void checkLibraryOutput(const std::string& output, const std::string& format);

}  // namespace kscli
