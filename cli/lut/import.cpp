// ks lut import: tables from netCDF. A variable becomes a table as it is, but for the axis of wavelengths, which comes
// last so that spectra lie together; or several variables become one radiance table.
#include "lut/import.hpp"

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <memory>
#include <set>

#include <kshost_app.h>

#include "app/help.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "lut/blocks.hpp"
#include "lut/commands.hpp"
#include "lut/exchange.hpp"
#include "lut/radiance.hpp"
#include "lut/text.hpp"

namespace fs = std::filesystem;

namespace kscli {

std::string plainName(const std::string& name) {
    std::string plain;
    for (char c : name) {
        if (std::isalnum(static_cast<unsigned char>(c)) != 0) {
            plain += static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
        }
    }
    return plain;
}

int wavelengthDimension(const NetcdfReader& file) {
    static const std::set<std::string> kNames = {"wl",   "wlen",  "wave",     "wavelength", "wavelengths", "lambda",
                                                 "band", "bands", "channels", "channel",    "wavenumber"};
    static const std::set<std::string> kStandardNames = {"radiation_wavelength",
                                                         "sensor_band_central_radiation_wavelength"};
    const int count = static_cast<int>(file.dimensions().size());
    for (int d = 0; d < count; ++d) {
        const NetcdfVariable* variable = file.coordinatesOf(d);
        if (variable != nullptr && kStandardNames.count(file.text(variable, "standard_name")) != 0) return d;
    }
    for (int d = 0; d < count; ++d) {
        if (kNames.count(plainName(file.dimensions()[static_cast<std::size_t>(d)].name)) != 0) return d;
    }
    return kNoDimension;
}

std::vector<double> coordinatesOf(const NetcdfReader& file, int dimension) {
    const NetcdfVariable* variable = file.coordinatesOf(dimension);
    if (variable != nullptr) return file.readWhole(*variable);
    std::vector<double> counted(file.dimensions()[static_cast<std::size_t>(dimension)].length);
    for (std::size_t i = 0; i < counted.size(); ++i) counted[i] = static_cast<double>(i);
    return counted;
}

namespace {

struct Options {
    std::string source;
    std::string output;
    std::vector<std::string> variables;
    std::string wavelength;
    std::string type;
    bool radiance = false;
    RadianceOptions radianceOptions;
    bool add = false;
    bool force = false;
};

/// One table to be: the variables that hold the values of its elements, and which of their dimensions each axis is.
struct Source {
    TableDescription description;
    std::vector<const NetcdfVariable*> values;
    std::vector<std::size_t> order;
};

// ---- where tables go ----

/// A file that gets tables: a new one, made aside until it is complete, or one that exists.
class TableFile {
public:
    explicit TableFile(const Options& options) {
        if (options.add) {
            file_ = openTableFile(options.output, "r+");
            if (fp2type(file_.get()) != KSHOST_TYPE_NATIVE)
                fail("{} is of a kind that keeps no tables.", options.output);
            return;
        }
        refuseForeignName(options.output);
        if (!options.force && fs::exists(options.output)) {
            fail("{} exists. Choose another name, give --add to add to it or --force to replace it.", options.output);
        }
        staging_ = std::make_unique<Staging>(options.output, options.force);
        staging_->alsoMakes({options.output + ".ks"});
        file_.reset(GDBCreate(KSHOST_TYPE_NATIVE, staging_->path().c_str(), 512, 512, 0, 1, ""));
        if (!file_) fail("{} cannot be made (see above).", options.output);
    }

    HostFile* get() const { return file_.get(); }

    void finish() {
        file_.reset();
        requireComplete("the import");
        if (staging_) staging_->publish();
    }

private:
    static void refuseForeignName(const std::string& name) {
        static const std::set<std::string> kOtherFormats = {".nc",  ".tif", ".tiff", ".img", ".hdr", ".csv",
                                                            ".png", ".svg", ".h5",   ".sli", ".txt", ".json"};
        if (kOtherFormats.count(lowerExtension(name)) == 0) return;
        fail("{}: a new file of tables is not of that kind; name it .kslut. --add puts tables beside an image.", name);
    }

