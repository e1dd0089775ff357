// What main needs of the subcommands: each registers itself and hands over what to run once the command line is read.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace kscli {

using Command = std::function<void()>;

void addInfo(CLI::App& app, Command& chosen);
void addQuicklook(CLI::App& app, Command& chosen);
void addSpectrum(CLI::App& app, Command& chosen);
void addConvert(CLI::App& app, Command& chosen);
void addSynth(CLI::App& app, Command& chosen);
void addVq(CLI::App& app, Command& chosen);
void addTransform(CLI::App& app, Command& chosen);
void addStats(CLI::App& app, Command& chosen);
void addRoi(CLI::App& app, Command& chosen);
void addLibrary(CLI::App& app, Command& chosen);
void addResample(CLI::App& app, Command& chosen);
void addSmooth(CLI::App& app, Command& chosen);
void addUnmix(CLI::App& app, Command& chosen);
void addLut(CLI::App& app, Command& chosen);
void addReflectance(CLI::App& app, Command& chosen);
void addModtran(CLI::App& app, Command& chosen);
void addSun(CLI::App& app, Command& chosen);
void addView(CLI::App& app, Command& chosen);
void addBrdf(CLI::App& app, Command& chosen);

}  // namespace kscli
