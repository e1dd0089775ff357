#include "modtran/tape7.hpp"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <limits>
#include <memory>
#include <new>
#include <set>

#include <kslib.h>

#include "app/output.hpp"
#include "app/report.hpp"
#include "app/text.hpp"
#include "app/texttable.hpp"

namespace kscli {
namespace {

constexpr double kMissing = std::numeric_limits<double>::quiet_NaN();
constexpr const char* kSpace = " \t\r\n\v\f";

struct Word {
    std::string text;
    std::size_t begin;
    std::size_t end;  // one behind its last character
};

std::vector<Word> wordsIn(const std::string& line) {
    std::vector<Word> words;
    for (std::size_t begin = line.find_first_not_of(kSpace); begin != std::string::npos;) {
        const std::size_t end = std::min(line.find_first_of(kSpace, begin), line.size());
        words.push_back({line.substr(begin, end - begin), begin, end});
        begin = line.find_first_not_of(kSpace, end);
    }
    return words;
}

bool isBlank(const std::string& line) { return line.find_first_not_of(kSpace) == std::string::npos; }

bool isHeading(const std::vector<Word>& words) { return !words.empty() && words[0].text.compare(0, 4, "FREQ") == 0; }

bool isNumber(const Word& word) {
    const auto number = parseNumber(word.text);
    return number && std::isfinite(*number);
}

/// Older files part the words of a name with a blank where others have "_"; such a name becomes one word.
std::vector<Word> joinedNames(const std::vector<Word>& words) {
    static const std::set<std::string> kNames = {"TOT_TRANS", "PTH_THRML", "THRML_SCT", "SURF_EMIS", "SOL_SCAT",
                                                 "SING_SCAT", "GRND_RFLT", "DRCT_RFLT", "TOTAL_RAD", "REF_SOL",
                                                 "DIR_EM",    "TOA_SUN",   "BBODY_T[K]"};
    std::vector<Word> names;
    for (std::size_t i = 0; i < words.size(); ++i) {
        names.push_back(words[i]);
        if (i + 1 == words.size() || words[i + 1].begin != words[i].end + 1) continue;
        const std::string both = words[i].text + "_" + words[i + 1].text;
        if (kNames.count(both) == 0) continue;
        ++i;
        names.back() = {both, names.back().begin, words[i].end};
    }
    return names;
}

/// The lines of one table, 0-based in the file.
struct Extent {
    std::size_t heading = 0;
    std::size_t second = 0;  // another line of names, or the heading itself
    std::size_t first = 0;
    std::size_t end = 0;  // one behind the last row
    bool isClosed = false;
};

struct Closer {
    void operator()(std::FILE* stream) const { std::fclose(stream); }
};

class TableReader {
public:
    TableReader(const std::vector<std::string>& lines, const Extent& extent, const std::string& file)
        : lines_(lines), extent_(extent), file_(file) {}

    Tape7Table read() {
        splitRows();
        Tape7Table table;
        table.isClosed = extent_.isClosed;
        const std::string misaligned = alignment();
        findUncountable(table);
        if (misaligned.empty()) {
            takeByPosition(table);
            if (table.uncountable.empty()) compareWithCount(table);
        } else if (table.uncountable.empty()) {
            Tape7Table other = counted();
            table.wavenumbers = std::move(other.wavenumbers);
            table.columns = std::move(other.columns);
        } else {
            fail("{}: the numbers cannot be given to columns for certain: {}; and {}.", file_, misaligned,
                 joined(table.uncountable));
        }
        return table;
    }

private:
    static std::string joined(const std::vector<std::string>& reasons) {
        std::string text;
        for (const std::string& reason : reasons) text += (text.empty() ? "" : "; ") + reason;
        return text;
    }

    void splitRows() {
        for (std::size_t i = extent_.first; i < extent_.end; ++i) {
            rows_.push_back(wordsIn(lines_[i]));
            for (const Word& word : rows_.back()) {
                if (!isNumber(word)) fail("{}: line {}: '{}' is not a number.", file_, i + 1, word.text);
            }
        }
        if (rows_.empty()) fail("{}: no rows follow the heading in line {}.", file_, extent_.heading + 1);
        names_ = joinedNames(wordsIn(lines_[extent_.heading]));
        ends_ = joinedNames(wordsIn(lines_[extent_.second]));
    }

    // ---- by position ----

