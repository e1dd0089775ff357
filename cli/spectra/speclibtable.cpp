#include "spectra/speclibtable.hpp"

#include <algorithm>
#include <cstring>

#include "app/output.hpp"
#include "app/text.hpp"
#include "app/texttable.hpp"

namespace kscli {
namespace {

struct WavelengthColumn {
    std::size_t column;
    double wavelength;
    bool isQuality;
};

/// The wavelength that a heading of one column stands for: "450.5", "450.5 nm", "X450.5", "m450_500"; "q450_500" for
/// its quality.
std::optional<WavelengthColumn> wavelengthColumn(std::string cell, std::size_t column) {
    WavelengthColumn result{column, 0, false};
    cell = lowerCase(cell);
    const WavelengthUnit unit = wavelengthUnitIn(cell);
    if (unit != WavelengthUnit::unknown) cell = trimmed(cell.substr(0, cell.find_first_not_of("0123456789.,e+")));
    if (cell.size() > 1 && std::strchr("mqx", cell[0]) != nullptr) {
        result.isQuality = cell[0] == 'q';
        if (cell[0] != 'x') std::replace(cell.begin(), cell.end(), '_', '.');
        cell.erase(0, 1);
        if (!cell.empty() && cell.back() == '.') cell.pop_back();
    }
    const auto number = parseNumber(cell);
    if (!number || !(*number > 0)) return std::nullopt;
    result.wavelength = *number;
    return result;
}

int enumNamed(const std::string& text, const KSDesc* table, std::size_t size) {
    const std::string lower = lowerCase(trimmed(text));
    for (std::size_t i = 0; i < size; ++i) {
        if (lower == table[i].szName) return static_cast<int>(i);
    }
    return 0;
}
int qualityNamed(const std::string& text) { return enumNamed(text, aKSBandQual, std::size(aKSBandQual)); }
int quantityNamed(const std::string& text) { return enumNamed(text, aKSRadQuant, std::size(aKSRadQuant)); }

// ---- one column a spectrum ----

bool speaksOfBands(const std::string& heading) {
    const std::string lower = lowerCase(heading);
    return lower == "band" || lower == "quality" || lower.compare(0, 4, "fwhm") == 0;
}

bool namesWavelength(const std::string& heading) {
    const std::string lower = lowerCase(heading);
    return lower.compare(0, 10, "wavelength") == 0 || lower.compare(0, 4, "wave") == 0 || lower == "lambda" ||
           lower == "wl" || lower == "nm" || lower == "um";
}

std::vector<RawSpectrum> readByColumns(const TextTable& table, std::size_t wavelengths, const std::string& file) {
    const int quality = table.column({"quality"});
    std::vector<RawSpectrum> spectra;
    for (std::size_t column = 0; column < table.header.size(); ++column) {
        if (column == wavelengths || speaksOfBands(table.header[column])) continue;
        RawSpectrum raw;
        raw.name = table.header[column].empty() ? fmt::format("spectrum {}", spectra.size() + 1) : table.header[column];
        raw.unit = wavelengthUnitIn(table.header[wavelengths]);
        for (std::size_t row = 0; row < table.rows.size(); ++row) {
            raw.wavelengths.push_back(cellNumber(table, row, wavelengths, file));
            raw.values.push_back(cellNumber(table, row, column, file));
            if (quality >= 0) {
                raw.quality.push_back(qualityNamed(table.rows[row][static_cast<std::size_t>(quality)]));
            }
        }
        spectra.push_back(std::move(raw));
    }
    return spectra;
}

// ---- one row a spectrum ----

std::vector<RawSpectrum> readByRows(const TextTable& table, const std::vector<WavelengthColumn>& columns,
                                    const std::string& file) {
    const int quantity = table.column({"quantity"});
    int name = table.column({"target", "name", "spectra names", "spectrum", "id"});
    if (name < 0) {
        // Else the first column that is neither.
        const auto isTaken = [&](std::size_t i) {
            return static_cast<int>(i) == quantity ||
                   std::any_of(columns.begin(), columns.end(), [&](const auto& column) { return column.column == i; });
        };
        for (std::size_t i = 0; i < table.header.size() && name < 0; ++i) {
            if (!isTaken(i)) name = static_cast<int>(i);
        }
    }
    std::vector<RawSpectrum> spectra;
    for (std::size_t row = 0; row < table.rows.size(); ++row) {
        RawSpectrum raw;
        raw.name = name < 0 ? fmt::format("spectrum {}", row + 1) : table.rows[row][static_cast<std::size_t>(name)];
        if (quantity >= 0) raw.quantity = quantityNamed(table.rows[row][static_cast<std::size_t>(quantity)]);
        bool anyQuality = false;
        for (const WavelengthColumn& column : columns) {
            anyQuality = anyQuality || column.isQuality;
            if (column.isQuality) continue;
            raw.wavelengths.push_back(column.wavelength);
            raw.values.push_back(cellNumber(table, row, column.column, file));
        }
        if (anyQuality) raw.quality.assign(raw.values.size(), KS_BQ_PLOT);
        for (const WavelengthColumn& column : columns) {
            if (!column.isQuality) continue;
            const auto found = std::find(raw.wavelengths.begin(), raw.wavelengths.end(), column.wavelength);
            if (found == raw.wavelengths.end()) continue;
            raw.quality[static_cast<std::size_t>(found - raw.wavelengths.begin())] =
                qualityNamed(table.rows[row][column.column]);
        }
        raw.unit = wavelengthUnitIn(table.header[columns[0].column]);
        const bool isField = lowerCase(table.header[columns[0].column]).find_first_of("mq") == 0;
        if (isField) raw.unit = WavelengthUnit::nanometres;
        spectra.push_back(std::move(raw));
    }
    return spectra;
}

}  // namespace

std::vector<RawSpectrum> readSpectraTable(const std::vector<std::string>& lines, const std::string& file) {
    const TextTable table = parseTextTable(lines, file);
    if (table.rows.empty()) fail("{}: there are no rows under the heading.", file);
    for (std::size_t column = 0; column < table.header.size(); ++column) {
        if (namesWavelength(table.header[column])) return readByColumns(table, column, file);
    }
    std::vector<WavelengthColumn> columns;
    for (std::size_t i = 0; i < table.header.size(); ++i) {
        if (const auto column = wavelengthColumn(table.header[i], i)) columns.push_back(*column);
    }
    const bool anyValue = std::any_of(columns.begin(), columns.end(), [](const auto& c) { return !c.isQuality; });
    if (anyValue) return readByRows(table, columns, file);
    fail(
        "{}: this table is not a spectral library. It needs a column whose heading starts with 'wavelength' and one "
        "column a spectrum, or a heading of wavelengths and one row a spectrum.",
        file);
}

std::string spectraTable(const std::vector<LibrarySpectrum>& spectra) {
    std::string text = "wavelength_nm";
    for (const LibrarySpectrum& spectrum : spectra) text += "," + csvCell(spectrum.name);
    text += '\n';
    for (std::size_t i = 0; i < spectra.at(0).size(); ++i) {
        text += numberText(shortest(spectra[0].wavelengths[i]));
        for (const LibrarySpectrum& spectrum : spectra) {
            text += "," + (spectrum.values[i] == kMaskedValue ? std::string() : numberText(spectrum.values[i]));
        }
        text += '\n';
    }
    return text;
}

}  // namespace kscli
