// ks sun: zenith and azimuth of the sun, for times and places, or for an image.
#include <cmath>
#include <memory>
#include <optional>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "app/texttable.hpp"
#include "geometry/angleimage.hpp"
#include "geometry/sunposition.hpp"
#include "image/copymeta.hpp"
#include "image/dataset.hpp"
#include "image/place.hpp"

namespace kscli {
namespace {

struct Options {
    std::string cube;
    std::vector<std::string> times;
    std::string from;
    std::string to;
    double step = 60;
    std::string table;
    std::optional<double> latitude;
    std::optional<double> longitude;
    std::string output;
    bool force = false;
};

struct Observation {
    Moment moment;
    Place place;
};

// ---- times ----

std::vector<Moment> momentsOf(const Options& options) {
    std::vector<Moment> moments;
    for (const std::string& time : options.times) moments.push_back(parseMoment(time));
    if (options.from.empty()) return moments;
    const Moment first = parseMoment(options.from);
    const Moment last = parseMoment(options.to);
    constexpr double kMost = 1e7;
    const double steps = std::floor((last.days() - first.days()) * 1440 / options.step + 1e-6);
    if (steps < 0) fail("--to {} is before --from {}.", options.to, options.from);
    if (steps >= kMost) fail("--step {} makes more than {} rows; take a longer one.", options.step, kMost);
    for (int i = 0; i <= static_cast<int>(steps); ++i) moments.push_back(first.after(i * options.step * 60));
    return moments;
}

Moment momentOf(const DataSet& dataSet, const std::string& name) {
    const KSMission& mission = dataSet->Mission;
    std::string missing;
    const std::pair<const char*, int> parts[] = {{"year", mission.nYear},
                                                 {"month", mission.nMonth},
                                                 {"day", mission.nDay},
                                                 {"hour", mission.nHour},
                                                 {"minute", mission.nMinute}};
    for (const auto& [part, value] : parts) {
        if (value < 0) missing += (missing.empty() ? "" : ", ") + std::string(part);
    }
    if (!missing.empty()) {
        fail("{} does not say when it was taken (missing: {}); give --time.", name, missing);
    }
    try {
        return makeMoment(mission.nYear, mission.nMonth, mission.nDay, mission.nHour, mission.nMinute, 0);
    } catch (const Failure& failure) {
        fail("{} says a time that is none: {} Give --time.", name, failure.what());
    }
}

// ---- places ----

std::optional<Place> givenPlace(const Options& options) {
    if (!options.latitude) return std::nullopt;
    return Place{*options.latitude, *options.longitude};
}

Place placeOf(const DataSet& dataSet, const std::string& name) {
    if (const auto stated = statedPlace(dataSet)) return *stated;
    if (const auto centre = mapCentre(dataSet)) {
        note("{} does not say where it was taken; the centre of its map is used.", name);
        return *centre;
    }
    const bool hasLatitude = isLatitude(dataSet->Mission.dLatitude);
    const bool hasLongitude = isLongitude(dataSet->Mission.dLongitude);
    fail("{} does not say where it was taken (missing: {}{}{}, and a map); give --lat and --lon.", name,
         hasLatitude ? "" : "latitude", hasLatitude || hasLongitude ? "" : ", ", hasLongitude ? "" : "longitude");
}

// ---- tables ----

std::vector<Observation> tabled(const Options& options) {
    const std::string& file = options.table;
    requireReadable(file, "table of times");
    const TextTable table = parseTextTable(textLinesOf(file), file);
    const int time = table.column({"time", "time_utc", "utc", "date"});
    const int latitude = table.column({"latitude", "latitude_deg", "lat"});
    const int longitude = table.column({"longitude", "longitude_deg", "lon"});
    if (time < 0) fail("{} has no column 'time'.", file);
    const auto place = givenPlace(options);
    if (!place && (latitude < 0 || longitude < 0)) {
        fail("{} has no columns 'lat' and 'lon'; add them or give --lat and --lon.", file);
    }
    std::vector<Observation> rows;
    for (std::size_t r = 0; r < table.rows.size(); ++r) {
        Place where = place.value_or(Place{0, 0});
        if (!place) {
            where.latitude = cellNumber(table, r, static_cast<std::size_t>(latitude), file);
            where.longitude = cellNumber(table, r, static_cast<std::size_t>(longitude), file);
        }
        if (!isLatitude(where.latitude) || !isLongitude(where.longitude)) {
            fail("{}: line {}: {}, {} is no place; latitudes are -90 to 90, longitudes -180 to 360 degrees.", file,
                 table.lines[r], where.latitude, where.longitude);
        }
        try {
            rows.push_back({parseMoment(table.rows[r][static_cast<std::size_t>(time)]), where});
        } catch (const Failure& failure) {
            fail("{}: line {}: {}", file, table.lines[r], failure.what());
        }
    }
    return rows;
}

std::string csvOf(const std::vector<Observation>& observations) {
    std::string text = "time_utc,latitude_deg,longitude_deg,zenith_deg,azimuth_deg,sun\n";
    std::size_t below = 0;
    for (const auto& [moment, place] : observations) {
        const SunPosition sun = sunAt(moment, place.latitude, place.longitude);
        if (!sun.isUp()) ++below;
        text += fmt::format("{},{:.9g},{:.9g},{},{},{}\n", textOf(moment), place.latitude, place.longitude,
                            angleText(sun.zenith), azimuthText(sun.azimuth), sun.isUp() ? "up" : "below horizon");
    }
    if (below > 0) note("the sun is below the horizon in {} of {} rows.", below, observations.size());
    return text;
}

// ---- images ----

void writeImage(const DataSet& dataSet, const Options& options, const Moment& moment) {
    const auto centre = mapCentre(dataSet);
    if (!centre) {
        fail("{} has no place on a map, so its pixels have no angles of their own; give an output that ends in .csv.",
             options.cube);
    }
    if (!sunAt(moment, centre->latitude, centre->longitude).isUp()) {
        warn("the sun is below the horizon at the centre of {} at {}.", options.cube, textOf(moment));
    }
    AngleImage image;
    image.input = options.cube;
    image.output = options.output;
    image.force = options.force;
    image.bands = {"sun zenith (degrees)", "sun azimuth (degrees from north)"};
    image.history = fmt::format("ks sun {} --time {}", options.cube, textOf(moment));
    image.bytesPerPixel = 2 * sizeof(double);
    std::vector<double> x;
    std::vector<double> y;
    writeAngleImage(dataSet, image, [&](int first, Window& window) {
        x.clear();
        y.clear();
        for (int row = 0; row < window.rows(); ++row) {
            for (int column = 0; column < window.columns(); ++column) {
                x.push_back(column + 0.5);
                y.push_back(first + row + 0.5);
            }
        }
        if (KSHostPixelsToGeographic(dataSet.file(), static_cast<int>(x.size()), x.data(), y.data()) == 0) {
            fail("{}: its map cannot be turned into longitudes and latitudes (see above).", options.cube);
        }
        float* angles = window.samples();
        for (std::size_t i = 0; i < x.size(); ++i) {
            const bool isKnown = !std::isnan(x[i]);
            const SunPosition sun = isKnown ? sunAt(moment, y[i], x[i]) : SunPosition{x[i], x[i]};
            *angles++ = static_cast<float>(sun.zenith);
            *angles++ = static_cast<float>(sun.azimuth);
        }
    });
}

// ---- the command ----

void checkUsage(const Options& options) {
    if (options.latitude.has_value() != options.longitude.has_value()) fail("give --lat and --lon together.");
    if (options.from.empty() != options.to.empty()) fail("give --from and --to together.");
    if (!(options.step > 0)) fail("--step {} is no number of minutes above 0.", options.step);
    if (options.latitude && !isLatitude(*options.latitude)) {
        fail("--lat {} is no latitude; those are -90 to 90 degrees, north positive.", *options.latitude);
    }
    if (options.longitude && !isLongitude(*options.longitude)) {
        fail("--lon {} is no longitude; those are -180 to 360 degrees, east positive.", *options.longitude);
    }
    const int sources =
        (options.times.empty() ? 0 : 1) + (options.from.empty() ? 0 : 1) + (options.table.empty() ? 0 : 1);
    if (sources > 1) fail("give only one of --time, --from with --to, and --table.");
    if (!options.cube.empty() && !options.table.empty()) fail("give an image or --table, not both.");
    if (!options.cube.empty()) return;
    if (sources == 0) fail("no time is given: --time, --from with --to, --table, or an image that says when.");
    if (!options.latitude && options.table.empty()) fail("no place is given: --lat with --lon, or an image.");
}

std::vector<Observation> observationsOf(const Options& options, const DataSet* dataSet) {
    if (!options.table.empty()) return tabled(options);
    std::vector<Moment> moments = momentsOf(options);
    if (moments.empty()) moments.push_back(momentOf(*dataSet, options.cube));
    const auto given = givenPlace(options);
    const Place place = given ? *given : placeOf(*dataSet, options.cube);
    std::vector<Observation> observations;
    for (const Moment& moment : moments) observations.push_back({moment, place});
    return observations;
}

void runImage(const Options& options, const DataSet* dataSet) {
    if (dataSet == nullptr) {
        fail("{} would be an image, but no image is given; a table ends in .csv.", options.output);
    }
    if (options.latitude) fail("the pixels of an image have places of their own; leave out --lat and --lon.");
    const std::vector<Moment> moments = momentsOf(options);
    if (moments.size() > 1) fail("an image shows one moment; give a single --time.");
    writeImage(*dataSet, options, moments.empty() ? momentOf(*dataSet, options.cube) : moments[0]);
}

void run(const Options& options) {
    checkUsage(options);
    std::optional<DataSet> dataSet;
    if (!options.cube.empty()) dataSet.emplace(DataSet::open(options.cube));
    const DataSet* const image = dataSet ? &*dataSet : nullptr;
    if (!options.output.empty() && !isTableName(options.output)) {
        runImage(options, image);
        return;
    }
    const std::vector<Observation> observations = observationsOf(options, image);
    if (options.output.empty()) {
        fmt::print("{}", csvOf(observations));
        return;
    }
    if (sameFile(options.table, options.output)) fail("{} cannot be written onto itself.", options.table);
    if (image != nullptr) refuseImageFiles(*image, options.cube, options.output);
    Staging staging(options.output, options.force);
    writeText(csvOf(observations), staging.path());
    staging.publish();
    note("{}: {} row{}.", options.output, observations.size(), observations.size() == 1 ? "" : "s");
}

}  // namespace

void addSun(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("sun", "Zenith and azimuth of the sun, as a table or an image");
    command->add_option("CUBE", options->cube, "An image that says when and where it was taken");
    command
        ->add_option("--time", options->times,
                     "When, in universal time unless a zone is given: 2024-06-21T10:40Z; may be repeated")
        ->type_name("TIME")
        ->allow_extra_args(false);
    command->add_option("--from", options->from, "First of several times")->type_name("TIME");
    command->add_option("--to", options->to, "Last of several times")->type_name("TIME");
    command->add_option("--step", options->step, "Minutes between them")->type_name("MIN")->capture_default_str();
    command
        ->add_option("--table", options->table,
                     "Times from a table: column 'time', and 'lat' and 'lon' unless they are given")
        ->type_name("FILE");
    command->add_option("--lat", options->latitude, "Latitude in degrees, north positive")->type_name("DEG");
    command->add_option("--lon", options->longitude, "Longitude in degrees, east positive")->type_name("DEG");
    command
        ->add_option("-o,--output", options->output,
                     "Write to a file: a table (.csv), or an image with the angles of each pixel of CUBE (any other "
                     "name)")
        ->type_name("FILE");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "Angles are degrees. The zenith angle is that of the sun's centre, 0 overhead, 90\n"
        "at the horizon, more below it, without refraction; the azimuth counts clockwise\n"
        "from north: 90 is east. Both are good to a few tenths of a degree from 1950 to\n"
        "2050. --time, --lat and --lon take the place of what CUBE says; where it does\n"
        "not say where it was taken, the centre of its map serves.\n"
        "Example:\n  ks sun --lat 52 --lon 13.4 --from 2024-06-21T04:00Z --to 2024-06-21T20:00Z\n"
        "  ks sun scene.img -o angles.img");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
