// ks view: from which direction the pixels of an image were seen.
#include <cmath>
#include <memory>
#include <optional>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "geometry/angleimage.hpp"
#include "geometry/viewgeometry.hpp"
#include "image/copymeta.hpp"
#include "image/dataset.hpp"

namespace kscli {
namespace {

struct Options {
    std::string cube;
    std::vector<double> across;
    std::vector<double> along;
    std::optional<double> heading;
    std::optional<double> pitch;
    double roll = 0;
    std::string spacing;
    std::string output;
    bool force = false;
};

bool isHalfField(double degrees) { return degrees >= 0 && degrees < 90; }
bool isTilt(double degrees) { return degrees > -90 && degrees < 90; }

// ---- where the numbers come from ----

void checkOptions(const Options& options) {
    for (const auto* fields : {&options.across, &options.along}) {
        for (const double degrees : *fields) {
            if (!isHalfField(degrees)) fail("{} is no half field of view; those are 0 to below 90 degrees.", degrees);
        }
    }
    if (options.heading && !(std::abs(*options.heading) <= 360)) {
        fail("--heading {} is no heading; those are -360 to 360 degrees, clockwise from north.", *options.heading);
    }
    if (options.pitch && !isTilt(*options.pitch)) {
        fail("--pitch {} is out of range; it must be between -90 and 90 degrees.", *options.pitch);
    }
    if (!isTilt(options.roll)) fail("--roll {} is out of range; it must be between -90 and 90 degrees.", options.roll);
}

/// The two sides of a field of view, given or from the image; what is missing is added to the list.
void takeField(const std::vector<double>& given, float first, float last, const char* what, double& one, double& other,
               std::vector<std::string>& missing) {
    one = given.empty() ? static_cast<double>(first) : given[0];
    other = given.empty() ? static_cast<double>(last) : given[1];
    if (!isHalfField(one) || !isHalfField(other)) {
        missing.emplace_back(what);
    } else if (!(one + other > 0)) {
        fail("the field of view is 0 degrees wide; give {}.", what);
    }
}

ViewGeometry geometryOf(const DataSet& dataSet, const Options& options) {
    const KSSensor& sensor = dataSet->Sensor;
    const KSMission& mission = dataSet->Mission;
    std::vector<std::string> missing;
    ViewGeometry geometry;
    geometry.width = dataSet->nXSize;
    geometry.height = dataSet->nYSize;
    takeField(options.across, sensor.fFOVLeft, sensor.fFOVRight, "the fields of view to the left and right (--fov)",
              geometry.left, geometry.right, missing);
    geometry.frame = sensor.eType == KS_SENSOR_FRAME || !options.along.empty();
    if (geometry.frame) {
        takeField(options.along, sensor.fFOVFore, sensor.fFOVAft, "those fore and aft (--fov-along)", geometry.fore,
                  geometry.aft, missing);
    }
    geometry.heading = options.heading.value_or(static_cast<double>(mission.fHeading));
    if (!(std::abs(geometry.heading) <= 360)) missing.emplace_back("the heading (--heading)");
    if (!missing.empty()) {
        std::string list;
        for (const std::string& one : missing) list += (list.empty() ? "" : ", ") + one;
        fail("{} does not say, and so must be told: {}.", options.cube, list);
    }
    geometry.roll = options.roll;
    geometry.pitch = options.pitch.value_or(static_cast<double>(mission.fForeAftTilt));
    if (!isTilt(geometry.pitch)) {
        note("{} says no fore-aft tilt; 0 degrees is used (see --pitch).", options.cube);
        geometry.pitch = 0;
    }
    geometry.evenAngles = options.spacing.empty() ? sensor.eType == KS_SENSOR_WHISKBROOM : options.spacing == "angle";
    return geometry;
}

void warnAboutMap(const DataSet& dataSet, const Options& options) {
    double transform[6] = {};
    if (KSHostGetGeoTransform(dataSet.file(), transform) == 0) return;
    note("{} lies on a map; the angles hold as long as its columns are still those of the sensor.", options.cube);
}

// ---- outputs ----

std::string csvOf(const ViewGeometry& geometry) {
    std::string text = geometry.frame ? "column,line,zenith_deg,azimuth_deg,look_azimuth_deg\n"
                                      : "column,zenith_deg,azimuth_deg,look_azimuth_deg\n";
    const int lines = geometry.frame ? geometry.height : 1;
    for (int line = 0; line < lines; ++line) {
        for (int column = 0; column < geometry.width; ++column) {
            const View view = viewOf(geometry, column, line);
            text += fmt::format("{},", column);
            if (geometry.frame) text += fmt::format("{},", line);
            const double look = view.azimuth < 180 ? view.azimuth + 180 : view.azimuth - 180;
            text += fmt::format("{},{},{}\n", angleText(view.zenith), azimuthText(view.azimuth), azimuthText(look));
        }
    }
    return text;
}

std::string historyLine(const ViewGeometry& g, const Options& options) {
    std::string text = fmt::format("ks view {} --fov {},{}", options.cube, g.left, g.right);
    if (g.frame) text += fmt::format(" --fov-along {},{}", g.fore, g.aft);
    return text + fmt::format(" --heading {} --pitch {} --roll {} --spacing {}", g.heading, g.pitch, g.roll,
                              g.evenAngles ? "angle" : "ground");
}

void writeImage(const DataSet& dataSet, const ViewGeometry& geometry, const Options& options) {
    AngleImage image;
    image.input = options.cube;
    image.output = options.output;
    image.force = options.force;
    image.bands = {"view zenith (degrees)", "view azimuth (degrees from north; of the sensor)"};
    image.history = historyLine(geometry, options);
    std::vector<View> line(static_cast<std::size_t>(geometry.width));
    const auto compute = [&](int row) {
        for (int column = 0; column < geometry.width; ++column) {
            line[static_cast<std::size_t>(column)] = viewOf(geometry, column, row);
        }
    };
    compute(0);
    writeAngleImage(dataSet, image, [&](int first, Window& window) {
        float* angles = window.samples();
        for (int row = 0; row < window.rows(); ++row) {
            if (geometry.frame) compute(first + row);
            for (const View& view : line) {
                *angles++ = static_cast<float>(view.zenith);
                *angles++ = static_cast<float>(view.azimuth);
            }
        }
    });
}

void run(const Options& options) {
    checkOptions(options);
    const DataSet dataSet = DataSet::open(options.cube);
    const ViewGeometry geometry = geometryOf(dataSet, options);
    warnAboutMap(dataSet, options);
    if (options.output.empty()) {
        fmt::print("{}", csvOf(geometry));
    } else if (isTableName(options.output)) {
        refuseImageFiles(dataSet, options.cube, options.output);
        Staging staging(options.output, options.force);
        writeText(csvOf(geometry), staging.path());
        staging.publish();
        note("{}: {} columns{}.", options.output, geometry.width,
             geometry.frame ? fmt::format(" x {} lines", geometry.height) : "");
    } else {
        writeImage(dataSet, geometry, options);
    }
}

}  // namespace

void addView(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("view", "Zenith and azimuth of the view, as a table or an image");
    command->add_option("CUBE", options->cube, "An image as the sensor took it")->required();
    command
        ->add_option("--fov", options->across,
                     "Fields of view in degrees from the sensor's axis to the outer edges of the first column (left) "
                     "and the last (right); default: those of CUBE")
        ->delimiter(',')
        ->expected(2)
        ->option_text("LEFT,RIGHT");
    command
        ->add_option("--fov-along", options->along,
                     "The same, in degrees, of the first line (ahead) and the last, for a frame camera")
        ->delimiter(',')
        ->expected(2)
        ->option_text("FORE,AFT");
    command
        ->add_option("--heading", options->heading,
                     "Direction of flight in degrees, clockwise from north; default: that of CUBE")
        ->type_name("DEG");
    command
        ->add_option("--pitch", options->pitch,
                     "Tilt of the sensor's axis in degrees, positive ahead; default: the fore-aft tilt of CUBE, or 0")
        ->type_name("DEG");
    command->add_option("--roll", options->roll, "Tilt of the axis in degrees, positive to the right")
        ->type_name("DEG")
        ->capture_default_str();
    command
        ->add_option("--spacing", options->spacing,
                     "Pixels are equal steps on the 'ground' or in 'angle'; default: angle for a whiskbroom, else "
                     "ground")
        ->check(CLI::IsMember({"ground", "angle"}))
        ->option_text("KIND");
    command
        ->add_option("-o,--output", options->output,
                     "Write to a file: a table (.csv), or an image of two bands (any other name)")
        ->type_name("FILE");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "Angles are degrees, for pixel centres and flat ground. The azimuth is that of\n"
        "the sensor seen from the ground, clockwise from north, like that of 'ks sun';\n"
        "the look azimuth of the table is the opposite one. Every line of a scanner is\n"
        "seen alike; the first column lies to the left of the flight. Far above the\n"
        "curved Earth, as from a satellite, zenith angles are larger than these.\n"
        "Example:\n  ks view scene.img --fov 17,17 --heading 12.5 -o view.csv");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
