// ks roi: regions of interest of an image: made, united, drawn from polygons, found by their values, and listed.
#include <cmath>
#include <limits>
#include <memory>
#include <optional>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/dataset.hpp"
#include "image/region.hpp"
#include "image/regionoutput.hpp"

namespace kscli {
namespace {

struct Options {
    std::string cube;
    std::string output;
    std::vector<std::string> regions;
    std::string within;
    std::string polygons;
    ShapeOptions shapes;
    std::string bands = "all";
    int level = -1;
    std::optional<double> from, to;
    bool json = false;
    bool force = false;
};

// ---- finding regions ----

std::vector<NamedRegion> written(const DataSet& dataSet, const std::vector<std::string>& texts) {
    std::vector<NamedRegion> all;
    for (const std::string& text : texts) {
        for (NamedRegion& region : parseRegions(dataSet, text)) all.push_back(std::move(region));
    }
    return all;
}

Region united(const std::vector<NamedRegion>& regions) {
    std::vector<const KSROI*> records;
    for (const NamedRegion& region : regions) records.push_back(region.region.get());
    return unionOf(records);
}

Region regionWithin(const DataSet& dataSet, const Options& options) {
    return options.within.empty() ? rectangleRegion({0, 0, dataSet->nXSize, dataSet->nYSize})
                                  : parseRegion(dataSet, options.within);
}

Region withData(const DataSet& dataSet, const Options& options) {
    Region within = regionWithin(dataSet, options);
    const std::vector<int> bands = parseBands(dataSet, options.bands);
    ValidPixels valid = validPixels(dataSet, bands, dataSet.level(options.level), within.get());
    requireComplete("the search for pixels with data");
    if (valid.valid == 0) fail("no pixel has data in every band; choose other bands or another region.");
    if (!valid.emptyBands.empty()) {
        note("{} without any data; only the other bands decide which pixels are valid.", bandRanges(valid.emptyBands));
    }
    return valid.region != nullptr ? trimmedBitmap(std::move(valid.region)) : std::move(within);
}

int bandOfThreshold(const DataSet& dataSet, const std::string& list) {
    const std::vector<int> bands = parseBands(dataSet, list);
    if (bands.size() != 1) fail("'{}' names {} bands; a threshold is on one.", list, bands.size());
    return bands[0];
}

Region withinLimits(const DataSet& dataSet, const Options& options) {
    if (!options.from && !options.to) fail("give at least one limit, --from or --to.");
    const float low = options.from ? static_cast<float>(*options.from) : -std::numeric_limits<float>::infinity();
    const float high = options.to ? static_cast<float>(*options.to) : std::numeric_limits<float>::infinity();
    const Region within = regionWithin(dataSet, options);
    const Extent extent = extentOf(*within);
    Region found = emptyBitmap(extent);
    const SampleReader reader(dataSet, {bandOfThreshold(dataSet, options.bands)}, dataSet.level(options.level),
                              SampleReader::NoData::asNaN);
    const Area area = makeArea(extent.x, extent.y, extent.width, extent.height, 1);
    readBlocks(reader, area, 1.0, [&](int first, Window& window) {
        for (int row = 0; row < window.rows(); ++row) {
            for (int x = 0; x < window.columns(); ++x) {
                const float value = *window.pixel(x, row);
                const int y = first + row;
                const bool inside = within->eROIType != KS_ROI_BITMAP || KSGetROIBit(within.get(), x, y) != 0;
                if (inside && std::isfinite(value) && value >= low && value <= high) KSSetROIBit(found.get(), x, y);
            }
        }
    });
    requireComplete("the search for pixels within the limits");
    found = trimmedBitmap(std::move(found));
    if (found == nullptr) fail("no pixel lies within the limits; 'ks stats' tells the range of the band.");
    return found;
}

// ---- telling ----

// A bitmap that is in no mask image has no number yet.
std::string shown(const KSROI& region) {
    return region.eROIType == KS_ROI_BITMAP && region.nBitmapID < 1 ? "bitmap" : regionText(region);
}

Json json(const DataSet& dataSet, const std::string& file, const std::vector<NamedRegion>& regions) {
    Json list = Json::array();
    for (const NamedRegion& region : regions) {
        const Extent extent = extentOf(*region.region);
        list.push_back({{"region", shown(*region.region)},
                        {"name", region.name},
                        {"pixels", pixelCount(*region.region)},
                        {"x", extent.x},
                        {"y", extent.y},
                        {"width", extent.width},
                        {"height", extent.height}});
    }
    return {{"file", file}, {"width", dataSet->nXSize}, {"height", dataSet->nYSize}, {"regions", list}};
}

void print(const std::vector<NamedRegion>& regions) {
    fmt::print("{:>10} {:>6} {:>6} {:>6} {:>6}  {}\n", "pixels", "x", "y", "width", "height", "region");
    for (const NamedRegion& region : regions) {
        const Extent extent = extentOf(*region.region);
        fmt::print("{:>10} {:>6} {:>6} {:>6} {:>6}  {}{}\n", pixelCount(*region.region), extent.x, extent.y,
                   extent.width, extent.height, shown(*region.region), region.name.empty() ? "" : "  # " + region.name);
    }
}

// ---- the commands ----

// What every command that writes has in common; find(dataSet) gives the regions.
template <class Find>
void produce(const Options& options, const std::string& what, Find find) {
    const DataSet dataSet = DataSet::open(options.cube);
    RegionOutput output(dataSet, options.cube, options.output, options.force);
    std::vector<NamedRegion> regions = find(dataSet);
    output.write(regions, fmt::format("ks roi {} {}", what, options.cube));
    long long pixels = 0;
    for (const NamedRegion& region : regions) pixels += pixelCount(*region.region);
    note("{}: {} region{}, {} of {} pixels.", options.output, regions.size(), regions.size() == 1 ? "" : "s", pixels,
         static_cast<long long>(dataSet->nXSize) * dataSet->nYSize);
    if (options.json) printJson(json(dataSet, options.output, regions));
}

std::vector<NamedRegion> oneOf(Region region, const std::string& name) {
    std::vector<NamedRegion> regions(1);
    regions[0] = {name, std::move(region)};
    return regions;
}

void runMake(const Options& options) {
    produce(options, "make", [&](const DataSet& dataSet) { return written(dataSet, options.regions); });
}
void runUnion(const Options& options) {
    produce(options, "union",
            [&](const DataSet& dataSet) { return oneOf(united(written(dataSet, options.regions)), ""); });
}
void runRasterize(const Options& options) {
    produce(options, "rasterize",
            [&](const DataSet& dataSet) { return rasterizeShapes(dataSet, options.polygons, options.shapes); });
}
void runValid(const Options& options) {
    produce(options, "valid", [&](const DataSet& dataSet) { return oneOf(withData(dataSet, options), "with data"); });
}
void runThreshold(const Options& options) {
    produce(options, "threshold", [&](const DataSet& dataSet) {
        const std::string name =
            fmt::format("{} {}{}", options.bands, options.from ? fmt::format("from {} ", *options.from) : "",
                        options.to ? fmt::format("to {}", *options.to) : "upwards");
        return oneOf(withinLimits(dataSet, options), name);
    });
}
void runList(const Options& options) {
    const DataSet dataSet = DataSet::open(options.cube);
    const std::vector<NamedRegion> regions = written(dataSet, options.regions);
    if (options.json) {
        printJson(json(dataSet, options.cube, regions));
    } else {
        print(regions);
    }
}

// ---- command lines ----

using Runner = void (*)(const Options&);

CLI::App* addCommand(CLI::App& roi, const char* name, const char* meaning, const std::shared_ptr<Options>& options,
                     Command& chosen, Runner runner, bool writes = true) {
    CLI::App* command = roi.add_subcommand(name, meaning);
    command->add_option("CUBE", options->cube, "The image")->required();
    if (writes) command->add_flag("--force", options->force, "Replace the output if it exists");
    command->add_flag("--json", options->json, writes ? "Print what was made as JSON" : "Print as JSON");
    command->callback([options, runner, &chosen] { chosen = [options, runner] { runner(*options); }; });
    return command;
}

constexpr const char* kOutputHelp = "A file of regions (.roi or .txt) or a mask image (.tif for GeoTIFF, else ENVI)";

void addOutput(CLI::App* command, Options& options) {
    command->add_option("OUT", options.output, kOutputHelp)->required();
}

/// Regions and, behind them, the output.
void addRegionsAndOutput(CLI::App* command, Options& options) {
    command
        ->add_option("REGION...OUT", options.regions,
                     fmt::format("One or more regions, each {}; then the output: {}", kRegionHelp, kOutputHelp))
        ->required()
        ->expected(2, -1);
    command->parse_complete_callback([&options] {
        options.output = options.regions.back();
        options.regions.pop_back();
    });
}

void addRegions(CLI::App* command, Options& options) {
    command->add_option("REGION", options.regions, kRegionHelp)->required()->expected(1, -1);
}

void addSearch(CLI::App* command, Options& options) {
    command->add_option("--roi", options.within, fmt::format("Where to look: {}; default: everywhere", kRegionHelp))
        ->type_name("REGION");
    command->add_option("--level", options.level, "Radiometric level (0: stored values); default: the highest")
        ->check(wholeNumber(0))
        ->type_name("N");
}

void addMaking(CLI::App& roi, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* make =
        addCommand(roi, "make", "Collect regions, from texts and files, in one file", options, chosen, runMake);
    addRegionsAndOutput(make, *options);
    make->footer("Example:\n  ks roi make scene.img 'point xoff 10 yoff 20 size 3' field.geojson sites.roi");

    options = std::make_shared<Options>();
    CLI::App* all = addCommand(roi, "union", "Make one region of several", options, chosen, runUnion);
    addRegionsAndOutput(all, *options);
    all->footer("Example:\n  ks roi union scene.img sites.roi 'point xoff 1 yoff 2 size 3' all.roi");

    options = std::make_shared<Options>();
    CLI::App* rasterize =
        addCommand(roi, "rasterize", "Find the pixels of polygons, one region each", options, chosen, runRasterize);
    rasterize
        ->add_option("POLYGONS", options->polygons,
                     "GeoJSON (.geojson, .json), an ESRI Shapefile (.shp) or a table (.csv)")
        ->required();
    addOutput(rasterize, *options);
    rasterize->add_flag("--pixels", options->shapes.pixels,
                        "Take coordinates as columns and lines; 0,0 is the outer corner of the first pixel");
    rasterize->add_flag("--all-touched", options->shapes.allTouched,
                        "All pixels that a polygon touches, not only those whose centre lies in it");
    rasterize->footer(
        "Coordinates are on the map when the image is, else pixels. A table has a column\n"
        "WKT, or a vertex a row: columns x and y (of the image's map), lon and lat, or\n"
        "column and line (pixels); 'polygon', 'id' or 'name' tells polygons apart.\n"
        "Example:\n  ks roi rasterize scene.img fields.geojson fields.roi");
}

void addFinding(CLI::App& roi, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* valid =
        addCommand(roi, "valid", "Find the pixels that hold data in every band", options, chosen, runValid);
    addOutput(valid, *options);
    valid->add_option("--bands", options->bands, fmt::format("Bands to look at: {}", kBandListHelp))
        ->type_name("LIST")
        ->capture_default_str();
    addSearch(valid, *options);
    valid->footer("Example:\n  ks roi valid scene.img data.img --bands good");

    options = std::make_shared<Options>();
    CLI::App* threshold = addCommand(roi, "threshold", "Find the pixels whose value in a band lies within limits",
                                     options, chosen, runThreshold);
    addOutput(threshold, *options);
    threshold->add_option("--band", options->bands, "The band: its number (b12) or wavelength in nm (860)")
        ->type_name("BAND")
        ->required();
    threshold->add_option("--from", options->from, "Least value")->type_name("VALUE");
    threshold->add_option("--to", options->to, "Largest value")->type_name("VALUE");
    addSearch(threshold, *options);
    threshold->footer("Example:\n  ks roi threshold scene.img bright.roi --band 860 --from 0.4");

    options = std::make_shared<Options>();
    CLI::App* list = addCommand(roi, "list", "Tell what regions there are, and how many pixels they have", options,
                                chosen, runList, false);
    addRegions(list, *options);
    list->footer("Example:\n  ks roi list scene.img sites.roi");
}

}  // namespace

void addRoi(CLI::App& app, Command& chosen) {
    CLI::App* roi = app.add_subcommand("roi", "Regions of interest: make, unite, draw from polygons, find, list");
    roi->require_subcommand(1);
    roi->fallthrough();
    roi->footer(
        "A file of regions holds one a line, and after '#' its name:\n"
        "  point xoff 10 yoff 20 size 3\n"
        "  rectangle xoff 0 yoff 0 xsize 20 ysize 10   # roof\n"
        "  bitmap 1                                    # lake\n"
        "'bitmap N' is channel N of the mask image beside the file (of sites.roi,\n"
        "sites.roi.img), where all that is not 0 is inside. Every --roi takes these texts\n"
        "and files.\n"
        "Example:\n  ks roi make scene.img 'point xoff 10 yoff 20 size 3' sites.roi\n"
        "  ks stats scene.img --roi sites.roi");
    addMaking(*roi, chosen);
    addFinding(*roi, chosen);
}

}  // namespace kscli
