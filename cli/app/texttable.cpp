#include "app/texttable.hpp"

#include <algorithm>
#include <fstream>
#include <limits>
#include <sstream>

#include "app/report.hpp"
#include "app/text.hpp"

namespace kscli {
namespace {

bool isRemark(const std::string& line) {
    const std::string text = trimmed(line);
    return text.empty() || text[0] == '#';
}

std::vector<std::string> split(const std::string& line, char separator) {
    std::vector<std::string> cells(1);
    bool quoted = false;
    for (std::size_t i = 0; i < line.size(); ++i) {
        const char c = line[i];
        if (quoted) {
            if (c == '"' && i + 1 < line.size() && line[i + 1] == '"') {
                cells.back() += '"';
                ++i;
            } else if (c == '"') {
                quoted = false;
            } else {
                cells.back() += c;
            }
        } else if (c == '"' && trimmed(cells.back()).empty()) {
            cells.back().clear();
            quoted = true;
        } else if (c == separator) {
            cells.emplace_back();
        } else {
            cells.back() += c;
        }
    }
    for (std::string& cell : cells) cell = trimmed(cell);
    return cells;
}

char separatorOf(const std::string& line) {
    for (const char separator : {'\t', ';', ','}) {
        if (split(line, separator).size() > 1) return separator;
    }
    return '\0';
}

bool isNumber(const std::string& cell) { return parseNumber(cell).has_value(); }

bool usesDecimalCommas(const TextTable& table) {
    for (const auto& row : table.rows) {
        for (std::string cell : row) {
            const std::size_t comma = cell.find(',');
            if (comma == std::string::npos || cell.find('.') != std::string::npos) continue;
            cell[comma] = '.';
            if (isNumber(cell)) return true;
        }
    }
    return false;
}

}  // namespace

int TextTable::column(const std::vector<std::string>& names) const {
    for (std::size_t i = 0; i < header.size(); ++i) {
        if (std::find(names.begin(), names.end(), lowerCase(header[i])) != names.end()) return static_cast<int>(i);
    }
    return -1;
}

bool isTextTable(const std::vector<std::string>& lines) {
    std::vector<std::string> first;
    char separator = '\0';
    for (const std::string& line : lines) {
        if (isRemark(line)) continue;
        if (first.empty()) {
            separator = separatorOf(line);
            if (separator == '\0') return false;
            first = split(line, separator);
            if (std::all_of(first.begin(), first.end(), isNumber)) return false;
        } else {
            return split(line, separator).size() == first.size();
        }
    }
    return false;
}

TextTable parseTextTable(const std::vector<std::string>& lines, const std::string& file) {
    TextTable table;
    char separator = '\0';
    for (std::size_t i = 0; i < lines.size(); ++i) {
        std::string line = lines[i];
        if (i == 0 && line.compare(0, 3, "\xEF\xBB\xBF") == 0) line.erase(0, 3);
        if (isRemark(line)) continue;
        if (table.header.empty()) {
            separator = separatorOf(line);
            table.header = split(line, separator == '\0' ? ',' : separator);
            continue;
        }
        std::vector<std::string> cells = split(line, separator);
        // Spreadsheets leave separators of empty columns behind.
        while (cells.size() > table.header.size() && cells.back().empty()) cells.pop_back();
        if (cells.size() != table.header.size()) {
            fail("{}: line {} has {} cells where the heading has {}.", file, i + 1, cells.size(), table.header.size());
        }
        table.rows.push_back(std::move(cells));
        table.lines.push_back(i + 1);
    }
    table.decimalComma = separator == ';' && usesDecimalCommas(table);
    return table;
}

double cellNumber(const TextTable& table, std::size_t row, std::size_t column, const std::string& file) {
    std::string cell = table.rows[row][column];
    const std::string lower = lowerCase(cell);
    if (cell.empty() || lower == "na" || lower == "nan" || lower == "null") {
        return std::numeric_limits<double>::quiet_NaN();
    }
    if (table.decimalComma) std::replace(cell.begin(), cell.end(), ',', '.');
    const auto number = parseNumber(cell);
    if (!number) {
        fail("{}: line {}: '{}' in column '{}' is not a number.", file, table.lines[row], table.rows[row][column],
             table.header[column]);
    }
    return *number;
}

std::string csvCell(const std::string& text) {
    if (text.find_first_of(",;\t\"\r\n#") == std::string::npos && trimmed(text) == text) return text;
    std::string cell = "\"";
    for (const char c : text) cell += c == '"' ? std::string("\"\"") : std::string(1, c == '\n' || c == '\r' ? ' ' : c);
    return cell + "\"";
}

std::vector<std::string> textLinesOf(const std::string& file) {
    std::ifstream stream(file, std::ios::binary);
    std::ostringstream text;
    text << stream.rdbuf();
    if (!stream) fail("{} cannot be read.", file);
    return linesOf(asUtf8(text.str()));
}

}  // namespace kscli
