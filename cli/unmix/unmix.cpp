// ks unmix: how much of each endmember every pixel holds. Fractions, the misfit and what became of each pixel are the
// bands of a new image.
#include <algorithm>
#include <array>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>
#include <new>

#include <kslib.h>
#include <kslib/extra.h>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/image_png.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/components.hpp"
#include "image/copymeta.hpp"
#include "image/copyplan.hpp"
#include "image/dataset.hpp"
#include "image/region.hpp"
#include "spectra/specselect.hpp"
#include "unmix/endmembers.hpp"

namespace fs = std::filesystem;

namespace kscli {
namespace {

struct Options {
    std::string input;
    std::string output;
    EndmemberRequest endmembers;
    bool sumToOne = false;
    bool nonNegative = false;
    bool normalise = false;
    bool pictures = false;
    bool json = false;
    bool force = false;
};

// ---- pictures ----

/// "fraction_01_dry_grass.png".
std::string pictureName(std::size_t number, const std::string& endmember) {
    std::string name = fmt::format("fraction_{:02}_", number);
    for (const char c : endmember.substr(0, 40)) {
        const bool plain = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z') || c == '-';
        name += plain ? c : '_';
    }
    return name + ".png";
}

/// One grey picture an endmember, from black for 0 to white for 1, written as the rows come.
class Pictures {
public:
    Pictures(const fs::path& folder, const std::vector<std::string>& endmembers, int width, int height)
        : row_(static_cast<std::size_t>(width)) {
        fs::create_directory(folder);
        for (std::size_t e = 0; e < endmembers.size(); ++e) {
            const std::string name = (folder / pictureName(e + 1, endmembers[e])).string();
            writers_.push_back(std::make_unique<PngWriter>(name, width, height, 1));
        }
    }

    /// The bands of the window begin with the fractions.
    void write(Window& window) {
        for (int y = 0; y < window.rows(); ++y) {
            for (std::size_t e = 0; e < writers_.size(); ++e) {
                for (int x = 0; x < window.columns(); ++x) {
                    row_[static_cast<std::size_t>(x)] = shade(window.pixel(x, y)[e]);
                }
                writers_[e]->writeRow(row_);
            }
        }
    }

    void finish() {
        for (const auto& writer : writers_) writer->finish();
    }

private:
    static std::uint8_t shade(float fraction) {
        if (std::isnan(fraction)) return 0;
        return static_cast<std::uint8_t>(std::lround(255 * std::clamp(fraction, 0.0F, 1.0F)));
    }

    std::vector<std::unique_ptr<PngWriter>> writers_;
    std::vector<std::uint8_t> row_;
};

// ---- the output's description ----

constexpr const char* kMisfitName = "RMS misfit";
constexpr const char* kStatusName = "status: 0 solved / 1 not converged / 2 invalid";  // headers list names with commas

std::string historyLine(const Options& options, const Endmembers& endmembers) {
    const EndmemberRequest& request = options.endmembers;
    std::string line = fmt::format("ks unmix {}", options.input);
    if (!request.spectraFile.empty()) line += " --endmembers " + request.spectraFile;
    for (const std::string& item : request.select) line += " --select " + item;
    for (const std::string& item : request.pixels) line += " --pixel " + item;
    for (const std::string& item : request.regions) line += " --roi '" + item + "'";
    line += " --bands " + bandRanges(endmembers.bands);
    if (endmembers.level != 0) line += fmt::format(" --level {}", endmembers.level);
    if (options.sumToOne) line += " --sum-to-one";
    if (options.nonNegative) line += " --non-negative";
    if (options.normalise) line += " --normalise";
    return line;
}

void complete(const DataSet& source, const Options& options, const Endmembers& endmembers, HostFile* file) {
    Completion output(file);
    output.addFileEntries(fileEntriesOfComponents(source));
    std::vector<std::string> names = endmembers.names;
    names.emplace_back(kMisfitName);
    names.emplace_back(kStatusName);
    for (std::size_t i = 0; i < names.size(); ++i) {
        const int channel = static_cast<int>(i) + 1;
        GDBChanDescIO(file, 1, channel, names[i].data());
        KSHostSetNoData(file, channel, std::numeric_limits<double>::quiet_NaN());
    }
    output.addPlace(source, planWholeCopy(source, {}, kFloat32));
    output.addHistory(source, historyLine(options, endmembers));
}

// ---- unmixing ----

struct Deleter {
    void operator()(KSXUnmixer* unmixer) const { KSXFreeUnmixer(unmixer); }
};
using Unmixer = std::unique_ptr<KSXUnmixer, Deleter>;

Unmixer makeUnmixer(const Endmembers& endmembers, const Options& options) {
    Unmixer unmixer(KSXCreateUnmixer(endmembers.rows().data(), endmembers.count(),
                                     static_cast<int>(endmembers.bands.size()), options.sumToOne ? 1 : 0,
                                     options.nonNegative ? 1 : 0, options.normalise ? 1 : 0));
    if (!unmixer) throw std::bad_alloc();  // all that is left once the endmembers are known to be numbers
    return unmixer;
}

/// What came out, over all pixels that were solved.
struct Outcome {
    std::array<long long, 3> pixels = {0, 0, 0};  // by status
    std::vector<double> fractionSums;
    double misfitSum = 0;

