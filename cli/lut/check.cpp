// ks lut check: what would spoil an interpolation, and how well the grid is chosen.
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
    bool allowsMissing = false;
    bool json = false;
};

struct AxisFinding {
    int turn = 0;  // the first index whose coordinate is not above the one before, or 0
    AxisError error;
};

struct Findings {
    Coverage coverage;
    std::vector<AxisFinding> axes;
};

int firstTurn(const TableAxis& axis) {
    const std::vector<float>& grid = axis.coordinates;
    for (std::size_t i = 1; i < grid.size(); ++i) {
        if (!(grid[i] > grid[i - 1])) return static_cast<int>(i);
    }
    return 0;
}

Findings examine(const LookupTable& table) {
    Findings findings;
    findings.coverage = surveyCoverage(table);
    for (int d = 0; d < table.dimensions(); ++d) {
        AxisFinding finding;
        finding.turn = firstTurn(table.axis(d));
        if (finding.turn == 0) finding.error = leaveOneOut(table, d);
        findings.axes.push_back(finding);
    }
    return findings;
}

std::int64_t notNumbers(const Findings& findings) {
    std::int64_t sum = 0;
    for (const ValueSummary& value : findings.coverage.values) sum += value.notNumbers;
    return sum;
}

std::int64_t infinities(const Findings& findings) {
    std::int64_t sum = 0;
    for (const ValueSummary& value : findings.coverage.values) sum += value.infinities;
    return sum;
}

std::vector<std::string> problemsOf(const LookupTable& table, const Findings& findings, const Options& options) {
    std::vector<std::string> problems;
    const std::int64_t missing = notNumbers(findings);
    if (missing > 0 && !options.allowsMissing) {
        problems.push_back(counted(missing, "value") + (missing == 1 ? " is no number" : " are no numbers"));
    }
    const std::int64_t infinite = infinities(findings);
    if (infinite > 0) problems.push_back(counted(infinite, "value") + (infinite == 1 ? " is" : " are") + " infinite");
    for (int d = 0; d < table.dimensions(); ++d) {
        const int turn = findings.axes[static_cast<std::size_t>(d)].turn;
        if (turn == 0) continue;
        const std::vector<float>& grid = table.axis(d).coordinates;
        const auto i = static_cast<std::size_t>(turn);
        problems.push_back(fmt::format("the coordinates of '{}' do not increase: number {} is {}, number {} is {}",
                                       table.axis(d).nameOr(d), i, grid[i - 1], i + 1, grid[i]));
    }
    return problems;
}

// ---- text ----

std::string holesText(const LookupTable& table, const Coverage& coverage) {
    std::string text;
    for (const CellPlace& hole : coverage.firstHoles) {
        text += fmt::format("    {} ({}) at {}\n", hole.isInfinite ? "infinite" : "no number",
                            table.valueName(hole.value), placeText(table, hole.index));
    }
    return text;
}

std::string errorText(const AxisFinding& finding, const LookupTable& table) {
    if (finding.turn != 0) return "coordinates do not increase";
    const AxisError& error = finding.error;
    if (error.points == 0)
        return error.leftOut == 0 ? "no inner grid points" : "no inner grid points with numbers but 0";
    std::string text = fmt::format("mean {:.3g} %, largest {:.3g} %", 100 * error.mean, 100 * error.largest);
    if (error.largest > 0) text += " at " + placeText(table, error.worst.index);
    if (error.leftOut > 0) text += fmt::format("; {} left out", counted(error.leftOut, "value"));
    return text;
}

std::string textOf(const LookupTable& table, const Findings& findings) {
    std::string text = fmt::format("segment {}: {}\n", table.segment(), tableText(table));
    text += fmt::format("  {} of {} hold numbers, {} no number, {} infinite\n", findings.coverage.covered,
                        counted(findings.coverage.cells, "cell"), counted(notNumbers(findings), "value"),
                        counted(infinities(findings), "value"));
    text += holesText(table, findings.coverage);
    text += "  linear prediction of each inner grid point from its neighbours along an axis\n";
    for (int d = 0; d < table.dimensions(); ++d) {
        if (table.size(d) == 1) continue;
        text += fmt::format("    {}: {}\n", table.axis(d).nameOr(d),
                            errorText(findings.axes[static_cast<std::size_t>(d)], table));
    }
    return text;
}

