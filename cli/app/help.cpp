#include "app/help.hpp"

#include <algorithm>
#include <charconv>
#include <sstream>
#include <utility>

#include <fmt/format.h>

#include "app/staging.hpp"

namespace kscli {
namespace {

constexpr std::size_t kLineWidth = 80;
constexpr std::size_t kNameWidth = 26;

std::vector<std::string> wrapped(const std::string& text, std::size_t width) {
    std::vector<std::string> lines(1);
    std::istringstream words(text);
    for (std::string word; words >> word;) {
        if (!lines.back().empty() && lines.back().size() + 1 + word.size() > width) lines.emplace_back();
        lines.back() += (lines.back().empty() ? "" : " ") + word;
    }
    return lines;
}

// A name and, beside it or below, what it means.
std::string entry(const std::string& name, const std::string& meaning) {
    std::string text = "  " + name;
    const std::string indent(kNameWidth, ' ');
    text += text.size() + 2 > kNameWidth ? "\n" + indent : std::string(kNameWidth - text.size(), ' ');
    const std::vector<std::string> lines = wrapped(meaning, kLineWidth - kNameWidth);
    for (std::size_t i = 0; i < lines.size(); ++i) text += (i > 0 ? "\n" + indent : "") + lines[i];
    return text + "\n";
}

// The option names of a list and of what follows it are one name to the parser: "PIXEL...OUT".
std::string spaced(std::string name) {
    const std::size_t dots = name.find("...");
    if (dots != std::string::npos) name.insert(dots + 3, " ");
    return name;
}

// The first word of a command line that is neither an option nor a command.
std::string unknownCommand(const CLI::App& app) {
    for (const std::string& word : app.remaining()) {
        if (!word.empty() && word[0] != '-') return word;
    }
    return "";
}

std::string commandNames(const CLI::App& app) {
    std::string names;
    for (const CLI::App* command : app.get_subcommands([](const CLI::App*) { return true; })) {
        names += (names.empty() ? "" : ", ") + command->get_name();
    }
    return names;
}

}  // namespace

HelpFormatter::HelpFormatter() { label("SUBCOMMAND", "COMMAND"); }

std::string HelpFormatter::make_option(const CLI::Option* option, bool isPositional) const {
    if (isPositional) return entry(spaced(make_option_name(option, true)), option->get_description());
    return entry(make_option_name(option, false) + make_option_opts(option), option->get_description());
}

std::string HelpFormatter::make_option_usage(const CLI::Option* option) const {
    return spaced(make_option_name(option, true));
}

std::string HelpFormatter::make_subcommand(const CLI::App* command) const {
    return entry(command->get_name(), command->get_description());
}

CLI::Validator wholeNumber(std::uint64_t least, std::uint64_t most) {
    const auto check = [least, most](std::string& text) -> std::string {
        std::uint64_t value = 0;
        const char* const end = text.data() + text.size();
        const auto [stop, error] = std::from_chars(text.data(), end, value);
        if (error == std::errc{} && stop == end && value >= least && value <= most) return "";
        return fmt::format("'{}' is not a whole number from {} to {}", text, least, most);
    };
    return CLI::Validator(check, "");
}

CLI::Validator endingIn(std::vector<std::string> extensions) {
    const auto check = [extensions = std::move(extensions)](const std::string& name) -> std::string {
        const std::string extension = lowerExtension(name);
        if (std::find(extensions.begin(), extensions.end(), extension) != extensions.end()) return "";
        return fmt::format("{} must end in {}", name, fmt::join(extensions, " or "));
    };
    return CLI::Validator(check, "");
}

std::string explain(const CLI::App& app, const CLI::ParseError& error) {
    std::string command;
    for (auto chosen = app.get_subcommands(); !chosen.empty(); chosen = chosen[0]->get_subcommands()) {
        command += chosen[0]->get_name() + " ";
    }
    if (!command.empty()) return fmt::format("{}.\nRun 'ks {}--help' to see how it is used.", error.what(), command);
    const std::string word = unknownCommand(app);
    const std::string what = word.empty() ? "no command is given" : fmt::format("'{}' is not a command", word);
    return fmt::format("{}; choose one of: {}.\nRun 'ks --help' for what they do.", what, commandNames(app));
}

}  // namespace kscli
