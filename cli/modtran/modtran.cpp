// ks modtran: the input cards of the MODTRAN4 radiative-transfer code from JSON, and its spectral output as a table.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <memory>
#include <sstream>

#include <unistd.h>

#include "app/command.hpp"
#include "app/gaps.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/plot.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "app/texttable.hpp"
#include "modtran/deck.hpp"
#include "modtran/tape7.hpp"

namespace kscli {
namespace {

struct CardsOptions {
    std::string input;
    std::string output;
    bool ruler = false;
    bool example = false;
    bool fields = false;
    bool force = false;
};

struct Tape7Options {
    std::string input;
    std::string output;
    std::string plot;
    std::vector<std::string> columns;
    int table = 1;
    bool perNanometre = false;
    bool force = false;
};

// ---- cards ----

std::string textOf(const std::string& file) {
    requireReadable(file, "description of the cards");
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    if (!stream) fail("{} cannot be read.", file);
    return text.str();
}

/// Says what the columns do not hold; a line of cards with wrong numbers is worse than none.
void requireFitting(const std::vector<DeckLine>& lines, const std::string& file) {
    std::vector<DeckLine> wrong;
    std::size_t fields = 0;
    for (const DeckLine& line : lines) {
        for (const std::string& remark : line.remarks) warn("{}", remark);
        for (const std::string& overflow : line.overflow) printError(overflow);
        fields += line.overflow.size();
        if (!line.overflow.empty()) wrong.push_back(line);
    }
    if (fields == 0) return;
    fmt::print(stderr, "{}", withRuler(wrong));
    fail("{}: {} field{} not fit the columns; nothing was written.", file, fields, fields == 1 ? " does" : "s do");
}

void runCards(const CardsOptions& options) {
    if (options.example || options.fields) {
        fmt::print("{}", options.example ? exampleDeck() : fieldTable());
        return;
    }
    if (options.input.empty()) {
        fail("no file is given; name one, or see --example for how it looks.");
    }
    const std::vector<DeckLine> lines = makeDeck(textOf(options.input), options.input);
    requireFitting(lines, options.input);
    std::string text;
    for (const DeckLine& line : lines) text += line.text + "\n";
    if (options.output.empty()) {
        const bool showsRuler = options.ruler || isatty(STDOUT_FILENO) != 0;
        fmt::print("{}", showsRuler ? withRuler(lines) : text);
        return;
    }
    if (sameFile(options.input, options.output)) fail("{} cannot be written onto itself.", options.input);
    Staging staging(options.output, options.force);
    writeText(text, staging.path());
    staging.publish();
    note("{}: {} lines.", options.output, lines.size());
    if (options.ruler) fmt::print("{}", withRuler(lines));
}

// ---- tape7 ----

const char* unitText(Tape7Unit unit, bool perNanometre) {
    switch (unit) {
        case Tape7Unit::radiance:
            return perNanometre ? "uW cm-2 sr-1 nm-1" : "W cm-2 sr-1 / cm-1";
        case Tape7Unit::irradiance:
            return perNanometre ? "uW cm-2 nm-1" : "W cm-2 / cm-1";
        case Tape7Unit::kelvin:
            return "K";
        default:
            return "";
    }
}

bool isSpectralDensity(const Tape7Column& column) {
    return column.unit == Tape7Unit::radiance || column.unit == Tape7Unit::irradiance;
}

void convertDensities(Tape7Table& table) {
    for (Tape7Column& column : table.columns) {
        if (!isSpectralDensity(column)) continue;
        for (std::size_t r = 0; r < column.values.size(); ++r) {
            column.values[r] = perNanometre(column.values[r], table.wavenumbers[r]);
        }
    }
}

void selectColumns(Tape7Table& table, const std::vector<std::string>& names, const std::string& file) {
    if (names.empty()) return;
    std::string known;
    for (const Tape7Column& column : table.columns) known += (known.empty() ? "" : ", ") + column.name;
    std::vector<Tape7Column> selected;
    for (const std::string& name : names) {
        const int at = table.column(name);
        if (at < 0) fail("{} has no column '{}'; it has {}.", file, name, known);
        selected.push_back(table.columns[static_cast<std::size_t>(at)]);
    }
    table.columns = std::move(selected);
}

std::string headerOf(const Tape7Column& column, bool perNanometre) {
    const std::string unit = unitText(column.unit, perNanometre);
    return csvCell(unit.empty() || column.unit == Tape7Unit::kelvin ? column.name : column.name + " (" + unit + ")");
}

std::string csvOf(const Tape7Table& table, bool perNanometre) {
    const auto cell = [](double value) { return std::isnan(value) ? std::string() : fmt::format("{:.9g}", value); };
    std::string text = "wavenumber_cm-1,wavelength_nm";
    for (const Tape7Column& column : table.columns) text += "," + headerOf(column, perNanometre);
    text += "\n";
    for (std::size_t r = 0; r < table.wavenumbers.size(); ++r) {
        text += cell(table.wavenumbers[r]) + "," + cell(wavelengthOf(table.wavenumbers[r]));
        for (const Tape7Column& column : table.columns) text += "," + cell(column.values[r]);
        text += "\n";
    }
    return text;
}

bool varies(const Tape7Column& column) {
    double low = INFINITY;
    double high = -INFINITY;
    for (const double value : column.values) {
        if (!std::isnan(value)) low = std::min(low, value), high = std::max(high, value);
    }
    return low < high;
}

Curve curveOf(const Tape7Table& table, const Tape7Column& column) {
    Curve curve;
    curve.label = column.name;
    bool isOpen = false;
    for (std::size_t r = 0; r < column.values.size(); ++r) {
        const double wavelength = wavelengthOf(table.wavenumbers[r]);
        const bool isKnown = !std::isnan(column.values[r]) && !std::isnan(wavelength);
        if (isKnown && !isOpen) curve.pieces.emplace_back();
        if (isKnown) curve.pieces.back().emplace_back(wavelength, column.values[r]);
        isOpen = isKnown;
    }
    return curve;
}

std::string axisLabel(Tape7Unit unit, bool perNanometre) {
    switch (unit) {
        case Tape7Unit::depth:
            return "Optical depth";
        case Tape7Unit::radiance:
            return fmt::format("Radiance ({})", unitText(unit, perNanometre));
        case Tape7Unit::irradiance:
            return fmt::format("Irradiance ({})", unitText(unit, perNanometre));
        case Tape7Unit::kelvin:
            return "Temperature (K)";
        default:
            return "Transmittance";
    }
}

/// The curves of one unit: that of the radiances where there are any, else of the first column that varies.
void plotTable(const Tape7Table& table, const Tape7Options& options, const std::string& name) {
    constexpr std::size_t kMostCurves = 8;
    std::vector<const Tape7Column*> varying;
    for (const Tape7Column& column : table.columns) {
        if (varies(column)) varying.push_back(&column);
    }
    if (varying.empty()) fail("none of the columns of {} varies, so there is nothing to draw.", options.input);
    const auto radiance = std::find_if(varying.begin(), varying.end(),
                                       [](const Tape7Column* column) { return column->unit == Tape7Unit::radiance; });
    const Tape7Unit unit =
        radiance != varying.end() && options.columns.empty() ? Tape7Unit::radiance : varying.front()->unit;
    Plot plot;
    plot.title = std::filesystem::path(options.input).filename().string();
    plot.xLabel = "Wavelength (nm)";
    plot.yLabel = axisLabel(unit, options.perNanometre);
    // The whole lies below its parts, which it would hide where they are nearly all of it.
    std::stable_partition(varying.begin(), varying.end(),
                          [](const Tape7Column* column) { return column->name == "TOTAL_RAD"; });
    std::string left;
    for (const Tape7Column* column : varying) {
        if (column->unit == unit && plot.curves.size() < kMostCurves) {
            plot.curves.push_back(curveOf(table, *column));
        } else {
            left += (left.empty() ? "" : ", ") + column->name;
        }
    }
    if (!left.empty()) note("not drawn: {}; choose with --columns.", left);
    drawPlot(plot, name);
}

void sayHowItWasRead(const Tape7Table& table, std::size_t tables, const Tape7Options& options) {
    if (!table.uncountable.empty()) {
        std::string reasons;
        for (const std::string& reason : table.uncountable) reasons += (reasons.empty() ? "" : "; ") + reason;
        note(
            "{}: counting the numbers of its rows would misread it ({}); they were taken from below the names, and "
            "blank columns are left empty.",
            options.input, reasons);
    }
    if (!table.isClosed) warn("{}: no negative number closes the table; the file may be cut off.", options.input);
    if (tables > 1) {
        note("{} holds {} tables; this is number {} (see --table).", options.input, tables, options.table);
    }
}

void runTape7(const Tape7Options& options) {
    std::unique_ptr<Staging> csv;
    std::unique_ptr<Staging> plot;
    for (const std::string& output : {options.output, options.plot}) {
        if (!output.empty() && sameFile(options.input, output)) fail("{} cannot be written onto itself.", output);
    }
    if (!options.plot.empty() && options.plot == options.output) fail("{} is named for two outputs.", options.plot);
    requireReadable(options.input, "tape7 file");
    std::vector<Tape7Table> tables = readTape7(options.input);
    if (static_cast<std::size_t>(options.table) > tables.size()) {
        fail("{} holds {} table{}; there is no number {}.", options.input, tables.size(), tables.size() == 1 ? "" : "s",
             options.table);
    }
    Tape7Table& table = tables[static_cast<std::size_t>(options.table) - 1];
    sayHowItWasRead(table, tables.size(), options);
    selectColumns(table, options.columns, options.input);
    if (options.perNanometre) convertDensities(table);
    if (!options.output.empty()) {
        csv = std::make_unique<Staging>(options.output, options.force);
        writeText(csvOf(table, options.perNanometre), csv->path());
    }
    if (!options.plot.empty()) {
        plot = std::make_unique<Staging>(options.plot, options.force);
        plotTable(table, options, plot->path());
    }
    for (const auto* staged : {&csv, &plot}) {
        if (*staged) (*staged)->publish();
    }
    if (!csv && !plot) fmt::print("{}", csvOf(table, options.perNanometre));
    if (csv) note("{}: {} rows, {} columns.", options.output, table.wavenumbers.size(), table.columns.size() + 2);
}

// ---- command lines ----

void addCards(CLI::App& modtran, Command& chosen) {
    auto options = std::make_shared<CardsOptions>();
    CLI::App* command = modtran.add_subcommand("cards", "Write input cards from their description in JSON");
    command->add_option("FILE", options->input, "The description (.json)");
    command->add_option("-o,--output", options->output, "Write the cards to a file, ready to run")->type_name("FILE");
    command->add_flag("--ruler", options->ruler,
                      "Show the cards under a ruler of their columns; default on a terminal");
    command->add_flag("--example", options->example, "Print a description with every field, to start from");
    command->add_flag("--fields", options->fields, "Print every field with its columns and values");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "The file is {\"cards\": [...]}, a list in the order of the file: objects with the\n"
        "key \"card\" (1, 1A, 2, 3, 3A1, 3A2, 4, 5) and MODTRAN's own names and values of\n"
        "the fields; null or \"\" leaves columns blank where that is allowed. Cards of\n"
        "other kinds are given as texts and written as they are. Numbers are rounded to\n"
        "what their columns hold, with a warning; a number that does not fit is an error,\n"
        "and nothing is written.\n"
        "Example:\n  ks modtran cards --example > run.json\n  ks modtran cards run.json -o tape5");
    command->callback([options, &chosen] { chosen = [options] { runCards(*options); }; });
}

void addTape7(CLI::App& modtran, Command& chosen) {
    auto options = std::make_shared<Tape7Options>();
    CLI::App* command = modtran.add_subcommand("tape7", "Turn a spectral table (tape7) into CSV and a plot");
    command->add_option("FILE", options->input, "The tape7 file")->required();
    command->add_option("-o,--output", options->output, "Write the table as CSV")->type_name("FILE");
    command->add_option("--plot", options->plot, "Draw it over wavelength: .svg or .png")
        ->check(endingIn({".svg", ".png"}))
        ->type_name("FILE");
    command->add_option("--columns", options->columns, "Columns to take, by their names in the heading: A,B,...")
        ->delimiter(',')
        ->type_name("LIST")
        ->allow_extra_args(false);
    command->add_option("--table", options->table, "Which table, where the file holds those of several runs")
        ->check(wholeNumber(1))
        ->type_name("N")
        ->capture_default_str();
    command->add_flag("--per-nm", options->perNanometre,
                      "Radiances and irradiances per nm, in microwatts, instead of per cm-1, in watts");
    command->add_flag("--force", options->force, "Replace outputs if they exist");
    command->footer(
        "Without -o and --plot the CSV goes to standard output: wavenumber (cm-1),\n"
        "wavelength (nm), and the columns of the heading with their units. Radiances are\n"
        "W cm-2 sr-1 / cm-1, irradiances W cm-2 / cm-1. Numbers are taken from below the\n"
        "names, so that columns which a run left blank are empty and shift no other. A\n"
        "file whose numbers do not stand below the names, and cannot be counted either,\n"
        "is refused.\n"
        "Example:\n  ks modtran tape7 tape7 -o spectrum.csv --plot spectrum.svg --per-nm");
    command->callback([options, &chosen] { chosen = [options] { runTape7(*options); }; });
}

}  // namespace

void addModtran(CLI::App& app, Command& chosen) {
    CLI::App* modtran = app.add_subcommand("modtran", "MODTRAN4: write input cards, read spectral tables");
    modtran->require_subcommand(1);
    modtran->fallthrough();
    modtran->footer("Example:\n  ks modtran cards run.json -o tape5\n  ks modtran tape7 tape7 -o spectrum.csv");
    addCards(*modtran, chosen);
    addTape7(*modtran, chosen);
}

}  // namespace kscli
