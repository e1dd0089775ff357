// ks smooth: spectra with less noise, in libraries, cubes and codebooks, never across the ends of named segments. Each
// value has a window of its own around it.
#include <algorithm>
#include <cmath>
#include <limits>
#include <memory>
#include <new>

#include <kslib.h>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/copymeta.hpp"
#include "image/copyplan.hpp"
#include "image/dataset.hpp"
#include "image/quantized.hpp"
#include "spectra/segments.hpp"
#include "spectra/speclayer.hpp"
#include "spectra/speclib.hpp"
#include "spectra/speclibwrite.hpp"

namespace kscli {
namespace {

constexpr int kDefaultWidth = 5;

struct Options {
    std::string input;
    std::string output;
    std::string method = "gauss";
    int width = 0;    // values; 0: not given
    double fwhm = 0;  // nm; 0: half the window
    std::string segments;
    std::vector<int> window;
    int level = -1;
    bool codebook = false;
    std::string format;
    bool force = false;
};

// ---- parameters of the library ----

double typicalSpacing(const std::vector<double>& wavelengths) {
    std::vector<double> steps;
    for (std::size_t i = 1; i < wavelengths.size(); ++i) {
        if (wavelengths[i] > 0 && wavelengths[i - 1] > 0)
            steps.push_back(std::abs(wavelengths[i] - wavelengths[i - 1]));
    }
    if (steps.empty()) return 0;
    const auto middle = steps.begin() + static_cast<std::ptrdiff_t>(steps.size() / 2);
    std::nth_element(steps.begin(), middle, steps.end());
    return *middle;
}

/// Values in a window: as asked, or as many as a Gaussian of the asked width is worth.
int windowWidth(const Options& options, const std::vector<double>& wavelengths) {
    if (options.width > 0) return options.width;
    const double spacing = typicalSpacing(wavelengths);
    if (options.fwhm <= 0 || spacing <= 0) return kDefaultWidth;
    constexpr double kReach = 1.5;  // widths to either side, where the weight is 0.002
    const double values = std::ceil(kReach * options.fwhm / spacing);
    return 2 * static_cast<int>(std::clamp(values, 1.0, static_cast<double>(wavelengths.size()))) + 1;
}

struct ParmsDeleter {
    void operator()(KSSmoothParms* parms) const { KSFreeSmoothParms(parms); }
};

/// What the library needs to smooth vectors of one list of wavelengths.
class Smoother {
public:
    Smoother(const Options& options, const std::vector<double>& wavelengths)
        : segments_(parseSegments(options.segments, wavelengths)),
          width_(windowWidth(options, wavelengths)),
          function_(options.method == "median" ? KSXSmoothMedian : KSXSmoothGauss),
          parms_(KSCreateSmoothParms(static_cast<int>(segments_.size()))) {
        if (!parms_) throw std::bad_alloc();
        for (std::size_t i = 0; i < segments_.size(); ++i) {
            parms_->pnIndex1[i] = segments_[i].first;
            parms_->pnIndex2[i] = segments_[i].last;
        }
        placeValues(options.fwhm, wavelengths);
        parms_->fWidth = static_cast<float>(width_);
        parms_->pSTSchema = &schema_;
        parms_->bCheckQual = 1;
    }
    Smoother(const Smoother&) = delete;
    Smoother& operator=(const Smoother&) = delete;

    /// One for each value; lent.
    void setQuality(std::vector<int>& quality) { parms_->peBandQual = quality.data(); }
    KSSmoothParms* parms() const { return parms_.get(); }
    KSSmoothFunc function() const { return function_; }
    int width() const { return width_; }
    const std::vector<Segment>& segments() const { return segments_; }

private:
    /// The library's Gaussian falls to 1/e at a distance of the window's width. Values are placed on an axis on which
    /// that gives the full width at half maximum: in nanometres as asked, else half a window of evenly spaced values.
    void placeValues(double fwhm, const std::vector<double>& wavelengths) {
        if (fwhm > 0 && std::any_of(wavelengths.begin(), wavelengths.end(), [](double w) { return !(w > 0); })) {
            fail("--fwhm is in nm, and not every band has a wavelength; give --width in values instead.");
        }
        const double wanted = fwhm > 0 ? fwhm : width_ / 2.0;
        const double scale = width_ * 2 * std::sqrt(std::log(2.0)) / wanted;
        for (std::size_t i = 0; i < wavelengths.size(); ++i) {
            KSSTFld field = {};
            field.fWlen = static_cast<float>((fwhm > 0 ? wavelengths[i] : static_cast<double>(i)) * scale);
            fields_.push_back(field);
        }
        schema_.pMeasFld = fields_.data();
        schema_.nNumMeasFlds = static_cast<int>(fields_.size());
    }

