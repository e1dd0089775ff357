// ks stats: minimum, maximum, mean and standard deviation of bands, and their covariances and correlations.
#include <algorithm>
#include <cmath>
#include <memory>
#include <optional>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/matrixfile.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/bandstatistics.hpp"
#include "image/copymeta.hpp"
#include "image/dataset.hpp"
#include "image/region.hpp"

namespace kscli {
namespace {

struct Options {
    std::string cube;
    std::string region;
    std::vector<int> difference;
    int level = -1;
    std::string bands = "all";
    int every = 1;
    std::string format;
    std::string output;
    std::string covariance;
    std::string correlation;
    bool force = false;
};

// What was computed, and of what, with a place for every band that was asked for.
struct Result {
    std::string file;
    int level = 0;
    std::string quantity;
    std::string region;  // empty: the whole image
    std::vector<int> asked;
    std::optional<PairOffset> difference;
    long long pixels = 0;
    BandStatistics statistics;

    /// Where a band's values are, or -1 when it holds no data.
    int indexOf(int band) const {
        const auto& bands = statistics.bands;
        const auto found = std::find(bands.begin(), bands.end(), band);
        return found == bands.end() ? -1 : static_cast<int>(found - bands.begin());
    }
};

// ---- texts ----

// Minimum and maximum are samples, which are floats, or differences of two of them.
bool isFloat(double value) { return !(std::abs(static_cast<double>(static_cast<float>(value)) - value) > 0); }

double sampleValue(double value) { return isFloat(value) ? shortest(static_cast<float>(value)) : value; }

// Nine digits give every float back.
std::string sampleText(double value) {
    return isFloat(value) ? fmt::format("{:.9g}", value) : fmt::format("{}", value);
}

std::string sampleCount(const Result& result) {
    const BandStatistics& statistics = result.statistics;
    const std::string what = result.difference
                                 ? fmt::format("{} pairs of valid pixels, {} columns and {} lines apart",
                                               statistics.samples, result.difference->x, result.difference->y)
                                 : fmt::format("{} valid samples", statistics.samples);
    return fmt::format("{}; {} of {} pixels excluded for lack of data", what, statistics.excluded, result.pixels);
}

std::string table(const DataSet& dataSet, const Result& result) {
    std::string text =
        fmt::format("{}: {}{}, level {}, {}\n", result.file, result.difference ? "absolute differences of " : "",
                    result.quantity, result.level, result.region.empty() ? "whole image" : result.region);
    text += sampleCount(result) + "\n";
    text += fmt::format("{:>5} {:>9} {:>12} {:>12} {:>13} {:>13}\n", "band", "nm", "min", "max", "mean", "sd");
    for (int band : result.asked) {
        const double nm = dataSet.wavelength(band);
        text += fmt::format("{:>5} {:>9}", band + 1, nm > 0 ? fmt::format("{:.2f}", nm) : "");
        const int at = result.indexOf(band);
        if (at < 0) {
            text += "   no data\n";
            continue;
        }
        const auto i = static_cast<std::size_t>(at);
        const BandStatistics& values = result.statistics;
        text += fmt::format(" {:>12.7g} {:>12.7g} {:>13.7g} {:>13.7g}\n", values.min[i], values.max[i], values.mean[i],
                            values.sd[i]);
    }
    return text;
}

std::string csv(const DataSet& dataSet, const Result& result) {
    std::string text = "band,wavelength_nm,samples,excluded,min,max,mean,sd\n";
    for (int band : result.asked) {
        const double nm = dataSet.wavelength(band);
        text += fmt::format("{},{}", band + 1, nm > 0 ? fmt::format("{:.9g}", nm) : "");
        const int at = result.indexOf(band);
        if (at < 0) {
            text += fmt::format(",0,{},,,,\n", result.pixels);
            continue;
        }
        const auto i = static_cast<std::size_t>(at);
        const BandStatistics& values = result.statistics;
        text += fmt::format(",{},{},{},{},{},{}\n", values.samples, values.excluded, sampleText(values.min[i]),
                            sampleText(values.max[i]), values.mean[i], values.sd[i]);
    }
    return text;
}

std::string json(const DataSet& dataSet, const Result& result) {
    const BandStatistics& values = result.statistics;
    Json bands = Json::array();
    for (int band : result.asked) {
        const double nm = dataSet.wavelength(band);
        const int at = result.indexOf(band);
        const bool known = at >= 0;
        const auto i = static_cast<std::size_t>(std::max(at, 0));
        bands.push_back({{"band", band + 1},
                         {"wavelength_nm", orNull(shortest(static_cast<float>(nm)), nm > 0)},
                         {"min", orNull(sampleValue(values.min[i]), known)},
                         {"max", orNull(sampleValue(values.max[i]), known)},
                         {"mean", orNull(values.mean[i], known)},
                         {"sd", orNull(values.sd[i], known)}});
    }
    Json whole = {{"file", result.file},
                  {"level", result.level},
                  {"quantity", result.quantity},
                  {"region", result.region.empty() ? Json(nullptr) : Json(result.region)},
                  {"difference", nullptr},
                  {"pixels", result.pixels},
                  {"samples", values.samples},
                  {"excluded", values.excluded},
                  {"bands", bands}};
    if (result.difference) whole["difference"] = {result.difference->x, result.difference->y};
    return jsonText(whole);
}

// ---- the command ----

std::string formatOf(const Options& options) {
    if (!options.format.empty()) return options.format;
    const std::string extension = options.output.empty() ? "" : lowerExtension(options.output);
    return extension == ".csv" || extension == ".json" ? extension.substr(1) : "table";
}

Result compute(const DataSet& dataSet, const Options& options) {
    Result result;
    result.file = options.cube;
    result.level = dataSet.level(options.level);
    result.quantity = dataSet.levelDescriptions()[static_cast<std::size_t>(result.level)];
    result.region = options.region;
    result.asked = parseBands(dataSet, options.bands);
    if (!options.difference.empty()) {
        result.difference = PairOffset{options.difference[0], options.difference[1]};
        if (result.difference->x == 0 && result.difference->y == 0) {
            fail("--diff 0,0 compares every pixel with itself; give another one, such as 1,0.");
        }
    }
    const Region region = options.region.empty() ? nullptr : parseRegion(dataSet, options.region);
    const ValidPixels valid = validPixels(dataSet, result.asked, result.level, region.get(), options.every);
    requireComplete("the search for pixels with data");
    result.pixels = valid.valid + valid.excluded;
    const bool withCovariance = !options.covariance.empty() || !options.correlation.empty();
    result.statistics = statisticsOfValid(dataSet, result.asked, result.level, region.get(), valid, withCovariance,
                                          result.difference, options.every);
    if (!valid.emptyBands.empty()) {
        note("{} without any data; only the other bands decide which pixels are valid.", bandRanges(valid.emptyBands));
    }
    return result;
}

std::string textOf(const DataSet& dataSet, const Result& result, const std::string& format) {
    return format == "csv" ? csv(dataSet, result) : format == "json" ? json(dataSet, result) : table(dataSet, result);
}

// The files to write; each is refused before anything is computed.
struct Outputs {
    std::unique_ptr<Staging> values, covariance, correlation;

