// ks transform: band vectors through a matrix and back. The parameter file holds both matrices and the vector that is
// subtracted before the first and added after the second.
#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <memory>

#include <kslib.h>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/blocks.hpp"
#include "image/components.hpp"
#include "image/copymeta.hpp"
#include "image/copyplan.hpp"
#include "image/dataset.hpp"
#include "image/entries.hpp"
#include "image/quantized.hpp"
#include "transform/transformfit.hpp"

namespace kscli {
namespace {

enum class Direction { apply, invert };

struct Options {
    Direction direction = Direction::apply;
    std::string input;
    std::string parameters;
    std::string output;
    std::string bands;  // empty: those that the parameter file names, or all
    std::string like;
    std::string likeBands;  // the same
    int level = 0;          // of the values that TF takes and TI gives
    bool codebook = false;
    bool force = false;
};

// ---- parameters ----

struct Deleter {
    void operator()(MAT* matrix) const { m_free(matrix); }
    void operator()(VEC* vector) const { v_free(vector); }
    void operator()(IVEC* vector) const { iv_free(vector); }
};

class Zeros {
public:
    explicit Zeros(u_int count) : values_(count, 0.0) {
        vector_.dim = vector_.max_dim = count;
        vector_.ve = values_.data();
    }
    Zeros(const Zeros&) = delete;
    Zeros& operator=(const Zeros&) = delete;
    VEC* vector() { return &vector_; }

private:
    std::vector<double> values_;
    VEC vector_ = {};
};

/// dst = T (src - sub) + add, the part of a parameter file that one direction needs.
class Transform {
public:
    static Transform read(const std::string& name, Direction direction) {
        if (DKCheck(name.c_str()) == 0) fail("{}: no such parameter file. Check the path.", name);
        MAT* forward = nullptr;
        MAT* inverse = nullptr;
        VEC* shift = nullptr;
        IVEC* numbers = nullptr;
        if (KSReadLTP(name.c_str(), &forward, &inverse, &shift, &numbers) != 0) {
            fail(
                "{} is not a transform parameter file: it must hold the matrices TF, TI, C and S, in this order, in "
                "MATLAB level-4 format.",
                name);
        }
        const std::unique_ptr<IVEC, Deleter> owned(numbers);
        Transform transform;
        transform.numbers_.assign(numbers->ive, numbers->ive + numbers->dim);
        transform.shift_.reset(shift);
        std::unique_ptr<MAT, Deleter> other(direction == Direction::apply ? inverse : forward);
        transform.matrix_.reset(direction == Direction::apply ? forward : inverse);
        transform.isApply_ = direction == Direction::apply;
        transform.check(name);
        return transform;
    }

    int inputs() const { return static_cast<int>(matrix_->n); }
    int outputs() const { return static_cast<int>(matrix_->m); }
    const char* matrixName() const { return isApply_ ? "TF" : "TI"; }
    /// The bands (from 0) that C names, one for each of `count`; empty where it does not name bands of such an image.
    std::vector<int> namedBands(int count, const DataSet& image) const {
        std::vector<int> bands;
        for (int number : numbers_) {
            const bool isNew = std::find(bands.begin(), bands.end(), number - 1) == bands.end();
            if (number >= 1 && number <= image.bandCount() && isNew) bands.push_back(number - 1);
        }
        const auto wanted = static_cast<std::size_t>(count);
        return bands.size() == wanted && numbers_.size() == wanted ? bands : std::vector<int>();
    }

    void run(Window& source, Window& destination) const {
        if (KSLTWinEx(source.record(), destination.record(), matrix_.get(), subtracted(), added()) != 0) {
            throw std::bad_alloc();  // all that is left once the sizes are known to fit
        }
    }

    void run(const Codebook& source, Codebook& destination) const {
        // For codebooks both vectors are given or neither; 0 changes nothing.
        Zeros nothingBefore(matrix_->n);
        Zeros nothingAfter(matrix_->m);
        VEC* const before = subtracted() != nullptr ? subtracted() : nothingBefore.vector();
        VEC* const after = added() != nullptr ? added() : nothingAfter.vector();
        if (KSLTCbk(source.record(), destination.record(), matrix_.get(), before, after) != 0) throw std::bad_alloc();
    }

private:
    VEC* subtracted() const { return isApply_ ? shift_.get() : nullptr; }
    VEC* added() const { return isApply_ ? nullptr : shift_.get(); }

