// ks resample: spectra as the bands of a sensor see them.
#include <algorithm>
#include <memory>

#include "app/command.hpp"
#include "app/help.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "spectra/bandconversion.hpp"
#include "spectra/sensor.hpp"
#include "spectra/speclib.hpp"
#include "spectra/speclibwrite.hpp"
#include "spectra/specselect.hpp"

namespace kscli {
namespace {

struct Options {
    std::vector<std::string> inputsAndOutput;
    std::string sensor;
    std::vector<std::string> select;
    std::string format;
    bool force = false;
};

using Count = int BandConverter::Tally::*;

/// The bands of which a spectrum had this, or empty; with how many spectra where it is not all of them.
std::string bandsWith(const BandConverter& converter, Count count) {
    constexpr std::size_t kMostListed = 12;
    std::string list;
    std::size_t bands = 0;
    int fewest = converter.converted();
    int most = 0;
    for (std::size_t i = 0; i < converter.bands().size(); ++i) {
        const int spectra = converter.tallies()[i].*count;
        if (spectra == 0) continue;
        fewest = std::min(fewest, spectra);
        most = std::max(most, spectra);
        if (++bands <= kMostListed) list += (list.empty() ? "" : ", ") + converter.bands()[i].label();
    }
    if (bands > kMostListed) list += fmt::format(" and {} more", bands - kMostListed);
    if (bands > 0 && fewest < converter.converted()) {
        const std::string range = fewest == most ? fmt::format("{}", most) : fmt::format("{} to {}", fewest, most);
        list += fmt::format(" (in {} of {} spectra)", range, converter.converted());
    }
    return list;
}

std::string rangeOf(const std::vector<LibrarySpectrum>& spectra) {
    return haveOneGrid(spectra)
               ? fmt::format("the library, {} to {} nm", spectra[0].wavelengths.front(), spectra[0].wavelengths.back())
               : std::string("the spectra");
}

void sayWhatIsNotThere(const BandConverter& converter, const std::vector<LibrarySpectrum>& spectra) {
    const std::string uncovered = bandsWith(converter, &BandConverter::Tally::uncovered);
    if (!uncovered.empty()) {
        warn("not covered by {}, on both sides of the band, and masked: {}.", rangeOf(spectra), uncovered);
    }
    const std::string missing = bandsWith(converter, &BandConverter::Tally::missing);
    if (!missing.empty()) warn("masked, for values under the band are missing or marked as bad: {}.", missing);
    const std::string interpolated = bandsWith(converter, &BandConverter::Tally::interpolated);
    if (!interpolated.empty()) {
        note("with fewer than three values under the band, interpolated between its neighbours: {}.", interpolated);
    }
}

void run(const Options& options) {
    const std::string output = options.inputsAndOutput.back();
    checkLibraryOutput(output, options.format);
    BandConverter converter(readSensor(options.sensor));
    std::vector<LibrarySpectrum> spectra;
    for (std::size_t i = 0; i + 1 < options.inputsAndOutput.size(); ++i) {
        if (sameFile(options.inputsAndOutput[i], output)) {
            fail("{} cannot be written onto itself; choose another name.", output);
        }
        for (LibrarySpectrum& spectrum : readLibrary(options.inputsAndOutput[i]))
            spectra.push_back(std::move(spectrum));
    }
    spectra = selectSpectra(std::move(spectra), options.select);
    std::vector<LibrarySpectrum> converted;
    for (const LibrarySpectrum& spectrum : spectra) converted.push_back(converter.convert(spectrum));
    sayWhatIsNotThere(converter, spectra);
    const bool any = std::any_of(converted.begin(), converted.end(), [](const LibrarySpectrum& spectrum) {
        return std::any_of(spectrum.values.begin(), spectrum.values.end(), [](double v) { return v != kMaskedValue; });
    });
    if (!any) fail("no band of {} is covered by the spectra, so there is nothing to write.", options.sensor);
    writeLibrary(converted, output, options.format, options.force);
    note("{}: {} spectr{} in {} bands.", output, converted.size(), converted.size() == 1 ? "um" : "a",
         converter.bands().size());
}

}  // namespace

void addResample(CLI::App& app, Command& chosen) {
    auto options = std::make_shared<Options>();
    CLI::App* command = app.add_subcommand("resample", "Bring spectra to the bands of a sensor");
    command
        ->add_option("LIB...OUT", options->inputsAndOutput,
                     "Libraries, or any files that can be imported; then the library to write")
        ->required()
        ->expected(2, -1);
    command
        ->add_option("--sensor", options->sensor,
                     "The bands: an image, a table with the columns 'wavelength' and 'fwhm' (and 'shape', 'top', "
                     "'name'), or a table of responses with wavelengths in one column and one column a band")
        ->required()
        ->type_name("FILE");
    command->add_option("--select", options->select, fmt::format("Spectra to convert: {}", kSelectHelp))
        ->type_name("LIST")
        ->allow_extra_args(false);
    command->add_option("--as", options->format, kLibraryFormatHelp)
        ->check(CLI::IsMember(libraryFormatNames()))
        ->option_text("FORMAT");
    command->add_flag("--force", options->force, "Replace the output if it exists");
    command->footer(
        "A band's value is the mean of the spectrum's values under it, weighted by its\n"
        "response. Gaussian responses count within half their width of the centre; shapes\n"
        "are gaussian, triangular, box or trapezoidal, widths are those at half maximum.\n"
        "A band that reaches to an end of the spectrum is masked. Each spectrum may have\n"
        "wavelengths of its own.\n"
        "Example:\n  ks resample minerals/*.txt minerals-s2.sli --sensor Sentinel_2A.csv");
    command->callback([options, &chosen] { chosen = [options] { run(*options); }; });
}

}  // namespace kscli
