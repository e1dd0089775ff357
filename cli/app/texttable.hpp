// Tables as text: comma, semicolon or tab between cells, quotes around cells that need them, '#' before remarks.
#pragma once

#include <string>
#include <vector>

namespace kscli {

struct TextTable {
    std::vector<std::string> header;
    std::vector<std::vector<std::string>> rows;  // as many cells as the header has
    std::vector<std::size_t> lines;              // where in the file each row stands, from 1
    bool decimalComma = false;                   // "0,5" is a half: only where semicolons separate cells

    /// The column whose lower-case name is one of these, or -1.
    int column(const std::vector<std::string>& names) const;
};

/// Whether a text looks like one: two lines or more with the same separator, the first not of numbers only.
bool isTextTable(const std::vector<std::string>& lines);
/// Throws a Failure that names the line which does not fit.
TextTable parseTextTable(const std::vector<std::string>& lines, const std::string& file);

/// A cell's number; not-a-number for an empty cell, "NA" and the like. Throws a Failure for any other text.
double cellNumber(const TextTable& table, std::size_t row, std::size_t column, const std::string& file);

/// A cell for writing, quoted where it must be.
std::string csvCell(const std::string& text);

/// The lines of a text file as UTF-8. Throws a Failure when it cannot be read.
std::vector<std::string> textLinesOf(const std::string& file);

}  // namespace kscli