    /// Why names and numbers do not stand in columns; empty when they do.
    std::string alignment() const {
        if (names_.size() != ends_.size()) {
            return fmt::format("the headings in lines {} and {} have {} and {} names", extent_.heading + 1,
                               extent_.second + 1, names_.size(), ends_.size());
        }
        for (std::size_t c = 0; c < names_.size(); ++c) {
            if (names_[c].begin < startOf(c) || names_[c].end > ends_[c].end) {
                return fmt::format("the names '{}' and '{}' are not above each other", names_[c].text, ends_[c].text);
            }
        }
        for (std::size_t r = 0; r < rows_.size(); ++r) {
            for (const Word& word : rows_[r]) {
                const int c = columnAt(word);
                if (c < 0) {
                    return fmt::format("line {}: '{}' does not end below the end of a name", extent_.first + r + 1,
                                       word.text);
                }
            }
            if (rows_[r].empty() || columnAt(rows_[r][0]) != 0) {
                return fmt::format("line {} has no wavenumber", extent_.first + r + 1);
            }
        }
        return "";
    }

    std::size_t startOf(std::size_t column) const { return column == 0 ? 0 : ends_[column - 1].end; }

    int columnAt(const Word& word) const {
        for (std::size_t c = 0; c < ends_.size(); ++c) {
            if (ends_[c].end == word.end) return word.begin >= startOf(c) ? static_cast<int>(c) : -1;
        }
        return -1;
    }

    void takeByPosition(Tape7Table& table) const {
        for (std::size_t c = 1; c < names_.size(); ++c) {
            const bool hasTwo = extent_.second != extent_.heading;
            const std::string name = hasTwo ? names_[c].text + " " + ends_[c].text : names_[c].text;
            table.columns.push_back({name, unitOf(name), std::vector<double>(rows_.size(), kMissing)});
        }
        for (std::size_t r = 0; r < rows_.size(); ++r) {
            for (const Word& word : rows_[r]) {
                const double value = *parseNumber(word.text);
                const auto c = static_cast<std::size_t>(columnAt(word));
                if (c == 0) {
                    table.wavenumbers.push_back(value);
                } else {
                    table.columns[c - 1].values[r] = value;
                }
            }
        }
    }

    static Tape7Unit unitOf(const std::string& name) {
        const auto isAmong = [&name](std::initializer_list<const char*> names) {
            return std::find(names.begin(), names.end(), name) != names.end();
        };
        if (isAmong({"PTH_THRML", "THRML_SCT", "SURF_EMIS", "SOL_SCAT", "SING_SCAT", "GRND_RFLT", "DRCT_RFLT",
                     "TOTAL_RAD"})) {
            return Tape7Unit::radiance;
        }
        if (isAmong({"REF_SOL", "SOL@OBS", "TOA_SUN"})) return Tape7Unit::irradiance;
        if (isAmong({"DEPTH", "-LOG COMBIN"})) return Tape7Unit::depth;
        return name == "BBODY_T[K]" ? Tape7Unit::kelvin : Tape7Unit::none;
    }

    // ---- by counting ----

    bool isRadianceHeading() const {
        static const std::vector<std::string> kNames = {"FREQ",     "TOT_TRANS", "PTH_THRML", "THRML_SCT", "SURF_EMIS",
                                                        "SOL_SCAT", "SING_SCAT", "GRND_RFLT", "DRCT_RFLT", "TOTAL_RAD",
                                                        "REF_SOL",  "SOL@OBS",   "DEPTH"};
        return names_.size() >= kNames.size() &&
               std::equal(kNames.begin(), kNames.end(), names_.begin(),
                          [](const std::string& name, const Word& word) { return name == word.text; });
    }

    /// What would mislead the library, which counts 13 numbers of each row and keeps the 8th and the 10th.
    void findUncountable(Tape7Table& table) const {
        constexpr std::size_t kLongest = 198;
        const auto say = [&table](std::string reason) { table.uncountable.push_back(std::move(reason)); };
        if (!isRadianceHeading()) say("the heading is not that of a radiance table");
        if (extent_.second != extent_.heading) say(fmt::format("line {} is a second heading", extent_.second + 1));
        for (std::size_t r = 0; r < rows_.size(); ++r) {
            if (rows_[r].size() == names_.size()) continue;
            say(fmt::format("line {} has {} numbers below {} names, so columns are blank", extent_.first + r + 1,
                            rows_[r].size(), names_.size()));
            break;
        }
        for (std::size_t i = extent_.heading; i < extent_.end; ++i) {
            if (lines_[i].size() <= kLongest) continue;
            say(fmt::format("line {} has {} characters, more than {}", i + 1, lines_[i].size(), kLongest));
            break;
        }
    }