    std::vector<Segment> segments_;
    int width_;
    KSSmoothFunc function_;
    std::unique_ptr<KSSmoothParms, ParmsDeleter> parms_;
    std::vector<KSSTFld> fields_;
    KSSTSchema schema_ = {};
};

std::string methodText(const Options& options, const Smoother& smoother) {
    return fmt::format("{} of {} values", options.method == "median" ? "median" : "Gaussian mean", smoother.width());
}

// ---- libraries ----

std::vector<double> toDoubles(const std::vector<float>& values) { return {values.begin(), values.end()}; }

void smoothSpectrum(LibrarySpectrum& spectrum, Smoother& smoother, const KSSTSchema* schema) {
    const SpectrumRecord record = recordOf(spectrum, schema);
    if (KSSmoothSpectrum(record.get(), smoother.parms(), smoother.function()) != 0) throw std::bad_alloc();
    spectrum.values.assign(record->pMeas->ve, record->pMeas->ve + spectrum.size());
}

void smoothLibrary(const Options& options) {
    if (!options.window.empty() || options.codebook || options.level >= 0) {
        fail("{} is a library; --window, --codebook and --level are for images.", options.input);
    }
    checkLibraryOutput(options.output, options.format);
    std::vector<LibrarySpectrum> spectra = readLibrary(options.input);
    std::string method;
    std::unique_ptr<Smoother> smoother;
    Schema schema;
    const LibrarySpectrum* previous = nullptr;
    for (LibrarySpectrum& spectrum : spectra) {
        if (previous == nullptr || !sameWavelengths(spectrum, *previous)) {
            smoother = std::make_unique<Smoother>(options, toDoubles(spectrum.wavelengths));
            schema = schemaOf(spectrum.wavelengths);
        }
        smoothSpectrum(spectrum, *smoother, schema.get());
        previous = &spectrum;
    }
    if (!smoother) fail("{} holds no spectra.", options.input);
    writeLibrary(spectra, options.output, options.format, options.force);
    note("{}: {} spectr{}, {}, values {}.", options.output, spectra.size(), spectra.size() == 1 ? "um" : "a",
         methodText(options, *smoother), segmentsText(smoother->segments()));
}

// ---- images ----

std::vector<double> wavelengthsOf(const DataSet& image) {
    std::vector<double> wavelengths;
    for (int band = 0; band < image.bandCount(); ++band) wavelengths.push_back(image.wavelength(band));
    return wavelengths;
}

std::vector<int> qualitiesOf(const DataSet& image) {
    return {image->Sensor.peBandQual, image->Sensor.peBandQual + image.bandCount()};
}

std::string historyLine(const Options& options, const CopyPlan& plan, int width) {
    std::string line = fmt::format("ks smooth {} --method {} --width {}", options.input, options.method, width);
    if (options.fwhm > 0) line += fmt::format(" --fwhm {}", options.fwhm);
    if (!options.segments.empty()) line += " --segments " + options.segments;
    if (!options.window.empty()) {
        line += fmt::format(" --window {},{},{},{}", plan.window[0], plan.window[1], plan.window[2], plan.window[3]);
    }
    if (options.codebook) line += " --codebook";
    return line + fmt::format(" --level {}", plan.level);
}

/// Physical values are no longer whole numbers, whatever the source stores.
CopyPlan planOf(const DataSet& image, const Options& options) {
    CopyPlan plan = planWholeCopy(image, allBands(image), kFloat32);
    plan.window = chooseWindow(image, options.window);
    plan.area = makeArea(plan.window[0], plan.window[1], plan.window[2], plan.window[3], 1);
    plan.level = image.level(options.level);
    return plan;
}

void smoothSamples(const DataSet& image, const CopyPlan& plan, const Smoother& smoother, const DataSet& output) {
    const SampleReader reader(image, plan.bands, plan.level, SampleReader::NoData::asNaN);
    const auto noData = noDataOfCopy(image, plan);
    const bool anyNoData =
        std::any_of(noData.begin(), noData.end(), [](const auto& value) { return value.has_value(); });
    BlockWriter writer(output, "the smoothed image");
    constexpr double kWindows = 2;
    readBlocks(reader, plan.area, 1 / kWindows, [&](int first, Window& window) {
        if (KSSmoothWinEx(window.record(), smoother.parms(), smoother.function()) != 0) throw std::bad_alloc();
        for (std::size_t i = 0; anyNoData && i < window.sampleCount(); ++i) {
            const auto& value = noData[i % noData.size()];
            if (value && std::isnan(window.samples()[i])) window.samples()[i] = static_cast<float>(*value);
        }
        writer.write(window, first);
    });
}

void smoothImage(const DataSet& image, const Options& options, const std::string& name, Smoother& smoother) {
    const CopyPlan plan = planOf(image, options);
    DataSet output = image.describe(plan.bands);
    output->nXSize = plan.area.columns;
    output->nYSize = plan.area.rows;
    output.dropFirstTransforms(plan.level);
    output.create(name, kFloat32);
    smoothSamples(image, plan, smoother, output);
    output.writeMetadata();
    completeCopy(image, plan, output.file(), historyLine(options, plan, smoother.width()));
    output.close();
}

void smoothCodebook(const DataSet& image, const Options& options, const std::string& name, Smoother& smoother) {
    if (!options.window.empty()) fail("--codebook smooths the vectors of a whole cube; leave --window away.");
    const CopyPlan plan = planOf(image, options);
    Codebook codebook = Codebook::of(image, plan.level);
    if (KSSmoothCbk(codebook.record(), smoother.parms(), smoother.function()) != 0) throw std::bad_alloc();
    DataSet description = image.describe(plan.bands);
    description.dropFirstTransforms(plan.level);
    DataSet created = createCube(std::move(description), name, codebook.vectorCount(), kFloat32);
    completeCopy(image, plan, created.file(), historyLine(options, plan, smoother.width()));
    created.close();
    const DataSet output = openCubeForUpdate(name);
    // The vectors are values of the new cube's level 0.
    codebook.record()->nRadTransLev = 0;
    codebook.write(output);
    IndexMap map(image->nXSize, image->nYSize);
    map.read(image);
    map.write(output);
}

void smoothCube(const Options& options) {
    if (!options.format.empty()) fail("--as is for libraries; images are written as GeoTIFF (.tif) or ENVI.");
    const DataSet image = DataSet::open(options.input);
    refuseSourceFiles(image, options.input, options.output);
    if (options.codebook) {
        requireQuantized(image, options.input);
        requireCubeName(options.output);
    }
    Smoother smoother(options, wavelengthsOf(image));
    std::vector<int> quality = qualitiesOf(image);
    smoother.setQuality(quality);
    Staging staging(options.output, options.force);
    staging.alsoMakes(companionsOf(options.output));
    (options.codebook ? smoothCodebook : smoothImage)(image, options, staging.path(), smoother);
    requireComplete("the smoothed image");
    staging.publish();
    note("{}: {}, bands {}, float32.", options.output, methodText(options, smoother),
         segmentsText(smoother.segments()));
}

void run(const Options& options) {
    if (options.width != 0 && (options.width < 3 || options.width % 2 == 0)) {
        fail("the width must be an odd number of values, 3 or more, so that a window has a middle.");
    }
    if (options.fwhm < 0 || !std::isfinite(options.fwhm)) fail("--fwhm must be a positive number of nm.");
    if (options.fwhm > 0 && options.method != "gauss")
        fail("--fwhm is the width of a Gaussian; leave it away for a median.");
    if (sameFile(options.input, options.output)) {
        fail("{} cannot be written onto itself; choose another name.", options.input);
    }
    if (isLibraryFile(options.input)) {
        smoothLibrary(options);
    } else {
        smoothCube(options);
    }
}

}  // namespace

void addSmooth(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("smooth", "Smooth spectra of a library, an image or a codebook");
    command->add_option("IN", options->input, "The library or image")->required();
    command->add_option("OUT", options->output, "The result: a library for a library, an image for an image")
        ->required();
    command->add_option("--method", options->method, "gauss (weighted mean) or median")
        ->check(CLI::IsMember({"gauss", "median"}))
        ->option_text("METHOD=gauss");
    command->add_option("--width", options->width, "Values in a window, an odd number; default: 5")
        ->check(wholeNumber(3))
        ->type_name("N");
    command
        ->add_option("--fwhm", options->fwhm,
                     "Full width of the Gaussian at half maximum, in nm; default: half the window. Without --width the "
                     "window then reaches 1.5 such widths to either side")
        ->type_name("NM");
    command
        ->add_option("--segments", options->segments,
                     fmt::format("Where to smooth: {}; default: everywhere", kSegmentsHelp))
        ->type_name("LIST");
    command->add_option("--window", options->window, "Rectangle of an image to smooth, in pixels from 0")
        ->delimiter(',')
        ->check(wholeNumber(0))
        ->expected(4)
        ->option_text("X,Y,WIDTH,HEIGHT");
    command->add_option("--level", options->level, "Radiometric level of an image to smooth; default: the highest")
        ->check(wholeNumber(0))
        ->type_name("N");
    command->add_flag("--codebook", options->codebook,
                      "Smooth the code vectors of a vector-quantized cube and keep its index map");
    command->add_option("--as", options->format, fmt::format("Of a library: {}", kLibraryFormatHelp))
        ->check(CLI::IsMember(libraryFormatNames()))
        ->option_text("FORMAT");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "Every value of a segment gets a window around it, narrower towards the ends of\n"
        "the segment so that it stays in the middle; the first and last value stay as\n"
        "they are. Bad bands, missing values, gaps in the wavelengths and the start of\n"
        "another detector end a segment too. Images come out as float32.\n"
        "Example:\n  ks smooth scene.img smooth.img --width 7 --segments 400-1300,1450-1780\n"
        "  ks smooth minerals.kslib smooth.kslib --method median");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
