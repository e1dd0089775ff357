// ks library: spectral libraries in and out of the formats that are around, what is in them, and spectra of places in
// an image.
#include <algorithm>
#include <cmath>
#include <filesystem>
#include <limits>
#include <memory>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/output.hpp"
#include "app/plot.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "image/bands.hpp"
#include "image/region.hpp"
#include "spectra/librarytake.hpp"
#include "spectra/rawspectrum.hpp"
#include "spectra/speclib.hpp"
#include "spectra/speclibwrite.hpp"
#include "spectra/specselect.hpp"

namespace kscli {
namespace {

using Spectra = std::vector<LibrarySpectrum>;

struct OutputOptions {
    std::string format;
    bool force = false;
};

void addOutputOptions(CLI::App* command, OutputOptions& options) {
    command->add_option("--as", options.format, kLibraryFormatHelp)
        ->check(CLI::IsMember(libraryFormatNames()))
        ->option_text("FORMAT");
    command->add_flag("--force", options.force, "Replace the output if it exists");
}

std::string countText(std::size_t count) { return count == 1 ? "1 spectrum" : fmt::format("{} spectra", count); }

void sayWritten(const Spectra& spectra, const std::string& output) {
    const bool oneGrid = haveOneGrid(spectra);
    note("{}: {}, {}.", output, countText(spectra.size()),
         oneGrid ? gridText(spectra[0]) : std::string("each with wavelengths of its own"));
}

void refuseInput(const std::vector<std::string>& inputs, const std::string& output) {
    for (const std::string& input : inputs) {
        if (sameFile(input, output)) fail("{} cannot be written onto itself; choose another name.", input);
    }
}

// ---- import ----

struct ImportOptions {
    std::vector<std::string> inputsAndOutput;
    std::string wavelengths;
    std::string grid;
    std::string quantity;
    double scale = 1;
    std::vector<std::string> select;
    OutputOptions output;
};

Spectra readAll(const std::vector<std::string>& inputs, const std::string& wavelengths) {
    Spectra spectra;
    for (const std::string& input : inputs) {
        try {
            Spectra read = readLibrary(input, wavelengths);
            std::move(read.begin(), read.end(), std::back_inserter(spectra));
        } catch (const NotASpectrum& notASpectrum) {
            // A folder's files were named with a wildcard.
            if (inputs.size() == 1) throw;
            note("{} It is left out.", notASpectrum.what());
        }
    }
    return spectra;
}

int quantityNamed(const std::string& name) {
    for (int i = 0; i < static_cast<int>(std::size(aKSRadQuant)); ++i) {
        if (name == aKSRadQuant[i].szName) return i;
    }
    return KS_RQ_UNKNOWN;
}

std::vector<std::string> quantityNames() {
    std::vector<std::string> names;
    for (const KSDesc& quantity : aKSRadQuant) names.emplace_back(quantity.szName);
    return names;
}

void bringToGrid(Spectra& spectra, const std::string& gridText) {
    const std::vector<float> grid = parseGrid(gridText);
    std::size_t masked = 0;
    for (LibrarySpectrum& spectrum : spectra) {
        spectrum = interpolated(spectrum, grid);
        masked += static_cast<std::size_t>(std::count(spectrum.values.begin(), spectrum.values.end(), kMaskedValue));
    }
    note("values were interpolated linearly to {} wavelengths.", grid.size());
    if (masked > 0) {
        warn(
            "{} of {} values lie beyond what a spectrum covers, in its gaps, or beside missing values; they are "
            "masked.",
            masked, grid.size() * spectra.size());
    }
}

void runImport(const ImportOptions& options) {
    const std::string output = options.inputsAndOutput.back();
    const std::vector<std::string> inputs(options.inputsAndOutput.begin(), options.inputsAndOutput.end() - 1);
    checkLibraryOutput(output, options.output.format);
    refuseInput(inputs, output);
    if (!std::isfinite(options.scale) || options.scale == 0) fail("--scale must be a number other than 0.");
    Spectra spectra = selectSpectra(readAll(inputs, options.wavelengths), options.select);
    if (!options.grid.empty()) bringToGrid(spectra, options.grid);
    for (LibrarySpectrum& spectrum : spectra) {
        if (!options.quantity.empty()) spectrum.quantity = quantityNamed(options.quantity);
        for (double& value : spectrum.values) {
            if (value != kMaskedValue) value *= options.scale;
        }
    }
    writeLibrary(spectra, output, options.output.format, options.output.force);
    sayWritten(spectra, output);
}

void addImport(CLI::App& library, Command& chosen) {
    auto options = std::make_shared<ImportOptions>();
    CLI::App* command = library.add_subcommand("import", "Gather spectra from files in one library");
    command
        ->add_option("FILE...OUT", options->inputsAndOutput,
                     "Files to read: .sli, ECOSTRESS, ASTER or USGS text, CSV, libraries, images of one pixel a line; "
                     "then the library to write")
        ->required()
        ->expected(2, -1);
    command
        ->add_option("--wavelengths", options->wavelengths,
                     "File of wavelengths for USGS text; default: the one beside the spectra that fits")
        ->type_name("FILE");
    command->add_option("--grid", options->grid, fmt::format("Interpolate to common wavelengths: {}", kGridHelp))
        ->type_name("GRID");
    command->add_option("--quantity", options->quantity, "What the values are: refl, apprad, uncal, ...")
        ->check(CLI::IsMember(quantityNames()))
        ->option_text("NAME");
    command->add_option("--scale", options->scale, "Multiply the values, say by 0.0001")->type_name("FACTOR");
    command->add_option("--select", options->select, fmt::format("Spectra to keep: {}", kSelectHelp))
        ->type_name("LIST")
        ->allow_extra_args(false);
    addOutputOptions(command, options->output);
    command->footer(
        "Wavelengths are nanometres in a library. ECOSTRESS and ASTER values in percent\n"
        "become fractions. Missing values are masked.\n"
        "Example:\n  ks library import minerals/*.txt minerals.kslib --grid 400:2500:5");
    command->callback([options, &chosen] { chosen = [options] { runImport(*options); }; });
}

// ---- export ----

struct ExportOptions {
    std::string input;
    std::string output;
    std::vector<std::string> select;
    OutputOptions how;
};

void runExport(const ExportOptions& options) {
    checkLibraryOutput(options.output, options.how.format);
    refuseInput({options.input}, options.output);
    const Spectra spectra = selectSpectra(readLibrary(options.input), options.select);
    writeLibrary(spectra, options.output, options.how.format, options.how.force);
    sayWritten(spectra, options.output);
}

void addExport(CLI::App& library, Command& chosen) {
    auto options = std::make_shared<ExportOptions>();
    CLI::App* command = library.add_subcommand("export", "Write a library for other programs");
    command->add_option("LIB", options->input, "The library")->required();
    command->add_option("OUT", options->output, "The file or folder to write")->required();
    command->add_option("--select", options->select, fmt::format("Spectra to write: {}", kSelectHelp))
        ->type_name("LIST")
        ->allow_extra_args(false);
    addOutputOptions(command, options->how);
    command->footer(
        "Example:\n  ks library export minerals.kslib minerals.sli\n"
        "  ks library export minerals.kslib minerals --as usgs");
    command->callback([options, &chosen] { chosen = [options] { runExport(*options); }; });
}

// ---- list ----

struct ListOptions {
    std::string spectraFile;
    bool json = false;
};

struct Summary {
    double low = std::numeric_limits<double>::quiet_NaN();
    double high = std::numeric_limits<double>::quiet_NaN();
    std::size_t masked = 0;
};

Summary summarize(const LibrarySpectrum& spectrum) {
    Summary summary;
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
        if (!spectrum.isUsable(i)) {
            ++summary.masked;
            continue;
        }
        summary.low = std::fmin(summary.low, spectrum.values[i]);
        summary.high = std::fmax(summary.high, spectrum.values[i]);
    }
    return summary;
}

void printTable(const Spectra& spectra) {
    std::size_t width = 4;
    for (const LibrarySpectrum& spectrum : spectra)
        width = std::max(width, std::min<std::size_t>(spectrum.name.size(), 50));
    fmt::print("{:>5}  {:<{}}  {:<12}  {:>7}  {:>6}  {:>10}  {:>10}  {:>10}  {:>10}\n", "", "name", width, "quantity",
               "values", "masked", "from (nm)", "to (nm)", "lowest", "highest");
    for (std::size_t i = 0; i < spectra.size(); ++i) {
        const LibrarySpectrum& spectrum = spectra[i];
        const Summary summary = summarize(spectrum);
        fmt::print("{:>5}  {:<{}}  {:<12}  {:>7}  {:>6}  {:>10}  {:>10}  {:>10.5g}  {:>10.5g}\n", i + 1, spectrum.name,
                   width, aKSRadQuant[spectrum.quantity].szName, spectrum.size(), summary.masked,
                   shortest(spectrum.wavelengths.front()), shortest(spectrum.wavelengths.back()), summary.low,
                   summary.high);
    }
}

void printListJson(const Spectra& spectra, const std::string& file) {
    Json list = Json::array();
    for (std::size_t i = 0; i < spectra.size(); ++i) {
        const LibrarySpectrum& spectrum = spectra[i];
        const Summary summary = summarize(spectrum);
        Json one = {{"number", i + 1},
                    {"name", spectrum.name},
                    {"quantity", aKSRadQuant[spectrum.quantity].szName},
                    {"values", spectrum.size()},
                    {"masked", summary.masked},
                    {"first_nm", shortest(spectrum.wavelengths.front())},
                    {"last_nm", shortest(spectrum.wavelengths.back())},
                    {"lowest", orNull(summary.low)},
                    {"highest", orNull(summary.high)}};
        if (!spectrum.sourceFile.empty()) one["source_file"] = spectrum.sourceFile;
        if (!spectrum.region.empty()) one["region"] = spectrum.region;
        list.push_back(std::move(one));
    }
    printJson({{"file", file}, {"spectra", list}});
}

void runList(const ListOptions& options) {
    const Spectra spectra = readLibrary(options.spectraFile);
    if (options.json) {
        printListJson(spectra, options.spectraFile);
    } else {
        printTable(spectra);
    }
}

void addList(CLI::App& library, Command& chosen) {
    auto options = std::make_shared<ListOptions>();
    CLI::App* command = library.add_subcommand("list", "Show what is in a library");
    command->add_option("LIB", options->spectraFile, "The library, or any file that can be imported")->required();
    command->add_flag("--json", options->json, "As JSON");
    command->footer("Example:\n  ks library list minerals.kslib");
    command->callback([options, &chosen] { chosen = [options] { runList(*options); }; });
}

// ---- plot ----

struct PlotOptions {
    std::string spectraFile;
    std::string output;
    std::vector<std::string> select;
    std::vector<double> range;
    bool force = false;
};

Curve curveOf(const LibrarySpectrum& spectrum, const std::vector<double>& range) {
    Curve curve;
    curve.label = spectrum.name;
    bool open = false;
    for (std::size_t i = 0; i < spectrum.size(); ++i) {
        const double x = static_cast<double>(spectrum.wavelengths[i]);
        const bool inRange = range.empty() || (x >= range[0] && x <= range[1]);
        if (!spectrum.isUsable(i) || !inRange) {
            open = false;
            continue;
        }
        if (!open || (i > 0 && spectrum.isGapBefore(i))) curve.pieces.emplace_back();
        open = true;
        curve.pieces.back().emplace_back(x, spectrum.values[i]);
    }
    return curve;
}

std::string axisLabel(const Spectra& spectra) {
    const int quantity = spectra[0].quantity;
    const bool same = std::all_of(spectra.begin(), spectra.end(),
                                  [&](const LibrarySpectrum& spectrum) { return spectrum.quantity == quantity; });
    if (!same || aKSRadQuant[quantity].szDesc == nullptr) return "Value";
    std::string label = aKSRadQuant[quantity].szDesc;
    if (label[0] >= 'a' && label[0] <= 'z') label[0] = static_cast<char>(label[0] - 'a' + 'A');
    return label;
}

void runPlot(const PlotOptions& options) {
    if (!options.range.empty() && !(options.range[0] < options.range[1])) {
        fail("the range must be two wavelengths in nm, the smaller one first.");
    }
    const Spectra spectra = selectSpectra(readLibrary(options.spectraFile), options.select);
    if (spectra.empty()) fail("{} holds no spectra to plot.", options.spectraFile);
    Staging staging(options.output, options.force);
    Plot plot;
    plot.title = std::filesystem::path(options.spectraFile).filename().string();
    plot.xLabel = "Wavelength (nm)";
    plot.yLabel = axisLabel(spectra);
    plot.legendTitle = "spectrum";
    for (const LibrarySpectrum& spectrum : spectra) {
        plot.curves.push_back(curveOf(spectrum, options.range));
        if (plot.curves.back().pieces.empty()) warn("'{}' has nothing to draw.", spectrum.name);
    }
    drawPlot(plot, staging.path());
    staging.publish();
    note("{}: {}.", options.output, countText(spectra.size()));
}

void addPlot(CLI::App& library, Command& chosen) {
    auto options = std::make_shared<PlotOptions>();
    CLI::App* command = library.add_subcommand("plot", "Draw spectra of a library");
    command->add_option("LIB", options->spectraFile, "The library, or any file that can be imported")->required();
    command->add_option("OUT", options->output, "The plot: .svg or .png")
        ->required()
        ->check(endingIn({".svg", ".png"}));
    command->add_option("--select", options->select, fmt::format("Spectra to draw: {}", kSelectHelp))
        ->type_name("LIST")
        ->allow_extra_args(false);
    command->add_option("--range", options->range, "Wavelengths to draw, in nm")
        ->delimiter(',')
        ->expected(2)
        ->option_text("FROM,TO");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "Lines break at masked values and across gaps in the wavelengths.\nExample:\n  ks library plot minerals.kslib "
        "minerals.svg --select 1-5");
    command->callback([options, &chosen] { chosen = [options] { runPlot(*options); }; });
}