    /// The table as the library reads it: GRND_RFLT and TOTAL_RAD.
    Tape7Table counted() const {
        std::string text;
        for (std::size_t i = extent_.heading; i < extent_.end; ++i) text += lines_[i] + "\n";
        const std::unique_ptr<std::FILE, Closer> stream(fmemopen(text.data(), text.size(), "r"));
        if (stream == nullptr) throw std::bad_alloc();
        std::vector<float> frequency(rows_.size());
        std::vector<float> reflected(rows_.size());
        std::vector<float> total(rows_.size());
        const int found = KSMT4ReadTape7(stream.get(), frequency.data(), reflected.data(), total.data(),
                                         static_cast<int>(rows_.size()));
        if (static_cast<std::size_t>(found) != rows_.size()) {
            fail("{}: {} of {} rows could be read; the file is damaged.", file_, found, rows_.size());
        }
        // The decimals of the file, not those of its nearest floats.
        const auto decimals = [](const std::vector<float>& values) {
            std::vector<double> numbers;
            for (const float value : values) numbers.push_back(shortest(value));
            return numbers;
        };
        Tape7Table table;
        table.wavenumbers = decimals(frequency);
        table.columns = {{"GRND_RFLT", Tape7Unit::radiance, decimals(reflected)},
                         {"TOTAL_RAD", Tape7Unit::radiance, decimals(total)}};
        return table;
    }

    /// Where numbers can be counted, counting must find what stands below the names.
    void compareWithCount(const Tape7Table& table) const {
        const Tape7Table other = counted();
        bool same = agree(other.wavenumbers, table.wavenumbers);
        for (const Tape7Column& column : other.columns) {
            const auto at = static_cast<std::size_t>(table.column(column.name));
            same = same && agree(column.values, table.columns.at(at).values);
        }
        if (!same) {
            fail("{}: its numbers, counted in each row, are not those below the names; the file is damaged.", file_);
        }
    }

    static bool agree(const std::vector<double>& counted, const std::vector<double>& placed) {
        return std::equal(counted.begin(), counted.end(), placed.begin(), placed.end(), [](double a, double b) {
            constexpr double kSmallestFloat = 1.2e-38;
            return std::abs(a - b) <= std::max(1e-6 * std::abs(b), kSmallestFloat);
        });
    }

    const std::vector<std::string>& lines_;
    const Extent extent_;
    const std::string& file_;
    std::vector<Word> names_, ends_;
    std::vector<std::vector<Word>> rows_;
};

Extent extentFrom(const std::vector<std::string>& lines, std::size_t heading) {
    Extent extent;
    extent.heading = extent.second = heading;
    std::size_t next = heading + 1;
    if (next < lines.size()) {
        const std::vector<Word> words = wordsIn(lines[next]);
        if (!words.empty() && !isNumber(words[0])) extent.second = next++;
    }
    extent.first = extent.end = next;
    for (; extent.end < lines.size(); ++extent.end) {
        const std::vector<Word> words = wordsIn(lines[extent.end]);
        if (words.empty() || isHeading(words)) break;
        const auto number = parseNumber(words[0].text);
        if (number && *number < 0) {
            extent.isClosed = true;
            break;
        }
    }
    return extent;
}

void requireNothingBehind(const std::vector<std::string>& lines, const Extent& extent, const std::string& file) {
    if (extent.isClosed || extent.end >= lines.size() || !isBlank(lines[extent.end])) return;
    for (std::size_t i = extent.end; i < lines.size(); ++i) {
        if (isHeading(wordsIn(lines[i]))) return;
        if (!isBlank(lines[i])) {
            fail("{}: line {} is blank, but the table goes on in line {}; the file is damaged.", file, extent.end + 1,
                 i + 1);
        }
    }
}

}  // namespace

int Tape7Table::column(const std::string& name) const {
    for (std::size_t i = 0; i < columns.size(); ++i) {
        if (columns[i].name == name) return static_cast<int>(i);
    }
    return -1;
}

std::vector<Tape7Table> readTape7(const std::string& file) {
    const std::vector<std::string> lines = textLinesOf(file);
    std::vector<Tape7Table> tables;
    for (std::size_t i = 0; i < lines.size(); ++i) {
        if (!isHeading(wordsIn(lines[i]))) continue;
        const Extent extent = extentFrom(lines, i);
        requireNothingBehind(lines, extent, file);
        tables.push_back(TableReader(lines, extent, file).read());
        i = extent.end > i ? extent.end - 1 : i;
    }
    if (tables.empty()) fail("{} holds no line that begins with FREQ, so it is no tape7 file.", file);
    return tables;
}

double wavelengthOf(double wavenumber) { return wavenumber > 0 ? 1e7 / wavenumber : kMissing; }

double perNanometre(double value, double wavenumber) {
    constexpr double kMicrowatts = 1e6;
    return value * kMicrowatts * wavenumber * wavenumber / 1e7;
}

}  // namespace kscli
