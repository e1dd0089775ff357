#include "spectra/sensor.hpp"

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <optional>
#include <utility>

#include "app/output.hpp"
#include "app/report.hpp"
#include "app/staging.hpp"
#include "app/text.hpp"
#include "app/texttable.hpp"
#include "image/dataset.hpp"
#include "spectra/rawspectrum.hpp"
#include "spectra/speclib.hpp"

namespace kscli {
namespace {

bool startsWithOneOf(const std::string& heading, std::initializer_list<const char*> starts) {
    const std::string lower = lowerCase(heading);
    return std::any_of(starts.begin(), starts.end(),
                       [&](const char* start) { return lower.compare(0, std::string(start).size(), start) == 0; });
}

std::optional<std::size_t> columnStarting(const TextTable& table, std::initializer_list<const char*> starts) {
    for (std::size_t i = 0; i < table.header.size(); ++i) {
        if (startsWithOneOf(table.header[i], starts)) return i;
    }
    return std::nullopt;
}

/// Nanometres from a column: the factor of its unit, guessed from its largest value where the heading names none.
double factorOf(const TextTable& table, std::size_t column, const std::string& file) {
    WavelengthUnit unit = wavelengthUnitIn(table.header[column]);
    if (unit == WavelengthUnit::wavenumbers) fail("{}: wavelengths of bands are given in nm or micrometres.", file);
    if (unit == WavelengthUnit::unknown) {
        double largest = 0;
        for (std::size_t row = 0; row < table.rows.size(); ++row) {
            largest = std::fmax(largest, cellNumber(table, row, column, file));
        }
        constexpr double kLongestMicrometres = 300;
        unit = largest < kLongestMicrometres ? WavelengthUnit::micrometres : WavelengthUnit::nanometres;
        if (unit == WavelengthUnit::micrometres) {
            note("{}: the unit of the wavelengths is not given; they are taken as micrometres.", file);
        }
    }
    return unit == WavelengthUnit::micrometres ? 1000 : 1;
}

// ---- lists of centres and widths ----

int shapeNamed(const std::string& text, const std::string& file, std::size_t line) {
    const std::string lower = lowerCase(trimmed(text));
    if (lower.empty() || startsWithOneOf(lower, {"gauss"})) return KS_RT_GAUSSIAN;
    if (startsWithOneOf(lower, {"tri"})) return KS_RT_TRIANGULAR;
    if (startsWithOneOf(lower, {"box", "rect", "square"})) return KS_RT_BOX;
    if (startsWithOneOf(lower, {"trap"})) return KS_RT_TRAPEZOIDAL;
    fail("{}: line {}: the shape '{}' is not known; it is gaussian, triangular, box or trapezoidal.", file, line, text);
}

/// The width that the library wants of a shape whose full width at half maximum is given.
double libraryWidth(int shape, double fwhm, double top) {
    switch (shape) {
        case KS_RT_TRIANGULAR:
            return 2 * fwhm;
        case KS_RT_TRAPEZOIDAL:
            return 2 * fwhm - top;
        default:
            return fwhm;
    }
}

std::vector<SensorBand> readBandList(const TextTable& table, std::size_t centre, std::size_t width,
                                     const std::string& file) {
    const auto top = columnStarting(table, {"top", "flat"});
    const auto shape = columnStarting(table, {"shape", "response", "type", "profile"});
    const int name = table.column({"name", "band", "id"});
    const double centreFactor = factorOf(table, centre, file);
    const WavelengthUnit widthUnit = wavelengthUnitIn(table.header[width]);
    const double widthFactor = widthUnit == WavelengthUnit::unknown       ? centreFactor
                               : widthUnit == WavelengthUnit::micrometres ? 1000
                                                                          : 1;
    std::vector<SensorBand> bands;
    for (std::size_t row = 0; row < table.rows.size(); ++row) {
        SensorBand band;
        if (name >= 0) band.name = table.rows[row][static_cast<std::size_t>(name)];
        const double fwhm = cellNumber(table, row, width, file) * widthFactor;
        const double topWidth = top ? cellNumber(table, row, *top, file) * widthFactor : 0;
        const double centreNm = cellNumber(table, row, centre, file) * centreFactor;
        if (!(fwhm > 0) || !(centreNm > 0)) {
            fail("{}: line {}: centre and width must be positive numbers.", file, table.lines[row]);
        }
        const int type = shape ? shapeNamed(table.rows[row][*shape], file, table.lines[row]) : KS_RT_GAUSSIAN;
        if (type == KS_RT_TRAPEZOIDAL && !(topWidth >= 0 && topWidth < libraryWidth(type, fwhm, topWidth))) {
            fail("{}: line {}: the flat top of a trapezoid must be narrower than its width at half maximum.", file,
                 table.lines[row]);
        }
        band.response.eRespType = type;
        band.response.fCentre = static_cast<float>(centreNm);
        band.response.fFWHM = static_cast<float>(libraryWidth(type, fwhm, topWidth));
        band.response.fWidth2 = static_cast<float>(topWidth);
        bands.push_back(std::move(band));
    }
    return bands;
}

// ---- tables of responses ----

struct Curve {
    std::vector<double> wavelengths;
    std::vector<double> values;

