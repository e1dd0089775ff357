// ks transform pca and mnf: the parameters of a transform, estimated from the image that it is for. Band statistics
// give the covariance of the values, neighbouring pixels that of the noise.
#include "transform/transformfit.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <memory>
#include <numeric>
#include <optional>
#include <set>

#include <kslib.h>

#include "app/contactsheet.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/plot.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/bandstatistics.hpp"
#include "image/blocks.hpp"
#include "image/dataset.hpp"
#include "image/region.hpp"
#include "transform/eigentransform.hpp"
#include "transform/noisecovariance.hpp"

namespace kscli {
namespace {

enum class Kind { principalComponents, minimumNoise };

struct Options {
    Kind kind = Kind::principalComponents;
    std::string input;
    std::string output;
    std::string bands;
    std::string region;
    int level = 0;
    int every = 1;
    int components = 0;    // 0: all, or as the next two say
    double percent = -1;   // below 0: not given
    double leastSnr = -1;  // below 0: not given
    bool standardised = false;
    std::string neighbours = "both";
    std::vector<std::string> reports;
    std::string pictures;
    bool json = false;
    bool force = false;
};

bool isNoiseAdjusted(const Options& options) { return options.kind == Kind::minimumNoise; }
const char* nameOf(const Options& options) { return isNoiseAdjusted(options) ? "mnf" : "pca"; }

std::string plural(std::size_t count, const std::string& what) {
    return fmt::format("{} {}{}", count, what, count == 1 ? "" : "s");
}

// ---- estimating ----

struct Fit {
    BandStatistics statistics;
    NoiseEstimate noise;  // empty for principal components
    EigenTransform transform;

