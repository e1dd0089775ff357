// ks quicklook: a picture of an image of any size. One pass over a thinned image finds the limits of the stretch, a
// second one writes the picture row by row.
#include <algorithm>
#include <climits>
#include <cmath>
#include <cstdint>
#include <memory>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/image_png.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/dataset.hpp"

namespace kscli {
namespace {

struct Options {
    std::string cube;
    std::string output;
    std::string bands;
    int level = 0;
    std::vector<double> stretch = {2, 98};
    int maxSize = 0;
    bool force = false;
    bool json = false;
};

// The limits of the stretch come from about this many pixels: exact for most scenes, and close for larger ones.
constexpr double kSampledPixels = 1 << 20;

struct Limits {
    float low = 0;
    float high = 0;
    bool any = false;
};

std::vector<int> chooseBands(const DataSet& dataSet, const std::string& list) {
    if (list.empty()) return displayBands(dataSet);
    const std::vector<int> bands = parseBands(dataSet, list);
    // Several names for one band are no wish for a grey picture.
    const bool grey = bands.size() == 1 && list.find(',') == std::string::npos;
    if (bands.size() != 3 && !grey) {
        fail("a picture takes three different bands (red, green, blue) or one (grey); '{}' names {} here.", list,
             bands.size());
    }
    return bands;
}

float quantile(std::vector<float>& values, double percent) {
    const double position = percent / 100 * static_cast<double>(values.size() - 1);
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(std::lround(position));
    std::nth_element(values.begin(), middle, values.end());
    return *middle;
}

// A transfer fails as a whole: of a damaged image, single rows show what is left.
int rowsOfBlock() { return KSHostErrorCount() > 0 ? 1 : INT_MAX; }

std::vector<Limits> findLimits(const DataSet& dataSet, const SampleReader& reader, const std::vector<double>& stretch) {
    const double pixels = static_cast<double>(dataSet->nXSize) * static_cast<double>(dataSet->nYSize);
    const int every = std::max(1, static_cast<int>(std::ceil(std::sqrt(pixels / kSampledPixels))));
    const std::size_t bandCount = reader.bands().size();
    std::vector<std::vector<float>> values(bandCount);
    const auto collect = [&] {
        for (auto& list : values) list.clear();
        const auto addFinite = [&](int, Window& window) {
            const float* sample = window.samples();
            for (std::size_t i = 0; i < window.sampleCount(); ++i) {
                if (std::isfinite(sample[i])) values[i % bandCount].push_back(sample[i]);
            }
        };
        readBlocks(reader, wholeImage(dataSet, every), 1.0, addFinite, rowsOfBlock());
    };
    collect();
    if (KSHostErrorCount() > 0) collect();
    std::vector<Limits> limits(bandCount);
    for (std::size_t band = 0; band < bandCount; ++band) {
        if (values[band].empty()) continue;
        limits[band] = {quantile(values[band], stretch[0]), quantile(values[band], stretch[1]), true};
    }
    return limits;
}

std::uint8_t shade(float value, const Limits& limits) {
    constexpr std::uint8_t kBlack = 0;
    constexpr std::uint8_t kMiddleGrey = 128;
    if (std::isnan(value) || !limits.any) return kBlack;
    // A constant band has nothing to stretch: show that there is something, without dividing by zero.
    if (!(limits.high > limits.low)) {
        return value < limits.low ? kBlack : value > limits.high ? std::uint8_t{255} : kMiddleGrey;
    }
    const double span = static_cast<double>(limits.high) - static_cast<double>(limits.low);
    const double position = (static_cast<double>(value) - static_cast<double>(limits.low)) / span;
    return static_cast<std::uint8_t>(std::lround(255 * std::clamp(position, 0.0, 1.0)));
}

void writePicture(const SampleReader& reader, const Area& area, const std::vector<Limits>& limits,
                  const std::string& name) {
    const std::size_t components = reader.bands().size();
    PngWriter png(name, area.columns, area.rows, static_cast<int>(components));
    std::vector<std::uint8_t> row(static_cast<std::size_t>(area.columns) * components);
    const auto writeRows = [&](int, Window& window) {
        for (int y = 0; y < window.rows(); ++y) {
            const float* const sample = window.pixel(0, y);
            for (std::size_t x = 0; x < row.size(); x += components) {
                // A pixel that lacks one colour lacks its colour.
                bool complete = true;
                for (std::size_t c = 0; c < components; ++c) complete = complete && !std::isnan(sample[x + c]);
                for (std::size_t c = 0; c < components; ++c) {
                    row[x + c] = complete ? shade(sample[x + c], limits[c]) : 0;
                }
            }
            png.writeRow(row);
        }
    };
    readBlocks(reader, area, 1.0, writeRows, rowsOfBlock());
    png.finish();
}

void printSummary(const DataSet& dataSet, const Options& options, const Area& area, const std::vector<int>& bands,
                  const std::vector<Limits>& limits) {
    static const char* const kColours[] = {"red", "green", "blue"};
    Json shown = Json::array();
    std::string names;
    for (std::size_t i = 0; i < bands.size(); ++i) {
        const double nm = dataSet.wavelength(bands[i]);
        shown.push_back({{"colour", bands.size() == 1 ? "grey" : kColours[i]},
                         {"band", bands[i] + 1},
                         {"wavelength_nm", orNull(shortest(static_cast<float>(nm)), nm > 0)},
                         {"black", orNull(shortest(limits[i].low), limits[i].any)},
                         {"white", orNull(shortest(limits[i].high), limits[i].any)}});
        names += (i > 0 ? ", " : "") + bandName(dataSet, bands[i]);
    }
    if (options.json) {
        printJson({{"file", options.output}, {"width", area.columns}, {"height", area.rows}, {"bands", shown}});
    }
    note("{}: {} x {} pixels, {}.", options.output, area.columns, area.rows, names);
}

int thinning(const DataSet& dataSet, int maxSize) {
    const int longest = std::max(dataSet->nXSize, dataSet->nYSize);
    return maxSize > 0 && longest > maxSize ? (longest - 1) / maxSize + 1 : 1;
}

void run(const Options& options) {
    if (lowerExtension(options.output) != ".png") {
        fail("{} does not end in .png; quicklooks are PNG pictures.", options.output);
    }
    if (!(options.stretch[0] >= 0 && options.stretch[0] < options.stretch[1] && options.stretch[1] <= 100)) {
        fail("--stretch takes two percentages, low and high, within 0 and 100, such as 2,98.");
    }
    const DataSet dataSet = DataSet::open(options.cube);
    const int level = dataSet.level(options.level);
    const std::vector<int> bands = chooseBands(dataSet, options.bands);
    Staging staging(options.output, options.force);
    const SampleReader reader(dataSet, bands, level, SampleReader::NoData::asNaN);
    const std::vector<Limits> limits = findLimits(dataSet, reader, options.stretch);
    if (std::none_of(limits.begin(), limits.end(), [](const Limits& l) { return l.any; })) {
        warn("no pixel of these bands holds data; the picture is black.");
    }
    const Area area = wholeImage(dataSet, thinning(dataSet, options.maxSize));
    writePicture(reader, area, limits, staging.path());
    staging.publish();
    printSummary(dataSet, options, area, bands, limits);
}

}  // namespace

void addQuicklook(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("quicklook", "Make a PNG picture of an image");
    command->add_option("CUBE", options->cube, "The image")->required();
    command->add_option("OUT", options->output, "The picture to write")->required();
    command
        ->add_option("--bands", options->bands,
                     "Red, green and blue (or one for grey) as wavelengths in nm or band numbers b1, b2, ...; default: "
                     "the image's own choice, else 640,550,460")
        ->type_name("LIST");
    command->add_option("--level", options->level, "Radiometric level to show (0: stored values)")
        ->check(wholeNumber(0))
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--stretch", options->stretch, "Percentages of samples shown black and white")
        ->delimiter(',')
        ->expected(2)
        ->option_text("LOW,HIGH=2,98");
    command->add_option("--max-size", options->maxSize, "Take every n-th pixel so that no side is longer than this")
        ->check(wholeNumber(1))
        ->type_name("N");
    command->add_flag("--force", options->force, "Replace the picture if it exists");
    command->add_flag("--json", options->json, "Print the bands and limits used as JSON");
    command->footer("Pixels without data are black.\nExample:\n  ks quicklook scene.img scene.png --bands 640,550,460");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
