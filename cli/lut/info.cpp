// ks lut info: the tables of a file, their axes, and how much of each is filled.
#include <algorithm>
#include <memory>

#include "app/help.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "lut/commands.hpp"
#include "lut/survey.hpp"
#include "lut/text.hpp"

namespace kscli {
namespace {

struct Options {
    std::string file;
    int segment = 0;
    bool quick = false;
    bool json = false;
};

struct Described {
    LookupTable table;
    Coverage coverage;
    bool isSurveyed = false;
};

Described describeTable(HostFile* file, const Options& options, int segment) {
    Described described = {LookupTable::open(file, options.file, segment), {}, false};
    if (!options.quick && described.table.type() != ElementType::unknown) {
        described.coverage = surveyCoverage(described.table);
        described.isSurveyed = true;
    }
    return described;
}

std::int64_t bytesOf(const LookupTable& table) { return table.elementCount() * table.elementBytes(); }

// ---- text ----

void addLine(std::string& text, const std::string& name, const std::string& value) {
    if (!value.empty()) text += fmt::format("  {:<14}{}\n", name, value);
}

std::string coverageText(const Coverage& coverage) {
    return fmt::format("{} of {} hold numbers ({:.4g} %)", coverage.covered, counted(coverage.cells, "cell"),
                       100.0 * static_cast<double>(coverage.covered) / static_cast<double>(coverage.cells));
}

std::string elementText(const LookupTable& table) {
    return fmt::format("{} of {} bytes, {} in all", elementTypeName(table.type()), table.elementBytes(),
                       counted(bytesOf(table), "byte"));
}

std::string axesText(const LookupTable& table) {
    std::size_t width = 0;
    for (int d = 0; d < table.dimensions(); ++d) width = std::max(width, table.axis(d).nameOr(d).size());
    std::string text;
    for (int d = 0; d < table.dimensions(); ++d) {
        text += fmt::format("    {} {:<{}} {:>6}  {}\n", d + 1, table.axis(d).nameOr(d), width, table.size(d),
                            axisText(table.axis(d)));
    }
    return text;
}

std::string textOf(const Described& described) {
    const LookupTable& table = described.table;
    std::string text = fmt::format("segment {}: {}{}\n", table.segment(), tableText(table),
                                   table.isRadianceTable() ? " (radiance table)" : "");
    addLine(text, "description", table.description().text);
    addLine(text, "elements", elementText(table));
    addLine(text, "units", table.description().units);
    if (described.isSurveyed) {
        addLine(text, "coverage", coverageText(described.coverage));
        for (std::size_t v = 0; v < described.coverage.values.size(); ++v) {
            const ValueSummary& summary = described.coverage.values[v];
            const std::string range = summary.numbers > 0
                                          ? fmt::format(": {:.7g} to {:.7g}", summary.least, summary.greatest)
                                          : ": no numbers";
            addLine(text, v == 0 ? "values" : "", table.valueName(static_cast<int>(v)) + range);
        }
    }
    return text + "  axes\n" + axesText(table);
}

// ---- JSON ----

Json axisJson(const TableAxis& axis) {
    Json coordinates = Json::array();
    for (float coordinate : axis.coordinates) coordinates.push_back(orNull(shortest(coordinate)));
    return {{"label", axis.label},
            {"units", axis.units},
            {"size", axis.size()},
            {"assumed", axis.assumed},
            {"coordinates", coordinates}};
}

Json valueJson(const Described& described, int value) {
    Json json = {{"name", described.table.valueName(value)}};
    if (!described.isSurveyed) return json;
    const ValueSummary& summary = described.coverage.values[static_cast<std::size_t>(value)];
    json["numbers"] = summary.numbers;
    json["not_numbers"] = summary.notNumbers;
    json["infinite"] = summary.infinities;
    json["least"] = orNull(summary.least);
    json["greatest"] = orNull(summary.greatest);
    return json;
}

Json jsonOf(const Described& described) {
    const LookupTable& table = described.table;
    Json json = {{"segment", table.segment()},
                 {"name", table.description().name},
                 {"description", table.description().text},
                 {"radiance_table", table.isRadianceTable()},
                 {"element", elementTypeName(table.type())},
                 {"element_bytes", table.elementBytes()},
                 {"bytes", bytesOf(table)},
                 {"units", table.description().units},
                 {"cells", table.elementCount()},
                 {"covered", described.isSurveyed ? Json(described.coverage.covered) : Json(nullptr)}};
    json["values"] = Json::array();
    const int values = table.type() == ElementType::unknown ? 0 : valuesPerElement(table.type());
    for (int v = 0; v < values; ++v) json["values"].push_back(valueJson(described, v));
    json["axes"] = Json::array();
    for (int d = 0; d < table.dimensions(); ++d) json["axes"].push_back(axisJson(table.axis(d)));
    return json;
}

void run(const Options& options) {
    const OpenHostFile file = openTableFile(options.file, "r");
    std::vector<int> segments = {options.segment};
    if (options.segment == 0) segments = tableSegments(file.get());
    if (segments.empty()) fail("{} holds no look-up table. 'ks lut import' makes one.", options.file);
    Json json = {{"file", options.file}, {"tables", Json::array()}};
    std::string text =
        fmt::format("{}: {}\n", options.file, counted(static_cast<std::int64_t>(segments.size()), "table"));
    for (int segment : segments) {
        try {
            const Described described = describeTable(file.get(), options, segment);
            json["tables"].push_back(jsonOf(described));
            text += textOf(described);
        } catch (const Incomplete&) {
            throw;
        } catch (const Failure& failure) {
            // A table that was never completed does not hide the others.
            if (segments.size() == 1) throw;
            warn("{}", failure.what());
        }
    }
    if (options.json) return printJson(json);
    fmt::print("{}", text);
}

}  // namespace

void addLutInfo(CLI::App& lut, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = lut.add_subcommand("info", "Show shape, axes, units and coverage of a file's tables");
    command->add_option("FILE", options->file, "The file with the tables")->required();
    command->add_option("--segment", options->segment, "Only the table in this segment")
        ->check(wholeNumber(1))
        ->type_name("N");
    command->add_flag("--quick", options->quick, "Do not read the values: no coverage and ranges");
    command->add_flag("--json", options->json, "Print JSON, with all coordinates");
    command->footer(
        "'assumed' marks the one coordinate of an axis that was not known when the table\n"
        "was made.\n"
        "Example:\n  ks lut info scene.kslut");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