    double mean(double sum) const {
        return pixels[KSX_UNMIX_SOLVED] > 0 ? sum / static_cast<double>(pixels[KSX_UNMIX_SOLVED])
                                            : std::numeric_limits<double>::quiet_NaN();
    }
    long long all() const { return pixels[0] + pixels[1] + pixels[2]; }
};

/// Puts fractions, misfit and status of a block's pixels side by side, as the output has them.
void arrange(const std::vector<float>& fractions, const std::vector<unsigned char>& status, Window& result,
             Outcome& outcome) {
    const std::size_t values = outcome.fractionSums.size() + 1;
    float* out = result.samples();
    const float* in = fractions.data();
    for (std::size_t i = 0; i < result.pixelCount(); ++i, in += values) {
        out = std::copy_n(in, values, out);
        *out++ = static_cast<float>(status[i]);
        ++outcome.pixels.at(status[i]);
        if (status[i] != KSX_UNMIX_SOLVED) continue;
        for (std::size_t e = 0; e + 1 < values; ++e) outcome.fractionSums[e] += static_cast<double>(in[e]);
        outcome.misfitSum += static_cast<double>(in[values - 1]);
    }
}

Outcome unmixBlocks(const DataSet& source, const Endmembers& endmembers, const KSXUnmixer* unmixer,
                    const DataSet& output, Pictures* pictures) {
    const SampleReader reader(source, endmembers.bands, endmembers.level, SampleReader::NoData::asNaN);
    const std::size_t values = static_cast<std::size_t>(endmembers.count()) + 1;
    const double inputs = static_cast<double>(endmembers.bands.size());
    // A pixel's fractions are there twice, before and after the status joins them.
    const double share = inputs / (inputs + 2 * static_cast<double>(values) + 2);
    Outcome outcome;
    outcome.fractionSums.assign(endmembers.names.size(), 0.0);
    std::unique_ptr<Window> result;
    std::vector<float> fractions;
    std::vector<unsigned char> status;
    readBlocks(reader, wholeImage(source), share, [&](int first, Window& window) {
        if (!result) result = std::make_unique<Window>(window.columns(), window.rows(), 1, 1, allBands(output));
        result->resizeRows(window.rows());
        result->place(0, first);
        fractions.resize(window.pixelCount() * values);
        status.resize(window.pixelCount());
        if (KSXUnmixWin(unmixer, window.record(), fractions.data(), status.data()) != 0) throw std::bad_alloc();
        arrange(fractions, status, *result, outcome);
        if (pictures != nullptr) pictures->write(*result);
        result->write(output);
        requireComplete("the fractions");
    });
    return outcome;
}

void report(const Options& options, const DataSet& source, const Endmembers& endmembers, const Outcome& outcome) {
    const long long invalid = outcome.pixels[KSX_UNMIX_INVALID];
    const long long unsolved = outcome.pixels[KSX_UNMIX_NOT_CONVERGED];
    if (invalid > 0) {
        warn("{} of {} pixels hold no data in at least one of the bands: status 2, fractions not-a-number.", invalid,
             outcome.all());
    }
    if (unsolved > 0) {
        warn("{} of {} pixels were not solved: status 1, fractions not-a-number.", unsolved, outcome.all());
    }
    std::string means;
    for (std::size_t e = 0; e < endmembers.names.size(); ++e) {
        means +=
            fmt::format("{}{} {:.3f}", e == 0 ? "" : ", ", endmembers.names[e], outcome.mean(outcome.fractionSums[e]));
    }
    note("{}: {} x {} pixels, {} bands used; mean fractions: {}; mean RMS misfit {:.4g}.", options.output,
         source->nXSize, source->nYSize, endmembers.bands.size(), means, outcome.mean(outcome.misfitSum));
    if (!options.json) return;
    Json fractions = Json::array();
    for (std::size_t e = 0; e < endmembers.names.size(); ++e) {
        const double mean = outcome.mean(outcome.fractionSums[e]);
        fractions.push_back({{"name", endmembers.names[e]}, {"mean", orNull(mean, std::isfinite(mean))}});
    }
    const double misfit = outcome.mean(outcome.misfitSum);
    printJson({{"file", options.output},
               {"level", endmembers.level},
               {"bands", bandRanges(endmembers.bands)},
               {"sum_to_one", options.sumToOne},
               {"non_negative", options.nonNegative},
               {"normalised", options.normalise},
               {"endmembers", fractions},
               {"mean_rms", orNull(misfit, std::isfinite(misfit))},
               {"pixels",
                {{"solved", outcome.pixels[KSX_UNMIX_SOLVED]}, {"not_converged", unsolved}, {"invalid", invalid}}}});
}

void run(const Options& options) {
    const DataSet source = DataSet::open(options.input);
    refuseSourceFiles(source, options.input, options.output);
    const Endmembers endmembers = gatherEndmembers(source, options.input, options.endmembers);
    if (options.normalise && !options.sumToOne) note("--normalise changes nothing without --sum-to-one.");
    warnAboutScale(source, endmembers);
    warnAboutLikeness(endmembers, options.sumToOne && !options.nonNegative);
    const Unmixer unmixer = makeUnmixer(endmembers, options);

    Staging staging(options.output, options.force);
    staging.alsoMakes(companionsOf(options.output));
    std::unique_ptr<Pictures> pictures;
    if (options.pictures) {
        const std::string folder = fs::path(options.output).stem().string() + "_fractions";
        staging.alsoMakes({fs::path(options.output).parent_path() / folder});
        pictures =
            std::make_unique<Pictures>(staging.folder() / folder, endmembers.names, source->nXSize, source->nYSize);
    }
    DataSet output = describeComponents(source, endmembers.count() + 2);
    output.create(staging.path(), kFloat32);
    const Outcome outcome = unmixBlocks(source, endmembers, unmixer.get(), output, pictures.get());
    output.writeMetadata();
    complete(source, options, endmembers, output.file());
    output.close();
    if (pictures) pictures->finish();
    requireComplete("the fractions");
    staging.publish();
    report(options, source, endmembers, outcome);
}

}  // namespace

void addUnmix(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    EndmemberRequest& request = options->endmembers;
    CLI::App* command = app.add_subcommand("unmix", "Find the fractions of endmembers in every pixel");
    command->add_option("CUBE", options->input, "The image")->required();
    command->add_option("OUT", options->output, "The fractions: GeoTIFF when it ends in .tif or .tiff, else ENVI")
        ->required();
    CLI::Option* library = command
                               ->add_option("--endmembers", request.spectraFile,
                                            "A library of endmember spectra, of any format that can be imported")
                               ->type_name("LIB");
    command->add_option("--select", request.select, fmt::format("Its spectra to take: {}; default: all", kSelectHelp))
        ->needs(library)
        ->type_name("LIST");
    command
        ->add_option("--pixel", request.pixels,
                     "Take a pixel of the image as an endmember, counted from 0; may be repeated")
        ->type_name("X,Y");
    command
        ->add_option("--roi", request.regions,
                     fmt::format("Take the mean of a region as an endmember, of each where there are several: {}; may "
                                 "be repeated",
                                 kRegionHelp))
        ->type_name("REGION");
    command->add_flag("--sum-to-one", options->sumToOne, "Draw the fractions of a pixel towards a sum of 1");
    command->add_flag("--non-negative", options->nonNegative, "Let no fraction be negative");
    command->add_flag("--normalise,--normalize", options->normalise,
                      "With --sum-to-one, divide fractions by their sum, so that it is 1 exactly");
    command
        ->add_option(
            "--bands", request.bands,
            fmt::format("Bands to use: {}; default: the good ones that the endmembers have values for", kBandListHelp))
        ->type_name("LIST");
    command
        ->add_option("--level", request.level,
                     "Radiometric level of the image's values; default: the one whose quantity is that of the library, "
                     "else 0")
        ->check(wholeNumber(0))
        ->option_text("N");
    command->add_flag("--pictures", options->pictures,
                      "Also make a folder OUT_fractions of pictures, black for 0 and white for 1");
    command->add_flag("--json", options->json, "Print what was done, and mean fractions, as JSON");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "The result has a float32 band for each endmember, one for the root-mean-square\n"
        "misfit over the bands, and one for the status of each pixel: 0 solved, 1 not\n"
        "converged, 2 invalid (no data in one of the bands); fractions and misfit of 1\n"
        "and 2 are not-a-number. Library spectra whose wavelengths are not those of the\n"
        "image are resampled to its bands.\n"
        "Example:\n  ks unmix scene.img fractions.img --endmembers minerals.sli --sum-to-one \\\n"
        "      --non-negative --pictures\n"
        "  ks unmix scene.img fractions.img --pixel 12,40 --pixel 88,31 --non-negative");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
