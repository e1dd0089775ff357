// ks modtran: cards written out here column by column, and spectral tables that are made here or checked by their own
// physics: radiances by the brightness temperature beside them, transmittances by their logarithm.
#include <gmock/gmock.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdlib>
#include <functional>
#include <map>
#include <sstream>

#include "app/output.hpp"
#include "app/report.hpp"
#include "modtran/deck.hpp"
#include "speckit.hpp"

namespace clitest {
namespace {

using kscli::DeckLine;
using kscli::Json;
using testing::HasSubstr;

// ---- cards ----

/// A line of 80 blanks with texts at columns, counted from 1.
class Line {
public:
    Line& at(int column, const std::string& text) {
        line_.replace(static_cast<std::size_t>(column - 1), text.size(), text);
        return *this;
    }
    /// Where the last field of a card is a number, the line ends with it.
    std::string upTo(int column) const { return line_.substr(0, static_cast<std::size_t>(column)); }
    std::string whole() const { return line_; }

private:
    std::string line_ = std::string(80, ' ');
};

std::vector<std::string> linesOf(const std::string& text) {
    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) lines.push_back(line);
    return lines;
}

/// The deck of all fields, as data.
Json exampleCards() { return Json::parse(kscli::exampleDeck()); }

/// The line of one card of the deck after changes to its fields.
DeckLine changed(std::size_t card, const std::map<std::string, Json>& fields) {
    Json cards = exampleCards();
    for (const auto& [key, value] : fields) cards["cards"][card][key] = value;
    return kscli::makeDeck(cards.dump(), "deck.json").at(card);
}

std::string failureOf(const std::string& json) {
    try {
        kscli::makeDeck(json, "deck.json");
    } catch (const kscli::Failure& failure) {
        return failure.what();
    }
    return "";
}

std::string failureOf(std::size_t card, const std::string& key, const Json& value) {
    Json cards = exampleCards();
    cards["cards"][card][key] = value;
    return failureOf(cards.dump());
}

enum Card { k1, k1A, k2, k3, k3A1, k3A2, k4, k5 };

class Cards : public CliTest {};

TEST_F(Cards, AreWrittenColumnByColumn) {
    write("deck.json", kscli::exampleDeck());
    const Result result = ks({"modtran", "cards", "deck.json", "-o", "tape5"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_FALSE(contains(result.err, "warning")) << result.err;
    const std::vector<std::string> lines = linesOf(read("tape5"));
    ASSERT_EQ(lines.size(), 8U);
    Line card1;
    card1.at(1, "C").at(2, "M").at(5, "2").at(10, "2").at(15, "2").at(20, "1");
    for (const int column : {25, 30, 35, 40, 45, 50}) card1.at(column, "0");
    EXPECT_EQ(lines[k1], card1.at(55, "1").at(60, "0").at(64, " 0").at(66, " 295.500").at(74, "0.25000").whole());
    Line card1A;
    card1A.at(1, "T").at(2, "T").at(4, " 8").at(6, "T").at(7, "   5").at(11, " 365.00000").at(21, "g    2.500");
    EXPECT_EQ(lines[k1A], card1A.at(40, "0").at(46, "F").at(48, "F").at(51, "     0.000").upTo(60));
    Line card2;
    card2.at(5, "1").at(9, "0").at(14, "1").at(15, "    3").at(24, "0").at(29, "0").at(30, "  23.00000");
    card2.at(40, "   0.00000").at(50, "   0.00000").at(60, "   0.00000").at(70, "   0.10000");
    EXPECT_EQ(lines[k2], card2.upTo(79));
    EXPECT_EQ(lines[k3], Line().at(1, "    20.000").at(11, "     0.100").at(21, "   180.000").at(65, "0").whole());
    EXPECT_EQ(lines[k3A1], Line().at(4, " 2").at(10, "2").at(11, "  172").at(20, "0").whole());
    EXPECT_EQ(lines[k3A2], Line().at(1, "   135.000").at(11, "    40.000").whole());
    Line card4;
    card4.at(1, "       400").at(11, "      2500").at(21, "         1").at(31, "        10").at(41, "RN");
    EXPECT_EQ(lines[k4], card4.at(51, "N").at(52, "G").at(53, "A").at(58, "  0").upTo(60));
    EXPECT_EQ(lines[k5], Line().at(5, "0").whole());
    EXPECT_EQ(files(), (std::vector<std::string>{"deck.json", "tape5"}));
}

/// Every value of a field, and what its columns then show.
struct Choice {
    Card card;
    const char* field;
    int column;
    std::vector<std::pair<const char*, const char*>> shown;  // JSON value, columns
};

TEST_F(Cards, EveryValueIsGivenAsItStandsOnTheCard) {
    const std::vector<Choice> choices = {
        {k1, "MODTRN", 1, {{"\"T\"", "T"}, {"\"C\"", "C"}, {"\"L\"", "L"}}},
        {k1, "SPEED", 2, {{"\"S\"", "S"}, {"\"M\"", "M"}}},
        {k1, "MODEL", 5, {{"0", "0"}, {"1", "1"}, {"2", "2"}, {"6", "6"}, {"7", "7"}, {"8", "8"}, {"\"8\"", "8"}}},
        {k1, "ITYPE", 10, {{"1", "1"}, {"2", "2"}, {"3", "3"}}},
        {k1, "IEMSCT", 15, {{"0", "0"}, {"1", "1"}, {"2", "2"}, {"3", "3"}}},
        {k1, "IMULT", 20, {{"0", "0"}, {"1", "1"}}},
        {k1, "M6", 50, {{"0", "0"}, {"6", "6"}}},
        {k1, "MDEF", 55, {{"1", "1"}, {"2", "2"}}},
        {k1, "IM", 60, {{"0", "0"}, {"1", "1"}}},
        {k1, "NOPRNT", 64, {{"0", " 0"}, {"1", " 1"}, {"-1", "-1"}, {"-2", "-2"}}},
        {k1,
         "SURREF",
         74,
         {{"0", "0.00000"},
          {"0.05", "0.05000"},
          {"1", "1.00000"},
          {"\"BRDF\"", "   BRDF"},
          {"\"LAMBER\"", " LAMBER"},
          {"-1", "     -1"},
          {"-9", "     -9"},
          {"-10", "    -10"},
          {"\"-31\"", "    -31"}}},
        {k1A, "DISAZM", 2, {{"\"T\"", "T"}, {"false", "F"}, {"true", "T"}}},
        {k1A, "NSTR", 4, {{"2", " 2"}, {"4", " 4"}, {"8", " 8"}, {"16", "16"}}},
        {k1A,
         "H2OSTR",
         21,
         {{"0", "         0"}, {"\"g1.25\"", "g    1.250"}, {"\"a0.5\"", "a      0.5"}, {"1.5", "     1.500"}}},
        {k1A, "O3STR", 31, {{"\"0\"", "         0"}, {"\"a300\"", "a    300.0"}}},
        {k1A, "LSUNFL", 42, {{"\"\"", " "}, {"\"T\"", "T"}, {"\"F\"", "F"}, {"null", " "}}},
        {k2, "APLUS", 1, {{"\"\"", "  "}, {"\"A+\"", "A+"}}},
        {k2, "IHAZE", 4, {{"-1", "-1"}, {"0", " 0"}, {"9", " 9"}, {"10", "10"}}},
        {k2, "CNOVAM", 6, {{"\"\"", " "}, {"\"N\"", "N"}}},
        {k2, "ARUSS", 10, {{"\"\"", "   "}, {"\"USS\"", "USS"}}},
        {k2, "IVULCN", 14, {{"1", "1"}, {"8", "8"}}},
        {k2, "ICSTL", 15, {{"1", "    1"}, {"10", "   10"}}},
        {k2, "ICLD", 23, {{"0", " 0"}, {"11", "11"}, {"18", "18"}, {"19", "19"}}},
        {k2, "IVSA", 29, {{"0", "0"}, {"1", "1"}}},
        {k2, "WSS", 40, {{"999.5", " 999.50000"}}},
        {k2, "GNDALT", 70, {{"-0.1", "  -0.10000"}, {"6", "   6.00000"}}},
        {k3, "ANGLE", 21, {{"null", "          "}, {"0", "     0.000"}}},
        {k3, "PHI", 71, {{"45.25", "    45.250"}}},
        {k3A1, "IPARM", 4, {{"0", " 0"}, {"2", " 2"}, {"10", "10"}, {"11", "11"}, {"12", "12"}}},
        {k3A2, "G", 71, {{"-1", "    -1.000"}}},
        {k3A2, "TIME", 41, {{"24", "    24.000"}}},
        {k4, "YFLAG", 41, {{"\"T\"", "T"}, {"\"R\"", "R"}}},
        {k4, "XFLAG", 42, {{"\"W\"", "W"}, {"\"M\"", "M"}, {"\"N\"", "N"}}},
        {k4, "DLIMIT", 43, {{"\"\"", "        "}, {"\"########\"", "########"}, {"\"********\"", "********"}}},
        {k4, "FLAG1", 51, {{"\"\"", " "}, {"\"W\"", "W"}, {"\"M\"", "M"}, {"\"N\"", "N"}}},
        {k4, "FLAG2", 52, {{"\"T\"", "T"}, {"\"R\"", "R"}, {"\"U\"", "U"}, {"\"\"", " "}}},
        {k4, "FLAG7", 57, {{"\"T\"", "T"}, {"\"F\"", "F"}, {"\"\"", " "}}},
        {k4, "MLFLX", 58, {{"0", "  0"}, {"999", "999"}}},
        {k5, "IRPT", 5, {{"0", "0"}, {"1", "1"}, {"3", "3"}, {"4", "4"}}}};
    for (const Choice& choice : choices) {
        for (const auto& [value, shown] : choice.shown) {
            SCOPED_TRACE(std::string(choice.field) + " = " + value);
            const DeckLine line = changed(choice.card, {{choice.field, Json::parse(value)}});
            std::string columns = line.text;
            columns.resize(80, ' ');
            EXPECT_EQ(columns.substr(static_cast<std::size_t>(choice.column - 1), std::string(shown).size()), shown);
            EXPECT_TRUE(line.overflow.empty());
            if (std::string(choice.field) != "MODTRN") {
                EXPECT_TRUE(line.remarks.empty());
            }
        }
    }
}

TEST_F(Cards, TheExampleHasEveryField) {
    const Result fields = ks({"modtran", "cards", "--fields"});
    const Result example = ks({"modtran", "cards", "--example"});
    ASSERT_EQ(fields.status, 0);
    ASSERT_EQ(example.status, 0);
    std::map<std::string, Json> cards;
    const Json deck = Json::parse(example.out);
    for (const Json& card : deck["cards"]) cards[card["card"].get<std::string>()] = card;
    std::string card;
    int found = 0;
    for (const std::string& line : linesOf(fields.out)) {
        if (line.rfind("card ", 0) == 0) card = line.substr(5);
        if (line.size() < 3 || line.rfind("  ", 0) != 0 || line[2] == ' ') continue;
        const std::string name = line.substr(2, line.find(' ', 2) - 2);
        EXPECT_TRUE(cards.at(card).contains(name)) << card << " " << name;
        ++found;
    }
    EXPECT_EQ(found, 17 + 13 + 14 + 8 + 4 + 8 + 15 + 1);
    EXPECT_EQ(cards.size(), 8U);
    for (const std::string& line : linesOf(fields.out)) EXPECT_LE(line.size(), 120U) << line;
}

TEST_F(Cards, NumbersThatOverflowTheirColumnsAreErrors) {
    struct Wide {
        Card card;
        const char* field;
        Json value;
        std::vector<const char*> told;
    };
    const std::vector<Wide> fields = {
        {k1, "TPTEMP", 12345.5, {"TPTEMP = 12345.5", "\"12345.500\" takes 9 columns and has 8", "columns 66 to 73"}},
        {k1, "SURREF", 12.5, {"SURREF = 12.5", "columns 74 to 80"}},
        {k1A, "ISUN", 12345, {"ISUN = 12345", "columns 7 to 10"}},
        {k1A, "ISUN", -1000, {"ISUN = -1000", "columns 7 to 10"}},
        {k1A, "CO2MX", 12345, {"CO2MX = 12345", "columns 11 to 20"}},
        {k1A, "H2OSTR", "g123456.5", {"H2OSTR = \"g123456.5\"", "columns 21 to 30"}},
        {k1A, "SOLCON", 1234567, {"SOLCON = 1234567", "columns 51 to 60"}},
        {k2, "VIS", 12345, {"VIS = 12345", "columns 30 to 39"}},
        // Ten characters, as many as it has columns, but the first of these is left blank.
        {k2, "WSS", 1234.5, {"WSS = 1234.5", "\"234.50000\"", "columns 40 to 49"}},
        {k2, "WSS", 999.9999999, {"WSS = 999.9999999", "columns 40 to 49"}},
        {k2, "GNDALT", -12345, {"GNDALT = -12345", "columns 70 to 79"}},
        {k3, "H1", 1234567, {"H1 = 1234567", "columns 1 to 10"}},
        {k3A2, "PARM1", -123456, {"PARM1 = -123456", "columns 1 to 10"}},
        {k3A2, "PSIPO", 1e30, {"PSIPO = 1e+30", "columns 51 to 60"}},
        {k4, "V2", 12345678901.0, {"V2 = 12345678901", "columns 11 to 20"}},
        {k4, "MLFLX", 1000, {"MLFLX = 1000", "columns 58 to 60"}},
        // A number that nothing is left of is as wrong.
        {k4, "DV", 0.4, {"DV = 0.4 is written as 0"}},
        {k3A2, "G", 0.0001, {"G = 0.0001 is written as 0.000"}}};
    for (const Wide& wide : fields) {
        SCOPED_TRACE(wide.field);
        const DeckLine line = changed(wide.card, {{wide.field, wide.value}});
        ASSERT_EQ(line.overflow.size(), 1U);
        for (const char* told : wide.told) EXPECT_THAT(line.overflow[0], HasSubstr(told));
        EXPECT_THAT(line.overflow[0], HasSubstr("cards[" + std::to_string(wide.card) + "]: "));
    }
}

TEST_F(Cards, NothingIsWrittenWhenAFieldOverflows) {
    Json cards = exampleCards();
    cards["cards"][k2]["WSS"] = 1234.5;
    cards["cards"][k3]["H1"] = 1234567;
    write("deck.json", cards.dump());
    const Result result = ks({"modtran", "cards", "deck.json", "-o", "tape5"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("cards[2]: WSS = 1234.5 overflows: its columns 40 to 49 would hold"));
    EXPECT_THAT(result.err, HasSubstr("cards[3]: H1 = 1234567 overflows: \"1234567.000\" takes 11 columns and has 10"));
    EXPECT_THAT(result.err, HasSubstr("12345678901234567890")) << "the ruler";
    EXPECT_THAT(result.err, HasSubstr("2 fields do not fit"));
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(files(), std::vector<std::string>{"deck.json"});
    EXPECT_EQ(ks({"modtran", "cards", "deck.json"}).out, "");
}

TEST_F(Cards, RoundedNumbersAreWarnedOf) {
    const DeckLine line = changed(k3A2, {{"PARM1", 33.12345}, {"PARM2", 33.123}});
    EXPECT_TRUE(line.overflow.empty());
    ASSERT_EQ(line.remarks.size(), 1U);
    EXPECT_THAT(line.remarks[0], HasSubstr("PARM1 = 33.12345 is written as 33.123 (columns 1 to 10)"));
    const DeckLine step = changed(k4, {{"DV", 1.5}});
    ASSERT_EQ(step.remarks.size(), 1U);
    EXPECT_THAT(step.remarks[0], HasSubstr("DV = 1.5 is written as 2"));
    Json cards = exampleCards();
    cards["cards"][k4]["DV"] = 1.5;
    write("deck.json", cards.dump());
    const Result result = ks({"modtran", "cards", "deck.json"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("warning: cards[6]: DV = 1.5"));
    EXPECT_EQ(linesOf(result.out).size(), 8U);
}

TEST_F(Cards, FieldsThatOtherFieldsSwitchOffAreTold) {
    const DeckLine line = changed(k1, {{"MODTRN", "T"}});
    ASSERT_EQ(line.remarks.size(), 1U);
    EXPECT_THAT(line.remarks[0], HasSubstr("SPEED is written only where MODTRN is C"));
    EXPECT_EQ(line.text.substr(0, 5), "T   2");
    const DeckLine flags = changed(k4, {{"FLAG1", ""}, {"FLAG2", ""}});
    EXPECT_EQ(flags.remarks.size(), 5U);
    EXPECT_EQ(flags.text.substr(50, 10), "         0");
}

TEST_F(Cards, MistakesAreToldWithTheirPlace) {
    EXPECT_THAT(failureOf(k2, "VISS", 1), HasSubstr("deck.json: cards[2].VISS is not a field of card 2; those are"));
    EXPECT_THAT(failureOf(k1, "MODEL", 9), HasSubstr("cards[0].MODEL is 9"));
    EXPECT_THAT(failureOf(k1, "MODEL", 2.5), HasSubstr("cards[0].MODEL is 2.5"));
    EXPECT_THAT(failureOf(k1, "MODEL", true), HasSubstr("cards[0].MODEL is true"));
    EXPECT_THAT(failureOf(k1, "MODEL", Json::array({1})), HasSubstr("cards[0].MODEL is [1]"));
    EXPECT_THAT(failureOf(k1, "MODTRN", "t"), HasSubstr("T, C, L"));
    EXPECT_THAT(failureOf(k1, "TPTEMP", "300"), HasSubstr("cards[0].TPTEMP is \"300\""));
    EXPECT_THAT(failureOf(k1, "TPTEMP", nullptr), HasSubstr("a number"));
    EXPECT_THAT(failureOf(k1, "SURREF", -0.5), HasSubstr("an albedo of at least 0"));
    EXPECT_THAT(failureOf(k1, "SURREF", "WATER"), HasSubstr("BRDF, LAMBER"));
    EXPECT_THAT(failureOf(k1A, "H2OSTR", "x2"), HasSubstr("\"g2.5\""));
    EXPECT_THAT(failureOf(k1A, "H2OSTR", -1), HasSubstr("cards[1].H2OSTR is -1"));
    EXPECT_THAT(failureOf(k1A, "ISUN", 2.0), HasSubstr("a whole number"));
    EXPECT_THAT(failureOf(k2, "VIS", -1), HasSubstr("at least 0"));
    EXPECT_THAT(failureOf(k2, "ICSTL", 11), HasSubstr("from 1 to 10"));
    EXPECT_THAT(failureOf(k2, "GNDALT", 6.5), HasSubstr("at most 6"));
    EXPECT_THAT(failureOf(k3, "ANGLE", 180.5), HasSubstr("from 0 to 180"));
    EXPECT_THAT(failureOf(k3A1, "IDAY", 366), HasSubstr("from 1 to 365"));
    EXPECT_THAT(failureOf(k3A2, "G", 1.5), HasSubstr("from -1 to 1"));
    EXPECT_THAT(failureOf(k4, "V1", 0), HasSubstr("above 0"));
    EXPECT_THAT(failureOf(k4, "V2", -5), HasSubstr("cards[6]: V2 must be above V1"));
    EXPECT_THAT(failureOf(k4, "V2", 1e39), HasSubstr("cards[6].V2 is 1e+39"));
    EXPECT_THAT(failureOf(k5, "card", "6"), HasSubstr("cards[7].card is \"6\"; it must be one of 1, 1A, 2"));
    EXPECT_THAT(failureOf(R"({"cards": [{"card": "3", "LENN": 1}, {"card": "3", "LENN": 1}]})"),
                HasSubstr("cards[1]: card 3 cannot follow card 3; the order is 1, 1A, 2"));
    Json cards = exampleCards();
    cards["cards"][k2].erase("VIS");
    EXPECT_THAT(failureOf(cards.dump()),
                HasSubstr("cards[2].VIS is missing (visibility (km)): a number of at least 0"));
    cards["cards"][k2] = 5;
    EXPECT_THAT(failureOf(cards.dump()), HasSubstr("cards[2] is 5; it must be an object"));
    cards["cards"][k2] = Json::object();
    EXPECT_THAT(failureOf(cards.dump()), HasSubstr("cards[2] has no key \"card\""));
    EXPECT_THAT(failureOf("[]"), HasSubstr("{\"cards\": [...]}"));
    EXPECT_THAT(failureOf("{}"), HasSubstr("\"cards\" must be a list"));
    EXPECT_THAT(failureOf(R"({"cards": [], "more": 1})"), HasSubstr("more is not known"));
    EXPECT_THAT(failureOf(R"({"cards": [{"card": "5", "IRPT": 0, "IRPT": 1}]})"),
                HasSubstr("the key \"IRPT\" comes twice"));
    EXPECT_THAT(failureOf("{\"cards\": [\n  {\"card\": 5,}]}"), HasSubstr("line 2"));
    EXPECT_THAT(failureOf(R"({"cards": ["a\nb"]})"), HasSubstr("cards[0] holds a line end"));
}

TEST_F(Cards, OtherLinesAndFurtherRunsAreKept) {
    write(
        "deck.json",
        R"({"cards": [{"card": 5, "IRPT": 3}, {"card": "3", "LENN": 1}, "  a line of one's own", {"card": "5", "IRPT": 0}]})");
    const Result result = ks({"modtran", "cards", "deck.json"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(linesOf(result.out), (std::vector<std::string>{Line().at(5, "3").whole(), Line().at(65, "1").whole(),
                                                             "  a line of one's own", Line().at(5, "0").whole()}));
}

TEST_F(Cards, ARulerShowsTheColumns) {
    write("deck.json", R"({"cards": [{"card": "5", "IRPT": 4}]})");
    const Result result = ks({"modtran", "cards", "deck.json", "--ruler"});
    ASSERT_EQ(result.status, 0);
    const std::vector<std::string> lines = linesOf(result.out);
    ASSERT_EQ(lines.size(), 3U);
    EXPECT_EQ(lines[0].substr(5 + 9, 11), "1         2");
    EXPECT_EQ(lines[1].substr(5, 12), "123456789012");
    EXPECT_EQ(lines[2], "5    " + Line().at(5, "4").whole());
}

TEST_F(Cards, FilesAreNeitherLostNorMixedUp) {
    write("deck.json", kscli::exampleDeck());
    write("tape5", "mine");
    const Result kept = ks({"modtran", "cards", "deck.json", "-o", "tape5"});
    EXPECT_EQ(kept.status, 1);
    EXPECT_THAT(kept.err, HasSubstr("--force"));
    EXPECT_EQ(read("tape5"), "mine");
    EXPECT_EQ(ks({"modtran", "cards", "deck.json", "-o", "tape5", "--force"}).status, 0);
    EXPECT_EQ(linesOf(read("tape5")).size(), 8U);
    EXPECT_EQ(ks({"modtran", "cards", "deck.json", "-o", "deck.json", "--force"}).status, 1);
    EXPECT_EQ(read("deck.json"), kscli::exampleDeck());
    EXPECT_THAT(ks({"modtran", "cards", "none.json"}).err, HasSubstr("no such file"));
    EXPECT_THAT(ks({"modtran", "cards"}).err, HasSubstr("--example"));
    EXPECT_EQ(ks({"modtran"}).status, 1);
}

// ---- tape7 ----

constexpr const char* kRadianceHeading =
    "    FREQ  TOT_TRANS  PTH_THRML  THRML_SCT  SURF_EMIS   SOL_SCAT  SING_SCAT  GRND_RFLT  DRCT_RFLT  TOTAL_RAD  "
    "REF_SOL"
    "  SOL@OBS   DEPTH";
const std::vector<int> kRadianceWidths = {8, 11, 11, 11, 11, 11, 11, 11, 11, 11, 9, 9, 8};

/// Numbers right-aligned in columns; an empty text is a blank column.
std::string row(const std::vector<int>& widths, const std::vector<std::string>& numbers) {
    std::string line;
    for (std::size_t i = 0; i < numbers.size(); ++i) {
        line += std::string(static_cast<std::size_t>(widths[i]) - numbers[i].size(), ' ') + numbers[i];
    }
    return line;
}

std::string radianceRow(const std::string& frequency, const std::string& reflected, const std::string& total) {
    return row(kRadianceWidths, {frequency, "0.5", "1E-6", "2E-8", "3E-6", "4E-9", "5E-9", reflected, "7E-9", total,
                                 "8E-7", "9E-7", "0.693"});
}

constexpr const char* kPreamble = "T F 1    3    2\n    1    1    1  23.00000\n";
constexpr const char* kEnd = " -9999.\n";

/// The cells of a CSV by the name at the head of their column.
class Csv {
public:
    explicit Csv(const std::string& text) {
        const std::vector<std::string> lines = linesOf(text);
        names_ = cells(lines.at(0));
        for (std::size_t i = 1; i < lines.size(); ++i) rows_.push_back(cells(lines[i]));
    }
    std::size_t rows() const { return rows_.size(); }
    const std::vector<std::string>& names() const { return names_; }
    std::string at(std::size_t row, const std::string& name) const {
        const auto found = std::find(names_.begin(), names_.end(), name);
        if (found == names_.end()) return "no column " + name;
        return rows_.at(row).at(static_cast<std::size_t>(found - names_.begin()));
    }
    double number(std::size_t row, const std::string& name) const {
        const std::string cell = at(row, name);
        char* end = nullptr;
        const double value = std::strtod(cell.c_str(), &end);
        return cell.empty() || *end != '\0' ? std::nan("") : value;
    }

private:
    static std::vector<std::string> cells(const std::string& line) {
        std::vector<std::string> all(1);
        for (const char c : line) {
            if (c == ',') {
                all.emplace_back();
            } else {
                all.back() += c;
            }
        }
        return all;
    }
    std::vector<std::string> names_;
    std::vector<std::vector<std::string>> rows_;
};

const std::string kTotal = "TOTAL_RAD (W cm-2 sr-1 / cm-1)";
const std::string kReflected = "GRND_RFLT (W cm-2 sr-1 / cm-1)";

class Tape7 : public CliTest {};

TEST_F(Tape7, ACompleteTableBecomesCsv) {
    write("tape7", std::string(kPreamble) + kRadianceHeading + "\n" + radianceRow("1000.00", "6E-7", "1.5E-5") + "\n" +
                       radianceRow("2000.00", "7E-7", "2.5E-5") + "\n" + kEnd);
    const Result result = ks({"modtran", "tape7", "tape7", "-o", "out.csv"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_FALSE(contains(result.err, "misread")) << result.err;
    const Csv csv(read("out.csv"));
    ASSERT_EQ(csv.rows(), 2U);
    EXPECT_EQ(csv.names().size(), 14U);
    EXPECT_EQ(csv.at(0, "wavenumber_cm-1"), "1000");
    EXPECT_EQ(csv.at(0, "wavelength_nm"), "10000");
    EXPECT_EQ(csv.at(1, "wavelength_nm"), "5000");
    EXPECT_EQ(csv.number(0, kReflected), 6e-7);
    EXPECT_EQ(csv.number(1, kReflected), 7e-7);
    EXPECT_EQ(csv.number(0, kTotal), 1.5e-5);
    EXPECT_EQ(csv.number(1, kTotal), 2.5e-5);
    EXPECT_EQ(csv.number(1, "TOT_TRANS"), 0.5);
    EXPECT_EQ(csv.number(1, "SOL@OBS (W cm-2 / cm-1)"), 9e-7);
    EXPECT_EQ(csv.number(1, "DEPTH"), 0.693);
}

TEST_F(Tape7, RadiancesArePerNanometreOnRequest) {
    write("tape7", std::string(kRadianceHeading) + "\n" + radianceRow("2000.00", "6E-7", "1.5E-5") + "\n" + kEnd);
    const Result result = ks({"modtran", "tape7", "tape7", "--per-nm", "--columns", "TOTAL_RAD,REF_SOL,DEPTH"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Csv csv(result.out);
    // 2000 cm-1 is 5000 nm; one nanometre there is 2000 - 1e7 / 5001 = 0.4 cm-1, and a watt 1e6 microwatts.
    EXPECT_NEAR(csv.number(0, "TOTAL_RAD (uW cm-2 sr-1 nm-1)"), 1.5e-5 * 0.4 * 1e6, 1e-9);
    EXPECT_NEAR(csv.number(0, "REF_SOL (uW cm-2 nm-1)"), 8e-7 * 0.4 * 1e6, 1e-9);
    EXPECT_EQ(csv.number(0, "DEPTH"), 0.693);
    EXPECT_EQ(csv.names().size(), 5U);
}

TEST_F(Tape7, NamesMayBePartedByBlanks) {
    std::string heading = kRadianceHeading;
    std::replace(heading.begin(), heading.end(), '_', ' ');
    write("tape7", std::string(kPreamble) + heading + "\n" + radianceRow("1000.00", "6E-7", "1.5E-5") + "\n" + kEnd);
    const Result result = ks({"modtran", "tape7", "tape7"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_FALSE(contains(result.err, "misread")) << result.err;
    const Csv csv(result.out);
    EXPECT_EQ(csv.names().size(), 14U);
    EXPECT_EQ(csv.number(0, kTotal), 1.5e-5);
    EXPECT_EQ(csv.number(0, kReflected), 6e-7);
}

TEST_F(Tape7, BlankColumnsShiftNoOthers) {
    // Twelve numbers: counted from the left, the 8th and the 10th are those of other columns.
    write("tape7", std::string(kRadianceHeading) + "\n" +
                       row(kRadianceWidths, {"1000.00", "0.5", "1E-6", "", "3E-6", "4E-9", "5E-9", "6E-7", "7E-9",
                                             "1.5E-5", "8E-7", "9E-7", "0.693"}) +
                       "\n" + kEnd);
    const Result result = ks({"modtran", "tape7", "tape7"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("would misread it (line 2 has 12 numbers below 13 names"));
    const Csv csv(result.out);
    EXPECT_EQ(csv.number(0, kReflected), 6e-7);
    EXPECT_EQ(csv.number(0, kTotal), 1.5e-5);
    EXPECT_EQ(csv.at(0, "THRML_SCT (W cm-2 sr-1 / cm-1)"), "");
}

TEST_F(Tape7, BlankColumnsAreSeenAlsoWhereThirteenNumbersAreLeft) {
    const std::string heading = std::string(kRadianceHeading) + " DIR_EM";
    std::vector<int> widths = kRadianceWidths;
    widths.push_back(7);
    write("tape7", heading + "\n" +
                       row(widths, {"1000.00", "0.5", "1E-6", "", "3E-6", "4E-9", "5E-9", "6E-7", "7E-9", "1.5E-5",
                                    "8E-7", "9E-7", "0.693", "1.0"}) +
                       "\n" + kEnd);
    const Result result = ks({"modtran", "tape7", "tape7"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("line 2 has 13 numbers below 14 names"));
    EXPECT_EQ(Csv(result.out).number(0, kTotal), 1.5e-5);
}

TEST_F(Tape7, TwoHeadingLinesMakeOneName) {
    write("tape7", std::string(kPreamble) +
                       "    FREQ COMBIN    H2O    H2O\n    CM-1  TRANS  TRANS   CONT\n 2050.00 0.9100 0.9726 0.9775\n" +
                       kEnd);
    const Result result = ks({"modtran", "tape7", "tape7"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("line 4 is a second heading"));
    const Csv csv(result.out);
    ASSERT_EQ(csv.rows(), 1U);
    EXPECT_EQ(csv.number(0, "COMBIN TRANS"), 0.91);
    EXPECT_EQ(csv.number(0, "H2O TRANS"), 0.9726);
    EXPECT_EQ(csv.number(0, "H2O CONT"), 0.9775);
}

TEST_F(Tape7, LinesMayBeLongerThanTwoHundredCharacters) {
    std::string heading = "    FREQ";
    std::string first = " 2050.00";
    std::string second = " 2051.00";
    for (int i = 1; i <= 40; ++i) {
        char name[16];
        std::snprintf(name, sizeof name, "   GAS%d", 10 + i);
        heading += std::string(name).substr(0, 8);
        char number[16];
        std::snprintf(number, sizeof number, "  0.%04d", i);
        first += number;
        std::snprintf(number, sizeof number, "  0.%04d", 100 + i);
        second += number;
    }
    ASSERT_GT(first.size(), 200U);
    write("tape7", heading + "\n" + first + "\n" + second + "\n" + kEnd);
    const Result result = ks({"modtran", "tape7", "tape7"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_THAT(result.err, HasSubstr("characters, more than 198"));
    const Csv csv(result.out);
    ASSERT_EQ(csv.rows(), 2U);
    for (int i = 1; i <= 40; ++i) {
        EXPECT_NEAR(csv.number(0, "GAS" + std::to_string(10 + i)), i / 1e4, 1e-12);
        EXPECT_NEAR(csv.number(1, "GAS" + std::to_string(10 + i)), (100 + i) / 1e4, 1e-12);
    }
}

TEST_F(Tape7, CompleteRowsThatAreNotAlignedAreCounted) {
    const std::string numbers = "1000.00 0.5 1E-6 2E-8 3E-6 4E-9 5E-9 6E-7 7E-9 1.5E-5 8E-7 9E-7 0.693\n";
    write("tape7", std::string(kRadianceHeading) + "\n " + numbers + kEnd);
    const Result result = ks({"modtran", "tape7", "tape7"});
    ASSERT_EQ(result.status, 0) << result.err;
    const Csv csv(result.out);
    EXPECT_EQ(csv.names().size(), 4U) << "wavenumber, wavelength and the two that counting gives";
    EXPECT_EQ(csv.number(0, kReflected), 6e-7);
    EXPECT_EQ(csv.number(0, kTotal), 1.5e-5);
    EXPECT_EQ(csv.at(0, "wavenumber_cm-1"), "1000");
}

TEST_F(Tape7, WhatCannotBeReadForCertainIsRefused) {
    struct Damaged {
        std::string text;
        const char* told;
    };
    const std::string heading = std::string(kRadianceHeading) + "\n";
    const std::string good = radianceRow("1000.00", "6E-7", "1.5E-5") + "\n";
    const std::vector<Damaged> cases = {
        {heading + " 1000.00 0.5 1E-6 2E-8 3E-6 4E-9 6E-7 7E-9 1.5E-5 8E-7 9E-7 0.693\n" + kEnd,
         "12 numbers below 13 names"},
        {"    FREQ   TRANS     SOL TR  SOLAR\n 2050.00  0.0000 1.14E-13 9.63E-07          1.595E+01\n" +
             std::string(kEnd),
         "'1.14E-13' does not end below the end of a name"},
        {heading + radianceRow("1000.00", "*********", "1.5E-5") + "\n" + kEnd, "'*********' is not a number"},
        {heading + radianceRow("1000.00", "nan", "1.5E-5") + "\n" + kEnd, "'nan' is not a number"},
        {heading + radianceRow("", "6E-7", "1.5E-5") + "\n" + kEnd, "has no wavenumber"},
        {"    FREQ COMBIN    H2O\n    CM-1  TRANS  TRANS   CONT\n 2050.00 0.9100 0.9726\n" + std::string(kEnd),
         "have 3 and 4 names"},
        {"    FREQ COMBIN    H2O\n    CM-1 TRANS     TRANS\n 2050.00 0.9100   0.9726\n" + std::string(kEnd),
         "not above each other"},
        {heading + good + "\n" + good + kEnd, "line 3 is blank, but the table goes on in line 4"},
        {heading + kEnd, "no rows follow the heading in line 1"},
        {"T F 1\n1000.0 1 2 3\n", "no line that begins with FREQ"}};
    for (const Damaged& damaged : cases) {
        SCOPED_TRACE(damaged.text);
        write("tape7", damaged.text);
        const Result result = ks({"modtran", "tape7", "tape7", "-o", "out.csv", "--plot", "out.svg"});
        EXPECT_EQ(result.status, 1);
        EXPECT_THAT(result.err, HasSubstr(damaged.told));
        EXPECT_EQ(files(), std::vector<std::string>{"tape7"});
    }
}

TEST_F(Tape7, ATableThatIsCutOffIsWarnedOf) {
    write("tape7", std::string(kRadianceHeading) + "\n" + radianceRow("1000.00", "6E-7", "1.5E-5") + "\n");
    const Result result = ks({"modtran", "tape7", "tape7"});
    EXPECT_EQ(result.status, 0);
    EXPECT_THAT(result.err, HasSubstr("may be cut off"));
    EXPECT_EQ(Csv(result.out).rows(), 1U);
}

TEST_F(Tape7, SeveralRunsAreSeveralTables) {
    const std::string one =
        std::string(kPreamble) + kRadianceHeading + "\n" + radianceRow("1000.00", "6E-7", "1.5E-5") + "\n" + kEnd;
    const std::string two =
        std::string(kPreamble) + kRadianceHeading + "\n" + radianceRow("1500.00", "6E-7", "3.5E-5") + "\n" + kEnd;
    write("tape7", one + two);
    const Result first = ks({"modtran", "tape7", "tape7"});
    EXPECT_THAT(first.err, HasSubstr("holds 2 tables; this is number 1"));
    EXPECT_EQ(Csv(first.out).number(0, kTotal), 1.5e-5);
    EXPECT_EQ(Csv(ks({"modtran", "tape7", "tape7", "--table", "2"}).out).number(0, kTotal), 3.5e-5);
    EXPECT_THAT(ks({"modtran", "tape7", "tape7", "--table", "3"}).err, HasSubstr("there is no number 3"));
}

TEST_F(Tape7, APlotHasAxesWithUnits) {
    write("tape7", std::string(kRadianceHeading) + "\n" + radianceRow("1000.00", "6E-7", "1.5E-5") + "\n" +
                       radianceRow("2000.00", "7E-7", "2.5E-5") + "\n" + kEnd);
    const Result result = ks({"modtran", "tape7", "tape7", "--plot", "out.svg"});
    ASSERT_EQ(result.status, 0) << result.err;
    EXPECT_EQ(result.out, "");
    EXPECT_GT(read("out.svg").size(), 2000U);
    ASSERT_EQ(ks({"modtran", "tape7", "tape7", "--plot", "out.png", "--per-nm"}).status, 0);
    EXPECT_EQ(readPicture(path("out.png")).width, 1600);
    EXPECT_EQ(ks({"modtran", "tape7", "tape7", "--plot", "out.svg"}).status, 1) << "it exists";
    EXPECT_THAT(ks({"modtran", "tape7", "tape7", "--plot", "out.gif"}).err, HasSubstr(".svg or .png"));
    EXPECT_THAT(ks({"modtran", "tape7", "tape7", "--plot", "o.svg", "--columns", "DEPTH"}).err,
                HasSubstr("nothing to draw"));
    EXPECT_THAT(ks({"modtran", "tape7", "tape7", "--columns", "DEEP"}).err, HasSubstr("it has TOT_TRANS, PTH_THRML"));
    EXPECT_THAT(ks({"modtran", "tape7", "none"}).err, HasSubstr("no such file"));
    EXPECT_EQ(files(), (std::vector<std::string>{"out.png", "out.svg", "tape7"}));
}

// ---- files of the code itself ----

/// The radiance of a black body, W cm-2 sr-1 / cm-1; constants of CODATA 2018.
double blackBody(double wavenumber, double kelvin) {
    constexpr double h = 6.62607015e-34;
    constexpr double c = 2.99792458e10;  // cm/s
    constexpr double k = 1.380649e-23;
    return 2 * h * c * c * wavenumber * wavenumber * wavenumber / std::expm1(h * c * wavenumber / (k * kelvin));
}

class RealTape7 : public Tape7 {
protected:
    Csv table(const std::string& name) const {
        const Result result = ks({"modtran", "tape7", sampleData("modtran-tape7/" + name)});
        EXPECT_EQ(result.status, 0) << result.err;
        return Csv(result.out.empty() ? "none" : result.out);
    }
    bool hasData() const { return !sampleData("modtran-tape7/tape7-01").empty(); }
};
constexpr const char* kNoData = "KSLIB_DATA does not name a folder with modtran-tape7";

TEST_F(RealTape7, RadiancesAgreeWithTheTemperatureBesideThem) {
    if (!hasData()) GTEST_SKIP() << kNoData;
    const std::map<std::string, std::size_t> files = {
        {"tape7-02", 51}, {"tape7-02b", 51}, {"tape7-03", 51}, {"tape7-05", 51}, {"tape7.LWIRSun", 418}};
    for (const auto& [name, rows] : files) {
        SCOPED_TRACE(name);
        const Csv csv = table(name);
        ASSERT_EQ(csv.rows(), rows);
        for (std::size_t r = 0; r < rows; ++r) {
            const double wavenumber = csv.number(r, "wavenumber_cm-1");
            const double total = csv.number(r, kTotal);
            // Three decimals of the temperature are 4e-5 of the radiance at 2100 cm-1 and 210 K, and a second radiation
            // constant of 1.4388 instead of 1.438777 cm K, as older programs have it, is 2.3e-4.
            ASSERT_NEAR(total, blackBody(wavenumber, csv.number(r, "BBODY_T[K]")), 3.5e-4 * total) << r;
            double sum = 0;
            for (const char* part : {"PTH_THRML", "SURF_EMIS", "SOL_SCAT", "GRND_RFLT"}) {
                const double value = csv.number(r, std::string(part) + " (W cm-2 sr-1 / cm-1)");
                if (!std::isnan(value)) sum += value;
            }
            ASSERT_NEAR(sum, total, 1e-4 * total) << r;
        }
    }
}

TEST_F(RealTape7, TransmittancesAgreeWithTheirLogarithm) {
    if (!hasData()) GTEST_SKIP() << kNoData;
    const std::map<std::string, std::size_t> files = {{"tape7-01", 51}, {"tape7VISNIR5kmTrop23Vis", 1501}};
    for (const auto& [name, rows] : files) {
        SCOPED_TRACE(name);
        const Csv csv = table(name);
        ASSERT_EQ(csv.rows(), rows);
        EXPECT_EQ(csv.names().size(), 37U);
        for (std::size_t r = 0; r < rows; ++r) {
            const double all = csv.number(r, "COMBIN TRANS");
            // Four and three decimals.
            ASSERT_NEAR(csv.number(r, "-LOG COMBIN"), -std::log(all), 0.0006 + 0.00006 / all) << r;
            ASSERT_LE(all, csv.number(r, "MOLEC SCAT") + 1e-4) << r;
        }
    }
}

TEST_F(RealTape7, ATableWithoutAlignedNamesIsRefused) {
    if (!hasData()) GTEST_SKIP() << kNoData;
    const Result result = ks({"modtran", "tape7", sampleData("modtran-tape7/tape7-04"), "-o", "out.csv"});
    EXPECT_EQ(result.status, 1);
    EXPECT_THAT(result.err, HasSubstr("cannot be given to columns for certain"));
    EXPECT_TRUE(files().empty());
    EXPECT_THAT(ks({"modtran", "tape7", sampleData("modtran-tape7/tape5.LWIR")}).err, HasSubstr("no tape7 file"));
}

}  // namespace
}  // namespace clitest
