// The spectral table of tape7 texts: texts in memory, files of real runs, and a reader of the same rules on the C
// library's own scanning beside it.
#include <kslib/ksmodtran4.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <limits>
#include <ostream>
#include <sstream>
#include <string>
#include <vector>

#include "bits.hpp"
#include "fixture.hpp"
#include "locale.hpp"

using namespace kit;

namespace {

constexpr float kUntouched = -4711.0F;
constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr int kPlenty = 50;
const std::string kNumbers = "1 2 3 4 5 6 7 8 9 10 11 12 13\n";

struct Row {
    float frequency, column8, column10;
    bool operator==(const Row& other) const {
        return sameBits(frequency, other.frequency) && sameBits(column8, other.column8) &&
               sameBits(column10, other.column10);
    }
};
std::ostream& operator<<(std::ostream& out, const Row& row) {
    return out << "{" << row.frequency << ", " << row.column8 << ", " << row.column10 << "}";
}
using Rows = std::vector<Row>;

/// An open text.
class Text {
public:
    explicit Text(const std::string& text) : text_(text) {
        stream_ = text_.empty() ? std::tmpfile() : fmemopen(text_.data(), text_.size(), "r");
    }
    Text(const Text&) = delete;
    Text& operator=(const Text&) = delete;
    ~Text() { std::fclose(stream_); }
    FILE* stream() const { return stream_; }
    std::string rest() const {
        std::string found;
        for (int c = std::fgetc(stream_); c != EOF; c = std::fgetc(stream_)) found += static_cast<char>(c);
        return found;
    }

private:
    std::string text_;
    FILE* stream_;
};

/// Reads into arrays of exactly the promised size.
Rows readStream(FILE* stream, int most) {
    const std::size_t room = static_cast<std::size_t>(std::max(most, 0));
    std::vector<float> frequencies(room, kUntouched);
    std::vector<float> column8(room, kUntouched);
    std::vector<float> column10(room, kUntouched);
    const int count = KSMT4ReadTape7(stream, frequencies.data(), column8.data(), column10.data(), most);
    EXPECT_GE(count, 0);
    EXPECT_LE(count, std::max(most, 0));
    Rows rows;
    for (std::size_t i = 0; i < room; ++i) {
        const Row row = {frequencies[i], column8[i], column10[i]};
        if (i < static_cast<std::size_t>(count)) {
            rows.push_back(row);
        } else {
            EXPECT_EQ(row, (Row{kUntouched, kUntouched, kUntouched})) << "row " << i;
        }
    }
    return rows;
}

Rows rowsOf(const std::string& text, int most = kPlenty) {
    const Text open(text);
    return readStream(open.stream(), most);
}

struct KSMT4ReadTape7Test : LibraryTest {
    void TearDown() override {
        EXPECT_EQ(host().calls, std::vector<Call>{});
        LibraryTest::TearDown();
    }
};

// ---- the heading ----

TEST_F(KSMT4ReadTape7Test, RowsFromTheHeadingToANegativeFrequency) {
    const std::string text =
        "T  0    1\n"
        "   36 MODEL\n"
        "   FREQ   TOT TRANS\n"
        "  400.0 1.02 1.03 1.04 1.05 1.06 1.07 1.08 1.09 1.10 1.11 1.12 1.13\n"
        "  405.5 2.02 2.03 2.04 2.05 2.06 2.07 2.08 2.09 2.10 2.11 2.12 2.13\n"
        " -9999.\n"
        "  410.0 3.02 3.03 3.04 3.05 3.06 3.07 3.08 3.09 3.10 3.11 3.12 3.13\n";
    EXPECT_EQ(rowsOf(text), (Rows{{400.0F, 1.08F, 1.10F}, {405.5F, 2.08F, 2.10F}}));
}

TEST_F(KSMT4ReadTape7Test, TheHeadingsFirstWordIsFREQOfItsFirstFourLetters) {
    const Rows found = {{1.0F, 8.0F, 10.0F}};
    for (const char* heading : {"FREQ", "  FREQ TRANS", "\tFREQ", "\v\f FREQ", "FREQUENCY", "FREQ1 2 3", "FREQ\r"}) {
        EXPECT_EQ(rowsOf(heading + ("\n" + kNumbers)), found) << heading;
    }
    for (const char* other : {"freq", "Freq", "FRE", "FRE Q", "XFREQ", "1 FREQ", "FR EQ", "-FREQ"}) {
        EXPECT_EQ(rowsOf(other + ("\n" + kNumbers)), Rows{}) << other;
        EXPECT_EQ(rowsOf(other + ("\nFREQ\n" + kNumbers)), found) << other;
    }
}

TEST_F(KSMT4ReadTape7Test, OnlyTheFirstHeadingIsOne) {
    EXPECT_EQ(rowsOf("FREQ\nFREQ\n" + kNumbers), (Rows{{0.0F, 0.0F, 0.0F}, {1.0F, 8.0F, 10.0F}}));
}

TEST_F(KSMT4ReadTape7Test, ABlankLineBeforeTheHeadingEndsTheSearch) {
    for (const char* blank : {"\n", "   \n", "\t\r\n", " \v\f\n"}) {
        EXPECT_EQ(rowsOf("title\n" + (blank + ("FREQ\n" + kNumbers))), Rows{});
    }
}

TEST_F(KSMT4ReadTape7Test, WithoutAHeadingThereIsNothing) {
    for (const std::string& text : {std::string(), std::string("\n"), std::string("no heading"), kNumbers}) {
        EXPECT_EQ(rowsOf(text), Rows{});
    }
}

TEST_F(KSMT4ReadTape7Test, AHeadingAtTheEndHasNoRows) {
    EXPECT_EQ(rowsOf("FREQ"), Rows{});
    EXPECT_EQ(rowsOf("FREQ\n"), Rows{});
}

// ---- rows ----

TEST_F(KSMT4ReadTape7Test, ALastRowNeedsNoLineEnd) {
    EXPECT_EQ(rowsOf("FREQ\n1 2 3 4 5 6 7 8 9 10 11 12 13"), (Rows{{1.0F, 8.0F, 10.0F}}));
}

TEST_F(KSMT4ReadTape7Test, MissingNumbersAreThoseOfTheRowBefore) {
    EXPECT_EQ(rowsOf("FREQ\n"
                     "1\n"
                     "2 0 0 0 0 0 0 8\n"
                     "3 0 0 0 0 0 0 8.5 0 10\n"
                     "4 0 0 0 0 0 0 9\n"
                     "5\n"
                     "6 0 0 0 0 0 0 0 0 0 0 0 0\n"),
              (Rows{{1.0F, 0.0F, 0.0F},
                    {2.0F, 8.0F, 0.0F},
                    {3.0F, 8.5F, 10.0F},
                    {4.0F, 9.0F, 10.0F},
                    {5.0F, 9.0F, 10.0F},
                    {6.0F, 0.0F, 0.0F}}));
}

TEST_F(KSMT4ReadTape7Test, BlankColumnsShiftTheRest) {
    EXPECT_EQ(rowsOf("FREQ\n2050.00 0.9 2E-08 0. 0.              0.      2.5E-08           0.094 1.0   224.683\n"),
              (Rows{{2050.0F, 0.094F, 224.683F}}));
}

TEST_F(KSMT4ReadTape7Test, NumbersBehindTheThirteenthAreLeftOut) {
    EXPECT_EQ(rowsOf("FREQ\n1 2 3 4 5 6 7 8 9 10 11 12 13 14 15 16 words\n2\n"),
              (Rows{{1.0F, 8.0F, 10.0F}, {2.0F, 8.0F, 10.0F}}));
}

TEST_F(KSMT4ReadTape7Test, AWordEndsTheNumbersOfARow) {
    EXPECT_EQ(rowsOf("FREQ\n"
                     "1 2 3 4 5 6 7 8 9 10 11 12 13\n"
                     "2 2 2 2 2 2 2 2.5 word 2 2 2 2\n"
                     "3 x 3 3 3 3 3 3 3 3 3 3 3\n"
                     "4, 4 4 4 4 4 4 4 4 4 4 4 4\n"
                     "5 5 5 5 5 5 5 1.5D-07 5 5 5 5 5\n"
                     "6 6 6 6 6 6 6 1.5-107 6 6 6 6 6\n"),
              (Rows{{1.0F, 8.0F, 10.0F},
                    {2.0F, 2.5F, 10.0F},
                    {3.0F, 2.5F, 10.0F},
                    {4.0F, 2.5F, 10.0F},
                    {5.0F, 1.5F, 10.0F},
                    {6.0F, 1.5F, 6.0F}}));
}

TEST_F(KSMT4ReadTape7Test, ARowWithoutNumbersRepeatsTheOneBefore) {
    EXPECT_EQ(rowsOf("FREQ\nCM-1 TRANS\n" + kNumbers + "words\n- 5\n.\n" + "2\n"), (Rows{{0.0F, 0.0F, 0.0F},
                                                                                         {1.0F, 8.0F, 10.0F},
                                                                                         {1.0F, 8.0F, 10.0F},
                                                                                         {1.0F, 8.0F, 10.0F},
                                                                                         {1.0F, 8.0F, 10.0F},
                                                                                         {2.0F, 8.0F, 10.0F}}));
}

TEST_F(KSMT4ReadTape7Test, ABlankLineEndsTheTable) {
    for (const char* blank : {"\n", "    \n", "\t \r\n", "   "}) {
        EXPECT_EQ(rowsOf("FREQ\n" + kNumbers + blank + kNumbers).size(), std::string(blank) == "   " ? 2U : 1U);
    }
}

TEST_F(KSMT4ReadTape7Test, CarriageReturnsAreSpace) {
    EXPECT_EQ(rowsOf("FREQ TRANS\r\n1 2 3 4 5 6 7 8 9 10 11 12 13\r\n2\r\n\r\n3\r\n"),
              (Rows{{1.0F, 8.0F, 10.0F}, {2.0F, 8.0F, 10.0F}}));
}

TEST_F(KSMT4ReadTape7Test, OnlyANegativeFrequencyOrNoneEndsTheTable) {
    for (const char* end : {"-9999.", "-1e-30", "-0.5 7", "nan", "-nan", "-inf"}) {
        EXPECT_EQ(rowsOf("FREQ\n" + kNumbers + end + "\n" + kNumbers), (Rows{{1.0F, 8.0F, 10.0F}})) << end;
    }
    EXPECT_EQ(rowsOf("FREQ\n-0 -2 -3 -4 -5 -6 -7 -8 -9 nan -11\ninf\n0 0 0 0 0 0 0 nan 0 1e39\n"),
              (Rows{{-0.0F, -8.0F, kNaN},
                    {std::numeric_limits<float>::infinity(), -8.0F, kNaN},
                    {0.0F, kNaN, std::numeric_limits<float>::infinity()}}));
}

TEST_F(KSMT4ReadTape7Test, EverySpellingOfANumber) {
    EXPECT_EQ(rowsOf("FREQ\n+1.5E+03 .2 3. 4e0 0x10 6 7 1.25e-3 9 -1E1 11 12 13\n"),
              (Rows{{1500.0F, 1.25e-3F, -10.0F}}));
}

TEST_F(KSMT4ReadTape7Test, NumbersAreRoundedOnceToSinglePrecision) {
    // Half-way between two floats but for the last digit: by way of a double it would be the even one.
    EXPECT_EQ(rowsOf("FREQ\n1.00000005960464477539062500000001\n"), (Rows{{1.00000011920928955F, 0.0F, 0.0F}}));
}

// ---- limits ----

TEST_F(KSMT4ReadTape7Test, StopsAtTheMostRowsAndReadsNoFurther) {
    for (const int most : {3, 2, 1, 0, -1}) {
        const Text text("title\nFREQ\n1\n2\n3\nrest\n");
        const std::size_t expected = static_cast<std::size_t>(std::max(most, 0));
        EXPECT_EQ(readStream(text.stream(), most).size(), expected);
        EXPECT_EQ(text.rest(), std::string("1\n2\n3\nrest\n").substr(2 * expected));
    }
}

TEST_F(KSMT4ReadTape7Test, LeavesTheStreamOpenBehindTheTable) {
    const Text text("FREQ\n1\n-1\nFREQ\n7 0 0 0 0 0 0 8 0 10\n");
    EXPECT_EQ(readStream(text.stream(), kPlenty), (Rows{{1.0F, 0.0F, 0.0F}}));
    EXPECT_EQ(readStream(text.stream(), kPlenty), (Rows{{7.0F, 8.0F, 10.0F}})) << "nothing is kept between calls";
}

std::string withLength(const std::string& text, std::size_t length) {
    return text + std::string(length - text.size(), ' ');
}

TEST_F(KSMT4ReadTape7Test, LongLinesAreReadInPiecesOf199) {
    const std::string start = "1 2 3 4 5 6 7 8 9 10";
    const Row first = {1.0F, 8.0F, 10.0F};
    const Row second = {2.0F, 8.0F, 10.0F};
    EXPECT_EQ(rowsOf("FREQ\n" + withLength(start, 198) + "\n2\n"), (Rows{first, second}));
    EXPECT_EQ(rowsOf("FREQ\n" + withLength(start, 199) + "\n2\n"), (Rows{first})) << "its line end is a blank line";
    EXPECT_EQ(rowsOf("FREQ\n" + withLength(start, 260) + "\n2\n"), (Rows{first})) << "and so are its blanks";
    EXPECT_EQ(rowsOf("FREQ\n" + withLength(start, 199) + "77 0 0 0 0 0 0 88\n2\n"),
              (Rows{first, {77.0F, 88.0F, 10.0F}, {2.0F, 88.0F, 10.0F}}));
    EXPECT_EQ(rowsOf("FREQ\n" + withLength(start, 197) + "1234\n2\n"), (Rows{first, {34.0F, 8.0F, 10.0F}, second}))
        << "a number is cut in two";
    EXPECT_EQ(rowsOf("FREQ\n" + withLength(start, 199) + "-9\n2\n"), (Rows{first}));
    EXPECT_EQ(rowsOf("FREQ\n" + withLength(start, 199) + "word\n2\n"), (Rows{first, first, second}));
    const std::string thirds = withLength(start, 199) + withLength("2", 199) + "3\n";
    EXPECT_EQ(rowsOf("FREQ\n" + thirds), (Rows{first, second, {3.0F, 8.0F, 10.0F}}));
}

TEST_F(KSMT4ReadTape7Test, ALongHeadingGoesOnInTheFirstRow) {
    const Row row = {1.0F, 8.0F, 10.0F};
    EXPECT_EQ(rowsOf(withLength("FREQ", 198) + "\n" + kNumbers), (Rows{row}));
    EXPECT_EQ(rowsOf(withLength("FREQ", 199) + "\n" + kNumbers), Rows{});
    EXPECT_EQ(rowsOf(withLength("FREQ", 199) + "NAMES\n" + kNumbers), (Rows{{0.0F, 0.0F, 0.0F}, row}));
    EXPECT_EQ(rowsOf(withLength("FREQ", 199) + "5 NAMES\n" + kNumbers), (Rows{{5.0F, 0.0F, 0.0F}, row}));
    EXPECT_EQ(rowsOf(withLength("title", 199) + "FREQ\n" + kNumbers), (Rows{row})) << "a piece can be the heading";
    EXPECT_EQ(rowsOf(withLength("title", 199) + "\nFREQ\n" + kNumbers), Rows{});
    EXPECT_EQ(rowsOf(withLength("title", 197) + "FREQ\n" + kNumbers), Rows{}) << "one that is cut is none";
}

TEST_F(KSMT4ReadTape7Test, AZeroCharacterEndsALine) {
    using namespace std::string_literals;
    EXPECT_EQ(rowsOf("FREQ\0words\n1 2 3 4 5 6 7 8\0 9 10\n"s), (Rows{{1.0F, 8.0F, 0.0F}}));
    EXPECT_EQ(rowsOf("FREQ\n1\n\0 2\n3\n"s), (Rows{{1.0F, 0.0F, 0.0F}}));
}

#ifdef KSLIB_TEST_LOCALES
TEST_F(KSMT4ReadTape7Test, NumbersHaveAPointInEveryLocale) {
    ASSERT_TRUE(useDecimalComma(KSLIB_TEST_LOCALES));
    const Rows rows = rowsOf("FREQ\n400.5 1 1 1 1 1 1 0.25 1 1,5\n");
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(rows, (Rows{{400.5F, 0.25F, 1.0F}}));
}
#endif

// ---- files ----

/// The same rules on the C library's scanning.
Rows scanned(FILE* stream) {
    char line[200];
    char word[5];
    do {
        if (std::fgets(line, sizeof line, stream) == nullptr || std::sscanf(line, "%4s", word) == EOF) return {};
    } while (std::string(word) != "FREQ");
    float n[13] = {};
    Rows rows;
    while (std::fgets(line, sizeof line, stream) != nullptr) {
        const int found = std::sscanf(line, "%f %f %f %f %f %f %f %f %f %f %f %f %f", &n[0], &n[1], &n[2], &n[3], &n[4],
                                      &n[5], &n[6], &n[7], &n[8], &n[9], &n[10], &n[11], &n[12]);
        if (found == EOF || !(n[0] >= 0)) break;
        rows.push_back({n[0], n[7], n[9]});
    }
    return rows;
}

struct RealTape7Test : KSMT4ReadTape7Test {
    std::string folder;
    void SetUp() override {
        KSMT4ReadTape7Test::SetUp();
        const char* data = std::getenv("KSLIB_DATA");
        if (data == nullptr) GTEST_SKIP() << "KSLIB_DATA does not name a folder with modtran-tape7";
        folder = std::string(data) + "/modtran-tape7/";
    }
    Rows rowsOfFile(const std::string& name) const {
        std::ifstream file(folder + name, std::ios::binary);
        std::ostringstream text;
        text << file.rdbuf();
        EXPECT_FALSE(text.str().empty()) << name;
        constexpr int kMost = 20000;
        Rows rows = rowsOf(text.str(), kMost);
        const Text again(text.str());
        EXPECT_EQ(rows, scanned(again.stream())) << name;
        return rows;
    }
};

TEST_F(RealTape7Test, CompleteRadianceTablesAreReadRight) {
    const Rows ground = rowsOfFile("tape7-03");
    ASSERT_EQ(ground.size(), 51U);
    EXPECT_EQ(ground[0], (Row{2050.0F, 0.0F, 5.0326e-7F}));
    EXPECT_EQ(ground[2], (Row{2052.0F, 0.0F, 4.1428e-7F}));
    EXPECT_EQ(ground[50].frequency, 2100.0F);
    const Rows path = rowsOfFile("tape7-05");
    ASSERT_EQ(path.size(), 51U);
    EXPECT_EQ(path[1], (Row{2051.0F, 0.0F, 9.7192e-8F}));
    const Rows sun = rowsOfFile("tape7.LWIRSun");
    ASSERT_EQ(sun.size(), 418U);
    EXPECT_EQ(sun[3], (Row{836.0F, 0.0F, 7.0107e-6F}));
    EXPECT_EQ(sun[417].frequency, 1250.0F);
}

TEST_F(RealTape7Test, BlankColumnsOfRealFilesShiftTheRest) {
    const Rows thermal = rowsOfFile("tape7-02");  // 2050.00, six numbers, 0.094, 1.0000, 224.683
    ASSERT_EQ(thermal.size(), 51U);
    EXPECT_EQ(thermal[0], (Row{2050.0F, 0.094F, 224.683F}));
    const Rows scattered = rowsOfFile("tape7-02b");  // one column fewer: the tenth number is missing throughout
    ASSERT_EQ(scattered.size(), 51U);
    EXPECT_EQ(scattered[0], (Row{2050.0F, 1.0F, 0.0F}));
    const Rows irradiance = rowsOfFile("tape7-04");  // five numbers a row
    ASSERT_EQ(irradiance.size(), 101U);
    EXPECT_EQ(irradiance[100], (Row{2150.0F, 0.0F, 0.0F}));
}

TEST_F(RealTape7Test, TransmittanceLinesBreakIntoRows) {
    const Rows narrow = rowsOfFile("tape7-01");
    EXPECT_EQ(narrow.size(), 1U + 2U * 52U) << "the rest of the heading, and two pieces of every line";
    const Rows wide = rowsOfFile("tape7VISNIR5kmTrop23Vis");
    EXPECT_EQ(wide.size(), 1U + 2U * 1502U);
}

}  // namespace