    std::unique_ptr<Staging> staging_;
    OpenHostFile file_;
};

// ---- what becomes a table ----

/// The axes in their order, the one of wavelengths last.
std::vector<std::size_t> orderOf(const NetcdfVariable& variable, int wavelength) {
    std::vector<std::size_t> order;
    std::vector<std::size_t> last;
    for (std::size_t d = 0; d < variable.dimensions.size(); ++d) {
        (variable.dimensions[d] == wavelength ? last : order).push_back(d);
    }
    order.insert(order.end(), last.begin(), last.end());
    return order;
}

TableAxis axisOf(const NetcdfReader& file, int dimension) {
    const NetcdfVariable* variable = file.coordinatesOf(dimension);
    TableAxis axis;
    axis.label = file.dimensions()[static_cast<std::size_t>(dimension)].name;
    for (double coordinate : coordinatesOf(file, dimension)) axis.coordinates.push_back(static_cast<float>(coordinate));
    if (variable == nullptr) return axis;
    axis.units = file.text(variable, "units");
    if (file.hasAttribute(*variable, exchange::kAxis)) axis.label = file.text(variable, exchange::kLabel);
    axis.assumed = axis.size() == 1 && file.hasAttribute(*variable, exchange::kAssumed);
    return axis;
}

ElementType typeOf(const NetcdfReader& file, const NetcdfVariable& variable, const std::string& asked) {
    if (!asked.empty()) return asked == "float32" ? ElementType::float32 : ElementType::float64;
    const bool isPacked = file.hasAttribute(variable, "scale_factor") || file.hasAttribute(variable, "add_offset");
    return fitsFloat(variable) && !isPacked ? ElementType::float32 : ElementType::float64;
}

Source sourceOf(const NetcdfReader& file, const NetcdfVariable& variable, int wavelength, const std::string& type) {
    if (variable.dimensions.empty()) fail("{}: '{}' is a single number, no table.", file.name(), variable.name);
    Source source;
    // What we exported has its axes where they belong already.
    const bool isOurs = file.hasAttribute(variable, exchange::kElement);
    source.order = orderOf(variable, isOurs ? kNoDimension : wavelength);
    source.values = {&variable};
    TableDescription& description = source.description;
    description.name = isOurs ? file.text(&variable, exchange::kTableName) : variable.name;
    description.text = isOurs
                           ? file.text(&variable, exchange::kDescription)
                           : fmt::format("variable {} of {}", variable.name, fs::path(file.name()).filename().string());
    description.units = file.text(&variable, "units");
    description.type = typeOf(file, variable, type);
    const std::string valueName = file.text(&variable, isOurs ? exchange::kValueName : "long_name");
    if (!valueName.empty()) description.valueNames = {valueName};
    for (std::size_t d : source.order) {
        description.axes.push_back(axisOf(file, variable.dimensions[d]));
        if (description.axes.back().size() == 0) fail("{}: '{}' is empty.", file.name(), variable.name);
    }
    return source;
}

/// Two variables that an export made of one table of pairs.
bool isSecondOf(const NetcdfReader& file, const Source& first, const Source& second) {
    const std::string pair = elementTypeName(ElementType::pair);
    return file.text(first.values[0], exchange::kElement) == pair &&
           file.text(second.values[0], exchange::kElement) == pair && first.values.size() == 1 &&
           first.values[0]->dimensions == second.values[0]->dimensions;
}

void joinPairs(const NetcdfReader& file, std::vector<Source>& sources) {
    for (std::size_t i = 0; i + 1 < sources.size(); ++i) {
        if (!isSecondOf(file, sources[i], sources[i + 1])) continue;
        TableDescription& description = sources[i].description;
        description.type = ElementType::pair;
        const std::vector<std::string>& more = sources[i + 1].description.valueNames;
        description.valueNames.insert(description.valueNames.end(), more.begin(), more.end());
        sources[i].values.push_back(sources[i + 1].values[0]);
        sources.erase(sources.begin() + static_cast<std::ptrdiff_t>(i) + 1);
    }
}

std::string namesOf(const NetcdfReader& file) {
    std::vector<std::string> names;
    for (const NetcdfVariable& variable : file.variables()) names.push_back(variable.name);
    return fmt::format("{}", fmt::join(names, ", "));
}

bool isCoordinate(const NetcdfReader& file, const NetcdfVariable& variable) {
    return variable.dimensions.size() == 1 && file.coordinatesOf(variable.dimensions[0]) == &variable;
}

int chooseWavelength(const NetcdfReader& file, const std::string& asked) {
    if (asked.empty()) return wavelengthDimension(file);
    for (std::size_t d = 0; d < file.dimensions().size(); ++d) {
        if (file.dimensions()[d].name == asked) return static_cast<int>(d);
    }
    fail("{} has no dimension '{}'.", file.name(), asked);
}

std::vector<Source> chooseSources(const NetcdfReader& file, const Options& options) {
    const int wavelength = chooseWavelength(file, options.wavelength);
    std::vector<Source> sources;
    for (const std::string& name : options.variables) {
        const NetcdfVariable* variable = file.find(name);
        if (variable == nullptr) fail("{} has no variable '{}'; it has: {}.", file.name(), name, namesOf(file));
        if (!isNumeric(*variable)) fail("{}: '{}' holds texts, no numbers.", file.name(), name);
        sources.push_back(sourceOf(file, *variable, wavelength, options.type));
    }
    if (!options.variables.empty()) return sources;
    for (const NetcdfVariable& variable : file.variables()) {
        if (!isNumeric(variable) || variable.dimensions.empty() || isCoordinate(file, variable)) continue;
        sources.push_back(sourceOf(file, variable, wavelength, options.type));
    }
    if (sources.empty()) fail("{} holds no variables with dimensions in its root group.", file.name());
    joinPairs(file, sources);
    return sources;
}

// ---- values ----

/// Brings values in the order of a variable's dimensions into the order of the table's axes.
class Arrangement {
public:
    Arrangement(const Source& source, const TableBox& box) : box_(box), strides_(source.order.size()) {
        std::size_t stride = 1;
        for (std::size_t d = source.order.size(); d-- > 0;) {
            const auto axis = std::find(source.order.begin(), source.order.end(), d) - source.order.begin();
            strides_[static_cast<std::size_t>(axis)] = stride;
            stride *= static_cast<std::size_t>(box.count[static_cast<std::size_t>(axis)]);
        }
    }