    double total() const { return std::accumulate(transform.eigenvalues.begin(), transform.eigenvalues.end(), 0.0); }
    double percent(std::size_t component) const {
        return total() > 0 ? 100 * transform.eigenvalues[component] / total() : 0;
    }
    // Noise is part of the variance. Where the estimate is too high, as little as none of it is left for the signal.
    double snr(std::size_t component) const { return std::max(0.0, transform.eigenvalues[component] - 1); }
};

Neighbours neighboursOf(const Options& options) {
    if (options.neighbours == "along") return Neighbours::alongLine;
    return options.neighbours == "across" ? Neighbours::acrossLines : Neighbours::both;
}

std::vector<int> bandsFor(const DataSet& dataSet, const Options& options) {
    if (!options.bands.empty()) return parseBands(dataSet, options.bands);
    const std::vector<int> good = goodBands(dataSet);
    if (good.empty()) fail("{} has no good bands; choose some with --bands.", options.input);
    return good;
}

bool isConstant(const BandStatistics& statistics, std::size_t i) { return !(statistics.sd[i] > 0); }

BandStatistics statisticsFor(const DataSet& dataSet, const Options& options, int level, const KSROI* region) {
    const std::vector<int> bands = bandsFor(dataSet, options);
    const ValidPixels valid = validPixels(dataSet, bands, level, region, options.every);
    BandStatistics statistics =
        statisticsOfValid(dataSet, bands, level, region, valid, true, std::nullopt, options.every);
    if (!valid.emptyBands.empty()) warn("{}: no pixel has data; left out.", bandRanges(valid.emptyBands));
    if (statistics.samples < 2) fail("one sample has no variance; take more pixels (--roi, --every).");
    return statistics;
}

void tellConstantBands(const BandStatistics& statistics) {
    std::vector<int> constant;
    for (std::size_t i = 0; i < statistics.bands.size(); ++i) {
        if (isConstant(statistics, i)) constant.push_back(statistics.bands[i]);
    }
    if (constant.size() == statistics.bands.size()) {
        fail("every band has the same value in all {} samples; there is nothing to transform.", statistics.samples);
    }
    if (!constant.empty()) {
        warn("{}: the same value everywhere; {} among the last components. --bands leaves bands out.",
             bandRanges(constant), constant.size() == 1 ? "it comes" : "they come");
    }
}

void requirePairs(const NoiseEstimate& noise, std::size_t bands) {
    if (noise.pairs > static_cast<long long>(bands)) return;
    fail(
        "{} of neighbours with data: too few to tell the noise of {}; take more pixels than bands (--roi, --every) or "
        "fewer bands (--bands).",
        plural(static_cast<std::size_t>(noise.pairs), "pair"), plural(bands, "band"));
}

void tellMissingNoise(const Fit& fit) {
    std::vector<int> silent;
    for (std::size_t i = 0; i < fit.statistics.bands.size(); ++i) {
        const double variance = fit.statistics.sd[i] * fit.statistics.sd[i];
        const bool hasNoise = fit.noise.covariance.at(i, i) > kLeastNoise * variance;
        if (!isConstant(fit.statistics, i) && !hasNoise) silent.push_back(fit.statistics.bands[i]);
    }
    if (!silent.empty()) {
        warn(
            "{}: neighbours do not differ, so no noise is to be seen; it is taken to be 1/10000 of the SD of the band.",
            bandRanges(silent));
    }
    const std::size_t combinations = fit.transform.withoutNoise - std::min(fit.transform.withoutNoise, silent.size());
    if (combinations > 0) {
        warn(
            "{} of bands show{} no noise, as copies and sums of bands do; its SD is taken to be 1/10000 of that of a "
            "band.",
            plural(combinations, "combination"), combinations == 1 ? "s" : "");
    }
}

Fit estimate(const DataSet& dataSet, const Options& options) {
    const int level = dataSet.level(options.level);
    Region region;
    if (!options.region.empty()) region = parseRegion(dataSet, options.region);
    Fit fit;
    fit.statistics = statisticsFor(dataSet, options, level, region.get());
    tellConstantBands(fit.statistics);
    const std::size_t count = fit.statistics.bands.size();
    const Matrix covariance(count, count, fit.statistics.covariance);
    if (!isNoiseAdjusted(options)) {
        fit.transform = principalComponents(covariance, options.standardised);
        return fit;
    }
    fit.noise =
        noiseFromNeighbours(dataSet, fit.statistics.bands, level, region.get(), neighboursOf(options), options.every);
    requireComplete("the noise estimate");
    requirePairs(fit.noise, count);
    fit.transform = noiseAdjusted(covariance, fit.noise.covariance);
    tellMissingNoise(fit);
    return fit;
}

std::size_t wantedComponents(const Fit& fit, const Options& options) {
    const std::size_t all = fit.transform.components();
    if (options.components > 0) {
        const auto asked = static_cast<std::size_t>(options.components);
        if (asked > all)
            fail("--components {}: {} give no more than {}.", asked, plural(all, "band"), plural(all, "component"));
        return asked;
    }
    if (options.percent >= 0) {
        std::size_t count = 1;
        // What rounding takes off the sum must not ask for a component more.
        double reached = fit.percent(0);
        while (count < all && reached < options.percent * (1 - 1e-12)) reached += fit.percent(count++);
        return count;
    }
    if (options.leastSnr >= 0) {
        const auto& values = fit.transform.eigenvalues;
        const auto enough = std::count_if(values.begin(), values.end(),
                                          [&](double value) { return std::max(0.0, value - 1) >= options.leastSnr; });
        if (enough == 0) {
            fail("no component has a signal-to-noise ratio of {}; the first has {:.4g}.", options.leastSnr, fit.snr(0));
        }
        return static_cast<std::size_t>(enough);
    }
    return all;
}

// ---- the parameter file ----

/// A matrix of the library's kind over values that live elsewhere.
class MatrixView {
public:
    explicit MatrixView(Matrix& matrix) {
        for (std::size_t i = 0; i < matrix.rows; ++i) rows_.push_back(matrix.values.data() + i * matrix.columns);
        view_.m = view_.max_m = static_cast<u_int>(matrix.rows);
        view_.n = view_.max_n = static_cast<u_int>(matrix.columns);
        view_.max_size = static_cast<u_int>(matrix.values.size());
        view_.me = rows_.data();
        view_.base = matrix.values.data();
    }
    MatrixView(const MatrixView&) = delete;
    MatrixView& operator=(const MatrixView&) = delete;
    MAT* get() { return &view_; }

private:
    std::vector<double*> rows_;
    MAT view_ = {};
};

/// "C" holds the numbers of the bands, from 1, so that the transform finds them again.
void writeParameters(Fit& fit, const std::string& name) {
    MatrixView forward(fit.transform.forward);
    MatrixView inverse(fit.transform.inverse);
    std::vector<int> numbers;
    for (int band : fit.statistics.bands) numbers.push_back(band + 1);
    const auto count = static_cast<u_int>(numbers.size());
    VEC mean = {};
    mean.dim = mean.max_dim = count;
    mean.ve = fit.statistics.mean.data();
    IVEC bands = {};
    bands.dim = bands.max_dim = count;
    bands.ive = numbers.data();
    if (KSWriteLTP(name.c_str(), forward.get(), inverse.get(), &mean, &bands) != 0) {
        fail("{} cannot be written; is the disk full?", name);
    }
}

// ---- what is told ----

std::string table(const Fit& fit, const Options& options) {
    constexpr std::size_t kMostRows = 20;
    const std::size_t kept = fit.transform.components();
    std::string lines = isNoiseAdjusted(options)
                            ? fmt::format("{:>9} {:>16} {:>16}\n", "component", "variance/noise", "signal-to-noise")
                            : fmt::format("{:>9} {:>16} {:>12} {:>12}\n", "component", "variance", "percent", "sum");
    double sum = 0;
    for (std::size_t k = 0; k < std::min(kept, kMostRows); ++k) {
        const double value = fit.transform.eigenvalues[k];
        sum += fit.percent(k);
        lines += isNoiseAdjusted(options)
                     ? fmt::format("{:>9} {:>16.6g} {:>16.6g}\n", k + 1, value, fit.snr(k))
                     : fmt::format("{:>9} {:>16.6g} {:>12.6f} {:>12.6f}\n", k + 1, value, fit.percent(k), sum);
    }
    if (kept > kMostRows) {
        lines += fmt::format("and {} more; --json and --report show all.\n", plural(kept - kMostRows, "component"));
    }
    return lines;
}

std::string csv(const Fit& fit, const Options& options) {
    std::string lines = isNoiseAdjusted(options) ? "component,kept,variance_over_noise,signal_to_noise\n"
                                                 : "component,kept,variance,percent,cumulative_percent\n";
    double sum = 0;
    for (std::size_t k = 0; k < fit.transform.eigenvalues.size(); ++k) {
        const double value = fit.transform.eigenvalues[k];
        sum += fit.percent(k);
        lines += fmt::format("{},{},{:.17g},", k + 1, k < fit.transform.components() ? "yes" : "no", value);
        lines += isNoiseAdjusted(options) ? fmt::format("{:.17g}\n", fit.snr(k))
                                          : fmt::format("{:.17g},{:.17g}\n", fit.percent(k), sum);
    }
    return lines;
}

Json componentList(const Fit& fit, const Options& options) {
    Json components = Json::array();
    double sum = 0;
    for (std::size_t k = 0; k < fit.transform.eigenvalues.size(); ++k) {
        const double value = fit.transform.eigenvalues[k];
        Json one = {{"component", k + 1}, {"kept", k < fit.transform.components()}};
        sum += fit.percent(k);
        if (isNoiseAdjusted(options)) {
            one["variance_over_noise"] = value;
            one["signal_to_noise"] = fit.snr(k);
        } else {
            one["variance"] = value;
            one["percent"] = fit.percent(k);
            one["cumulative_percent"] = sum;
        }
        components.push_back(std::move(one));
    }
    return components;
}

Json bandList(const DataSet& dataSet, const Fit& fit, const Options& options) {
    Json bands = Json::array();
    for (std::size_t i = 0; i < fit.statistics.bands.size(); ++i) {
        const double nm = dataSet.wavelength(fit.statistics.bands[i]);
        Json band = {{"band", fit.statistics.bands[i] + 1},
                     {"wavelength_nm", orNull(shortest(static_cast<float>(nm)), nm > 0)},
                     {"mean", fit.statistics.mean[i]},
                     {"sd", fit.statistics.sd[i]}};
        if (isNoiseAdjusted(options)) band["noise_sd"] = std::sqrt(std::max(0.0, fit.noise.covariance.at(i, i)));
        bands.push_back(std::move(band));
    }
    return bands;
}

Json json(const DataSet& dataSet, const Fit& fit, const Options& options) {
    Json whole = {{"file", options.output},
                  {"image", options.input},
                  {"transform", nameOf(options)},
                  {"level", dataSet.level(options.level)},
                  {"samples", fit.statistics.samples},
                  {"pixels_without_data", fit.statistics.excluded}};
    if (isNoiseAdjusted(options)) {
        whole["neighbours"] = options.neighbours;
        whole["pairs"] = fit.noise.pairs;
        whole["combinations_without_noise"] = fit.transform.withoutNoise;
    } else {
        whole["standardised"] = options.standardised;
    }
    whole["components_kept"] = fit.transform.components();
    whole["components"] = componentList(fit, options);
    whole["bands"] = bandList(dataSet, fit, options);
    return whole;
}

// Eigenvalues span many powers of ten.
void drawEigenvalues(const Fit& fit, const Options& options, const std::string& name) {
    Plot plot;
    plot.title = fmt::format("{}: {}", std::filesystem::path(options.input).filename().string(),
                             isNoiseAdjusted(options) ? "noise-adjusted components" : "principal components");
    plot.xLabel = "Component";
    plot.countedX = true;
    plot.yLabel = isNoiseAdjusted(options) ? "log10 of variance over noise" : "log10 of variance";
    Curve curve;
    curve.label = "eigenvalue";
    curve.pieces.emplace_back();
    for (std::size_t k = 0; k < fit.transform.eigenvalues.size(); ++k) {
        const double value = fit.transform.eigenvalues[k];
        if (value > 0) curve.pieces.back().emplace_back(static_cast<double>(k + 1), std::log10(value));
    }
    plot.curves.push_back(std::move(curve));
    drawPlot(plot, name);
}

void requireReportName(const std::string& name) {
    const std::string extension = lowerExtension(name);
    if (extension != ".csv" && extension != ".json" && extension != ".svg" && extension != ".png") {
        fail("'{}': a report ends in .csv or .json for a table, .svg or .png for a plot.", name);
    }
}

void writeReport(const DataSet& dataSet, const Fit& fit, const Options& options, const std::string& name) {
    const std::string extension = lowerExtension(name);
    if (extension == ".csv") return writeText(csv(fit, options), name);
    if (extension == ".json") return writeText(jsonText(json(dataSet, fit, options)), name);
    drawEigenvalues(fit, options, name);
}

// ---- pictures ----

constexpr std::size_t kMostPictures = 12;
constexpr int kLongestSide = 256;

void fillTiles(Window& window, int first, const Fit& fit, Tiles& tiles) {
    const Matrix& forward = fit.transform.forward;
    for (int y = 0; y < window.rows(); ++y) {
        for (int x = 0; x < window.columns(); ++x) {
            const float* const pixel = window.pixel(x, y);
            for (std::size_t k = 0; k < tiles.pictures.size(); ++k) {
                double value = 0;
                for (std::size_t b = 0; b < forward.columns; ++b) {
                    value += forward.at(k, b) * (static_cast<double>(pixel[b]) - fit.statistics.mean[b]);
                }
                const std::ptrdiff_t at = static_cast<std::ptrdiff_t>(first + y) * tiles.width + x;
                tiles.pictures[k][static_cast<std::size_t>(at)] = static_cast<float>(value);
            }
        }
    }
}

void drawComponents(const DataSet& dataSet, const Fit& fit, const Options& options, const std::string& name) {
    const int longest = std::max(dataSet->nXSize, dataSet->nYSize);
    const Area area = wholeImage(dataSet, (longest - 1) / kLongestSide + 1);
    Tiles tiles{area.columns, area.rows, {}};
    const std::size_t pixels = static_cast<std::size_t>(area.columns) * static_cast<std::size_t>(area.rows);
    tiles.pictures.assign(std::min(fit.transform.components(), kMostPictures), std::vector<float>(pixels));
    const SampleReader reader(dataSet, fit.statistics.bands, dataSet.level(options.level), SampleReader::NoData::asNaN);
    readBlocks(reader, area, 1, [&](int first, Window& window) { fillTiles(window, first, fit, tiles); });
    requireComplete("the pictures");
    writeContactSheet(std::move(tiles), name);
}

// ---- the commands ----

void tellResult(const Fit& fit, const Options& options) {
    const BandStatistics& statistics = fit.statistics;
    const std::string left =
        statistics.excluded > 0 ? fmt::format(", {} pixels without data left out", statistics.excluded) : std::string();
    const std::string noise =
        isNoiseAdjusted(options) ? fmt::format(", noise from {} pairs of neighbours", fit.noise.pairs) : std::string();
    const std::string level = options.level != 0 ? fmt::format(" --level {}", options.level) : std::string();
    note("{}: {} of {} bands from {} samples{}{}; next: ks transform apply {} {} OUT{}", options.output,
         plural(fit.transform.components(), "component"), statistics.bands.size(), statistics.samples, left, noise,
         options.input, options.output, level);
}

std::vector<std::string> outputsOf(const Options& options) {
    std::vector<std::string> names = {options.output};
    names.insert(names.end(), options.reports.begin(), options.reports.end());
    if (!options.pictures.empty()) names.push_back(options.pictures);
    return names;
}

bool isPartOf(const DataSet& dataSet, const std::string& image, const std::string& name) {
    KSHostLayout layout = {};
    const bool hasHeader = KSHostGetLayout(dataSet.file(), &layout) != 0 && layout.szHeader != nullptr;
    const auto companions = companionsOf(image);
    return sameFile(image, name) || (hasHeader && sameFile(layout.szHeader, name)) ||
           std::any_of(companions.begin(), companions.end(), [&](const auto& path) { return sameFile(path, name); });
}

void checkNames(const DataSet& dataSet, const Options& options) {
    for (const std::string& report : options.reports) requireReportName(report);
    if (!options.pictures.empty() && lowerExtension(options.pictures) != ".png") {
        fail("--pictures {}: the name must end in .png.", options.pictures);
    }
    std::set<std::string> seen;
    for (const std::string& name : outputsOf(options)) {
        if (isPartOf(dataSet, options.input, name)) fail("{} is part of the image; choose another name.", name);
        if (!seen.insert(std::filesystem::absolute(name).lexically_normal().string()).second) {
            fail("{} is named for two outputs; give each its own name.", name);
        }
    }
}

void run(const Options& options) {
    const DataSet dataSet = DataSet::open(options.input);
    checkNames(dataSet, options);
    std::vector<std::unique_ptr<Staging>> staged;
    for (const std::string& name : outputsOf(options)) {
        staged.push_back(std::make_unique<Staging>(name, options.force));
    }
    Fit fit = estimate(dataSet, options);
    fit.transform.keep(wantedComponents(fit, options));
    writeParameters(fit, staged.front()->path());
    for (std::size_t i = 0; i < options.reports.size(); ++i) {
        writeReport(dataSet, fit, options, staged[i + 1]->path());
    }
    if (!options.pictures.empty()) drawComponents(dataSet, fit, options, staged.back()->path());
    for (const auto& output : staged) output->publish();
    if (options.json) {
        printJson(json(dataSet, fit, options));
    } else {
        fmt::print("{}", table(fit, options));
    }
    tellResult(fit, options);
}

CLI::App* addFit(CLI::App& transform, const char* what, const std::shared_ptr<Options>& options, Command& chosen) {
    CLI::App* command = transform.add_subcommand(nameOf(*options), what);
    command->add_option("CUBE", options->input, "The image")->required();
    command->add_option("OUT", options->output, "The parameter file for apply and invert (.mat)")->required();
    command
        ->add_option("--bands", options->bands,
                     fmt::format("Bands to transform, in this order: {}; default: good", kBandListHelp))
        ->type_name("LIST");
    command->add_option("--level", options->level, "Radiometric level of the values (0: stored values)")
        ->check(wholeNumber(0))
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--roi", options->region, fmt::format("Learn from these pixels: {}", kRegionHelp))
        ->type_name("REGION");
    command->add_option("--every", options->every, "Learn from every n-th column and line")
        ->check(wholeNumber(1))
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--report", options->reports, "Write all eigenvalues: .csv or .json, or .svg or .png as a plot")
        ->type_name("FILE")
        ->expected(1)
        ->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    command->add_option("--pictures", options->pictures, "Write the first 12 components as one picture, row by row")
        ->type_name("FILE.png");
    command->add_flag("--json", options->json, "Print the result as JSON");
    command->add_flag("--force", options->force, "Replace the outputs if they exist");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
    return command;
}

CLI::Option* addComponents(CLI::App* command, Options& options) {
    return command->add_option("--components", options.components, "Keep so many components; default: all")
        ->check(wholeNumber(1))
        ->type_name("N");
}

}  // namespace

void addTransformFits(CLI::App& transform, Command& chosen) {
    auto pca = std::make_shared<Options>();
    CLI::App* principal = addFit(transform, "Principal components, as a parameter file", pca, chosen);
    CLI::Option* count = addComponents(principal, *pca);
    principal->add_option("--variance", pca->percent, "Keep as many as reach this percentage of the variance")
        ->check(CLI::Range(0.0, 100.0))
        ->type_name("PERCENT")
        ->excludes(count);
    principal->add_flag("--standardise", pca->standardised, "Divide each band by its standard deviation first");
    principal->footer(
        "The largest coefficient of each component is positive. With all components,\n"
        "invert returns the values.\n"
        "Example:\n  ks transform pca scene.img pca.mat --variance 99.9 --pictures pca.png");

    auto mnf = std::make_shared<Options>();
    mnf->kind = Kind::minimumNoise;
    CLI::App* noise = addFit(transform, "Components by signal to noise, as a parameter file", mnf, chosen);
    count = addComponents(noise, *mnf);
    noise->add_option("--snr", mnf->leastSnr, "Keep components of at least this signal-to-noise ratio")
        ->check(CLI::NonNegativeNumber)
        ->type_name("RATIO")
        ->excludes(count);
    noise
        ->add_option("--noise", mnf->neighbours,
                     "Neighbours whose differences are noise: along a line, across lines or both")
        ->check(CLI::IsMember({"along", "across", "both"}))
        ->capture_default_str();
    noise->footer(
        "The noise covariance is half that of the differences between neighbouring\n"
        "pixels. The noise of every component is 1 and the largest comes first: a\n"
        "variance of 1 is noise alone. Signal-to-noise is a ratio of variances.\n"
        "Example:\n  ks transform mnf scene.img mnf.mat --snr 1 --report mnf.svg");
}

}  // namespace kscli
