// ks lut export: a table as netCDF, with coordinates, units, and what an import needs to make the same table again.
#include <algorithm>
#include <memory>
#include <set>

#include "app/help.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "lut/blocks.hpp"
#include "lut/commands.hpp"
#include "lut/exchange.hpp"
#include "lut/netcdf.hpp"
#include "lut/text.hpp"

namespace kscli {
namespace {

struct Options {
    std::string file;
    std::string output;
    int segment = 0;
    bool force = false;
};

/// A name that no other has yet.
std::string uniqueName(const std::string& text, std::set<std::string>& taken) {
    const std::string name = netcdfName(text);
    std::string unique = name;
    for (int n = 2; !taken.insert(unique).second; ++n) unique = fmt::format("{}_{}", name, n);
    return unique;
}

class Exporter {
public:
    Exporter(const LookupTable& table, const std::string& name)
        : table_(table),
          file_(name,
                static_cast<double>(table.elementCount()) * table.elementBytes() / valuesPerElement(table.type())) {}

    void run() {
        file_.addText(NetcdfWriter::kFile, "Conventions", "CF-1.8");
        file_.addText(NetcdfWriter::kFile, "title", table_.description().name);
        defineAxes();
        defineValues();
        file_.endDefinitions();
        writeAxes();
        writeValues();
        file_.close();
    }

private:
    void defineAxes() {
        for (int d = 0; d < table_.dimensions(); ++d) {
            const TableAxis& axis = table_.axis(d);
            const std::string name = uniqueName(axis.label.empty() ? axis.nameOr(d) : axis.label, names_);
            const int dimension = file_.addDimension(name, axis.coordinates.size());
            const int variable = file_.addVariable(name, NetcdfWriter::Number::float32, {dimension});
            file_.addText(variable, "long_name", axis.label);
            file_.addText(variable, "units", axis.units);
            file_.addNumber(variable, exchange::kAxis, d + 1);
            file_.addText(variable, exchange::kLabel, axis.label);
            if (axis.assumed) file_.addNumber(variable, exchange::kAssumed, 1);
            dimensions_.push_back(dimension);
            axes_.push_back(variable);
        }
    }

    void defineValues() {
        const TableDescription& description = table_.description();
        const auto number =
            table_.type() == ElementType::float64 ? NetcdfWriter::Number::float64 : NetcdfWriter::Number::float32;
        const int count = valuesPerElement(table_.type());
        for (int v = 0; v < count; ++v) {
            const std::string valueName = table_.valueName(v);
            const bool usesTableName = count == 1 && !description.name.empty();
            const std::string name = uniqueName(usesTableName ? description.name : valueName, names_);
            const int variable = file_.addVariable(name, number, dimensions_);
            file_.addText(variable, "long_name", valueName);
            file_.addText(variable, "units", description.units);
            file_.addText(variable, exchange::kElement, elementTypeName(table_.type()));
            file_.addNumber(variable, exchange::kValue, v + 1);
            if (!description.valueNames.empty()) file_.addText(variable, exchange::kValueName, valueName);
            file_.addText(variable, exchange::kTableName, description.name);
            file_.addText(variable, exchange::kDescription, description.text);
            values_.push_back(variable);
        }
    }

    void writeAxes() {
        for (std::size_t d = 0; d < axes_.size(); ++d) {
            const std::vector<float>& grid = table_.axis(static_cast<int>(d)).coordinates;
            file_.write(axes_[d], {0}, {grid.size()}, {grid.begin(), grid.end()});
        }
    }

    void writeValues() {
        forEachBox(table_, kNoAxis, [this](const TableBox& box, const std::vector<double>& values) {
            const std::vector<std::size_t> start(box.offset.begin(), box.offset.end());
            const std::vector<std::size_t> count(box.count.begin(), box.count.end());
            std::vector<double> one(values.size() / values_.size());
            for (std::size_t v = 0; v < values_.size(); ++v) {
                for (std::size_t i = 0; i < one.size(); ++i) one[i] = values[i * values_.size() + v];
                file_.write(values_[v], start, count, one);
            }
        });
    }

    const LookupTable& table_;
    NetcdfWriter file_;
    std::set<std::string> names_;
    std::vector<int> dimensions_;
    std::vector<int> axes_;
    std::vector<int> values_;
};

void run(const Options& options) {
    if (lowerExtension(options.output) != ".nc") fail("{}: give a name that ends in .nc.", options.output);
    const LookupTable table = LookupTable::open(options.file, options.segment);
    Staging staging(options.output, options.force);
    Exporter(table, staging.path()).run();
    requireComplete("the export");
    staging.publish();
    note("{}: {}.", options.output, tableText(table));
}

}  // namespace

void addLutExport(CLI::App& lut, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = lut.add_subcommand("export", "Write a table as netCDF");
    command->add_option("FILE", options->file, "The file with the table")->required();
    command->add_option("OUT", options->output, "The netCDF file, .nc")->required();
    command->add_option("--segment", options->segment, "Which table, by its segment; default: the only one")
        ->check(wholeNumber(1))
        ->type_name("N");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "The format is classic netCDF with 64-bit offsets, without compression. Elements\n"
        "of two values become two variables. Names are made of letters, digits and\n"
        "underscores; the labels as they are go into attributes, so that 'ks lut import'\n"
        "of the file makes the same table.\n"
        "Example:\n  ks lut export scene.kslut scene.nc");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
