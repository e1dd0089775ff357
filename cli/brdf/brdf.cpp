// ks brdf: takes the across-track brightness trend away. The library corrects a file in place, so it is given a copy,
// unless it is to be the image itself.
#include <algorithm>
#include <cmath>
#include <memory>

#include <kslib.h>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "brdf/columntrend.hpp"
#include "brdf/copy.hpp"
#include "brdf/report.hpp"
#include "brdf/task.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/copymeta.hpp"
#include "image/copyplan.hpp"
#include "image/dataset.hpp"
#include "image/quantized.hpp"

namespace kscli {
namespace {

constexpr int kHighestOrder = 8;

struct Options {
    std::string input;
    std::string output;
    bool inPlace = false;
    int order = 2;
    std::vector<int> sample;
    std::vector<int> process;
    std::string bands = "all";
    std::string plot;
    std::string plotBand;
    std::string report;
    bool json = false;
    bool force = false;
};

std::string windowText(const std::array<int, 4>& w) { return fmt::format("{},{},{},{}", w[0], w[1], w[2], w[3]); }

std::string historyLine(const Options& options, const CopyPlan& plan, const BrdfTask& task) {
    return fmt::format("ks brdf {} --order {} --sample {} --process {} --bands {}", options.input, task.order,
                       windowText(task.sampled), windowText(task.corrected), bandRanges(plan.bands));
}

// ---- the task ----

BrdfTask makeTask(const DataSet& image, const Options& options, const std::vector<int>& bands) {
    BrdfTask task;
    task.sampled = chooseWindow(image, options.sample);
    task.corrected = chooseWindow(image, options.process);
    task.order = options.order;
    task.bands = static_cast<int>(bands.size());
    const int least = task.order + 2;
    if (task.sampled[2] < least) {
        fail("a polynomial of order {} needs {} columns or more to sample, not {}; lower --order, or widen --sample.",
             task.order, least, task.sampled[2]);
    }
    const int firstSampled = task.sampled[0];
    const int endSampled = firstSampled + task.sampled[2];
    if (task.corrected[0] < firstSampled || task.corrected[0] + task.corrected[2] > endSampled) {
        warn("columns outside of the sampled ones, {} to {}, are corrected by what the polynomial becomes there.",
             firstSampled, endSampled - 1);
    }
    return task;
}

ColumnMeans meansOf(const DataSet& image, const std::vector<int>& bands, const std::array<int, 4>& rectangle,
                    int level) {
    ColumnMeans means(rectangle, static_cast<int>(bands.size()));
    const SampleReader reader(image, bands, level, SampleReader::NoData::asNaN);
    const Area area = makeArea(rectangle[0], rectangle[1], rectangle[2], rectangle[3], 1);
    readBlocks(reader, area, 1, [&](int first, Window& window) {
        for (int y = 0; y < window.rows(); ++y) {
            means.addLine(area.lineOf(first + y), area.x, window.columns(), window.pixel(0, y));
        }
    });
    requireComplete("the sampling of columns");
    return means;
}

ColumnTrends trendsOf(const DataSet& image, const std::vector<int>& bands, const ColumnMeans& means, int order) {
    ColumnTrends trends;
    std::vector<int> empty;
    for (std::size_t i = 0; i < bands.size(); ++i) {
        const std::vector<double> values = means.of(static_cast<int>(i));
        const auto known = std::count_if(values.begin(), values.end(), [](double v) { return !std::isnan(v); });
        if (known == 0) {
            empty.push_back(bands[i]);
            trends.emplace_back();
            continue;
        }
        if (known < order + 2) {
            fail(
                "{} has data in {} of the sampled columns only, too few for a polynomial of order {}; lower --order, "
                "widen --sample, or leave the band away with --bands.",
                bandName(image, bands[i]), known, order);
        }
        trends.emplace_back(std::in_place, values, means.rectangle()[0], order);
    }
    if (empty.size() == bands.size()) fail("there is no data in the sampled part of the image.");
    if (!empty.empty()) note("{} without any data to sample: copied as they are.", bandRanges(empty));
    return trends;
}

// ---- outputs beside the image ----

/// Where in the list of corrected bands the one to draw stands.
std::size_t bandToPlot(const DataSet& image, const std::vector<int>& bands, const std::string& asked) {
    if (asked.empty()) {
        const auto shown = std::find(bands.begin(), bands.end(), displayBands(image)[0]);
        return shown == bands.end() ? 0 : static_cast<std::size_t>(shown - bands.begin());
    }
    const std::vector<int> chosen = parseBands(image, asked);
    const auto found = std::find(bands.begin(), bands.end(), chosen[0]);
    if (chosen.size() != 1 || found == bands.end()) {
        fail("--plot-band '{}' must name one of the bands that are corrected.", asked);
    }
    return static_cast<std::size_t>(found - bands.begin());
}

/// The plot and the table, refused before anything is computed.
class Reports {
public:
    Reports(const DataSet& image, const std::vector<int>& bands, const Options& options)
        : plotted_(bandToPlot(image, bands, options.plotBand)) {
        for (const std::string& name : {options.plot, options.report}) {
            if (!name.empty() && name == options.output) fail("{} is named for two outputs.", name);
        }
        plot_ = stage(image, options.plot, options);
        report_ = stage(image, options.report, options);
    }

