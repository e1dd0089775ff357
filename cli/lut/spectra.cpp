// ks lut interp: spectra of a table between its grid points.
#include <algorithm>
#include <cmath>
#include <memory>
#include <set>

#include "app/help.hpp"
#include "app/output.hpp"
#include "app/plot.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "app/text.hpp"
#include "app/texttable.hpp"
#include "lut/commands.hpp"
#include "lut/interp.hpp"
#include "lut/text.hpp"

namespace kscli {
namespace {

struct Options {
    std::string file;
    int segment = 0;
    std::vector<std::string> at;
    std::string points;
    std::string output;
    std::string plot;
    bool extrapolate = false;
    bool force = false;
};

struct Spectrum {
    std::string name;
    std::vector<double> coordinates;  // of every axis but the last
    std::vector<double> values;       // along the last axis, those of an element side by side
};

using Coordinates = std::vector<std::optional<double>>;

// ---- points ----

bool isNameColumn(const std::string& column) {
    static const std::set<std::string> kNames = {"name", "id", "point"};
    return kNames.count(column) != 0;
}

/// An axis of one index needs no coordinate.
Spectrum pointOf(const LookupTable& table, const Coordinates& given, const std::string& name) {
    Spectrum point = {name, {}, {}};
    const int last = table.dimensions() - 1;
    if (given[static_cast<std::size_t>(last)]) {
        fail("'{}' is the axis of the spectra: all of its values come out; leave it away.",
             table.axis(last).nameOr(last));
    }
    for (int d = 0; d < last; ++d) {
        const TableAxis& axis = table.axis(d);
        const auto& coordinate = given[static_cast<std::size_t>(d)];
        if (!coordinate && axis.size() > 1) {
            fail("{} needs '{}', which the table has from {} to {}{}; give --at '{}=VALUE'.", name, axis.nameOr(d),
                 axis.coordinates.front(), axis.coordinates.back(), unitsAfter(axis.units), axis.nameOr(d));
        }
        point.coordinates.push_back(coordinate ? *coordinate : shortest(axis.coordinates[0]));
    }
    return point;
}

std::vector<Spectrum> pointsOfTable(const LookupTable& table, const Coordinates& common, const std::string& file) {
    const TextTable text = parseTextTable(textLinesOf(file), file);
    std::vector<int> axes;
    for (const std::string& column : text.header) {
        axes.push_back(isNameColumn(column) ? -1 : findAxis(table.description().axes, column));
        if (axes.back() >= 0 && common[static_cast<std::size_t>(axes.back())]) {
            fail("'{}' is given by --at and by {}; leave one away.", column, file);
        }
    }
    std::vector<Spectrum> points;
    for (std::size_t row = 0; row < text.rows.size(); ++row) {
        Coordinates given = common;
        std::string name = fmt::format("point {}", row + 1);
        for (std::size_t c = 0; c < axes.size(); ++c) {
            if (axes[c] < 0) {
                name = text.rows[row][c];
                continue;
            }
            const double value = cellNumber(text, row, c, file);
            if (!std::isfinite(value)) fail("{}, line {}: '{}' is missing.", file, text.lines[row], text.header[c]);
            given[static_cast<std::size_t>(axes[c])] = value;
        }
        points.push_back(pointOf(table, given, name));
    }
    if (points.empty()) fail("{} holds no points.", file);
    return points;
}

// ---- values ----

void warnOutside(const LookupTable& table, const Spectrum& point, const GridPoint& place) {
    for (int d = 0; d + 1 < table.dimensions(); ++d) {
        const auto i = static_cast<std::size_t>(d);
        if (place.cells[i].inside) continue;
        warn("{}: {} {} lies outside of the table; it is {}.", point.name, table.axis(d).nameOr(d),
             point.coordinates[i],
             table.size(d) == 1 ? "taken for the only value" : "continued linearly from the edge");
    }
}

void interpolate(const LookupTable& table, const Options& options, Spectrum& point) {
    const GridPoint place = findPoint(table, point.coordinates, options.extrapolate);
    warnOutside(table, point, place);
    if (!table.isRadianceTable()) {
        point.values = interpolateValues(table, place);
    } else {
        for (const RLUTEntry& entry : interpolateRadiance(table, place)) {
            point.values.push_back(static_cast<double>(entry.fFirst));
            point.values.push_back(static_cast<double>(entry.fSecond));
        }
    }
    const auto holes =
        std::count_if(point.values.begin(), point.values.end(), [](double v) { return !std::isfinite(v); });
    if (holes > 0) {
        warn("{}: {} of {} have no number, since grid points around them have none.", point.name, holes,
             counted(static_cast<std::int64_t>(point.values.size()), "value"));
    }
}

// ---- output ----

std::string columnName(const LookupTable& table, const Spectrum& spectrum, int value) {
    return valuesPerElement(table.type()) == 1 ? spectrum.name
                                               : fmt::format("{}: {}", spectrum.name, table.valueName(value));
}

std::string remarkOf(const LookupTable& table, const Spectrum& spectrum) {
    std::string text = "# " + spectrum.name + ":";
    for (std::size_t d = 0; d < spectrum.coordinates.size(); ++d) {
        const int axis = static_cast<int>(d);
        text += fmt::format("{} {} {}{}", d == 0 ? "" : ",", table.axis(axis).nameOr(axis), spectrum.coordinates[d],
                            unitsAfter(table.axis(axis).units));
    }
    return text + "\n";
}

std::string numberText(const LookupTable& table, double value) {
    return table.type() == ElementType::float64 ? fmt::format("{}", value) : fmt::format("{:.9g}", value);
}

std::string csvOf(const LookupTable& table, const std::vector<Spectrum>& spectra) {
    std::string text = fmt::format("# {}{}\n", tableText(table), unitsAfter(table.description().units));
    for (const Spectrum& spectrum : spectra) text += remarkOf(table, spectrum);
    const int last = table.dimensions() - 1;
    const TableAxis& axis = table.axis(last);
    const int each = valuesPerElement(table.type());
    text += csvCell(withUnits(axis.nameOr(last), axis.units));
    for (const Spectrum& spectrum : spectra) {
        for (int v = 0; v < each; ++v) text += "," + csvCell(columnName(table, spectrum, v));
    }
    text += "\n";
    for (std::size_t i = 0; i < axis.coordinates.size(); ++i) {
        text += fmt::format("{}", axis.coordinates[i]);
        for (const Spectrum& spectrum : spectra) {
            for (std::size_t v = 0; v < static_cast<std::size_t>(each); ++v) {
                text += "," + numberText(table, spectrum.values[i * static_cast<std::size_t>(each) + v]);
            }
        }
        text += "\n";
    }
    return text;
}

Curve curveOf(const LookupTable& table, const Spectrum& spectrum, int value) {
    const std::vector<float>& grid = table.axis(table.dimensions() - 1).coordinates;
    const auto each = static_cast<std::size_t>(valuesPerElement(table.type()));
    Curve curve;
    curve.label = columnName(table, spectrum, value);
    bool isBroken = true;
    for (std::size_t i = 0; i < grid.size(); ++i) {
        addPoint(curve, static_cast<double>(grid[i]), spectrum.values[i * each + static_cast<std::size_t>(value)],
                 isBroken);
    }
    return curve;
}

Plot plotOf(const LookupTable& table, const std::vector<Spectrum>& spectra) {
    const int last = table.dimensions() - 1;
    Plot plot;
    plot.title = tableText(table);
    plot.xLabel = withUnits(table.axis(last).nameOr(last), table.axis(last).units);
    plot.yLabel = withUnits("value", table.description().units);
    for (const Spectrum& spectrum : spectra) {
        for (int v = 0; v < valuesPerElement(table.type()); ++v) plot.curves.push_back(curveOf(table, spectrum, v));
    }
    return plot;
}

void run(const Options& options) {
    const LookupTable table = LookupTable::open(options.file, options.segment);
    for (int d = 0; d + 1 < table.dimensions(); ++d) requireMonotonic(table.axis(d), d);
    const Coordinates common = parseCoordinates(table.description().axes, options.at);
    std::vector<Spectrum> spectra;
    if (options.points.empty()) {
        spectra.push_back(pointOf(table, common, "point 1"));
    } else {
        spectra = pointsOfTable(table, common, options.points);
    }
    for (Spectrum& spectrum : spectra) interpolate(table, options, spectrum);
    std::unique_ptr<Staging> plot;
    if (!options.plot.empty()) {
        plot = std::make_unique<Staging>(options.plot, options.force);
        drawPlot(plotOf(table, spectra), plot->path());
    }
    if (options.output.empty()) {
        fmt::print("{}", csvOf(table, spectra));
    } else {
        Staging staging(options.output, options.force);
        writeText(csvOf(table, spectra), staging.path());
        staging.publish();
    }
    if (plot) plot->publish();
}

}  // namespace

void addLutInterp(CLI::App& lut, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = lut.add_subcommand("interp", "Interpolate spectra of a table at given coordinates");
    command->add_option("FILE", options->file, "The file with the table")->required();
    command->add_option("--segment", options->segment, "Which table, by its segment; default: the only one")
        ->check(wholeNumber(1))
        ->type_name("N");
    command
        ->add_option("--at", options->at,
                     "Coordinate on an axis, in its units; repeatable; axes of one value need none")
        ->allow_extra_args(false)
        ->option_text("LABEL=VALUE");
    command
        ->add_option("--points", options->points,
                     "A table (CSV) of points, a column for each axis headed by its label, and perhaps one of names")
        ->type_name("FILE");
    command->add_option("-o,--output", options->output, "Write the CSV here; default: standard output")
        ->type_name("FILE");
    command->add_option("--plot", options->plot, "Also draw the spectra: .svg or .png")
        ->check(endingIn({".svg", ".png"}))
        ->type_name("FILE");
    command->add_flag("--extrapolate", options->extrapolate,
                      "Continue the table linearly where a coordinate lies outside of it; refused otherwise");
    command->add_flag("--force", options->force, "Replace outputs that exist");
    command->footer(
        "Values lie on straight lines between grid points in every axis but the last, of\n"
        "which all come out. Holes at grid points without weight do not matter. LABEL is\n"
        "the label of an axis, a part of it that no other has, or its number.\n"
        "Example:\n  ks lut interp scene.kslut --at water=2 --at 'view zenith=10' --at range=20 \\\n"
        "      --at reflectance=0.5 -o spectrum.csv");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
