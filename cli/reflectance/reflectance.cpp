// ks reflectance: surface reflectance of a radiance image, with a radiance table for the light that comes back from the
// atmosphere and for what it lets through.
#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <memory>
#include <optional>
#include <set>

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
#include "image/entries.hpp"
#include "image/radianceunits.hpp"
#include "lut/table.hpp"
#include "reflectance/coefficients.hpp"
#include "reflectance/point.hpp"

namespace kscli {
namespace {

constexpr const char* kResult = "the reflectance image";

struct Options {
    std::string input;
    std::string output;
    std::string table;
    int segment = 0;
    Atmosphere atmosphere;
    bool extrapolate = false;
    std::string bands = "all";
    int level = -1;
    std::optional<double> scale;
    bool force = false;
};

// ---- the radiance ----

struct Radiance {
    int level = 0;
    double scale = 1;  // to uW cm-2 nm-1 sr-1
    std::string how;   // where the scale comes from
};

int quantityAt(const DataSet& image, int level) {
    return level == 0 ? static_cast<int>(KS_RQ_UNCAL) : image->papRadTransSeq[level - 1]->eRadQuant;
}

/// The level whose values are radiances, unless the user names one.
int chooseLevel(const DataSet& image, int asked) {
    if (asked >= 0) return image.level(asked);
    const int level = KSRadTransQuantToLev(image.get(), KS_RQ_APPRAD);
    if (level >= 0) return level;
    if (image->nNumRadTrans == 0) return 0;
    fail(
        "no level of the image is said to be at-sensor radiance ('ks info' lists them); name the one that is with "
        "--level.");
}

Radiance chooseRadiance(const DataSet& image, const Options& options) {
    Radiance radiance;
    radiance.level = chooseLevel(image, options.level);
    const int quantity = quantityAt(image, radiance.level);
    if (quantity == KS_RQ_REFL || quantity == KS_RQ_SCRAD || quantity == KS_RQ_SCIRRAD) {
        fail("level {} of the image is {}, not at-sensor radiance; name another with --level.", radiance.level,
             image.levelDescriptions()[static_cast<std::size_t>(radiance.level)]);
    }
    if (options.scale) {
        radiance.scale = *options.scale;
        radiance.how = "given";
    } else if (const auto named = radianceUnitsOf(image)) {
        radiance.scale = named->scale;
        radiance.how = fmt::format("for '{}' in the metadata", named->text);
    } else if (quantity == KS_RQ_APPRAD) {
        radiance.how = fmt::format("assuming {}, for the image names no units", kRadianceUnits);
    } else {
        fail(
            "nothing says that the values of level {} are radiances; give --radiance-scale, the factor that brings "
            "them to {} (1 if they are).",
            radiance.level, kRadianceUnits);
    }
    return radiance;
}

// ---- the result ----

/// What a header says of the source's values and not of reflectances.
bool speaksOfRadiance(const std::string& key) {
    static const std::set<std::string> kKeys = {
        "NumberOfRadTrans", "ENVI:data units", "ENVI:z plot titles", "ENVI:z plot range",
        "data_units",       "z_plot_titles",   "z_plot_range",       "units"};
    return kKeys.count(key) != 0;
}

Items fileEntriesOf(const DataSet& source, const CopyPlan& plan) {
    Items entries = fileEntriesOfCopy(source, plan);
    entries.erase(
        std::remove_if(entries.begin(), entries.end(), [](const auto& entry) { return speaksOfRadiance(entry.first); }),
        entries.end());
    return entries;
}

/// A transform that changes nothing says what the values are.
DataSet describeReflectance(const DataSet& source, const std::vector<int>& bands) {
    DataSet output = source.describe(bands);
    output.dropFirstTransforms(output->nNumRadTrans);
    KSRadTrans* transform = KSCreateRadTrans(output.bandCount());
    if (transform == nullptr) throw std::bad_alloc();
    transform->eRadQuant = KS_RQ_REFL;
    std::fill_n(transform->pafGains, output.bandCount(), 1.0F);
    std::fill_n(transform->pafOffsets, output.bandCount(), 0.0F);
    if (KSAddRadTrans(output.get(), transform) != 0) {
        KSFreeRadTrans(transform);
        throw std::bad_alloc();
    }
    return output;
}

std::string historyLine(const Options& options, const CopyPlan& plan, const TablePoint& point,
                        const Radiance& radiance) {
    std::string line = fmt::format("ks reflectance {} --lut {}", options.input, options.table);
    if (options.segment > 0) line += fmt::format(" --segment {}", options.segment);
    line += " " + pointText(point);
    if (options.extrapolate) line += " --extrapolate";
    return line + fmt::format(" --radiance-scale {:.9g} --level {} --bands {}", radiance.scale, radiance.level,
                              bandRanges(plan.bands));
}

std::string assumptionLine(const std::vector<std::string>& assumptions) {
    return fmt::format("assumed: {}", fmt::join(assumptions, "; "));
}

void complete(const DataSet& source, const CopyPlan& plan, const BandCoefficients& bands,
              const std::vector<std::string>& historyLines, HostFile* file) {
    // All transforms of the source are gone, whichever of them the radiances were taken after.
    CopyPlan withoutTransforms = plan;
    withoutTransforms.level = source->nNumRadTrans;
    Completion output(file);
    output.addFileEntries(fileEntriesOf(source, withoutTransforms));
    output.addBands(source, withoutTransforms);
    output.addPlace(source, plan);
    for (std::size_t i = 0; i < plan.bands.size(); ++i) {
        const int channel = static_cast<int>(i) + 1;
        KSHostSetNoData(file, channel, std::numeric_limits<double>::quiet_NaN());
        if (std::isfinite(bands.coefficients[i].path)) continue;
        Entries list = Entries::ofChannel(file, channel);
        list.set("Quality", aKSBandQual[KS_BQ_MASK].szName);
        list.storeInChannel(file, channel);
    }
    output.addHistory(source, historyLines.front());
    for (std::size_t i = 1; i < historyLines.size(); ++i) {
        GDBWriteHistory(file, kFileLevel, kNoChannel, historyLines[i].c_str());
    }
}

/// Values between 0 and 1 in bands that are good, among all there.
struct Plausibility {
    long long inside = 0;
    long long all = 0;
};

Plausibility computeSamples(const DataSet& source, const CopyPlan& plan, const Radiance& radiance,
                            const std::vector<SurfaceCoefficients>& coefficients, const DataSet& output) {
    const SampleReader reader(source, plan.bands, radiance.level, SampleReader::NoData::asNaN);
    BlockWriter writer(output, kResult);
    Plausibility plausibility;
    std::vector<bool> isGood;
    for (const int band : plan.bands) isGood.push_back(source.isGood(band));
    constexpr double kWindows = 2;
    readBlocks(reader, plan.area, 1 / kWindows, [&](int first, Window& window) {
        float* sample = window.samples();
        for (std::size_t pixel = 0; pixel < window.pixelCount(); ++pixel) {
            for (std::size_t b = 0; b < coefficients.size(); ++b, ++sample) {
                const double r = coefficients[b].reflectance(radiance.scale * static_cast<double>(*sample));
                *sample = static_cast<float>(r);
                if (!isGood[b] || !std::isfinite(r)) continue;
                ++plausibility.all;
                plausibility.inside += r >= 0 && r <= 1 ? 1 : 0;
            }
        }
        writer.write(window, first);
    });
    return plausibility;
}

// ---- what is said ----

void sayHowBandsWereFound(const LookupTable& table, const BandCoefficients& found) {
    const TableAxis& axis = table.axis(RLUT_WAVELENGTH);
    if (found.interpolated > 0) {
        note("{} bands lie between wavelengths of the table: its values were interpolated.", found.interpolated);
    }
    if (found.weighted > 0) {
        note("{} bands are wider than the steps of the table: its values were averaged by their response.",
             found.weighted);
    }
    if (!found.outside.empty()) {
        warn("{}: not within the table's wavelengths, {:g} to {:g} nm; not-a-number and masked.",
             bandRanges(found.outside), axis.coordinates.front(), axis.coordinates.back());
    }
    if (!found.unsolvable.empty()) {
        warn("{}: by the table no light comes from the ground; not-a-number and masked.", bandRanges(found.unsolvable));
    }
}

void sayHowPlausible(const Plausibility& plausibility) {
    constexpr double kMost = 0.5;
    if (plausibility.all == 0) {
        warn("no value could be computed; the image holds no data in these bands.");
        return;
    }
    const double part = static_cast<double>(plausibility.inside) / static_cast<double>(plausibility.all);
    note("{:.1f} % of the values in good bands lie between 0 and 1.", 100 * part);
    if (part < kMost) {
        warn("that is less than half: check the units of the radiance (--radiance-scale), the sun and the atmosphere.");
    }
}

std::vector<std::string> assumptionsOf(const TablePoint& point, const Radiance& radiance) {
    std::vector<std::string> assumptions = point.assumptions;
    assumptions.emplace_back("one geometry and atmosphere for the whole image");
    assumptions.emplace_back("a level ground that reflects alike to all sides and is uniform around each pixel");
    assumptions.push_back(
        fmt::format("radiance in {}: values times {:.9g} ({})", kRadianceUnits, radiance.scale, radiance.how));
    return assumptions;
}

// ---- the run ----

void checkNumbers(const Options& options) {
    const Atmosphere& a = options.atmosphere;
    const std::array<std::pair<const char*, std::optional<double>>, 8> numbers = {
        {{"--altitude", a.altitudeKm},
         {"--sun-zenith", a.sunZenithDeg},
         {"--visibility", a.visibilityKm},
         {"--water", a.waterGramsPerCm2},
         {"--elevation", a.elevationKm},
         {"--relative-azimuth", a.relativeAzimuthDeg},
         {"--view-zenith", a.viewZenithDeg},
         {"--radiance-scale", options.scale}}};
    for (const auto& [name, value] : numbers) {
        if (value && !std::isfinite(*value)) fail("{} must be a number.", name);
    }
    if (options.scale && *options.scale <= 0) fail("--radiance-scale must be more than 0.");
    if (a.sunZenithDeg && (*a.sunZenithDeg < 0 || *a.sunZenithDeg >= 90)) {
        fail("--sun-zenith must be 0 to less than 90 degrees: without a sun there is no reflected light.");
    }
    if (a.viewZenithDeg && (*a.viewZenithDeg < 0 || *a.viewZenithDeg >= 90)) {
        fail("--view-zenith must be 0 to less than 90 degrees.");
    }
}

[[noreturn]] void failWithoutRadiance(const std::string& file) {
    fail(
        "{} holds no radiance table: those have nine axes and two values ('ks lut info' shows what it has; 'ks lut "
        "import --radiance' makes one).",
        file);
}

/// The segment to use: the one that is asked for, or that of the only radiance table, whatever other tables lie beside
/// it; 0 where that leaves a choice or nothing.
int radianceSegment(HostFile* file, const Options& options) {
    if (options.segment != 0) return options.segment;
    std::vector<int> segments;
    for (int segment : tableSegments(file)) {
        try {
            if (LookupTable::open(file, options.table, segment).isRadianceTable()) segments.push_back(segment);
        } catch (const Failure&) {
            continue;  // never completed
        }
    }
    if (segments.empty() && tableSegments(file).size() > 1) failWithoutRadiance(options.table);
    return segments.size() == 1 ? segments[0] : 0;
}

LookupTable openRadianceTable(HostFile* file, const Options& options) {
    LookupTable table = LookupTable::open(file, options.table, radianceSegment(file, options));
    if (!table.isRadianceTable()) failWithoutRadiance(options.table);
    return table;
}

void run(const Options& options) {
    checkNumbers(options);
    const DataSet image = DataSet::open(options.input);
    refuseSourceFiles(image, options.input, options.output);
    if (sameFile(options.table, options.output)) fail("{} is the table; choose another name.", options.output);
    if (!image.hasWavelengths()) {
        fail(
            "the image has no wavelengths, so its bands cannot be found in the table; 'ks convert' keeps those of a "
            "header.");
    }
    CopyPlan plan = planWholeCopy(image, parseBands(image, options.bands), kFloat32);
    const Radiance radiance = chooseRadiance(image, options);
    plan.level = radiance.level;
    const OpenHostFile tableFile = openTableFile(options.table, "r");
    const LookupTable table = openRadianceTable(tableFile.get(), options);
    const TablePoint point = choosePoint(table, image, options.atmosphere);
    const ReflectanceLevels levels = readLevels(table, point.coordinates, options.extrapolate);
    const BandCoefficients bands = coefficientsOf(table, image, plan.bands, levels);
    const std::vector<std::string> assumptions = assumptionsOf(point, radiance);
    for (const std::string& assumption : assumptions) note("assumed: {}.", assumption);
    sayHowBandsWereFound(table, bands);

    Staging staging(options.output, options.force);
    staging.alsoMakes(companionsOf(options.output));
    DataSet output = describeReflectance(image, plan.bands);
    output.create(staging.path(), kFloat32);
    const Plausibility plausibility = computeSamples(image, plan, radiance, bands.coefficients, output);
    output.writeMetadata();
    complete(image, plan, bands, {historyLine(options, plan, point, radiance), assumptionLine(assumptions)},
             output.file());
    output.close();
    requireComplete(kResult);
    staging.publish();
    note("{}: reflectance of {} x {} pixels in {} bands, float32.", options.output, image->nXSize, image->nYSize,
         plan.bands.size());
    sayHowPlausible(plausibility);
}

}  // namespace

void addReflectance(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    Atmosphere& a = options->atmosphere;
    CLI::App* command =
        app.add_subcommand("reflectance", "Surface reflectance of a radiance image, by a radiance table");
    command->add_option("CUBE", options->input, "The image, of at-sensor radiance")->required();
    command->add_option("OUT", options->output, "The reflectance: GeoTIFF when it ends in .tif or .tiff, else ENVI")
        ->required();
    command->add_option("--lut", options->table, "A file with a radiance table, as 'ks lut import --radiance' makes it")
        ->required()
        ->type_name("LUT");
    command->add_option("--segment", options->segment, "Which of the file's tables; default: its only radiance table")
        ->check(wholeNumber(1))
        ->option_text("N");
    command
        ->add_option("--sun-zenith", a.sunZenithDeg,
                     "Solar zenith angle in degrees; default: from date, time and place of the image")
        ->type_name("DEG");
    command->add_option("--view-zenith", a.viewZenithDeg, "View zenith angle in degrees; default: 0, straight down")
        ->type_name("DEG");
    command
        ->add_option("--relative-azimuth", a.relativeAzimuthDeg,
                     "Angle between the azimuths of view and sun in degrees, not needed straight down")
        ->type_name("DEG");
    command->add_option("--water", a.waterGramsPerCm2, "Vertical water vapour column in g/cm2")->type_name("G");
    command->add_option("--visibility", a.visibilityKm, "Surface meteorological range in km")->type_name("KM");
    command->add_option("--elevation", a.elevationKm, "Elevation of the scene in km")->type_name("KM");
    command
        ->add_option("--altitude", a.altitudeKm,
                     "Altitude of the sensor in km; default: the nominal height of the image, in metres")
        ->type_name("KM");
    command->add_flag("--extrapolate", options->extrapolate,
                      "Let these lie outside of the table, which is continued linearly");
    command
        ->add_option("--radiance-scale", options->scale,
                     fmt::format("Factor that brings the radiance to {}; default: by the units that the image names, "
                                 "else 1. From W m-2 um-1 sr-1 it is 0.1",
                                 kRadianceUnits))
        ->type_name("X");
    command
        ->add_option("--level", options->level,
                     "Radiometric level of the radiance; default: that of at-sensor radiance")
        ->check(wholeNumber(0))
        ->option_text("N");
    command->add_option("--bands", options->bands, fmt::format("Bands of the result: {}", kBandListHelp))
        ->type_name("LIST")
        ->capture_default_str();
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "What the table has only one value of need not be given. The table is\n"
        "interpolated once, for the whole image; its lowest and highest reflectance above\n"
        "0 give each band the path radiance, what a bright ground adds, and the albedo of\n"
        "the atmosphere. The ground is taken as level and uniform. What was assumed is\n"
        "told and kept in the history. Bands that the table does not reach are\n"
        "not-a-number and masked.\n"
        "Example:\n  ks reflectance scene.img refl.img --lut table.kslut --sun-zenith 41 \\\n"
        "      --view-zenith 7 --relative-azimuth 40 --water 2.1 --visibility 23");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