// ---- JSON ----

Json errorJson(const LookupTable& table, int d, const AxisFinding& finding) {
    const AxisError& error = finding.error;
    const bool known = error.points > 0;
    Json json = {{"label", table.axis(d).nameOr(d)},
                 {"size", table.size(d)},
                 {"increasing", finding.turn == 0},
                 {"points", error.points},
                 {"left_out", error.leftOut},
                 {"mean_relative_error", orNull(error.mean, known)},
                 {"largest_relative_error", orNull(error.largest, known)}};
    json["largest_at"] = known ? placeJson(table, error.worst.index) : Json(nullptr);
    return json;
}

Json jsonOf(const LookupTable& table, const Findings& findings, const std::vector<std::string>& problems) {
    Json json = {{"segment", table.segment()},          {"name", table.description().name},
                 {"cells", findings.coverage.cells},    {"covered", findings.coverage.covered},
                 {"not_numbers", notNumbers(findings)}, {"infinite", infinities(findings)}};
    json["first_holes"] = Json::array();
    for (const CellPlace& hole : findings.coverage.firstHoles) {
        json["first_holes"].push_back({{"value", table.valueName(hole.value)},
                                       {"infinite", hole.isInfinite},
                                       {"at", placeJson(table, hole.index)}});
    }
    json["axes"] = Json::array();
    for (int d = 0; d < table.dimensions(); ++d) {
        json["axes"].push_back(errorJson(table, d, findings.axes[static_cast<std::size_t>(d)]));
    }
    json["problems"] = problems;
    return json;
}

void run(const Options& options) {
    const OpenHostFile file = openTableFile(options.file, "r");
    std::vector<int> segments = {options.segment};
    if (options.segment == 0) segments = tableSegments(file.get());
    if (segments.empty()) fail("{} holds no look-up table. 'ks lut import' makes one.", options.file);
    Json json = {{"file", options.file}, {"tables", Json::array()}};
    std::string text;
    std::vector<std::string> allProblems;
    for (int segment : segments) {
        const LookupTable table = LookupTable::open(file.get(), options.file, segment);
        const Findings findings = examine(table);
        const std::vector<std::string> problems = problemsOf(table, findings, options);
        for (const std::string& problem : problems) {
            allProblems.push_back(fmt::format("segment {}: {}", segment, problem));
        }
        json["tables"].push_back(jsonOf(table, findings, problems));
        text += textOf(table, findings);
    }
    fmt::print("{}", options.json ? jsonText(json) : text);
    if (!allProblems.empty()) fail("{}: {}.", options.file, fmt::join(allProblems, "; "));
}

}  // namespace

void addLutCheck(CLI::App& lut, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = lut.add_subcommand("check", "Find holes, bad coordinates and coarse axes of tables");
    command->add_option("FILE", options->file, "The file with the tables")->required();
    command->add_option("--segment", options->segment, "Only the table in this segment; default: all tables")
        ->check(wholeNumber(1))
        ->type_name("N");
    command->add_flag("--allow-nan", options->allowsMissing, "Not-a-numbers are no problem: they mark what is missing");
    command->add_flag("--json", options->json, "Print JSON");
    command->footer(
        "Counts values that are no numbers or infinite and says where the first are;\n"
        "looks for coordinates that do not increase; predicts every inner grid point\n"
        "from its two neighbours along each axis and tells the error, relative to the\n"
        "largest of the three: about four times what interpolation between grid points\n"
        "costs. Neighbours of holes are left out. Tables may be larger than memory.\n"
        "Exit status 1 when a value is no number (unless --allow-nan) or infinite, or\n"
        "coordinates do not increase.\n"
        "Example:\n  ks lut check scene.kslut");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