    double at(double wavelength) const {
        const auto above = std::lower_bound(wavelengths.begin(), wavelengths.end(), wavelength);
        if (above == wavelengths.end()) return values.back();
        const std::size_t i = static_cast<std::size_t>(above - wavelengths.begin());
        if (i == 0 || *above == wavelength) return values[i];
        const double share = (wavelength - wavelengths[i - 1]) / (wavelengths[i] - wavelengths[i - 1]);
        return values[i - 1] + share * (values[i] - values[i - 1]);
    }
    double centroid() const {
        double weighted = 0;
        double sum = 0;
        for (std::size_t i = 0; i < values.size(); ++i) {
            const double before = i > 0 ? wavelengths[i] - wavelengths[i - 1] : 0;
            const double after = i + 1 < values.size() ? wavelengths[i + 1] - wavelengths[i] : 0;
            weighted += values[i] * wavelengths[i] * (before + after);
            sum += values[i] * (before + after);
        }
        return weighted / sum;
    }
};

/// The part of a curve that is not zero, with the zero before it. Measured responses may dip below zero at their ends.
/// Empty for a band that never responds.
Curve support(const Curve& whole) {
    const auto responds = [](double value) { return value != 0; };
    const auto first = std::find_if(whole.values.begin(), whole.values.end(), responds);
    if (first == whole.values.end()) return {};
    const auto last = std::find_if(whole.values.rbegin(), whole.values.rend(), responds);
    const std::ptrdiff_t end = whole.values.rend() - last;
    const std::ptrdiff_t begin = std::max<std::ptrdiff_t>(first - whole.values.begin() - 1, 0);
    return {{whole.wavelengths.begin() + begin, whole.wavelengths.begin() + end},
            {whole.values.begin() + begin, whole.values.begin() + end}};
}

/// The library takes n samples a step apart, and a step more in which the last one falls to zero.
SensorBand bandOf(const Curve& whole, const std::string& name) {
    SensorBand band;
    band.name = name;
    const Curve curve = support(whole);
    if (curve.values.empty()) return band;
    double step = curve.wavelengths.back() - curve.wavelengths.front();
    for (std::size_t i = 1; i < curve.values.size(); ++i) {
        step = std::fmin(step, curve.wavelengths[i] - curve.wavelengths[i - 1]);
    }
    if (!(step > 0)) step = 1;
    const double start = curve.wavelengths.front();
    constexpr double kMostSamples = 1e6;
    const double steps = std::fmin(std::ceil((curve.wavelengths.back() - start) / step - 1e-6), kMostSamples);
    const int count = static_cast<int>(steps) + 1;
    for (int i = 0; i < count; ++i) band.samples.push_back(static_cast<float>(curve.at(start + i * step)));
    band.response.eRespType = KS_RT_CUSTOM;
    band.response.fCentre = static_cast<float>(whole.centroid());
    band.response.fParm1 = static_cast<float>(start);
    band.response.fParm2 = static_cast<float>(start + (count + 1) * step);
    band.response.nNumSamples = count;
    return band;
}

std::vector<SensorBand> readResponses(const TextTable& table, std::size_t wavelengths, const std::string& file) {
    const double factor = factorOf(table, wavelengths, file);
    std::vector<double> axis;
    for (std::size_t row = 0; row < table.rows.size(); ++row) {
        axis.push_back(cellNumber(table, row, wavelengths, file) * factor);
        if (!(axis.back() > 0) || (row > 0 && !(axis[row] > axis[row - 1]))) {
            fail("{}: line {}: wavelengths of responses must be positive and increase.", file, table.lines[row]);
        }
    }
    std::vector<SensorBand> bands;
    for (std::size_t column = 0; column < table.header.size(); ++column) {
        if (column == wavelengths) continue;
        Curve curve{axis, {}};
        for (std::size_t row = 0; row < table.rows.size(); ++row) {
            const double value = cellNumber(table, row, column, file);
            curve.values.push_back(std::isfinite(value) ? value : 0);
        }
        SensorBand band = bandOf(curve, table.header[column]);
        if (band.samples.empty()) {
            warn("{}: '{}' responds nowhere and is left out.", file, table.header[column]);
        } else {
            bands.push_back(std::move(band));
        }
    }
    return bands;
}

std::vector<SensorBand> readTable(const std::string& file) {
    const std::vector<std::string> lines = textLinesOf(file);
    if (isTextTable(lines)) {
        const TextTable table = parseTextTable(lines, file);
        const auto centre = columnStarting(table, {"cent", "wavelength", "cwl", "wl", "lambda", "wave"});
        const auto width = columnStarting(table, {"fwhm", "bandwidth", "width"});
        if (centre && width) return readBandList(table, *centre, *width, file);
        if (centre) return readResponses(table, *centre, file);
    }
    fail(
        "{} does not describe a sensor. Known are images, tables with the columns 'wavelength' and 'fwhm' (and perhaps "
        "'shape', 'top' and 'name'), one row a band, and tables of responses with 'wavelength' in one column and one "
        "column a band.",
        file);
}

// ---- images ----

std::vector<SensorBand> readImage(const std::string& file) {
    const DataSet image = DataSet::open(file);
    std::vector<SensorBand> bands;
    bool anyWidthMissing = false;
    for (int i = 0; i < image.bandCount(); ++i) {
        const KSBandResp& response = image->Sensor.pBandResp[i];
        if (!(image.wavelength(i) > 0)) continue;
        SensorBand band;
        band.response = response;
        if (response.eRespType == KS_RT_CUSTOM) {
            band.samples.assign(response.pafSamples, response.pafSamples + response.nNumSamples);
        }
        anyWidthMissing = anyWidthMissing || (response.eRespType != KS_RT_CUSTOM && !(response.fFWHM > 0));
        band.response.pafSamples = nullptr;
        bands.push_back(std::move(band));
    }
    if (bands.empty()) fail("{} gives no wavelengths for its bands.", file);
    if (static_cast<int>(bands.size()) < image.bandCount()) {
        warn("{}: {} bands without wavelengths are left out.", file,
             image.bandCount() - static_cast<int>(bands.size()));
    }
    if (anyWidthMissing) {
        note("{}: where widths of bands are missing, the distance of their neighbours is taken.", file);
    }
    return bands;
}

void fillWidths(std::vector<SensorBand>& bands) {
    for (std::size_t i = 0; i < bands.size(); ++i) {
        KSBandResp& response = bands[i].response;
        if (response.eRespType == KS_RT_CUSTOM || response.fFWHM > 0) continue;
        const double centre = bands[i].centre();
        const double before = i > 0 ? centre - bands[i - 1].centre() : 0;
        const double after = i + 1 < bands.size() ? bands[i + 1].centre() - centre : 0;
        const double width = before > 0 && after > 0 ? (before + after) / 2 : before + after;
        response.fFWHM = static_cast<float>(width > 0 ? width : 10);
    }
}

}  // namespace

KSBandResp SensorBand::record() const {
    KSBandResp result = response;
    // The library reads the samples and leaves them alone.
    result.pafSamples = samples.empty() ? nullptr : const_cast<float*>(samples.data());
    return result;
}

double SensorBand::low() const {
    if (response.eRespType == KS_RT_CUSTOM) return static_cast<double>(response.fParm1);
    return centre() - static_cast<double>(response.fFWHM) * 0.5;
}

double SensorBand::high() const {
    if (response.eRespType == KS_RT_CUSTOM) return static_cast<double>(response.fParm2);
    return centre() + static_cast<double>(response.fFWHM) * 0.5;
}

std::string SensorBand::label() const {
    const std::string nm = fmt::format("{:.1f} nm", centre());
    return name.empty() ? nm : fmt::format("{} ({})", name, nm);
}

std::vector<SensorBand> readSensor(const std::string& name) {
    std::error_code ec;
    if (!std::filesystem::is_regular_file(name, ec)) fail("{}: no such file. Check the path.", name);
    const std::string extension = lowerExtension(name);
    const bool isTable = extension == ".csv" || extension == ".txt" || extension == ".tsv";
    std::vector<SensorBand> bands = isTable ? readTable(name) : readImage(name);
    for (SensorBand& band : bands) band.response.fCentre = wholeThousandths(band.centre());
    std::stable_sort(bands.begin(), bands.end(),
                     [](const SensorBand& a, const SensorBand& b) { return a.response.fCentre < b.response.fCentre; });
    for (std::size_t i = 1; i < bands.size();) {
        if (bands[i].response.fCentre == bands[i - 1].response.fCentre) {
            warn("{}: band {} has the centre of another one and is left out.", name, bands[i].label());
            bands.erase(bands.begin() + static_cast<std::ptrdiff_t>(i));
        } else {
            ++i;
        }
    }
    if (bands.empty()) fail("{} describes no bands.", name);
    fillWidths(bands);
    return bands;
}

}  // namespace kscli
