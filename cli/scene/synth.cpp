// ks synth: writes a made-up scene as a calibrated image, and the truth behind it into a folder beside it.
#include <cmath>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <new>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/dataset.hpp"
#include "image/entries.hpp"
#include "scene/atmosphere.hpp"
#include "scene/scene.hpp"

namespace fs = std::filesystem;

namespace kscli {
namespace {

struct Options {
    std::string output;
    std::string size = "256x256";
    SceneParameters scene;
    bool force = false;
    bool json = false;
};

constexpr int kMostBands = 10000;
constexpr const char* kSensorModel = "kslib synthetic imaging spectrometer";
// The centre of every scene: longitude 15, latitude 52, on the central meridian of UTM zone 33.
constexpr double kLongitude = 15.0;
constexpr double kLatitude = 52.0;
constexpr double kCentreEasting = 500000.0;
constexpr double kCentreNorthing = 5761038.0;
constexpr double kPixelMetres = 10.0;
constexpr float kHeightMetres = 3000;
constexpr const char* kUtm33North =
    "PROJCS[\"WGS 84 / UTM zone 33N\",GEOGCS[\"WGS 84\",DATUM[\"WGS_1984\",SPHEROID[\"WGS 84\",6378137,298.257223563,"
    "AUTHORITY[\"EPSG\",\"7030\"]],AUTHORITY[\"EPSG\",\"6326\"]],PRIMEM[\"Greenwich\",0,AUTHORITY[\"EPSG\",\"8901\"]],"
    "UNIT[\"degree\",0.0174532925199433,AUTHORITY[\"EPSG\",\"9122\"]],AUTHORITY[\"EPSG\",\"4326\"]],"
    "PROJECTION[\"Transverse_Mercator\"],PARAMETER[\"latitude_of_origin\",0],PARAMETER[\"central_meridian\",15],"
    "PARAMETER[\"scale_factor\",0.9996],PARAMETER[\"false_easting\",500000],PARAMETER[\"false_northing\",0],"
    "UNIT[\"metre\",1,AUTHORITY[\"EPSG\",\"9001\"]],AXIS[\"Easting\",EAST],AXIS[\"Northing\",NORTH],"
    "AUTHORITY[\"EPSG\",\"32633\"]]";

template <class T>
T* zeroed(int count) {
    void* memory = std::calloc(static_cast<std::size_t>(count), sizeof(T));
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<T*>(memory);
}

// A record of an image that exists nowhere yet, everything optional unknown.
DataSet blankDataSet(int width, int height, int bands) {
    DataSet dataSet(zeroed<KSDataSet>(1));
    dataSet->nXSize = width;
    dataSet->nYSize = height;
    dataSet->pBandRefs = zeroed<KSBandRef>(bands);
    KSSensor& sensor = dataSet->Sensor;
    sensor.peBandQual = zeroed<int>(bands);
    sensor.pBandResp = zeroed<KSBandResp>(bands);
    sensor.nNumBands = bands;
    sensor.fFOVLeft = sensor.fFOVRight = sensor.fFOVFore = sensor.fFOVAft = -1;
    dataSet->Mission = {-1, -1, -1, -1, -1, -1, 1000, 1000, -10000, 1000, 1000};
    for (int band = 0; band < bands; ++band) {
        dataSet->pBandRefs[band] = {KS_STORE_EXPLICIT, -1, band + 1, kFloat32};
        sensor.peBandQual[band] = KS_BQ_PLOT;
    }
    return dataSet;
}

void addCalibration(DataSet& image, const Scene& scene) {
    KSRadTrans* transform = KSCreateRadTrans(image.bandCount());
    if (transform == nullptr) throw std::bad_alloc();
    transform->eRadQuant = KS_RQ_APPRAD;
    for (int band = 0; band < image.bandCount(); ++band) {
        transform->pafGains[band] = scene.gain(band);
        transform->pafOffsets[band] = scene.offset(band);
    }
    if (KSAddRadTrans(image.get(), transform) != 0) {
        KSFreeRadTrans(transform);
        throw std::bad_alloc();
    }
}

DataSet describeImage(const Scene& scene) {
    const SceneParameters& p = scene.parameters();
    DataSet image = blankDataSet(p.width, p.height, p.bands);
    image->Sensor.eType = KS_SENSOR_PUSHBROOM;
    image->Sensor.fFOVLeft = image->Sensor.fFOVRight = 17;
    for (int band = 0; band < p.bands; ++band) {
        KSBandResp& response = image->Sensor.pBandResp[band];
        response.eRespType = KS_RT_GAUSSIAN;
        response.fCentre = static_cast<float>(scene.wavelength(band));
        response.fFWHM = static_cast<float>(scene.fwhm(band));
    }
    image->Mission = {2024, 6, 21, 10, 40, -1, kLatitude, kLongitude, kHeightMetres, 12.5, 1000};
    addCalibration(image, scene);
    return image;
}

// "bmask" is the good band before a masked one.
const char* qualityOf(const Scene& scene, int band) {
    if (scene.isOpaque(band)) return aKSBandQual[KS_BQ_MASK].szName;
    const bool beforeMasked = band + 1 < scene.parameters().bands && scene.isOpaque(band + 1);
    return aKSBandQual[beforeMasked ? KS_BQ_BMASK : KS_BQ_PLOT].szName;
}

void placeOnGround(HostFile* file, const SceneParameters& p) {
    const double transform[6] = {kCentreEasting - kPixelMetres * p.width / 2,
                                 kPixelMetres,
                                 0,
                                 kCentreNorthing + kPixelMetres * p.height / 2,
                                 0,
                                 -kPixelMetres};
    KSHostSetCoordinateSystem(file, kUtm33North);
    KSHostSetGeoTransform(file, transform);
}

// The library stores neither sensor name nor qualities, and numbers with few decimals only.
void completeImage(const Scene& scene, HostFile* file) {
    const SceneParameters& p = scene.parameters();
    Entries list = Entries::ofFile(file);
    list.set("SensorModelName", kSensorModel);
    list.set("ENVI:description", fmt::format("{{synthetic scene, {} materials, seed {}}}", p.materials, p.seed));
    list.set("ENVI:z plot titles", "{Wavelength (nm), Radiance (uW cm-2 sr-1 nm-1)}");
    list.storeInFile(file);
    for (int band = 0; band < p.bands; ++band) {
        Entries channel = Entries::ofChannel(file, band + 1);
        channel.set("ResponseProfile_Centre", fmt::format("{:.9g}", scene.wavelength(band)));
        channel.set("ResponseProfile_FWHM", fmt::format("{:.9g}", scene.fwhm(band)));
        channel.set("Quality", qualityOf(scene, band));
        channel.set("RadiometricTrans_Gain_1", fmt::format("{:.9g}", scene.gain(band)));
        channel.set("RadiometricTrans_Offset_1", fmt::format("{:.9g}", scene.offset(band)));
        channel.storeInChannel(file, band + 1);
    }
    placeOnGround(file, p);
    GDBWriteHistory(file, kFileLevel, kNoChannel,
                    fmt::format("ks synth --size {}x{} --bands {} --materials {} --seed {}", p.width, p.height, p.bands,
                                p.materials, p.seed)
                        .c_str());
}

void completeFractions(const Scene& scene, HostFile* file) {
    Entries list = Entries::ofFile(file);
    list.set("ENVI:description", "{fraction of each material in each pixel; the fractions of a pixel sum to 1}");
    list.storeInFile(file);
    for (std::size_t m = 0; m < scene.materialNames().size(); ++m) {
        std::string material = scene.materialNames()[m];
        GDBChanDescIO(file, 1, static_cast<int>(m) + 1, material.data());
    }
    placeOnGround(file, scene.parameters());
}

void writeSamples(const Scene& scene, const DataSet& image, const DataSet& fractions) {
    const SceneParameters& p = scene.parameters();
    const double bytes = sizeof(float) * static_cast<double>(p.width) * static_cast<double>(p.bands + p.materials);
    const int rowsAtOnce = rowsPerBlock(bytes, p.height);
    Window samples(p.width, rowsAtOnce, 1, 1, allBands(image));
    Window mixture(p.width, rowsAtOnce, 1, 1, allBands(fractions));
    forEachBlock(p.height, rowsAtOnce, [&](int first, int count) {
        for (Window* window : {&samples, &mixture}) {
            window->resizeRows(count);
            window->place(0, first);
        }
        for (int row = 0; row < count; ++row) {
            for (int x = 0; x < p.width; ++x) {
                scene.fractions(x, first + row, mixture.pixel(x, row));
                scene.samples(x, first + row, mixture.pixel(x, row), samples.pixel(x, row));
            }
        }
        samples.write(image);
        mixture.write(fractions);
        requireComplete("the scene");
    });
}

// Lines of a text file that is written whole at the end.
class TextFile {
public:
    template <class... Args>
    void print(fmt::format_string<Args...> format, Args&&... args) {
        text_ += fmt::format(format, std::forward<Args>(args)...);
    }
    void writeTo(const fs::path& name) const { writeText(text_, name.string()); }

private:
    std::string text_;
};

void writeEndmembers(const Scene& scene, const fs::path& folder) {
    TextFile file;
    file.print("wavelength_nm");
    for (const std::string& name : scene.materialNames()) file.print(",{}", name);
    file.print("\n");
    for (int band = 0; band < scene.parameters().bands; ++band) {
        file.print("{:.9g}", scene.wavelength(band));
        for (int m = 0; m < scene.parameters().materials; ++m) file.print(",{:.9g}", scene.reflectance(m, band));
        file.print("\n");
    }
    file.writeTo(folder / "endmembers.csv");
}

void writeTrend(const Scene& scene, const fs::path& folder) {
    TextFile file;
    file.print("column,brightness\n");
    for (int x = 0; x < scene.parameters().width; ++x) file.print("{},{:.12g}\n", x, scene.trend(x));
    file.writeTo(folder / "trend.csv");
}

void writeIllumination(const Scene& scene, const fs::path& folder) {
    TextFile file;
    file.print("wavelength_nm,white_radiance,path_radiance,noise_at_white,gain,offset\n");
    for (int band = 0; band < scene.parameters().bands; ++band) {
        const double white = scene.whiteRadiance(band);
        file.print("{:.9g},{:.9g},{:.9g},{:.9g},{:.9g},{:.9g}\n", scene.wavelength(band), white,
                   scene.pathRadiance(band), scene.noise(band, white), scene.gain(band), scene.offset(band));
    }
    file.writeTo(folder / "illumination.csv");
}

void writeReadme(const Scene& scene, const fs::path& folder, const std::string& image) {
    const SceneParameters& p = scene.parameters();
    TextFile file;
    file.print("The truth behind {}, made by: ks synth {} --size {}x{} --bands {} --materials {} --seed {}\n\n", image,
               image, p.width, p.height, p.bands, p.materials, p.seed);
    file.print(
        "endmembers.csv    reflectance of each material at the band centres\n"
        "fractions.img     fraction of each material in each pixel (one band a material; they sum to 1)\n"
        "trend.csv         brightness of each image column relative to the middle of the swath\n"
        "illumination.csv  radiance of a white and of a black surface, noise, and the calibration of each band\n"
        "atmosphere.nc     path radiance and radiance of a white surface for half, all and twice the scene's water\n"
        "                  vapour of 2 g/cm2; 'ks lut import --radiance' makes a table of it\n\n"
        "Radiance in uW cm-2 sr-1 nm-1 of a pixel, before noise:\n"
        "    trend(column) * (white(band) * sum over materials of fraction * reflectance(band) + path(band))\n"
        "The noise at radiance L has the variance (0.0008 + 6 * gain)^2 + 2.5e-5 * L. Stored values are\n"
        "(radiance - offset) / gain, rounded to whole numbers 0..65535. Bands inside the water vapour absorption at\n"
        "1340-1430 and 1810-1950 nm are marked bad. The scene is made up; it shows no real place.\n");
    file.writeTo(folder / "README.txt");
}

void parseSize(const std::string& text, SceneParameters& scene) {
    int width = 0;
    int height = 0;
    char rest = 0;
    const bool valid = std::sscanf(text.c_str(), "%6dx%6d%c", &width, &height, &rest) == 2 && width >= 1 && height >= 1;
    if (!valid) fail("'{}' is not a size. Write WIDTHxHEIGHT such as 256x256 (1 to 999999 each).", text);
    scene.width = width;
    scene.height = height;
}

void run(Options options) {
    parseSize(options.size, options.scene);
    requireImageName(options.output);
    Staging staging(options.output, options.force);
    staging.alsoMakes(companionsOf(options.output));
    const std::string truthName = fs::path(options.output).stem().string() + "_truth";
    staging.alsoMakes({fs::path(options.output).parent_path() / truthName});
    const fs::path truth = staging.folder() / truthName;
    fs::create_directory(truth);

    const Scene scene(options.scene);
    const SceneParameters& p = scene.parameters();
    DataSet image = describeImage(scene);
    DataSet fractions = blankDataSet(p.width, p.height, p.materials);
    image.create(staging.path(), kUInt16);
    fractions.create((truth / "fractions.img").string(), kFloat32);
    writeSamples(scene, image, fractions);
    image.writeMetadata();
    fractions.writeMetadata();
    completeImage(scene, image.file());
    completeFractions(scene, fractions.file());
    image.close();
    fractions.close();
    writeEndmembers(scene, truth);
    writeTrend(scene, truth);
    writeIllumination(scene, truth);
    writeAtmosphere(scene, static_cast<double>(kHeightMetres) / 1000, (truth / "atmosphere.nc").string());
    writeReadme(scene, truth, fs::path(options.output).filename().string());
    requireComplete("the scene");
    staging.publish();
    note("{}: {} x {} pixels, {} bands, {} materials; the truth is in {}.", options.output, p.width, p.height, p.bands,
         p.materials, truthName);
    if (options.json) {
        printJson({{"file", options.output},
                   {"truth", (fs::path(options.output).parent_path() / truthName).string()},
                   {"width", p.width},
                   {"height", p.height},
                   {"bands", p.bands},
                   {"materials", scene.materialNames()},
                   {"seed", p.seed}});
    }
}

}  // namespace

void addSynth(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("synth", "Make a physically plausible scene, with the truth behind it");
    command->add_option("OUT", options->output, "The image: GeoTIFF when it ends in .tif or .tiff, else ENVI")
        ->required();
    command->add_option("--size", options->size, "In pixels")->type_name("WIDTHxHEIGHT")->capture_default_str();
    command->add_option("--bands", options->scene.bands, "Number of bands between 400 and 2500 nm, 1 to 10000")
        ->check(wholeNumber(1, kMostBands))
        ->type_name("N")
        ->capture_default_str();
    command->add_option("--seed", options->scene.seed, "The same seed makes the same scene")
        ->check(wholeNumber(0, UINT64_MAX))
        ->type_name("N")
        ->capture_default_str();
    command
        ->add_option("--materials", options->scene.materials,
                     fmt::format("Number of materials, 1 to {}", kMostMaterials))
        ->check(wholeNumber(1, kMostMaterials))
        ->type_name("N")
        ->capture_default_str();
    command->add_flag("--force", options->force, "Replace the scene if it exists");
    command->add_flag("--json", options->json, "Print what was made as JSON");
    command->footer("Example:\n  ks synth scene.img --size 512x512 --seed 7");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
