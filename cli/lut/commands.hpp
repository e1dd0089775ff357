// The subcommands of ks lut.
#pragma once

#include "app/command.hpp"

namespace kscli {

void addLutInfo(CLI::App& lut, Command& chosen);
void addLutCheck(CLI::App& lut, Command& chosen);
void addLutPlot(CLI::App& lut, Command& chosen);
void addLutImport(CLI::App& lut, Command& chosen);
void addLutExport(CLI::App& lut, Command& chosen);
void addLutInterp(CLI::App& lut, Command& chosen);

}  // namespace kscli
