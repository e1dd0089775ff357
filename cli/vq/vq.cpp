// ks vq: an image as a codebook of spectra and, for every pixel, the number of the one that comes nearest. Training
// makes the codebook, encoding the numbers, decoding an ordinary image again.
#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/copymeta.hpp"
#include "image/copyplan.hpp"
#include "image/dataset.hpp"
#include "image/entries.hpp"
#include "image/pixelsample.hpp"
#include "image/quantized.hpp"
#include "vq/kmedians.hpp"
#include "vq/vqerror.hpp"

namespace kscli {
namespace {

struct TrainOptions {
    std::string input;
    std::string output;
    Clustering clustering;
    std::size_t sample = 20000;
    std::string type = "same";
    bool json = false;
    bool force = false;
};

struct EncodeOptions {
    std::string input;
    std::string cube;
    std::vector<std::string> reports;
    TrainOptions train;  // used when --train was given
    bool trainFirst = false;
    bool json = false;
    bool force = false;
};

struct DecodeOptions {
    std::string cube;
    std::string output;
    bool force = false;
};

// ---- train ----

/// The value that stands for "no data" in each band, where the stored type has one for every band.
std::vector<float> noDataVector(const DataSet& source, const CopyPlan& plan) {
    std::vector<float> vector;
    for (const auto& value : noDataOfCopy(source, plan)) {
        if (value) {
            vector.push_back(static_cast<float>(*value));
        } else if (plan.sampleType == kFloat32) {
            vector.push_back(std::numeric_limits<float>::quiet_NaN());
        } else {
            return {};
        }
    }
    return vector;
}

/// The sample may take half of the memory that blocks leave.
std::size_t boundedSample(std::size_t asked, int bands) {
    int isLimit = 0;
    const double bytes = sizeof(float) * 4.0 * bands;  // in image order, and in the search's own layout, for a moment
    const auto most = static_cast<std::size_t>(std::max(1.0, std::floor(IMPGetMemory(&isLimit) / 2.0 / bytes)));
    if (asked > most) {
        note("the memory allowance holds {} of {} sample pixels; set KSHOST_MEMORY (bytes) to raise it.", most, asked);
    }
    return std::min(asked, most);
}

struct Trained {
    Clusters clusters;
    PixelSample sample;
    bool keepsNoData = false;
};

// Code vector 0 stands for pixels without data, where there are any: not-a-numbers are nearest to nothing, and those
// get index 0.
Codebook withNoDataFirst(const Codebook& codebook, const std::vector<float>& noData, const std::vector<int>& bands) {
    Codebook extended(codebook.vectorCount() + 1, bands);
    std::copy(noData.begin(), noData.end(), extended.vector(0));
    for (int v = 0; v < codebook.vectorCount(); ++v) {
        std::copy_n(codebook.vector(v), bands.size(), extended.vector(v + 1));
    }
    return extended;
}

Trained trainCodebook(const DataSet& source, const CopyPlan& plan, const TrainOptions& options) {
    PixelSample sample =
        samplePixels(source, plan.bands, boundedSample(options.sample, source.bandCount()), options.clustering.seed);
    requireComplete("the training sample");
    if (sample.pixels == 0) fail("{} holds no pixel with data, so there is nothing to learn from.", options.input);
    const std::vector<float> noData = sample.withoutData > 0 ? noDataVector(source, plan) : std::vector<float>();
    if (sample.withoutData > 0 && noData.empty()) {
        warn("{} pixels hold no data, and {} has no value for that; they will look like data.", sample.withoutData,
             sampleTypeName(plan.sampleType));
    }
    Clustering clustering = options.clustering;
    if (!noData.empty() && --clustering.vectors < 1) {
        fail("{} pixels hold no data and need a code vector of their own; give --vectors 2 or more.",
             sample.withoutData);
    }
    const SampleFitter fitter(source, plan);
    std::size_t changed = 0;
    Clusters clusters = clusterPixels(sample.values, plan.bands, clustering,
                                      [&](float* values, std::size_t count) { changed = fitter.fit(values, count); });
    if (changed > 0 && options.type != "same") {
        warn("{} of {} values of the codebook were rounded or clamped; {} cannot hold them.", changed,
             clusters.codebook.vectorCount() * clusters.codebook.bandCount(), options.type);
    }
    if (clusters.codebook.vectorCount() < clustering.vectors) {
        note("only {} different pixels in a sample of {}: the codebook needs no more code vectors.",
             clusters.codebook.vectorCount(), sample.pixels);
    }
    if (noData.empty()) return {std::move(clusters), std::move(sample), false};
    Codebook extended = withNoDataFirst(clusters.codebook, noData, plan.bands);
    return {Clusters{std::move(extended), clusters.iterations, clusters.meanDistance}, std::move(sample), true};
}

std::string historyLine(const TrainOptions& options, const CopyPlan& plan, int vectors) {
    return fmt::format("ks vq train {} --vectors {} --sample {} --iterations {} --seed {} --type {}", options.input,
                       vectors, options.sample, options.clustering.iterations, options.clustering.seed,
                       sampleTypeName(plan.sampleType));
}

/// Makes a cube of the source's size whose codebook is trained on it; its index map is all zeros.
Trained trainInto(const DataSet& source, const TrainOptions& options, const std::string& name) {
    const std::vector<int> bands = allBands(source);
    CopyPlan plan = planWholeCopy(source, bands, kFloat32);
    plan.sampleType = sampleTypeNamed(options.type).value_or(typeHoldingAll(source, bands));
    Trained trained = trainCodebook(source, plan, options);
    const int vectors = trained.clusters.codebook.vectorCount();
    DataSet cube = createCube(source.describe(bands), name, vectors, plan.sampleType);
    completeCopy(source, plan, cube.file(), historyLine(options, plan, vectors));
    cube.close();
    trained.clusters.codebook.write(openCubeForUpdate(name));
    requireComplete("the cube");
    return trained;
}

void checkTrainNames(const DataSet& source, const std::string& input, const std::string& output) {
    refuseSourceFiles(source, input, output);
    requireCubeName(output);
}

void runTrain(const TrainOptions& options) {
    const DataSet source = DataSet::open(options.input);
    checkTrainNames(source, options.input, options.output);
    Staging staging(options.output, options.force);
    staging.alsoMakes(companionsOf(options.output));
    const Trained trained = trainInto(source, options, staging.path());
    staging.publish();
    const Clusters& clusters = trained.clusters;
    note("{}: {} code vectors of {} bands from {} pixels in {} rounds; next: ks vq encode {} {}", options.output,
         clusters.codebook.vectorCount(), source.bandCount(), trained.sample.pixels, clusters.iterations, options.input,
         options.output);
    if (options.json) {
        printJson({{"file", options.output},
                   {"code_vectors", clusters.codebook.vectorCount()},
                   {"bits_per_index", bitsPerIndex(clusters.codebook.vectorCount())},
                   {"bands", source.bandCount()},
                   {"sample_pixels", trained.sample.pixels},
                   {"pixels_with_data", trained.sample.withData},
                   {"pixels_without_data", trained.sample.withoutData},
                   {"no_data_vector", trained.keepsNoData},
                   {"rounds", clusters.iterations},
                   {"mean_distance", clusters.meanDistance}});
    }
}

// ---- encode ----

void requireSameShape(const DataSet& image, const DataSet& cube, const EncodeOptions& options) {
    if (image->nXSize != cube->nXSize || image->nYSize != cube->nYSize) {
        fail("{} has {} x {} pixels, {} has {} x {}; train a cube on an image of the same size.", options.input,
             image->nXSize, image->nYSize, options.cube, cube->nXSize, cube->nYSize);
    }
    if (image.bandCount() != cube.bandCount()) {
        fail("{} has {} bands, the code vectors of {} have {}; train a cube on an image of the same bands.",
             options.input, image.bandCount(), options.cube, cube.bandCount());
    }
}

bool isVectorWithoutData(const Codebook& codebook, const DataTest& test) {
    return codebook.vectorCount() > 0 && !test.hasData(codebook.vector(0));
}

/// Encodes and compares block by block; the indexes of the whole image, 2 bytes a pixel, are kept to be stored at once.
ErrorSums encodeBlocks(const DataSet& image, const Codebook& codebook, IndexMap& map) {
    const std::vector<int> bands = allBands(image);
    const SampleReader reader(image, bands, 0, SampleReader::NoData::asStored);
    const DataTest test(image, bands);
    ErrorSums errors(image.bandCount());
    readBlocks(reader, wholeImage(image), 1, [&](int first, Window& window) {
        KSWinIM part = map.rows(first, window.rows());
        if (KSXVQEncodeNearest(codebook.record(), &part, window.record()) != 0) throw std::bad_alloc();
        for (int y = 0; y < window.rows(); ++y) {
            for (int x = 0; x < window.columns(); ++x) {
                const float* const pixel = window.pixel(x, y);
                if (test.hasData(pixel)) {
                    errors.add(pixel, codebook.vector(map.index(x, first + y)));
                } else {
                    errors.addWithoutData();
                }
            }
        }
    });
    requireComplete("the index map");
    if (errors.withoutData() > 0 && !isVectorWithoutData(codebook, test)) {
        warn("{} pixels hold no data, but the codebook has no code vector for that; they will look like data.",
             errors.withoutData());
    }
    return errors;
}

/// Encodes into the cube stored under `name`.
ErrorReport encodeInto(const DataSet& image, const EncodeOptions& options, const std::string& name) {
    const DataSet cube = openCubeForUpdate(name);
    requireSameShape(image, cube, options);
    const Codebook codebook = Codebook::of(cube, 0);
    IndexMap map(image->nXSize, image->nYSize);
    ErrorSums errors = encodeBlocks(image, codebook, map);
    map.write(cube);
    GDBWriteHistory(cube.file(), kFileLevel, kNoChannel, fmt::format("ks vq encode {}", options.input).c_str());
    return {image, options.input, options.cube, std::move(errors), compressionOf(image, cube)};
}

void runEncode(const EncodeOptions& options) {
    const DataSet image = DataSet::open(options.input);
    std::vector<std::unique_ptr<Staging>> stagedReports;
    for (const std::string& report : options.reports) {
        ErrorReport::requireReportName(report);
        stagedReports.push_back(std::make_unique<Staging>(report, options.force));
    }
    std::unique_ptr<Staging> stagedCube;
    if (options.trainFirst) {
        checkTrainNames(image, options.input, options.cube);
        stagedCube = std::make_unique<Staging>(options.cube, options.force);
        stagedCube->alsoMakes(companionsOf(options.cube));
        trainInto(image, options.train, stagedCube->path());
    } else if (sameFile(options.input, options.cube)) {
        fail("{} cannot be encoded into itself; give the image first, then the cube.", options.input);
    }
    const ErrorReport report = encodeInto(image, options, stagedCube ? stagedCube->path() : options.cube);
    requireComplete("the cube");
    for (const auto& staged : stagedReports) report.write(staged->path());
    if (stagedCube) stagedCube->publish();
    for (const auto& staged : stagedReports) staged->publish();
    if (options.json) {
        printJson(report.json());
    } else {
        fmt::print("{}", report.table());
    }
}

// ---- decode ----

void decodeBlocks(const DataSet& cube, const Codebook& codebook, const DataSet& image) {
    const Area area = wholeImage(cube);
    const double bytes = static_cast<double>(area.columns) * (4.0 * codebook.bandCount() + 2);
    const int rowsAtOnce = rowsPerBlock(bytes, area.rows);
    Window window(area.columns, rowsAtOnce, 1, 1, allBands(image));
    IndexMap map(area.columns, rowsAtOnce);
    forEachBlock(area.rows, rowsAtOnce, [&](int first, int count) {
        map.resizeRows(count);
        map.place(0, first);
        map.read(cube);
        window.resizeRows(count);
        window.place(0, first);
        if (KSVQDecodeWin(codebook.record(), map.record(), window.record()) != 0) {
            fail("the index map names code vectors that the codebook does not have ({}); encode the cube again.",
                 codebook.vectorCount());
        }
        window.write(image);
    });
}

void runDecode(const DecodeOptions& options) {
    const DataSet cube = DataSet::open(options.cube);
    requireQuantized(cube, options.cube);
    refuseSourceFiles(cube, options.cube, options.output);
    Staging staging(options.output, options.force);
    staging.alsoMakes(companionsOf(options.output));

    const CopyPlan plan = planWholeCopy(cube, allBands(cube), cube->VQubeInfo.nDataType);
    const Codebook codebook = Codebook::of(cube, 0);
    DataSet image = cube.describe(plan.bands);
    image.create(staging.path(), plan.sampleType);
    decodeBlocks(cube, codebook, image);
    image.writeMetadata();
    completeCopy(cube, plan, image.file(), fmt::format("ks vq decode {}", options.cube));
    image.close();
    requireComplete("the decoded image");
    staging.publish();
    note("{}: {} x {} pixels, {} bands, {}.", options.output, cube->nXSize, cube->nYSize, cube.bandCount(),
         sampleTypeName(plan.sampleType));
}

// ---- command lines ----

void addTrainingOptions(CLI::App* command, TrainOptions& options) {
    command
        ->add_option("--sample", options.sample,
                     "Learn from at most so many pixels, chosen by the seed from all with data")
        ->check(wholeNumber(1, 100000000))
        ->capture_default_str();
    command
        ->add_option("--iterations", options.clustering.iterations,
                     "Most rounds of moving the code vectors to the medians of their pixels")
        ->check(wholeNumber(0, 100000))
        ->capture_default_str();
    command->add_option("--seed", options.clustering.seed, "The same seed gives the same codebook")
        ->check(wholeNumber(0, UINT64_MAX))
        ->capture_default_str();
    command->add_option("--type", options.type, "Type of the code vectors: same, uint8, int16, uint16 or float32")
        ->check(CLI::IsMember({"same", "uint8", "int16", "uint16", "float32"}))
        ->capture_default_str();
}

void addTrain(CLI::App& vq, Command& chosen) {
    auto options = std::make_shared<TrainOptions>();
    CLI::App* command = vq.add_subcommand("train", "Make a cube with a codebook learnt from an image");
    command->add_option("CUBE", options->input, "The image")->required();
    command->add_option("OUT", options->output, "The vector-quantized cube, a GeoTIFF (.tif)")->required();
    command->add_option("--vectors", options->clustering.vectors, "Number of code vectors")
        ->check(wholeNumber(1, kMostCodeVectors))
        ->capture_default_str();
    addTrainingOptions(command, *options);
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->add_flag("--json", options->json, "Print what was made as JSON");
    command->footer(
        "Clusters stored spectra by city-block distance (k-medians). Pixels without data\n"
        "are left out; where there are any, code vector 0 stands for them. The index map\n"
        "is all zeros until 'ks vq encode'.\n"
        "Example:\n  ks vq train scene.img scene_vq.tif --vectors 256 --seed 7");
    command->callback([options, &chosen] { chosen = [options] { runTrain(*options); }; });
}

void addEncode(CLI::App& vq, Command& chosen) {
    auto options = std::make_shared<EncodeOptions>();
    CLI::App* command = vq.add_subcommand("encode", "Store for every pixel the number of the nearest code vector");
    command->add_option("CUBE", options->input, "The image")->required();
    command->add_option("VQCUBE", options->cube, "The vector-quantized cube made by 'ks vq train'")->required();
    CLI::Option* train = command
                             ->add_option("--train", options->train.clustering.vectors,
                                          "Make VQCUBE first, with so many code vectors learnt from CUBE")
                             ->check(wholeNumber(1, kMostCodeVectors));
    addTrainingOptions(command, options->train);
    for (const char* name : {"--sample", "--iterations", "--seed", "--type"}) command->get_option(name)->needs(train);
    command
        ->add_option("--report", options->reports,
                     "Also write the errors to a file: .csv or .json for a table, .svg or .png for a plot; repeatable")
        ->allow_extra_args(false);
    command->add_flag("--force", options->force, "Replace report files, and with --train VQCUBE, if they exist");
    command->add_flag("--json", options->json, "Print the errors as JSON");
    command->footer(
        "Prints RMSE and largest error of every band, in stored and in calibrated units,\n"
        "and how much smaller the cube is: samples against index bits and codebook. The\n"
        "image is read in blocks; the index map takes 2 bytes of memory a pixel and is\n"
        "stored at the end, whole or not at all.\n"
        "Example:\n  ks vq encode scene.img scene_vq.tif --report errors.csv --report errors.svg");
    command->callback([options, train, &chosen] {
        options->trainFirst = train->count() > 0;
        options->train.input = options->input;
        options->train.output = options->cube;
        chosen = [options] { runEncode(*options); };
    });
}

void addDecode(CLI::App& vq, Command& chosen) {
    auto options = std::make_shared<DecodeOptions>();
    CLI::App* command = vq.add_subcommand("decode", "Write a vector-quantized cube as an ordinary image");
    command->add_option("VQCUBE", options->cube, "The vector-quantized cube")->required();
    command->add_option("OUT", options->output, "The image: GeoTIFF when it ends in .tif or .tiff, else ENVI")
        ->required();
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer("Example:\n  ks vq decode scene_vq.tif decoded.img");
    command->callback([options, &chosen] { chosen = [options] { runDecode(*options); }; });
}

}  // namespace

void addVq(CLI::App& app, Command& chosen) {
    CLI::App* vq = app.add_subcommand("vq", "Vector-quantize an image: train, encode, decode");
    vq->require_subcommand(1);
    vq->fallthrough();
    vq->footer(
        "Example:\n  ks vq train scene.img scene_vq.tif\n  ks vq encode scene.img scene_vq.tif\n"
        "  ks vq decode scene_vq.tif decoded.img");
    addTrain(*vq, chosen);
    addEncode(*vq, chosen);
    addDecode(*vq, chosen);
}

}  // namespace kscli