    /// Every `step`-th place is filled.
    void copy(const double* values, double* places, std::size_t step, std::size_t axis = 0) {
        if (axis == 0) next_ = 0;
        for (std::int64_t i = 0; i < box_.count[axis]; ++i) {
            const double* const at = values + static_cast<std::size_t>(i) * strides_[axis];
            if (axis + 1 < strides_.size()) {
                copy(at, places, step, axis + 1);
            } else {
                places[next_] = *at;
                next_ += step;
            }
        }
    }

private:
    const TableBox& box_;
    std::vector<std::size_t> strides_;
    std::size_t next_ = 0;
};

std::vector<double> readElements(const NetcdfReader& file, const Source& source, const TableBox& box) {
    std::vector<std::size_t> start(source.order.size());
    std::vector<std::size_t> count(source.order.size());
    for (std::size_t d = 0; d < source.order.size(); ++d) {
        start[source.order[d]] = static_cast<std::size_t>(box.offset[d]);
        count[source.order[d]] = static_cast<std::size_t>(box.count[d]);
    }
    std::vector<double> elements(static_cast<std::size_t>(box.elements()) * source.values.size());
    for (std::size_t v = 0; v < source.values.size(); ++v) {
        const std::vector<double> values = file.read(*source.values[v], start, count);
        Arrangement(source, box).copy(values.data(), elements.data() + v, source.values.size());
    }
    return elements;
}

LookupTable importTable(const NetcdfReader& file, const Source& source, HostFile* target) {
    LookupTable table = LookupTable::create(target, source.description);
    constexpr int kCopies = 4;
    BoxWalk walk(table, elementsAtOnce(kCopies * static_cast<int>(sizeof(double))));
    Progress progress;
    TableBox box;
    while (walk.next(box)) {
        table.writeValues(box, readElements(file, source, box));
        walk.showOn(progress);
    }
    table.finish();
    return table;
}

void noteTable(const Options& options, const LookupTable& table) {
    note("{}, segment {}: {}, {}.", options.output, table.segment(), tableText(table), elementTypeName(table.type()));
}

void run(const Options& options) {
    if (sameFile(options.source, options.output)) fail("{} cannot be written onto itself.", options.source);
    if (options.radiance && !(options.variables.empty() && options.type.empty() && options.wavelength.empty())) {
        fail(
            "--variable, --type and --wavelength are for tables of single variables; leave them away with --radiance.");
    }
    const NetcdfReader file(options.source);
    if (options.radiance) {
        TableFile target(options);
        noteTable(options, importRadiance(file, options.radianceOptions, target.get()));
        return target.finish();
    }
    const std::vector<Source> sources = chooseSources(file, options);
    TableFile target(options);
    for (const Source& source : sources) noteTable(options, importTable(file, source, target.get()));
    target.finish();
}

}  // namespace

void addLutImport(CLI::App& lut, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = lut.add_subcommand("import", "Make tables of netCDF variables");
    command->add_option("NETCDF", options->source, "The netCDF file")->required();
    command->add_option("FILE", options->output, "The file for the tables, .kslut by custom")->required();
    command->add_option("--variable", options->variables, "Only this variable; repeatable; default: all of numbers")
        ->allow_extra_args(false)
        ->option_text("NAME");
    command->add_option("--wavelength", options->wavelength, "The dimension of wavelengths; default: by its name")
        ->type_name("DIM");
    command->add_option("--type", options->type, "float32 or float64; default: as the variable")
        ->check(CLI::IsMember({"float32", "float64"}))
        ->option_text("TYPE");
    CLI::Option* radiance =
        command->add_flag("--radiance", options->radiance, "Make one radiance table of all quantities");
    std::vector<CLI::Option*> before = command->get_options();
    addRadianceOptions(*command, options->radianceOptions);
    for (CLI::Option* option : command->get_options()) {
        if (std::find(before.begin(), before.end(), option) == before.end()) option->needs(radiance);
    }
    command->add_flag("--add", options->add, "Add to FILE, a file of tables or an image, instead of making it");
    command->add_flag("--force", options->force, "Replace FILE if it exists");
    command->footer(
        "Labels are the names of the dimensions, coordinates those of their variables;\n"
        "the axis of wavelengths becomes the last. Fill values become not-a-numbers.\n"
        "With --radiance the file holds, over any of sensor altitude, solar zenith,\n"
        "aerosol (AOT550) or visibility, water, elevation, azimuth, view zenith, and\n"
        "wavelength: rhoatm, sphalb, and dir-dir, dif-dir, dir-dif, dif-dif or the four\n"
        "transmittances with solar_irr. An axis that it lacks gets one index; where no\n"
        "option tells its coordinate, it is 0 and marked as assumed. Aerosol optical\n"
        "depth t becomes a meteorological range of 3.912 / (t / H + 0.0116) km, with H\n"
        "from --aerosol-scale-height.\n"
        "Example:\n  ks lut import lut.nc quantities.kslut --variable rhoatm\n"
        "  ks lut import --radiance lut.nc scene.kslut --altitude 4.2 --elevation 0.1");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
