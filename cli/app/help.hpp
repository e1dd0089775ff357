// How the command line is explained: help that fits a terminal of 80 columns, numbers checked before they are
// converted, and mistakes told in the words of the application.
#pragma once

#include <CLI/CLI.hpp>

#include <climits>
#include <cstdint>
#include <string>
#include <vector>

namespace kscli {

/// Help texts wrapped at 80 columns.
class HelpFormatter : public CLI::Formatter {
public:
    HelpFormatter();
    std::string make_option(const CLI::Option* option, bool isPositional) const override;
    std::string make_option_usage(const CLI::Option* option) const override;
    std::string make_subcommand(const CLI::App* command) const override;
};

/// Accepts whole numbers of a range only; says which when it refuses one.
CLI::Validator wholeNumber(std::uint64_t least, std::uint64_t most = INT_MAX);
/// Accepts names of files whose last four or so letters, such as ".svg", say what is to be written.
CLI::Validator endingIn(std::vector<std::string> extensions);

/// What is wrong with a command line, and where help is.
std::string explain(const CLI::App& app, const CLI::ParseError& error);

}  // namespace kscli
