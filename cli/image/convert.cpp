// ks convert: a copy of an image in another format, of some bands or a part, at a level, that loses nothing of what the
// source knows. The library writes what its records hold; the rest is completed through the host, from the source's
// lists.
#include <filesystem>
#include <memory>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/copycheck.hpp"
#include "image/copymeta.hpp"
#include "image/copyplan.hpp"
#include "image/dataset.hpp"

namespace kscli {
namespace {

struct Options {
    std::string input;
    std::string output;
    std::string bands = "all";
    std::vector<int> window;
    int every = 1;
    int level = 0;
    std::string type = "same";
    bool check = false;
    bool json = false;
    bool force = false;
};

int chooseType(const DataSet& source, const CopyPlan& plan, const std::string& asked) {
    if (const auto type = sampleTypeNamed(asked)) return *type;
    return plan.level > 0 ? static_cast<int>(kFloat32) : typeHoldingAll(source, plan.bands);
}

CopyPlan makePlan(const DataSet& source, const Options& options) {
    CopyPlan plan;
    plan.bands = parseBands(source, options.bands);
    plan.window = chooseWindow(source, options.window);
    plan.every = options.every;
    plan.area = makeArea(plan.window[0], plan.window[1], plan.window[2], plan.window[3], options.every);
    plan.level = source.level(options.level);
    plan.sampleType = chooseType(source, plan, options.type);
    return plan;
}

void warnAboutLosses(const DataSet& source, const CopyPlan& plan) {
    KSHostLayout layout = {};
    const bool hasLayout = KSHostGetLayout(source.file(), &layout) != 0 && layout.szSampleType != nullptr;
    const std::string stored = hasLayout ? layout.szSampleType : "";
    if (stored == "Float64" || stored == "Int32" || stored == "UInt32" || stored.compare(0, 1, "C") == 0) {
        warn("samples of type {} are read as 32-bit floats; digits beyond the seventh are lost.", stored);
    }
    const auto before = noDataValues(source, plan.bands);
    const auto after = noDataOfCopy(source, plan);
    for (std::size_t i = 0; i < before.size(); ++i) {
        if (!before[i] || after[i]) continue;
        warn("the no-data value {} does not fit {}; such samples are clamped and the copy has no no-data value.",
             *before[i], sampleTypeName(plan.sampleType));
        break;
    }
}

std::size_t copySamples(const DataSet& source, const CopyPlan& plan, const DataSet& copy) {
    const SampleReader reader(source, plan.bands, plan.level, SampleReader::NoData::asStored);
    const SampleFitter fitter(source, plan);
    BlockWriter writer(copy, "the copy");
    std::size_t changed = 0;
    constexpr double kWindows = 2;
    readBlocks(reader, plan.area, 1 / kWindows, [&](int first, Window& window) {
        changed += fitter.fit(window.samples(), window.pixelCount());
        writer.write(window, first);
    });
    return changed;
}

std::string historyLine(const CopyPlan& plan, const Options& options) {
    std::string line = fmt::format("ks convert {}", options.input);
    if (options.bands != "all") line += " --bands " + options.bands;
    if (!options.window.empty()) {
        line += fmt::format(" --window {},{},{},{}", plan.window[0], plan.window[1], plan.window[2], plan.window[3]);
    }
    if (plan.every != 1) line += fmt::format(" --every {}", plan.every);
    if (plan.level != 0) line += fmt::format(" --level {}", plan.level);
    return line + fmt::format(" --type {}", sampleTypeName(plan.sampleType));
}

void reportCheck(const CopyCheck& check) {
    for (const std::string& problem : check.problems) printError(problem);
    if (!check.passed()) fail("the copy differs from its source; it was not kept.");
    note("checked: {} samples and {} metadata entries agree with the source.", check.samples, check.entries);
}

void printSummary(const CopyPlan& plan, const Options& options, std::size_t changed, const CopyCheck* check) {
    Json json = {{"file", options.output},
                 {"width", plan.area.columns},
                 {"height", plan.area.rows},
                 {"bands", plan.bands.size()},
                 {"type", sampleTypeName(plan.sampleType)},
                 {"level", plan.level},
                 {"samples_changed", changed}};
    if (check != nullptr) {
        json["check"] = {{"passed", check->passed()},
                         {"samples", check->samples},
                         {"differing", check->differing},
                         {"entries", check->entries}};
    }
    printJson(json);
}

void run(const Options& options) {
    const DataSet source = DataSet::open(options.input);
    refuseSourceFiles(source, options.input, options.output);
    const CopyPlan plan = makePlan(source, options);
    Staging staging(options.output, options.force);
    staging.alsoMakes(companionsOf(options.output));
    warnAboutLosses(source, plan);

    DataSet copy = source.describe(plan.bands);
    copy->nXSize = plan.area.columns;
    copy->nYSize = plan.area.rows;
    copy.dropFirstTransforms(plan.level);
    copy.create(staging.path(), plan.sampleType);
    const std::size_t changed = copySamples(source, plan, copy);
    copy.writeMetadata();
    completeCopy(source, plan, copy.file(), historyLine(plan, options));
    copy.close();
    requireComplete("the copy");
    if (changed > 0) {
        warn("{} samples were rounded, clamped or not numbers; {} cannot hold them.", changed,
             sampleTypeName(plan.sampleType));
    }

    std::unique_ptr<CopyCheck> check;
    if (options.check) check = std::make_unique<CopyCheck>(checkCopy(source, plan, staging.path()));
    if (check) reportCheck(*check);
    requireComplete("the copy");
    staging.publish();
    note("{}: {} x {} pixels, {} bands, {}.", options.output, plan.area.columns, plan.area.rows, plan.bands.size(),
         sampleTypeName(plan.sampleType));
    if (options.json) printSummary(plan, options, changed, check.get());
}

}  // namespace

void addConvert(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command =
        app.add_subcommand("convert", "Copy an image to GeoTIFF or ENVI, whole or in part, losing nothing");
    command->add_option("IN", options->input, "The image")->required();
    command->add_option("OUT", options->output, "The copy: GeoTIFF when it ends in .tif or .tiff, else ENVI")
        ->required();
    command->add_option("--bands", options->bands, fmt::format("Bands to copy, in this order: {}", kBandListHelp))
        ->type_name("LIST")
        ->capture_default_str();
    command->add_option("--window", options->window, "Rectangle to copy, in pixels from 0")
        ->delimiter(',')
        ->check(wholeNumber(0))
        ->expected(4)
        ->option_text("X,Y,WIDTH,HEIGHT");
    command
        ->add_option("--every", options->every, "Copy every N-th pixel and line, the first of each whole cell of N x N")
        ->check(wholeNumber(1))
        ->type_name("N")
        ->capture_default_str();
    command
        ->add_option("--level", options->level,
                     "Radiometric level to copy; above 0 the copy holds physical values as float32")
        ->check(wholeNumber(0))
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--type", options->type, "Sample type: same, uint8, int16, uint16 or float32")
        ->check(CLI::IsMember({"same", "uint8", "int16", "uint16", "float32"}))
        ->option_text("TYPE=same");
    command->add_flag("--check", options->check,
                      "Read the copy again and compare every sample and entry with the source");
    command->add_flag("--json", options->json, "Print what was done as JSON");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer("Example:\n  ks convert scene.img part.tif --window 0,0,100,100 --bands good --check");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