// ---- take ----

struct TakeOptions {
    std::string image;
    std::string output;
    TakeRequest request;
    OutputOptions how;
};

void runTake(const TakeOptions& options) {
    checkLibraryOutput(options.output, options.how.format);
    refuseInput({options.image}, options.output);
    const DataSet image = DataSet::open(options.image);
    const Spectra spectra = takeSpectra(image, options.image, options.request);
    writeLibrary(spectra, options.output, options.how.format, options.how.force);
    sayWritten(spectra, options.output);
}

void addTake(CLI::App& library, Command& chosen) {
    auto options = std::make_shared<TakeOptions>();
    CLI::App* command = library.add_subcommand("take", "Take mean spectra of regions of an image");
    command->add_option("CUBE", options->image, "The image")->required();
    command->add_option("OUT", options->output, "The library to write")->required();
    command->add_option("--roi", options->request.regions, kRegionHelp)
        ->required()
        ->type_name("REGION")
        ->allow_extra_args(false);
    command->add_option("--name", options->request.names, "Name of a spectrum, in the order of the regions")
        ->allow_extra_args(false);
    command->add_option("--bands", options->request.bands, fmt::format("Bands to take: {}", kBandListHelp))
        ->type_name("LIST")
        ->capture_default_str();
    command->add_option("--level", options->request.level, "Radiometric level (0: stored values); default: the highest")
        ->check(wholeNumber(0))
        ->type_name("N");
    addOutputOptions(command, options->how);
    command->footer(
        "Pixels without data in one of the bands are left out of a mean.\n"
        "Example:\n  ks library take scene.img fields.kslib --roi 'point xoff 20 yoff 30 size 3'\n"
        "      --name meadow");
    command->callback([options, &chosen] { chosen = [options] { runTake(*options); }; });
}

}  // namespace

void addLibrary(CLI::App& app, Command& chosen) {
    CLI::App* library = app.add_subcommand("library", "Import, export, list, plot and take spectra");
    library->require_subcommand(1);
    library->fallthrough();
    library->footer(
        "A library is a file of spectra that share their wavelengths.\n"
        "Example:\n  ks library import grass.txt soil.txt endmembers.kslib --grid 400:2500:10\n"
        "  ks library plot endmembers.kslib endmembers.svg");
    addImport(*library, chosen);
    addExport(*library, chosen);
    addList(*library, chosen);
    addPlot(*library, chosen);
    addTake(*library, chosen);
}

}  // namespace kscli
