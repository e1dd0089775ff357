// ks lut plot: values of a table along one axis, at grid points of the others.
#include <algorithm>
#include <cmath>
#include <memory>

#include "app/help.hpp"
#include "app/plot.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "lut/axes.hpp"
#include "lut/commands.hpp"
#include "lut/text.hpp"

namespace kscli {
namespace {

constexpr int kNone = -1;
constexpr int kMostCurves = 100;

struct Options {
    std::string file;
    std::string output;
    int segment = 0;
    std::string along;
    std::string curves;
    std::vector<std::string> at;
    int value = 0;  // 0: all, where they are the only curves
    bool force = false;
};

struct Choice {
    int along = kNone;
    int curves = kNone;
    std::vector<int> values;
    std::vector<int> index;  // of the other axes
};

Choice choose(const LookupTable& table, const Options& options) {
    const std::vector<TableAxis>& axes = table.description().axes;
    Choice choice;
    choice.along = options.along.empty() ? table.dimensions() - 1 : findAxis(axes, options.along);
    if (!options.curves.empty()) choice.curves = findAxis(axes, options.curves);
    if (choice.curves == choice.along) fail("--along and --curves name the same axis.");
    if (choice.curves != kNone && table.size(choice.curves) > kMostCurves) {
        fail("'{}' has {} values, more than {} curves; choose another axis.",
             axes[static_cast<std::size_t>(choice.curves)].label, table.size(choice.curves), kMostCurves);
    }
    const int count = valuesPerElement(table.type());
    if (options.value > count) fail("--value: the elements of this table hold {}.", counted(count, "value"));
    const int first = options.value > 0 ? options.value - 1 : 0;
    const bool all = options.value == 0 && choice.curves == kNone;
    for (int v = first; v < (all ? count : first + 1); ++v) choice.values.push_back(v);
    const auto asked = parseCoordinates(axes, options.at);
    for (int d = 0; d < table.dimensions(); ++d) {
        const auto& coordinate = asked[static_cast<std::size_t>(d)];
        if (coordinate && (d == choice.along || d == choice.curves)) {
            fail("--at: '{}' is drawn whole; leave it away.", table.axis(d).nameOr(d));
        }
        choice.index.push_back(coordinate ? nearestIndex(table.axis(d), *coordinate) : table.size(d) / 2);
        const float taken = table.axis(d).coordinates[static_cast<std::size_t>(choice.index.back())];
        if (coordinate && static_cast<float>(*coordinate) != taken) {
            note("{}: {} is the grid point nearest to {}.", table.axis(d).nameOr(d), taken, *coordinate);
        }
    }
    return choice;
}

TableBox boxOf(const LookupTable& table, const Choice& choice) {
    TableBox box;
    for (int d = 0; d < table.dimensions(); ++d) {
        const bool whole = d == choice.along || d == choice.curves;
        box.offset.push_back(whole ? 0 : choice.index[static_cast<std::size_t>(d)]);
        box.count.push_back(whole ? table.size(d) : 1);
    }
    return box;
}

/// Where the curves lie on the axes that are not drawn.
std::string titleOf(const LookupTable& table, const Choice& choice) {
    std::string title;
    for (int d = 0; d < table.dimensions(); ++d) {
        if (d == choice.along || d == choice.curves || table.size(d) == 1) continue;
        const auto i = static_cast<std::size_t>(choice.index[static_cast<std::size_t>(d)]);
        title += fmt::format("{}{} {}{}", title.empty() ? "" : ", ", table.axis(d).nameOr(d),
                             table.axis(d).coordinates[i], unitsAfter(table.axis(d).units));
    }
    return title.empty() ? table.description().name : title;
}

Plot plotOf(const LookupTable& table, const Choice& choice) {
    const std::vector<double> read = table.readValues(boxOf(table, choice));
    const TableAxis& along = table.axis(choice.along);
    const auto each = static_cast<std::size_t>(valuesPerElement(table.type()));
    const auto length = static_cast<std::size_t>(along.size());
    const auto count = choice.curves == kNone ? std::size_t{1} : static_cast<std::size_t>(table.size(choice.curves));
    const bool curvesFirst = choice.curves < choice.along;
    Plot plot;
    plot.title = titleOf(table, choice);
    plot.xLabel = withUnits(along.nameOr(choice.along), along.units);
    plot.yLabel = withUnits(table.valueName(choice.values[0]), table.description().units);
    if (choice.values.size() > 1) plot.yLabel = withUnits("value", table.description().units);
    if (choice.curves != kNone) {
        plot.legendTitle = withUnits(table.axis(choice.curves).nameOr(choice.curves), table.axis(choice.curves).units);
    }
    for (std::size_t c = 0; c < count; ++c) {
        for (int v : choice.values) {
            Curve curve;
            curve.label = choice.curves == kNone ? table.valueName(v)
                                                 : fmt::format("{}", table.axis(choice.curves).coordinates[c]);
            bool isBroken = true;
            for (std::size_t i = 0; i < length; ++i) {
                const std::size_t element = curvesFirst ? c * length + i : i * count + c;
                addPoint(curve, static_cast<double>(along.coordinates[i]),
                         read[element * each + static_cast<std::size_t>(v)], isBroken);
            }
            plot.curves.push_back(curve);
        }
    }
    return plot;
}

void run(const Options& options) {
    const LookupTable table = LookupTable::open(options.file, options.segment);
    const Plot plot = plotOf(table, choose(table, options));
    const bool anything =
        std::any_of(plot.curves.begin(), plot.curves.end(), [](const Curve& curve) { return !curve.pieces.empty(); });
    if (!anything) fail("{}: there are no numbers to draw; choose other coordinates.", options.file);
    Staging staging(options.output, options.force);
    drawPlot(plot, staging.path());
    staging.publish();
    note("{}: {} curve{} over {}.", options.output, plot.curves.size(), plot.curves.size() == 1 ? "" : "s",
         plot.xLabel);
}

}  // namespace

void addLutPlot(CLI::App& lut, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = lut.add_subcommand("plot", "Draw values of a table along one axis");
    command->add_option("FILE", options->file, "The file with the table")->required();
    command->add_option("OUT", options->output, "The plot: .svg or .png")
        ->required()
        ->check(endingIn({".svg", ".png"}));
    command->add_option("--segment", options->segment, "Which table, by its segment; default: the only one")
        ->check(wholeNumber(1))
        ->type_name("N");
    command->add_option("--along", options->along, "The axis to draw along; default: the last, of wavelengths")
        ->type_name("LABEL");
    command->add_option("--curves", options->curves, "An axis that gives a curve for each of its values")
        ->type_name("LABEL");
    command
        ->add_option(
            "--at", options->at,
            "Coordinate of another axis, in its units: the nearest grid point; repeatable; default: the middle "
            "one")
        ->allow_extra_args(false)
        ->option_text("LABEL=VALUE");
    command
        ->add_option("--value", options->value,
                     "Of elements with two values: 1 or 2; default: both, or 1 with --curves")
        ->check(wholeNumber(1, 2))
        ->type_name("N");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "LABEL is the label of an axis, a part of it that no other has, or its number.\n"
        "Example:\n  ks lut plot scene.kslut water.svg --curves water --at range=20 --at refl=0.5");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