    void check(const std::string& name) const {
        const std::size_t wanted = isApply_ ? matrix_->n : matrix_->m;
        if (shift_->dim != wanted) {
            fail("{}: S has {} elements, {} has {} {}; these must be the same.", name, shift_->dim, matrixName(),
                 wanted, isApply_ ? "columns" : "rows");
        }
        const auto isFinite = [](double value) { return std::isfinite(value); };
        bool finite = std::all_of(shift_->ve, shift_->ve + shift_->dim, isFinite);
        for (u_int row = 0; row < matrix_->m; ++row) {
            finite = finite && std::all_of(matrix_->me[row], matrix_->me[row] + matrix_->n, isFinite);
        }
        if (!finite) fail("{}: {} or S holds values that are not finite numbers.", name, matrixName());
    }

    std::unique_ptr<MAT, Deleter> matrix_;
    std::unique_ptr<VEC, Deleter> shift_;
    std::vector<int> numbers_;
    bool isApply_ = true;
};

/// Bands of an image that the transform takes or gives `count` of: those asked for, else those that the parameters were
/// made of, else all.
std::vector<int> chooseBands(const DataSet& image, const std::string& asked, const Transform& transform, int count,
                             const std::string& parameters) {
    if (!asked.empty()) return parseBands(image, asked);
    const std::vector<int> named = transform.namedBands(count, image);
    if (named.empty() || named == allBands(image)) return allBands(image);
    note("{} names {} of {} bands: {}.", parameters, named.size(), image.bandCount(), bandRanges(named));
    return named;
}

void requireInputs(const Transform& transform, int bands, const Options& options) {
    if (transform.inputs() == bands) return;
    fail("{} of {} has {} columns, but {} band{} of {} {} given to it; choose bands with --bands.",
         transform.matrixName(), options.parameters, transform.inputs(), bands, bands == 1 ? "" : "s", options.input,
         bands == 1 ? "is" : "are");
}

// ---- what the outputs are ----

/// The image whose bands the outputs are again, for inverted transforms.
struct Like {
    std::unique_ptr<DataSet> image;
    CopyPlan plan;
};

/// Components have no levels; only what TF takes does.
int levelToRead(const DataSet& source, const Options& options) {
    return options.direction == Direction::apply ? source.level(options.level) : 0;
}

Like openLike(const Transform& transform, const Options& options) {
    Like like;
    if (options.like.empty()) return like;
    like.image = std::make_unique<DataSet>(DataSet::open(options.like));
    like.plan = planWholeCopy(
        *like.image, chooseBands(*like.image, options.likeBands, transform, transform.outputs(), options.parameters),
        kFloat32);
    like.plan.level = like.image->level(options.level);
    if (static_cast<int>(like.plan.bands.size()) != transform.outputs()) {
        fail("{} of {} has {} rows, but {} bands of {} are to describe its results; choose bands with --like-bands.",
             transform.matrixName(), options.parameters, transform.outputs(), like.plan.bands.size(), options.like);
    }
    return like;
}

DataSet describeOutput(const DataSet& source, const Like& like, int count) {
    if (!like.image) return describeComponents(source, count);
    DataSet result = like.image->describe(like.plan.bands);
    result.dropFirstTransforms(like.plan.level);
    result->nXSize = source->nXSize;
    result->nYSize = source->nYSize;
    return result;
}

std::string historyLine(const Options& options) {
    std::string line = fmt::format("ks transform {} {} {}", options.direction == Direction::apply ? "apply" : "invert",
                                   options.input, options.parameters);
    if (!options.bands.empty()) line += " --bands " + options.bands;
    if (options.level != 0) line += fmt::format(" --level {}", options.level);
    if (!options.like.empty()) line += " --like " + options.like;
    if (!options.likeBands.empty()) line += " --like-bands " + options.likeBands;
    if (options.codebook) line += " --codebook";
    return line;
}

void complete(const DataSet& source, const Like& like, const Options& options, HostFile* file, bool anyNaN) {
    Completion output(file);
    if (like.image) {
        output.addFileEntries(fileEntriesOfCopy(*like.image, like.plan));
        output.addBands(*like.image, like.plan);
    } else {
        output.addFileEntries(fileEntriesOfComponents(source));
    }
    output.addPlace(source, planWholeCopy(source, {}, kFloat32));
    output.addHistory(source, historyLine(options));
    for (int channel = 1; anyNaN && channel <= GDBChanNum(output.file()); ++channel) {
        KSHostSetNoData(output.file(), channel, std::numeric_limits<double>::quiet_NaN());
    }
}

// ---- images ----

/// Returns the number of pixels that came out as not-a-numbers.
std::size_t transformBlocks(const DataSet& source, const std::vector<int>& bands, int level, const Transform& transform,
                            const DataSet& output) {
    const SampleReader reader(source, bands, level, SampleReader::NoData::asNaN);
    const double inputs = transform.inputs();
    const double share = inputs / (inputs + transform.outputs());
    std::unique_ptr<Window> result;
    std::size_t withoutData = 0;
    readBlocks(reader, wholeImage(source), share, [&](int first, Window& window) {
        if (!result) result = std::make_unique<Window>(window.columns(), window.rows(), 1, 1, allBands(output));
        result->resizeRows(window.rows());
        result->place(0, first);
        transform.run(window, *result);
        for (std::size_t i = 0; i < result->pixelCount(); ++i) {
            const float* const pixel = result->samples() + i * static_cast<std::size_t>(result->bandCount());
            withoutData += std::any_of(pixel, pixel + result->bandCount(), [](float v) { return std::isnan(v); });
        }
        result->write(output);
    });
    return withoutData;
}

void transformImage(const DataSet& source, const Transform& transform, const Like& like, const Options& options,
                    const std::string& name) {
    const bool isApply = options.direction == Direction::apply;
    const std::vector<int> bands =
        options.bands.empty() && !isApply
            ? allBands(source)
            : chooseBands(source, options.bands, transform, transform.inputs(), options.parameters);
    requireInputs(transform, static_cast<int>(bands.size()), options);
    DataSet output = describeOutput(source, like, transform.outputs());
    output.create(name, kFloat32);
    const std::size_t withoutData = transformBlocks(source, bands, levelToRead(source, options), transform, output);
    output.writeMetadata();
    complete(source, like, options, output.file(), withoutData > 0);
    output.close();
    if (withoutData > 0) {
        warn("{} of {} pixels hold no data in at least one of the bands; they are not-a-number in {}.", withoutData,
             static_cast<std::size_t>(source->nXSize) * static_cast<std::size_t>(source->nYSize), options.output);
    }
}

// ---- codebooks ----

void transformCodebook(const DataSet& source, const Transform& transform, const Like& like, const Options& options,
                       const std::string& name) {
    requireQuantized(source, options.input);
    if (!options.bands.empty() && parseBands(source, options.bands) != allBands(source)) {
        fail("--codebook transforms all bands of a cube; leave --bands away.");
    }
    const std::vector<int> named = transform.namedBands(transform.inputs(), source);
    if (options.direction == Direction::apply && !named.empty() && named != allBands(source)) {
        fail("{} is for {} of the bands or another order of them, and --codebook transforms all as they come.",
             options.parameters, named.size());
    }
    requireInputs(transform, source.bandCount(), options);
    const Codebook before = Codebook::of(source, levelToRead(source, options));
    DataSet description = describeOutput(source, like, transform.outputs());
    Codebook after(before.vectorCount(), allBands(description));
    transform.run(before, after);
    DataSet created = createCube(std::move(description), name, after.vectorCount(), kFloat32);
    complete(source, like, options, created.file(), false);
    created.close();
    const DataSet output = openCubeForUpdate(name);
    after.write(output);
    IndexMap map(source->nXSize, source->nYSize);
    map.read(source);
    map.write(output);
}

void run(const Options& options) {
    const DataSet source = DataSet::open(options.input);
    refuseSourceFiles(source, options.input, options.output);
    if (options.codebook) requireCubeName(options.output);
    const Transform transform = Transform::read(options.parameters, options.direction);
    const Like like = openLike(transform, options);
    Staging staging(options.output, options.force);
    staging.alsoMakes(companionsOf(options.output));
    (options.codebook ? transformCodebook : transformImage)(source, transform, like, options, staging.path());
    requireComplete("the transformed image");
    staging.publish();
    note("{}: {} x {} pixels, {} bands to {}, float32.", options.output, source->nXSize, source->nYSize,
         transform.inputs(), transform.outputs());
}

CLI::App* addDirection(CLI::App& transform, const char* name, const char* what, const std::shared_ptr<Options>& options,
                       Command& chosen) {
    CLI::App* command = transform.add_subcommand(name, what);
    command->add_option("CUBE", options->input, "The image")->required();
    command->add_option("PARAMETERS", options->parameters, "The parameter file: TF, TI, C and S as MATLAB level-4")
        ->required();
    command->add_option("OUT", options->output, "The result: GeoTIFF when it ends in .tif or .tiff, else ENVI")
        ->required();
    command
        ->add_option("--bands", options->bands,
                     fmt::format("Bands to transform, in this order: {}; default: {}", kBandListHelp,
                                 options->direction == Direction::apply ? "those that C names, else all" : "all"))
        ->type_name("LIST");
    command->add_flag("--codebook", options->codebook,
                      "Transform the code vectors of a vector-quantized cube and keep its index map");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
    return command;
}

}  // namespace

void addTransform(CLI::App& app, Command& chosen) {
    CLI::App* transform = app.add_subcommand("transform", "Send band vectors through a matrix, or back");
    transform->require_subcommand(1);
    transform->fallthrough();
    transform->footer(
        "A parameter file holds four matrices in MATLAB level-4 format, in this order:\n"
        "TF (forward matrix), TI (inverse matrix), C (one row: the numbers of the bands,\n"
        "from 1; others are not used) and S (one row). pca and mnf make one.\n"
        "  apply:   component = TF (value - S)   TF has a column for every band,\n"
        "                                        S an element for every column of TF\n"
        "  invert:  value = TI component + S     TI has a column for every component,\n"
        "                                        S an element for every row of TI\n"
        "Example:\n  ks transform pca scene.img pca.mat\n"
        "  ks transform apply scene.img pca.mat components.img\n"
        "  ks transform invert components.img pca.mat back.img --like scene.img");

    addTransformFits(*transform, chosen);

    auto apply = std::make_shared<Options>();
    CLI::App* forward = addDirection(*transform, "apply", "component = TF (value - S)", apply, chosen);
    forward->add_option("--level", apply->level, "Radiometric level of the values to transform")
        ->check(wholeNumber(0))
        ->capture_default_str();
    forward->footer(
        "The components are float32 bands that are numbered and have no wavelengths. A\n"
        "pixel without data in one of the bands becomes not-a-number.\n"
        "Example:\n  ks transform apply scene.img pca.mat components.img --bands good");

    auto invert = std::make_shared<Options>();
    invert->direction = Direction::invert;
    CLI::App* backward = addDirection(*transform, "invert", "value = TI component + S", invert, chosen);
    CLI::Option* like = backward->add_option(
        "--like", invert->like, "The image whose bands the results are: wavelengths, quality, calibration");
    backward
        ->add_option("--like-bands", invert->likeBands,
                     "Its bands that the results are, in this order; default: those that C names, else all")
        ->needs(like)
        ->type_name("LIST");
    backward->add_option("--level", invert->level, "Radiometric level that the image was transformed at")
        ->check(wholeNumber(0))
        ->needs(like)
        ->capture_default_str();
    backward->footer(
        "Without --like the results are float32 bands that are numbered and have no\n"
        "wavelengths.\n"
        "Example:\n  ks transform invert components.img pca.mat back.img --like scene.img");
}

}  // namespace kscli