    Outputs(const DataSet& dataSet, const Options& options) {
        for (const std::string& matrix : {options.covariance, options.correlation}) {
            if (!matrix.empty()) requireMatrixName(matrix);
        }
        const std::vector<std::string> names = {options.output, options.covariance, options.correlation};
        for (std::size_t i = 0; i < names.size(); ++i) {
            if (names[i].empty()) continue;
            refuseImageFiles(dataSet, options.cube, names[i]);
            if (std::count(names.begin(), names.end(), names[i]) > 1) fail("{} is named for two outputs.", names[i]);
        }
        const auto stage = [&options](const std::string& name) {
            return name.empty() ? nullptr : std::make_unique<Staging>(name, options.force);
        };
        values = stage(options.output);
        covariance = stage(options.covariance);
        correlation = stage(options.correlation);
    }
};

void writeMatrices(const Result& result, const Outputs& outputs) {
    std::vector<std::string> labels;
    for (int band : result.statistics.bands) labels.push_back(fmt::format("b{}", band + 1));
    if (outputs.covariance) writeMatrix(result.statistics.covariance, labels, outputs.covariance->path());
    if (outputs.correlation) writeMatrix(correlations(result.statistics), labels, outputs.correlation->path());
}

void run(const Options& options) {
    const DataSet dataSet = DataSet::open(options.cube);
    const Outputs outputs(dataSet, options);
    const Result result = compute(dataSet, options);
    const std::string text = textOf(dataSet, result, formatOf(options));
    if (outputs.values) writeText(text, outputs.values->path());
    writeMatrices(result, outputs);
    for (const auto* staged : {&outputs.values, &outputs.covariance, &outputs.correlation}) {
        if (*staged) (*staged)->publish();
    }
    if (!outputs.values) {
        fmt::print("{}", text);
    } else {
        note("{}: {} bands; {}.", options.output, result.statistics.bands.size(), sampleCount(result));
    }
}

}  // namespace

void addStats(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("stats", "Statistics of bands, their covariances and correlations");
    command->add_option("CUBE", options->cube, "The image")->required();
    command->add_option("--roi", options->region, fmt::format("Pixels to use: {}; default: all", kRegionHelp))
        ->type_name("REGION");
    command->add_option("--bands", options->bands, fmt::format("Bands to use: {}", kBandListHelp))
        ->type_name("LIST")
        ->capture_default_str();
    command->add_option("--level", options->level, "Radiometric level (0: stored values); default: the highest")
        ->check(wholeNumber(0))
        ->type_name("N");
    CLI::Option* difference =
        command
            ->add_option("--diff", options->difference,
                         "Statistics of the absolute differences between pixels X columns and Y lines apart, which "
                         "tell of noise")
            ->delimiter(',')
            ->check(wholeNumber(0))
            ->expected(2)
            ->option_text("X,Y");
    command->add_option("--every", options->every, "Use every N-th pixel and line only")
        ->check(wholeNumber(1))
        ->type_name("N")
        ->capture_default_str()
        ->excludes(difference);
    command->add_option("--covariance", options->covariance, "Write the covariances: .csv, or .npy for NumPy")
        ->type_name("FILE");
    command->add_option("--correlation", options->correlation, "Write the correlations: .csv, or .npy for NumPy")
        ->type_name("FILE");
    command->add_option("--format", options->format, "table, csv or json; default: by the name of the file, or table")
        ->check(CLI::IsMember({"table", "csv", "json"}))
        ->option_text("FORMAT");
    command->add_option("-o,--output", options->output, "Write to a file instead of standard output")
        ->type_name("FILE");
    command->add_flag("--force", options->force, "Replace outputs if they exist");
    command->footer(
        "A pixel counts when every chosen band has a number there that is not the\n"
        "no-data value; how many do, and how many do not, is always told. Bands without\n"
        "any data are left out. Deviations and covariances are divided by the number of\n"
        "samples; a band that does not vary has no correlation (nan).\n"
        "Example:\n  ks stats scene.img --bands good --covariance cov.csv -o stats.csv");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