    void write(const DataSet& image, const Options& options, const BrdfReport& report) const {
        if (plot_) drawColumns(image, report, plotted_, plot_->path());
        if (report_) writeText(tableOf(image, report, options.report), report_->path());
    }
    void publish() const {
        for (const auto* staged : {&plot_, &report_}) {
            if (*staged) (*staged)->publish();
        }
    }

private:
    static std::unique_ptr<Staging> stage(const DataSet& image, const std::string& name, const Options& options) {
        if (name.empty()) return nullptr;
        refuseImageFiles(image, options.input, name);
        return std::make_unique<Staging>(name, options.force);
    }

    std::size_t plotted_;
    std::unique_ptr<Staging> plot_, report_;
};

void tell(const DataSet& image, const Options& options, const BrdfReport& report, const std::string& result) {
    note("{}: {}", result, summaryOf(report));
    if (options.json) printJson(jsonOf(image, report));
}

// ---- runs ----

CopyPlan planOf(const DataSet& image, const Options& options) {
    CopyPlan plan = planWholeCopy(image, parseBands(image, options.bands), kFloat32);
    plan.level = image.level(-1);
    return plan;
}

BrdfReport correctCopy(const DataSet& image, const CopyPlan& plan, const BrdfTask& task, const Options& options,
                       const std::string& name) {
    const ColumnMeans before = meansOf(image, plan.bands, task.sampled, plan.level);
    const ColumnTrends trends = trendsOf(image, plan.bands, before, task.order);
    BrdfCopy copy(image, plan, task, trends, name);
    copy.write(before, historyLine(options, plan, task));
    runBrdfTask(task, name);
    throwIfInterrupted();
    const BrdfOutcome outcome = copy.finish();
    requirePrecise(image, plan.bands, task, trends, outcome);
    return {options.input, plan.bands, task, before, outcome.after, trends};
}

void runOnCopy(const Options& options) {
    const DataSet image = DataSet::open(options.input);
    refuseSourceFiles(image, options.input, options.output);
    const CopyPlan plan = planOf(image, options);
    const BrdfTask task = makeTask(image, options, plan.bands);
    const Reports reports(image, plan.bands, options);
    Staging staging(options.output, options.force);
    staging.alsoMakes(companionsOf(options.output));
    const BrdfReport report = correctCopy(image, plan, task, options, staging.path());
    reports.write(image, options, report);
    staging.publish();
    reports.publish();
    tell(image, options, report, options.output);
}

/// In the file itself every value counts, and the results land in the first bands, whichever were chosen.
void requireFitForTask(const DataSet& image, const CopyPlan& plan, const std::string& name) {
    if (isQuantized(image)) fail("{} is quantized, so its bands cannot be written; give an output instead.", name);
    const std::vector<int> all = allBands(image);
    if (!std::equal(plan.bands.begin(), plan.bands.end(), all.begin())) {
        fail(
            "in place, the results would overwrite the first bands of the image and not the ones chosen; choose b1 "
            "to some bN, or give an output instead.");
    }
    for (const float gain : calibration(image, plan.bands, plan.level).gains) {
        if (gain == 0 || !std::isfinite(gain)) {
            fail("{}: a band has a calibration that cannot be undone (gain {}); give an output instead.", name, gain);
        }
    }
    if (meansOf(image, plan.bands, plan.window, plan.level).anyMissing()) {
        fail("{} has pixels without data, which would be taken for values and changed; give an output instead.", name);
    }
}

void warnOfChange(const DataSet& image, const CopyPlan& plan, const std::string& name) {
    warn("{} itself is changed and cannot be brought back; when this is stopped or fails, a part of it is corrected.",
         name);
    if (typeHoldingAll(image, plan.bands) != kFloat32) {
        warn("its samples are whole numbers: corrected values are rounded, and cut off at what the type can hold.");
    }
}

void runInPlace(const Options& options) {
    DataSet image = DataSet::open(options.input);
    const CopyPlan plan = planOf(image, options);
    const BrdfTask task = makeTask(image, options, plan.bands);
    const Reports reports(image, plan.bands, options);
    requireFitForTask(image, plan, options.input);
    const ColumnMeans before = meansOf(image, plan.bands, task.sampled, plan.level);
    const ColumnTrends trends = trendsOf(image, plan.bands, before, task.order);
    warnOfChange(image, plan, options.input);
    image.close();
    try {
        runBrdfTask(task, options.input);
    } catch (const Incomplete&) {
        throw Incomplete(options.input + " is corrected in part or not at all (see above).");
    }
    const DataSet corrected = DataSet::open(options.input);
    const ColumnMeans after = meansOf(corrected, plan.bands, task.sampled, plan.level);
    const BrdfReport report = {options.input, plan.bands, task, before, after, trends};
    reports.write(corrected, options, report);
    reports.publish();
    tell(corrected, options, report, options.input);
}

void run(const Options& options) {
    if (options.inPlace != options.output.empty()) {
        fail("give either the name of the corrected image, or --in-place to change {} itself.", options.input);
    }
    if (options.inPlace) {
        runInPlace(options);
    } else {
        runOnCopy(options);
    }
}

}  // namespace

void addBrdf(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("brdf", "Take away the brightness trend across the columns of an image");
    command->add_option("CUBE", options->input, "The image")->required();
    command->add_option("OUT", options->output,
                        "The corrected image: GeoTIFF when it ends in .tif or .tiff, else ENVI");
    command->add_flag("--in-place", options->inPlace, "Change CUBE itself instead; there is no way back");
    command
        ->add_option("--order", options->order,
                     fmt::format("Order of the polynomial through the column means, 1 to {}", kHighestOrder))
        ->check(wholeNumber(1, kHighestOrder))
        ->type_name("N")
        ->capture_default_str();
    command
        ->add_option("--sample", options->sample,
                     "Rectangle whose columns are averaged, in pixels from 0; default: the whole image")
        ->delimiter(',')
        ->check(wholeNumber(0))
        ->expected(4)
        ->option_text("X,Y,WIDTH,HEIGHT");
    command
        ->add_option("--process", options->process,
                     "Rectangle to correct, in pixels from 0; the rest is copied; default: the whole image")
        ->delimiter(',')
        ->check(wholeNumber(0))
        ->expected(4)
        ->option_text("X,Y,WIDTH,HEIGHT");
    command->add_option("--bands", options->bands, fmt::format("Bands of the result: {}", kBandListHelp))
        ->type_name("LIST")
        ->capture_default_str();
    CLI::Option* plot =
        command->add_option("--plot", options->plot, "Draw column means before and after, and the trend: .svg or .png")
            ->check(endingIn({".svg", ".png"}))
            ->type_name("FILE");
    command
        ->add_option("--plot-band", options->plotBand, "The band to draw; default: the one shown as red, or the first")
        ->needs(plot)
        ->type_name("BAND");
    command
        ->add_option("--report", options->report,
                     "Write each band's mean, trend before and after, and largest change: .csv or .json")
        ->check(endingIn({".csv", ".json"}))
        ->type_name("FILE");
    command->add_flag("--json", options->json, "Print that as JSON");
    command->add_flag("--force", options->force, "Replace outputs if they exist");
    command->footer(
        "From every value the polynomial at its column is subtracted and the mean of the\n"
        "polynomial is added, so that the mean of a band stays. Values are those of the\n"
        "highest radiometric level; the result is float32. Pixels without data neither\n"
        "count nor change. A trend is told as the distance between the highest and the\n"
        "lowest point of its polynomial. Content that changes across the image, such as\n"
        "a coast along the track, is taken for a trend: sample where there is none.\n"
        "Example:\n  ks brdf scene.img even.img --order 3 --plot even.svg");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
