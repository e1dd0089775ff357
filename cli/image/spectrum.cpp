// ks spectrum: the spectra of single pixels as a plot or a table.
#include <algorithm>
#include <charconv>
#include <cmath>
#include <filesystem>
#include <memory>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/plot.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/dataset.hpp"
#include "image/lineorder.hpp"

namespace kscli {
namespace {

struct Options {
    std::string cube;
    std::vector<std::string> pixelsAndOutput;
    int level = -1;
    bool goodOnly = false;
    bool force = false;
};

struct Pixel {
    int x = 0;
    int y = 0;
};

struct Spectra {
    std::vector<int> bands;
    std::vector<Pixel> pixels;
    std::vector<std::vector<float>> values;  // of each pixel; NaN without data
    std::string quantity;
    int level = 0;
};

bool parseInt(const char*& text, const char* end, int& value) {
    const auto [stop, error] = std::from_chars(text, end, value);
    text = stop;
    return error == std::errc{};
}

Pixel parsePixel(const DataSet& dataSet, const std::string& text) {
    Pixel pixel;
    const char* at = text.data();
    const char* const end = text.data() + text.size();
    const bool valid =
        parseInt(at, end, pixel.x) && at != end && *at++ == ',' && parseInt(at, end, pixel.y) && at == end;
    if (!valid) fail("'{}' is not a pixel. Write X,Y such as 12,40 (column and line, counted from 0).", text);
    if (pixel.x < 0 || pixel.x >= dataSet->nXSize || pixel.y < 0 || pixel.y >= dataSet->nYSize) {
        fail("pixel {},{} lies outside the image; X goes from 0 to {}, Y from 0 to {}.", pixel.x, pixel.y,
             dataSet->nXSize - 1, dataSet->nYSize - 1);
    }
    return pixel;
}

Spectra readSpectra(const DataSet& dataSet, std::vector<Pixel> pixels, const Options& options) {
    Spectra spectra;
    spectra.level = dataSet.level(options.level);
    spectra.quantity = dataSet.levelDescriptions()[static_cast<std::size_t>(spectra.level)];
    spectra.bands = options.goodOnly ? goodBands(dataSet) : allBands(dataSet);
    if (spectra.bands.empty()) fail("this image has no good bands; leave --good away.");
    spectra.pixels = std::move(pixels);
    const SampleReader reader(dataSet, spectra.bands, spectra.level, SampleReader::NoData::asNaN);
    Window window(1, 1, 1, 1, spectra.bands);
    for (const Pixel& pixel : spectra.pixels) {
        window.place(pixel.x, pixel.y);
        reader.read(window);
        spectra.values.emplace_back(window.samples(), window.samples() + window.sampleCount());
    }
    return spectra;
}

std::string pixelName(const Pixel& pixel) { return fmt::format("{}, {}", pixel.x, pixel.y); }

Curve makeCurve(const LineOrder& order, const Pixel& pixel, const std::vector<float>& values) {
    Curve curve;
    curve.label = pixelName(pixel);
    for (const auto& positions : order.pieces()) {
        bool open = false;
        for (std::size_t position : positions) {
            const float value = values[position];
            if (!std::isfinite(value)) {
                open = false;
                continue;
            }
            if (!open) curve.pieces.emplace_back();
            open = true;
            curve.pieces.back().emplace_back(order.x(position), static_cast<double>(value));
        }
    }
    return curve;
}

void writePlot(const DataSet& dataSet, const Spectra& spectra, const std::string& cube, const std::string& name) {
    const LineOrder order(dataSet, spectra.bands);
    Plot plot;
    plot.title = std::filesystem::path(cube).filename().string();
    plot.xLabel = dataSet.hasWavelengths() ? "Wavelength (nm)" : "Band";
    plot.countedX = !dataSet.hasWavelengths();
    plot.yLabel = spectra.quantity;
    if (!plot.yLabel.empty() && plot.yLabel[0] >= 'a' && plot.yLabel[0] <= 'z') {
        plot.yLabel[0] = static_cast<char>(plot.yLabel[0] - 'a' + 'A');
    }
    plot.legendTitle = "pixel x, y";
    plot.shaded = order.badStretches();
    plot.shadedLabel = "bad bands";
    bool any = false;
    for (std::size_t i = 0; i < spectra.pixels.size(); ++i) {
        plot.curves.push_back(makeCurve(order, spectra.pixels[i], spectra.values[i]));
        if (plot.curves.back().pieces.empty()) warn("pixel {} holds no data.", pixelName(spectra.pixels[i]));
        any = any || !plot.curves.back().pieces.empty();
    }
    if (!any) warn("there is nothing to draw; the plot is empty.");
    drawPlot(plot, name);
}

// Nine digits give every float back.
std::string digits(float value) { return fmt::format("{:.9g}", value); }

std::string csv(const DataSet& dataSet, const Spectra& spectra) {
    std::string text = "band,wavelength_nm,fwhm_nm,quality";
    for (const Pixel& pixel : spectra.pixels) text += fmt::format(",x{}_y{}", pixel.x, pixel.y);
    text += '\n';
    for (std::size_t i = 0; i < spectra.bands.size(); ++i) {
        const int band = spectra.bands[i];
        const KSBandResp& response = dataSet->Sensor.pBandResp[band];
        const bool known = response.eRespType != KS_RT_UNKNOWN;
        text += fmt::format("{},{},{},{}", band + 1, known && response.fCentre > 0 ? digits(response.fCentre) : "",
                            known && response.fFWHM > 0 ? digits(response.fFWHM) : "", dataSet.qualityName(band));
        for (const auto& values : spectra.values) {
            text += "," + (std::isnan(values[i]) ? std::string() : digits(values[i]));
        }
        text += '\n';
    }
    return text;
}

std::string json(const DataSet& dataSet, const Spectra& spectra, const std::string& cube) {
    Json bands = Json::array();
    for (int band : spectra.bands) {
        const double nm = dataSet.wavelength(band);
        const double width = dataSet.fwhm(band);
        bands.push_back({{"band", band + 1},
                         {"wavelength_nm", orNull(shortest(static_cast<float>(nm)), nm > 0)},
                         {"fwhm_nm", orNull(shortest(static_cast<float>(width)), width > 0)},
                         {"quality", dataSet.qualityName(band)}});
    }
    Json pixels = Json::array();
    for (std::size_t i = 0; i < spectra.pixels.size(); ++i) {
        Json values = Json::array();
        for (float value : spectra.values[i]) values.push_back(orNull(shortest(value)));
        pixels.push_back({{"x", spectra.pixels[i].x}, {"y", spectra.pixels[i].y}, {"values", values}});
    }
    const Json whole = {{"file", cube},
                        {"level", spectra.level},
                        {"quantity", spectra.quantity},
                        {"bands", bands},
                        {"spectra", pixels}};
    return jsonText(whole);
}

void run(const Options& options) {
    const std::string output = options.pixelsAndOutput.back();
    const std::string extension = lowerExtension(output);
    if (extension != ".svg" && extension != ".png" && extension != ".csv" && extension != ".json") {
        fail("the last argument, '{}', must be the file to write: .svg or .png for a plot, .csv or .json for a table.",
             output);
    }
    const DataSet dataSet = DataSet::open(options.cube);
    std::vector<Pixel> pixels;
    for (std::size_t i = 0; i + 1 < options.pixelsAndOutput.size(); ++i) {
        pixels.push_back(parsePixel(dataSet, options.pixelsAndOutput[i]));
    }
    Staging staging(output, options.force);
    const Spectra spectra = readSpectra(dataSet, std::move(pixels), options);
    if (extension == ".csv") {
        writeText(csv(dataSet, spectra), staging.path());
    } else if (extension == ".json") {
        writeText(json(dataSet, spectra, options.cube), staging.path());
    } else {
        writePlot(dataSet, spectra, options.cube, staging.path());
    }
    staging.publish();
    note("{}: {} of {} pixel{}, {} bands.", output, spectra.quantity, spectra.pixels.size(),
         spectra.pixels.size() == 1 ? "" : "s", spectra.bands.size());
}

}  // namespace

void addSpectrum(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("spectrum", "Plot or tabulate the spectra of pixels");
    command->add_option("CUBE", options->cube, "The image")->required();
    command
        ->add_option(
            "PIXEL...OUT", options->pixelsAndOutput,
            "One or more pixels X,Y (column and line from 0), then the file to write: .svg, .png, .csv or .json")
        ->required()
        ->expected(2, -1);
    command->add_option("--level", options->level, "Radiometric level (0: stored values); default: the highest")
        ->check(wholeNumber(0))
        ->type_name("N");
    command->add_flag("--good", options->goodOnly, "Good bands only");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "Lines break at bad bands, between detectors and across gaps in the wavelengths.\n"
        "Example:\n  ks spectrum scene.img 20,30 128,64 spectra.svg");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
