// ks transform pca and mnf, the commands that make parameter files for ks transform apply.
#pragma once

#include <CLI/CLI.hpp>

#include "app/command.hpp"

namespace kscli {

void addTransformFits(CLI::App& transform, Command& chosen);

}  // namespace kscli
