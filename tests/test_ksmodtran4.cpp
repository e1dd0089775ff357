// Input cards of the radiative-transfer code, character by character. Each card has one line written out whole; every
// field is then changed alone, and the line must change in that field's columns alone.
#include <kslib/ksmodtran4.h>

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "fixture.hpp"
#include "locale.hpp"

using namespace kit;

namespace {

constexpr float kNaN = std::numeric_limits<float>::quiet_NaN();
constexpr float kInfinite = std::numeric_limits<float>::infinity();
constexpr float kLargest = std::numeric_limits<float>::max();
constexpr std::size_t kColumns = 80;

/// What a card function is given, and more behind it that it must leave alone.
struct Room {
    static constexpr char kGuard = '\x7f';
    std::vector<char> text = std::vector<char>(kColumns + 1 + 64, kGuard);

    bool guarded() const {
        return std::all_of(text.begin() + kColumns + 1, text.end(), [](char c) { return c == kGuard; });
    }
    /// All 80 columns; the end of the text is shown as '$'.
    std::string columns() const {
        std::string all(text.begin(), text.begin() + kColumns);
        std::replace(all.begin(), all.end(), '\0', '$');
        return all;
    }
};

/// A text from column `first` on, blanks elsewhere.
std::string padded(const std::string& text) { return text + std::string(kColumns - text.size(), ' '); }

std::string withColumns(std::string line, std::size_t first, const std::string& text) {
    return line.replace(first - 1, text.size(), text);
}

/// One kind of card.
template <class Card>
struct CardTest : LibraryTest {
    int (*eval)(const Card*, char*) = nullptr;
    Card good{};

    std::string columnsOf(const Card& card) const {
        host().forget();
        Room room;
        EXPECT_EQ(eval(&card, room.text.data()), 0);
        EXPECT_EQ(host().reports, Reports{});
        EXPECT_EQ(room.text[kColumns], '\0');
        EXPECT_TRUE(room.guarded());
        return room.columns();
    }
    void expectRefused(const Card& card, const Report& report) const {
        host().forget();
        Room room;
        EXPECT_EQ(eval(&card, room.text.data()), 1);
        EXPECT_EQ(host().reports, (Reports{report}));
        EXPECT_EQ(room.text[kColumns], '\0');
        EXPECT_TRUE(room.guarded());
    }
    /// Value i of an enumeration writes texts[i] from a column on and nothing else; no other value is known.
    void expectTexts(int Card::*field, std::size_t column, const std::vector<std::string>& texts,
                     const Report& report) {
        Card card = good;
        const std::string line = columnsOf(good);
        for (std::size_t i = 0; i < texts.size(); ++i) {
            card.*field = static_cast<int>(i);
            EXPECT_EQ(columnsOf(card), withColumns(line, column, texts[i]));
        }
        const int unknown[] = {-1, static_cast<int>(texts.size()), std::numeric_limits<int>::max(),
                               std::numeric_limits<int>::min()};
        for (const int value : unknown) {
            card.*field = value;
            expectRefused(card, report);
        }
    }
    /// A number writes exactly a text.
    void expectNumber(float Card::*field, float value, std::size_t column, const std::string& text) {
        Card card = good;
        card.*field = value;
        EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), column, text)) << value;
    }
    void expectRefused(float Card::*field, const std::vector<float>& values, const Report& report) {
        Card card = good;
        for (const float value : values) {
            card.*field = value;
            expectRefused(card, report);
        }
    }
    void expectRefused(int Card::*field, const std::vector<int>& values, const Report& report) {
        Card card = good;
        for (const int value : values) {
            card.*field = value;
            expectRefused(card, report);
        }
    }
    /// Of several bad fields the first one in the card is reported, and nothing is written behind it.
    struct Fault {
        std::function<void(Card&)> commit;
        Report report;
        std::size_t column;  // where the field begins
    };
    void expectOrder(const std::vector<Fault>& faults) const {
        const std::string line = columnsOf(good);
        Card card = good;
        for (auto fault = faults.rbegin(); fault != faults.rend(); ++fault) {
            fault->commit(card);
            host().forget();
            Room room;
            EXPECT_EQ(eval(&card, room.text.data()), 1);
            EXPECT_EQ(host().reports, (Reports{fault->report}));
            std::string written = room.columns();
            std::replace(written.begin(), written.end(), '$', ' ');  // the end of the last number
            EXPECT_EQ(written, padded(line.substr(0, fault->column - 1)));
        }
    }
};

// ---- card 1 ----

struct KSMT4EvalCard1Test : CardTest<KSMT4Card1> {
    static constexpr const char* kLabel = "KSMT4EvalCard1";
    KSMT4EvalCard1Test() {
        eval = KSMT4EvalCard1;
        good = {1, 1, 5, 2, 2, 0, 1, 2, 3, 4, 5, 6, 1, 0, 2, 300.25F, 0, 0.25F};
    }
};

TEST_F(KSMT4EvalCard1Test, WholeLine) {
    EXPECT_EQ(columnsOf(good), "CM  6    2    2    1    1    2    3    4    5    6    2    1   -1 300.2500.25000");
}

TEST_F(KSMT4EvalCard1Test, EveryValue) {
    using Card = KSMT4Card1;
    const std::vector<std::string> models = {"0", "1", "2", "3", "4", "5", "6"};
    expectTexts(&Card::eSPEED, 2, {"S", "M"}, failure("%s: Unrecognized eSPEED value.\n", kLabel));
    expectTexts(&Card::eMODEL, 5, {"1", "2", "3", "4", "5", "6", "7", "0", "8"},
                failure("%s: Unrecognized eMODEL value.\n", kLabel));
    expectTexts(&Card::eITYPE, 10, {"1", "3", "2"}, failure("%s: Unrecognized eITYPE value.\n", kLabel));
    expectTexts(&Card::eIEMSCT, 15, {"0", "1", "2", "3"}, failure("%s: Unrecognized eIEMSCT value.\n", kLabel));
    expectTexts(&Card::eIMULT, 20, {"1", "0"}, failure("%s: Unrecognized eIMULT value.\n", kLabel));
    expectTexts(&Card::eM1, 25, models, failure("%s: Unrecognized eM1 value.\n", kLabel));
    expectTexts(&Card::eM2, 30, models, failure("%s: Unrecognized eM2 value.\n", kLabel));
    expectTexts(&Card::eM3, 35, models, failure("%s: Unrecognized eM3 value.\n", kLabel));
    expectTexts(&Card::eM4, 40, models, failure("%s: Unrecognized eM4 value.\n", kLabel));
    expectTexts(&Card::eM5, 45, models, failure("%s: Unrecognized eM5 value.\n", kLabel));
    expectTexts(&Card::eM6, 50, models, failure("%s: Unrecognized eM6 value.\n", kLabel));
    expectTexts(&Card::MDEF, 55, {"1", "2"}, failure("%s: Unrecognized MDEF value.\n", kLabel));
    expectTexts(&Card::IM, 60, {"1", "0"}, failure("%s: Unrecognized IM value.\n", kLabel));
    expectTexts(&Card::NOPRNT, 64, {" 0", " 1", "-1", "-2"}, failure("%s: Unrecognized NOPRNT value.\n", kLabel));
    expectTexts(&Card::SURREF, 74,
                {"0.25000", "   BRDF", " LAMBER", "     -1", "     -2", "     -3", "     -4", "     -5", "     -6",
                 "     -7", "     -8", "     -9", "    -10", "    -31"},
                failure("%s: Unrecognized SURREF value.\n", kLabel));
}

TEST_F(KSMT4EvalCard1Test, SpeedBelongsToOneBandModel) {
    const Report report = failure("%s: Unrecognized eMODTRN value.\n", kLabel);
    const std::vector<std::string> words = {"T", "C", "L"};
    for (const int speed : {-5, 0, 1, 2, 99}) {
        for (const int code : {0, 2}) {
            KSMT4Card1 card = good;
            card.eMODTRN = code;
            card.eSPEED = speed;
            const std::string start = words[static_cast<std::size_t>(code)] + " ";
            EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 1, start));
        }
        expectRefused(&KSMT4Card1::eMODTRN, {-1, 3, std::numeric_limits<int>::max()}, report);
    }
}

TEST_F(KSMT4EvalCard1Test, Numbers) {
    using Card = KSMT4Card1;
    expectNumber(&Card::fTPTEMP, 0.0F, 66, "   0.000");
    expectNumber(&Card::fTPTEMP, -273.15F, 66, "-273.150");
    expectNumber(&Card::fTPTEMP, 9999.9995F, 66, "9999.999");  // 9999.9995 as a float is 9999.9990234375
    expectNumber(&Card::fTPTEMP, kNaN, 66, "     nan");
    expectNumber(&Card::fTPTEMP, -kInfinite, 66, "    -inf");
    expectNumber(&Card::fSURREFValue, 0.0F, 74, "0.00000");
    expectNumber(&Card::fSURREFValue, 1.0F, 74, "1.00000");
    expectNumber(&Card::fSURREFValue, 0.000004F, 74, "0.00000");
    expectNumber(&Card::fSURREFValue, 0.99999F, 74, "0.99999");
    expectNumber(&Card::fSURREFValue, kInfinite, 74, "   inf$");
}

TEST_F(KSMT4EvalCard1Test, AValueIsCutAtTheLastColumn) {
    using Card = KSMT4Card1;
    expectNumber(&Card::fSURREFValue, -0.5F, 74, "-0.5000");
    expectNumber(&Card::fSURREFValue, 10.25F, 74, "10.2500");
    expectNumber(&Card::fSURREFValue, kLargest, 74, "3402823");
}

TEST_F(KSMT4EvalCard1Test, AWideTemperatureRunsIntoTheSurface) {
    KSMT4Card1 card = good;
    const std::string start = columnsOf(good).substr(0, 65);
    card.fTPTEMP = 123456.0F;
    EXPECT_EQ(columnsOf(card), start + "123456.00.25000");
    card.SURREF = 2;
    EXPECT_EQ(columnsOf(card), start + "123456.0 LAMBER");
    card.fTPTEMP = kLargest;
    card.SURREF = 1;
    EXPECT_EQ(columnsOf(card), start + "34028234 63BRDF");
    card.fTPTEMP = 10000000.0F;  // column 74 is its point and becomes blank, and 78 is behind its end
    card.SURREF = 3;
    EXPECT_EQ(columnsOf(card), start + "10000000 000$-1");
    card.fTPTEMP = 1000000000.0F;
    card.SURREF = 11;
    EXPECT_EQ(columnsOf(card), start + "10000000 0.00-9");
}

TEST_F(KSMT4EvalCard1Test, ReportsTheFirstBadField) {
    using Card = KSMT4Card1;
    expectOrder({{[](Card& c) { c.eMODTRN = 3; }, failure("%s: Unrecognized eMODTRN value.\n", kLabel), 1},
                 {[](Card& c) { c.eSPEED = 2; }, failure("%s: Unrecognized eSPEED value.\n", kLabel), 2},
                 {[](Card& c) { c.eMODEL = 9; }, failure("%s: Unrecognized eMODEL value.\n", kLabel), 5},
                 {[](Card& c) { c.eITYPE = 3; }, failure("%s: Unrecognized eITYPE value.\n", kLabel), 10},
                 {[](Card& c) { c.eIEMSCT = 4; }, failure("%s: Unrecognized eIEMSCT value.\n", kLabel), 15},
                 {[](Card& c) { c.eIMULT = 2; }, failure("%s: Unrecognized eIMULT value.\n", kLabel), 20},
                 {[](Card& c) { c.eM1 = 7; }, failure("%s: Unrecognized eM1 value.\n", kLabel), 25},
                 {[](Card& c) { c.eM2 = 7; }, failure("%s: Unrecognized eM2 value.\n", kLabel), 30},
                 {[](Card& c) { c.eM3 = 7; }, failure("%s: Unrecognized eM3 value.\n", kLabel), 35},
                 {[](Card& c) { c.eM4 = 7; }, failure("%s: Unrecognized eM4 value.\n", kLabel), 40},
                 {[](Card& c) { c.eM5 = 7; }, failure("%s: Unrecognized eM5 value.\n", kLabel), 45},
                 {[](Card& c) { c.eM6 = 7; }, failure("%s: Unrecognized eM6 value.\n", kLabel), 50},
                 {[](Card& c) { c.MDEF = 2; }, failure("%s: Unrecognized MDEF value.\n", kLabel), 55},
                 {[](Card& c) { c.IM = 2; }, failure("%s: Unrecognized IM value.\n", kLabel), 60},
                 {[](Card& c) { c.NOPRNT = 4; }, failure("%s: Unrecognized NOPRNT value.\n", kLabel), 64},
                 {[](Card& c) { c.SURREF = 14; }, failure("%s: Unrecognized SURREF value.\n", kLabel), 74}});
}

// ---- card 1A ----

struct KSMT4EvalCard1ATest : CardTest<KSMT4Card1A> {
    static constexpr const char* kLabel = "KSMT4EvalCard1A";
    KSMT4EvalCard1ATest() {
        eval = KSMT4EvalCard1A;
        good = {0, 1, 3, 1, 5, 360.5F, 1, 1.5F, 2, 0.5F, 1, 2, 0, 1, 1367.5F};
    }
};

TEST_F(KSMT4EvalCard1ATest, WholeLine) {
    EXPECT_EQ(columnsOf(good), padded("TF 16T   5 360.50000g    1.500a      0.5 T F T F    1367.500$"));
}

TEST_F(KSMT4EvalCard1ATest, EveryValue) {
    using Card = KSMT4Card1A;
    expectTexts(&Card::eDISAZM, 2, {"T", "F"}, failure("%s: Unrecognized eDISAZM value.\n", kLabel));
    expectTexts(&Card::eNSTR, 4, {" 2", " 4", " 8", "16"}, failure("%s: Unrecognized eNSTR value.\n", kLabel));
    expectTexts(&Card::eLSUN, 6, {"F    ", "T   5"}, failure("%s: Unrecognized eLSUN value.\n", kLabel));
    expectTexts(&Card::eH2OSTRINT, 21, {"         0", "g    1.500", "a      1.5", "     1.500"},
                failure("%s: Unrecognized eH2OSTRINT value.\n", kLabel));
    expectTexts(&Card::eO3STRINT, 31, {"         0", "g    0.500", "a      0.5", "     0.500"},
                failure("%s: Unrecognized eO3STRINT value.\n", kLabel));
    expectTexts(&Card::eLSUNFL, 42, {" ", "T", "F"}, failure("%s: Unrecognized eLSUNFL value.\n", kLabel));
    expectTexts(&Card::eLBMNAM, 44, {" ", "T", "F"}, failure("%s: Unrecognized eLBMNAM value.\n", kLabel));
    expectTexts(&Card::eLFLTNM, 46, {"T", "F"}, failure("%s: Unrecognized eLFLTNM value.\n", kLabel));
    expectTexts(&Card::eH2OAER, 48, {"T", "F"}, failure("%s: Unrecognized eH2OAER value.\n", kLabel));
    expectRefused(&Card::eDIS, {-1, 2}, failure("%s: Unrecognized eDIS value.\n", kLabel));
}

TEST_F(KSMT4EvalCard1ATest, StreamsBelongToDiscreteOrdinates) {
    KSMT4Card1A card = good;
    card.eDIS = 1;
    for (const int other : {-1, 0, 1, 2, 3, 4, 99}) {
        card.eDISAZM = other;
        card.eNSTR = other;
        EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 1, "F    "));
    }
}

TEST_F(KSMT4EvalCard1ATest, TheResolutionBelongsToTheSunsSpectrum) {
    KSMT4Card1A card = good;
    const std::vector<std::pair<int, std::string>> texts = {{0, "   0"}, {-999, "-999"}, {20, "  20"}, {9999, "9999"}};
    for (const auto& [value, text] : texts) {
        card.nISUN = value;
        card.eLSUN = 1;
        EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 7, text));
        card.eLSUN = 0;
        EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 6, "F    "));
    }
    card.eLSUN = 1;
    card.nISUN = std::numeric_limits<int>::min();  // its later digits are overwritten
    EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 7, "-214 360.50000"));
}

TEST_F(KSMT4EvalCard1ATest, Numbers) {
    using Card = KSMT4Card1A;
    expectNumber(&Card::fCO2MX, 0.0F, 11, "   0.00000");
    expectNumber(&Card::fCO2MX, -1.25F, 11, "  -1.25000");
    expectNumber(&Card::fCO2MX, kNaN, 11, "       nan");
    expectNumber(&Card::fH2OSTR, 0.0F, 21, "g    0.000");
    expectNumber(&Card::fH2OSTR, -12.0625F, 21, "g  -12.062");
    expectNumber(&Card::fO3STR, 0.25F, 31, "a      0.2");
    expectNumber(&Card::fO3STR, 0.75F, 31, "a      0.8");
    expectNumber(&Card::fO3STR, kInfinite, 31, "a      inf");
    expectNumber(&Card::fSOLCON, 0.0F, 51, "     0.000$");
    expectNumber(&Card::fSOLCON, -999.0F, 51, "  -999.000$");
    expectNumber(&Card::fSOLCON, 1e9F, 51, "1000000000.000$");
    expectNumber(&Card::fSOLCON, kLargest, 51, "340282346638528859811704183484");
}

TEST_F(KSMT4EvalCard1ATest, WideNumbersRunOnAndAreOverwritten) {
    KSMT4Card1A card = good;
    card.fCO2MX = 1e10F;
    EXPECT_EQ(columnsOf(card), columnsOf(good).substr(0, 10) + "1000000000" + columnsOf(good).substr(20));
    card.eH2OSTRINT = 0;  // only column 30 is written: the number's last digits and its end stay
    EXPECT_EQ(columnsOf(card), columnsOf(good).substr(0, 10) + "1000000000 .00000$ 0" + columnsOf(good).substr(30));
    card.eO3STRINT = 0;
    card.fCO2MX = 1e20F;  // 100000002004087734272.00000 ends in column 37; behind column 30 nothing becomes blank
    EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 11, "1000000020 4087734202.00000$ 0"));
    card = good;
    card.fO3STR = 1e12F;  // 999999995904.0 up to column 45
    EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 31, "a999999995 T4F0T F"));
}

TEST_F(KSMT4EvalCard1ATest, ReportsTheFirstBadField) {
    using Card = KSMT4Card1A;
    expectOrder({{[](Card& c) { c.eDIS = 2; }, failure("%s: Unrecognized eDIS value.\n", kLabel), 1},
                 {[](Card& c) { c.eDISAZM = 2; }, failure("%s: Unrecognized eDISAZM value.\n", kLabel), 2},
                 {[](Card& c) { c.eNSTR = 4; }, failure("%s: Unrecognized eNSTR value.\n", kLabel), 4},
                 {[](Card& c) { c.eLSUN = 2; }, failure("%s: Unrecognized eLSUN value.\n", kLabel), 6},
                 {[](Card& c) { c.eH2OSTRINT = 4; }, failure("%s: Unrecognized eH2OSTRINT value.\n", kLabel), 21},
                 {[](Card& c) { c.eO3STRINT = 4; }, failure("%s: Unrecognized eO3STRINT value.\n", kLabel), 31},
                 {[](Card& c) { c.eLSUNFL = 3; }, failure("%s: Unrecognized eLSUNFL value.\n", kLabel), 42},
                 {[](Card& c) { c.eLBMNAM = 3; }, failure("%s: Unrecognized eLBMNAM value.\n", kLabel), 44},
                 {[](Card& c) { c.eLFLTNM = 2; }, failure("%s: Unrecognized eLFLTNM value.\n", kLabel), 46},
                 {[](Card& c) { c.eH2OAER = 2; }, failure("%s: Unrecognized eH2OAER value.\n", kLabel), 48}});
}

// ---- card 2 ----

struct KSMT4EvalCard2Test : CardTest<KSMT4Card2> {
    static constexpr const char* kLabel = "KSMT4EvalCard2";
    KSMT4EvalCard2Test() {
        eval = KSMT4EvalCard2;
        good = {0, 3, 0, 1, 1, 4, 7, 12, 0, 23.5F, 4.25F, 3.5F, 0.125F, -0.1F};
    }
};

TEST_F(KSMT4EvalCard2Test, WholeLine) {
    EXPECT_EQ(columnsOf(good), "A+  2N  1USS 5    7   18    1  23.50000   4.25000   3.50000   0.12500  -0.10000$");
}

TEST_F(KSMT4EvalCard2Test, EveryValue) {
    using Card = KSMT4Card2;
    expectTexts(&Card::eAPLUS, 1, {"A+", "  "}, failure("%s: Unrecognized eAPLUS value.\n", kLabel));
    expectTexts(&Card::eIHAZE, 4, {"-1", " 0", " 1", " 2", " 3", " 4", " 5", " 6", " 7", " 8", " 9", "10"},
                failure("%s: Unrecognized eIHAZE value.\n", kLabel));
    expectTexts(&Card::eCNOVAM, 6, {"N", " "}, failure("%s: Unrecognized eCNOVAM value.\n", kLabel));
    expectTexts(&Card::eISEASN, 9, {"0", "1", "2"}, failure("%s: Unrecognized eISEASN value.\n", kLabel));
    expectTexts(&Card::eARUSS, 10, {"   ", "USS"}, failure("%s: Unrecognized eARUSS value.\n", kLabel));
    expectTexts(&Card::eIVULCN, 14, {"1", "2", "3", "4", "5", "6", "7", "8"},
                failure("%s: Unrecognized eIVULCN value.\n", kLabel));
    expectTexts(&Card::eICLD, 23, {" 0", " 1", " 2", " 3", " 4", " 5", " 6", " 7", " 8", " 9", "10", "11", "18", "19"},
                failure("%s: Unrecognized eICLD value.\n", kLabel));
    expectTexts(&Card::eIVSA, 29, {"1", "0"}, failure("%s: Unrecognized eIVSA value.\n", kLabel));
}

TEST_F(KSMT4EvalCard2Test, TheCoastalInfluenceIsOneToTen) {
    KSMT4Card2 card = good;
    const std::vector<std::string> texts = {"    1", "    2", "    3", "    4", "    5",
                                            "    6", "    7", "    8", "    9", "   10"};
    for (int value = 1; value <= 10; ++value) {
        card.nICSTL = value;
        EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 15, texts[static_cast<std::size_t>(value - 1)]));
    }
    expectRefused(&KSMT4Card2::nICSTL, {0, 11, -1, std::numeric_limits<int>::min()},
                  failure("%s: Unrecognized nICSTL value.\n", kLabel));
}

TEST_F(KSMT4EvalCard2Test, Numbers) {
    using Card = KSMT4Card2;
    const std::vector<float> negative = {-0.001F, -1.0F, -kInfinite, kNaN, -std::numeric_limits<float>::denorm_min()};
    expectRefused(&Card::fVIS, negative, failure("%s: Unrecognized fVIS value.\n", kLabel));
    expectRefused(&Card::fWSS, negative, failure("%s: Unrecognized fWSS value.\n", kLabel));
    expectRefused(&Card::fWHH, negative, failure("%s: Unrecognized fWHH value.\n", kLabel));
    expectRefused(&Card::fRAINRT, negative, failure("%s: Unrecognized fRAINRT value.\n", kLabel));
    expectNumber(&Card::fVIS, 0.0F, 30, "   0.00000");
    expectNumber(&Card::fVIS, -0.0F, 30, "  -0.00000");
    expectNumber(&Card::fVIS, kInfinite, 30, "       inf");
    expectNumber(&Card::fVIS, 9999.5F, 30, "9999.50000");
    expectNumber(&Card::fWSS, 0.0F, 40, "   0.00000");
    expectNumber(&Card::fWSS, 999.5F, 40, " 999.50000");
    expectNumber(&Card::fWHH, 9999.5F, 50, "9999.50000");
    expectNumber(&Card::fRAINRT, 9999.5F, 60, "9999.50000");
}

TEST_F(KSMT4EvalCard2Test, TheWindLosesItsThousands) {
    using Card = KSMT4Card2;
    expectNumber(&Card::fWSS, 1234.5F, 40, " 234.50000");
    KSMT4Card2 card = good;
    card.fWSS = 1e6F;  // 1000000.00000 ends in column 52, inside of the next field
    card.fWHH = 9999.5F;
    EXPECT_EQ(columnsOf(card), columnsOf(good).substr(0, 39) + " 000000.009999.50000" + columnsOf(good).substr(59));
}

TEST_F(KSMT4EvalCard2Test, TheWindsEndStaysUntilTheNextFieldIsWritten) {
    KSMT4Card2 card = good;
    card.fWHH = -1.0F;
    Room room;
    EXPECT_EQ(eval(&card, room.text.data()), 1);
    EXPECT_EQ(room.columns(), padded(columnsOf(good).substr(0, 49) + "$"));
}

TEST_F(KSMT4EvalCard2Test, WideNumbersRunOnAndAreOverwritten) {
    KSMT4Card2 card = good;
    card.fVIS = 1e10F;
    card.fWSS = 1e10F;
    card.fWHH = 1e10F;
    card.fRAINRT = 1e10F;
    EXPECT_EQ(columnsOf(card), columnsOf(good).substr(0, 29) + "1000000000 0000000001000000000" + "1000000000" +
                                   columnsOf(good).substr(69));
    card.fGNDALT = -1e10F;
    EXPECT_EQ(columnsOf(card).substr(69), "-1000000000");
}

TEST_F(KSMT4EvalCard2Test, TheGroundIsAtMostSixKilometresHigh) {
    using Card = KSMT4Card2;
    expectNumber(&Card::fGNDALT, 6.0F, 70, "   6.00000$");
    expectNumber(&Card::fGNDALT, -0.1F, 70, "  -0.10000$");
    expectNumber(&Card::fGNDALT, -1000.0F, 70, "-1000.00000");
    expectNumber(&Card::fGNDALT, -kInfinite, 70, "      -inf$");
    expectNumber(&Card::fGNDALT, kNaN, 70, "       nan$");
    expectRefused(&Card::fGNDALT, {std::nextafter(6.0F, 7.0F), 6.5F, kInfinite},
                  failure("%s: Unrecognized fGNDALT value.\n", kLabel));
}

TEST_F(KSMT4EvalCard2Test, ReportsTheFirstBadField) {
    using Card = KSMT4Card2;
    expectOrder({{[](Card& c) { c.eAPLUS = 2; }, failure("%s: Unrecognized eAPLUS value.\n", kLabel), 1},
                 {[](Card& c) { c.eIHAZE = 12; }, failure("%s: Unrecognized eIHAZE value.\n", kLabel), 4},
                 {[](Card& c) { c.eCNOVAM = 2; }, failure("%s: Unrecognized eCNOVAM value.\n", kLabel), 6},
                 {[](Card& c) { c.eISEASN = 3; }, failure("%s: Unrecognized eISEASN value.\n", kLabel), 9},
                 {[](Card& c) { c.eARUSS = 2; }, failure("%s: Unrecognized eARUSS value.\n", kLabel), 10},
                 {[](Card& c) { c.eIVULCN = 8; }, failure("%s: Unrecognized eIVULCN value.\n", kLabel), 14},
                 {[](Card& c) { c.nICSTL = 0; }, failure("%s: Unrecognized nICSTL value.\n", kLabel), 15},
                 {[](Card& c) { c.eICLD = 14; }, failure("%s: Unrecognized eICLD value.\n", kLabel), 23},
                 {[](Card& c) { c.eIVSA = 2; }, failure("%s: Unrecognized eIVSA value.\n", kLabel), 29},
                 {[](Card& c) { c.fVIS = -1.0F; }, failure("%s: Unrecognized fVIS value.\n", kLabel), 30},
                 {[](Card& c) { c.fWSS = -1.0F; }, failure("%s: Unrecognized fWSS value.\n", kLabel), 40},
                 {[](Card& c) { c.fWHH = -1.0F; }, failure("%s: Unrecognized fWHH value.\n", kLabel), 50},
                 {[](Card& c) { c.fRAINRT = -1.0F; }, failure("%s: Unrecognized fRAINRT value.\n", kLabel), 60},
                 {[](Card& c) { c.fGNDALT = 7.0F; }, failure("%s: Unrecognized fGNDALT value.\n", kLabel), 70}});
}

// ---- card 3 ----

struct KSMT4EvalCard3Test : CardTest<KSMT4Card3> {
    static constexpr const char* kLabel = "KSMT4EvalCard3";
    KSMT4EvalCard3Test() {
        eval = KSMT4EvalCard3;
        good = {0, 100.0F, 0, 0.5F, 0, 180.0F, 0, 12.25F, 0, 0.001F, 0, 6371.23F, 1, 0, 45.5F};
    }
};

TEST_F(KSMT4EvalCard3Test, WholeLine) {
    EXPECT_EQ(columnsOf(good), "   100.000     0.500   180.000    12.250     0.001  6371.230    1         45.500");
}

TEST_F(KSMT4EvalCard3Test, EveryValue) {
    expectTexts(&KSMT4Card3::eLENN, 65, {"0", "1"}, failure("%s: Unrecognized eLENN value.\n", kLabel));
}

TEST_F(KSMT4EvalCard3Test, Numbers) {
    using Card = KSMT4Card3;
    for (const float value : {-1.0F, kNaN, kInfinite}) {
        const std::string text = std::isnan(value) ? "       nan" : value < 0 ? "    -1.000" : "       inf";
        expectNumber(&Card::fH1, value, 1, text);
        expectNumber(&Card::fH2, value, 11, text);
    }
    expectNumber(&Card::fANGLE, 0.0F, 21, "     0.000");
    expectNumber(&Card::fANGLE, 180.0F, 21, "   180.000");
    expectNumber(&Card::fRANGE, 0.0F, 31, "     0.000");
    expectNumber(&Card::fRANGE, kInfinite, 31, "       inf");
    expectNumber(&Card::fBETA, 180.0F, 41, "   180.000");
    expectNumber(&Card::fBETA, 0.0F, 41, "     0.000");
    expectNumber(&Card::fRO, 0.0F, 51, "     0.000");
    expectNumber(&Card::fRO, 999999.5F, 51, "999999.500");
    expectNumber(&Card::fPHI, 0.0F, 71, "     0.000");
    expectNumber(&Card::fPHI, 180.0F, 71, "   180.000");
}

TEST_F(KSMT4EvalCard3Test, Ranges) {
    using Card = KSMT4Card3;
    const float below = -std::numeric_limits<float>::denorm_min();
    const std::vector<float> noAngles = {below, -1.0F, std::nextafter(180.0F, 200.0F), 180.5F, kInfinite, kNaN};
    const std::vector<float> noLengths = {below, -1.0F, -kInfinite, kNaN};
    expectRefused(&Card::fANGLE, noAngles, failure("%s: Unrecognized fANGLE value.\n", kLabel));
    expectRefused(&Card::fRANGE, noLengths, failure("%s: Unrecognized fRANGE value.\n", kLabel));
    expectRefused(&Card::fBETA, noAngles, failure("%s: Unrecognized fBETA value.\n", kLabel));
    expectRefused(&Card::fRO, noLengths, failure("%s: Unrecognized fRO value.\n", kLabel));
    expectRefused(&Card::fPHI, noAngles, failure("%s: Unrecognized fPHI value.\n", kLabel));
}

TEST_F(KSMT4EvalCard3Test, AnOmittedFieldIsBlankAndUnchecked) {
    using Card = KSMT4Card3;
    struct Field {
        int Card::*omit;
        float Card::*value;
        std::size_t column;
    };
    const Field fields[] = {{&Card::bOmitH1, &Card::fH1, 1},        {&Card::bOmitH2, &Card::fH2, 11},
                            {&Card::bOmitANGLE, &Card::fANGLE, 21}, {&Card::bOmitRANGE, &Card::fRANGE, 31},
                            {&Card::bOmitBETA, &Card::fBETA, 41},   {&Card::bOmitRO, &Card::fRO, 51},
                            {&Card::bOmitPHI, &Card::fPHI, 71}};
    Card none = good;
    for (const Field& field : fields) {
        for (const int flag : {1, -1, 256}) {
            Card card = good;
            card.*field.omit = flag;
            card.*field.value = -1e30F;
            EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), field.column, "          "));
        }
        none.*field.omit = 1;
    }
    EXPECT_EQ(columnsOf(none), withColumns(std::string(kColumns, ' '), 65, "1"));
}

TEST_F(KSMT4EvalCard3Test, WideNumbersRunOnAndAreCut) {
    KSMT4Card3 card = good;
    card.fRO = kLargest;
    EXPECT_EQ(columnsOf(card), columnsOf(good).substr(0, 50) + "3402823466 852185981    45.500");
    card.bOmitPHI = 1;
    EXPECT_EQ(columnsOf(card), columnsOf(good).substr(0, 50) + "3402823466 8521859811704183484");
    card = good;
    card.fH1 = -1e9F;  // up to column 15, which the second height covers
    EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 1, "-100000000     0.500"));
    card.bOmitH2 = 1;
    EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 1, "-100000000 .000$    "));
}

TEST_F(KSMT4EvalCard3Test, ReportsTheFirstBadField) {
    using Card = KSMT4Card3;
    expectOrder({{[](Card& c) { c.fANGLE = -1.0F; }, failure("%s: Unrecognized fANGLE value.\n", kLabel), 21},
                 {[](Card& c) { c.fRANGE = -1.0F; }, failure("%s: Unrecognized fRANGE value.\n", kLabel), 31},
                 {[](Card& c) { c.fBETA = -1.0F; }, failure("%s: Unrecognized fBETA value.\n", kLabel), 41},
                 {[](Card& c) { c.fRO = -1.0F; }, failure("%s: Unrecognized fRO value.\n", kLabel), 51},
                 {[](Card& c) { c.eLENN = 2; }, failure("%s: Unrecognized eLENN value.\n", kLabel), 65},
                 {[](Card& c) { c.fPHI = -1.0F; }, failure("%s: Unrecognized fPHI value.\n", kLabel), 71}});
}

// ---- card 3A1 ----

struct KSMT4EvalCard3A1Test : CardTest<KSMT4Card3A1> {
    static constexpr const char* kLabel = "KSMT4EvalCard3A1";
    KSMT4EvalCard3A1Test() {
        eval = KSMT4EvalCard3A1;
        good = {3, 2, 172, 1};
    }
};

TEST_F(KSMT4EvalCard3A1Test, WholeLine) { EXPECT_EQ(columnsOf(good), padded("   10    2  172    1")); }

TEST_F(KSMT4EvalCard3A1Test, EveryValue) {
    using Card = KSMT4Card3A1;
    expectTexts(&Card::eIPARM, 4, {" 0", " 1", " 2", "10", "11", "12"},
                failure("%s: Unrecognized eIPARM value.\n", kLabel));
    expectTexts(&Card::eIPH, 10, {"0", "1", "2"}, failure("%s: Unrecognized eIPH value.\n", kLabel));
    expectTexts(&Card::eSOURC, 20, {"0", "1"}, failure("%s: Unrecognized eSOURC value.\n", kLabel));
}

TEST_F(KSMT4EvalCard3A1Test, TheDayIsOneOfAYear) {
    KSMT4Card3A1 card = good;
    const std::vector<std::pair<int, std::string>> texts = {
        {1, "    1 "}, {9, "    9 "}, {10, "   10 "}, {100, "  100 "}, {365, "  365 "}};
    for (const auto& [day, text] : texts) {
        card.nIDAY = day;
        EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 11, text));
    }
    expectRefused(&KSMT4Card3A1::nIDAY, {0, -1, 366, std::numeric_limits<int>::max()},
                  failure("%s: Unrecognized nIDAY value.\n", kLabel));
}

TEST_F(KSMT4EvalCard3A1Test, ReportsTheFirstBadField) {
    using Card = KSMT4Card3A1;
    expectOrder({{[](Card& c) { c.eIPARM = 6; }, failure("%s: Unrecognized eIPARM value.\n", kLabel), 4},
                 {[](Card& c) { c.eIPH = 3; }, failure("%s: Unrecognized eIPH value.\n", kLabel), 10},
                 {[](Card& c) { c.nIDAY = 0; }, failure("%s: Unrecognized nIDAY value.\n", kLabel), 11},
                 {[](Card& c) { c.eSOURC = 2; }, failure("%s: Unrecognized eSOURC value.\n", kLabel), 20}});
}

// ---- card 3A2 ----

struct KSMT4EvalCard3A2Test : CardTest<KSMT4Card3A2> {
    static constexpr const char* kLabel = "KSMT4EvalCard3A2";
    using Card = KSMT4Card3A2;
    struct Field {
        int Card::*omit;
        float Card::*value;
        std::size_t column;
    };
    const std::vector<Field> fields = {{&Card::bOmitPARM1, &Card::fPARM1, 1},    {&Card::bOmitPARM2, &Card::fPARM2, 11},
                                       {&Card::bOmitPARM3, &Card::fPARM3, 21},   {&Card::bOmitPARM4, &Card::fPARM4, 31},
                                       {&Card::bOmitTIME, &Card::fTIME, 41},     {&Card::bOmitPSIPO, &Card::fPSIPO, 51},
                                       {&Card::bOmitANGLEM, &Card::fANGLEM, 61}, {&Card::bOmitG, &Card::fG, 71}};
    KSMT4EvalCard3A2Test() {
        eval = KSMT4EvalCard3A2;
        good = {0, -36.5F, 0, 174.75F, 0, 1.0F, 0, 2.0F, 0, 12.5F, 0, -359.0F, 0, 90.0F, 0, 0.75F};
    }
};

TEST_F(KSMT4EvalCard3A2Test, WholeLine) {
    EXPECT_EQ(columnsOf(good), "   -36.500   174.750     1.000     2.000    12.500  -359.000    90.000     0.750");
}

TEST_F(KSMT4EvalCard3A2Test, Numbers) {
    for (const auto value : {&Card::fPARM1, &Card::fPARM2, &Card::fPARM3, &Card::fPARM4, &Card::fPSIPO}) {
        const auto field =
            std::find_if(fields.begin(), fields.end(), [value](const Field& f) { return f.value == value; });
        expectNumber(value, kNaN, field->column, "       nan");
        expectNumber(value, -99999.5F, field->column, "-99999.500");
    }
    expectNumber(&Card::fTIME, 0.0F, 41, "     0.000");
    expectNumber(&Card::fTIME, 24.0F, 41, "    24.000");
    expectNumber(&Card::fANGLEM, 0.0F, 61, "     0.000");
    expectNumber(&Card::fANGLEM, 180.0F, 61, "   180.000");
    expectNumber(&Card::fG, -1.0F, 71, "    -1.000");
    expectNumber(&Card::fG, 1.0F, 71, "     1.000");
}

TEST_F(KSMT4EvalCard3A2Test, Ranges) {
    const float below = -std::numeric_limits<float>::denorm_min();
    expectRefused(&Card::fTIME, {below, -1.0F, std::nextafter(24.0F, 25.0F), kInfinite, kNaN},
                  failure("%s: Unrecognized fTIME value.\n", kLabel));
    expectRefused(&Card::fANGLEM, {below, -1.0F, std::nextafter(180.0F, 200.0F), kInfinite, kNaN},
                  failure("%s: Unrecognized fANGLEM value.\n", kLabel));
    expectRefused(&Card::fG, {std::nextafter(-1.0F, -2.0F), std::nextafter(1.0F, 2.0F), kInfinite, -kInfinite, kNaN},
                  failure("%s: Unrecognized fG value.\n", kLabel));
}

TEST_F(KSMT4EvalCard3A2Test, AnOmittedFieldIsBlankAndUnchecked) {
    Card none = good;
    for (const Field& field : fields) {
        for (const int flag : {1, -1, 256}) {
            Card card = good;
            card.*field.omit = flag;
            card.*field.value = -1e30F;
            EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), field.column, "          "));
        }
        none.*field.omit = 1;
    }
    EXPECT_EQ(columnsOf(none), std::string(kColumns, ' '));
}

TEST_F(KSMT4EvalCard3A2Test, WideNumbersRunOnAndAreCut) {
    Card card = good;
    for (const Field& field : fields) card.*field.omit = 1;
    card.bOmitANGLEM = 0;
    EXPECT_EQ(columnsOf(card), withColumns(std::string(kColumns, ' '), 61, "    90.000"));
    card.bOmitANGLEM = 1;
    card.bOmitPSIPO = 0;
    card.fPSIPO = -kLargest;
    EXPECT_EQ(columnsOf(card), std::string(50, ' ') + "-340282346 3852885981170418348");
}

TEST_F(KSMT4EvalCard3A2Test, ReportsTheFirstBadField) {
    expectOrder({{[](Card& c) { c.fTIME = 25.0F; }, failure("%s: Unrecognized fTIME value.\n", kLabel), 41},
                 {[](Card& c) { c.fANGLEM = -1.0F; }, failure("%s: Unrecognized fANGLEM value.\n", kLabel), 61},
                 {[](Card& c) { c.fG = 2.0F; }, failure("%s: Unrecognized fG value.\n", kLabel), 71}});
}

// ---- card 4 ----

struct KSMT4EvalCard4Test : CardTest<KSMT4Card4> {
    static constexpr const char* kLabel = "KSMT4EvalCard4";
    KSMT4EvalCard4Test() {
        eval = KSMT4EvalCard4;
        good = {400.0F, 2500.0F, 5.0F, 10.0F, 0, 1, 2, 2, 3, 1, 1, 0, 0, 1, 12};
    }
};

TEST_F(KSMT4EvalCard4Test, WholeLine) {
    EXPECT_EQ(columnsOf(good), padded("       400      2500         5        10TM********MGRASRF 12$"));
}

TEST_F(KSMT4EvalCard4Test, EveryValue) {
    using Card = KSMT4Card4;
    expectTexts(&Card::eYFLAG, 41, {"T", "R"}, failure("%s: Unrecognized eYFLAG value.\n", kLabel));
    expectTexts(&Card::eXFLAG, 42, {"W", "M", "N"}, failure("%s: Unrecognized eXFLAG value.\n", kLabel));
    expectTexts(&Card::eDLIMIT, 43, {"        ", "########", "********"},
                failure("%s: Unrecognized eDLIMIT value.\n", kLabel));
    expectTexts(&Card::eFLAG1, 51, {" ", "W", "M", "N"}, failure("%s: Unrecognized eFLAG1 value.\n", kLabel));
    expectTexts(&Card::eFLAG2, 52, {" ", "T", "R", "G", "S", "C", "H", "U"},
                failure("%s: Unrecognized eFLAG2 value.\n", kLabel));
    expectTexts(&Card::eFLAG3, 53, {"A", "R"}, failure("%s: Unrecognized eFLAG3 value.\n", kLabel));
    expectTexts(&Card::eFLAG4, 54, {" ", "A"}, failure("%s: Unrecognized eFLAG4 value.\n", kLabel));
    expectTexts(&Card::eFLAG5, 55, {"S", " "}, failure("%s: Unrecognized eFLAG5 value.\n", kLabel));
    expectTexts(&Card::eFLAG6, 56, {"R", " "}, failure("%s: Unrecognized eFLAG6 value.\n", kLabel));
    expectTexts(&Card::eFLAG7, 57, {"T", "F", " "}, failure("%s: Unrecognized eFLAG7 value.\n", kLabel));
}

TEST_F(KSMT4EvalCard4Test, TheLaterFlagsNeedOneOfTheFirst) {
    KSMT4Card4 card = good;
    for (const int other : {-1, 0, 1, 2, 3, 99}) {
        card.eFLAG1 = card.eFLAG2 = 0;
        card.eFLAG3 = card.eFLAG4 = card.eFLAG5 = card.eFLAG6 = card.eFLAG7 = other;
        EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 51, "       "));
    }
    card = good;
    card.eFLAG1 = 0;
    card.eFLAG3 = 2;
    expectRefused(card, failure("%s: Unrecognized eFLAG3 value.\n", kLabel));
    card.eFLAG1 = 1;
    card.eFLAG2 = 0;
    expectRefused(card, failure("%s: Unrecognized eFLAG3 value.\n", kLabel));
}

TEST_F(KSMT4EvalCard4Test, Numbers) {
    using Card = KSMT4Card4;
    expectNumber(&Card::fV1, 400.5F, 1, "       400");
    expectNumber(&Card::fV1, 401.5F, 1, "       402");
    expectNumber(&Card::fV1, std::numeric_limits<float>::denorm_min(), 1, "         0");
    expectNumber(&Card::fDV, 0.75F, 21, "         1");
    expectNumber(&Card::fDV, kInfinite, 21, "       inf");
    expectNumber(&Card::fFWHM, 15.0F, 31, "        15");
    expectNumber(&Card::fFWHM, 1e9F, 31, "1000000000");
}

TEST_F(KSMT4EvalCard4Test, WhatMustBePositive) {
    using Card = KSMT4Card4;
    const std::vector<float> values = {0.0F, -0.0F, -5.0F, -kInfinite, kNaN};
    expectRefused(&Card::fV1, values, failure("%s: Unrecognized fV1 value.\n", kLabel));
    expectRefused(&Card::fDV, values, failure("%s: Unrecognized fDV value.\n", kLabel));
    expectRefused(&Card::fFWHM, values, failure("%s: Unrecognized fFWHM value.\n", kLabel));
    const Report never = failure("%s: Unrecognized fV2 value.\n", kLabel);
    KSMT4Card4 card = good;
    for (const auto& [value, text] : std::vector<std::pair<float, std::string>>{{-5.0F, "        -5"},
                                                                                {0.0F, "         0"},
                                                                                {-0.0F, "        -0"},
                                                                                {kNaN, "       nan"},
                                                                                {-kInfinite, "      -inf"}}) {
        card.fV2 = value;
        EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 11, text));
        for (const Report& report : host().reports) EXPECT_FALSE(report == never);
    }
}

TEST_F(KSMT4EvalCard4Test, TheFluxLevelsEndTheLine) {
    KSMT4Card4 card = good;
    const std::vector<std::pair<int, std::string>> texts = {
        {0, "  0$"}, {9, "  9$"}, {999, "999$"}, {1234, "1234$"}, {std::numeric_limits<int>::max(), "2147483647$"}};
    for (const auto& [value, text] : texts) {
        card.eMLFLX = value;
        EXPECT_EQ(columnsOf(card), padded(columnsOf(good).substr(0, 57) + text));
    }
    expectRefused(&KSMT4Card4::eMLFLX, {-1, std::numeric_limits<int>::min()},
                  failure("%s: Unrecognized eMLFLX value.\n", kLabel));
}

TEST_F(KSMT4EvalCard4Test, WideNumbersRunOnAndAreOverwritten) {
    KSMT4Card4 card = good;
    card.fV1 = 1e12F;
    card.fV2 = -1e10F;
    card.fDV = 1e10F;
    EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 1, "9999999959-1000000001000000000"));
    // 1000000020040877342720 is up to column 52. Column 51 is set blank behind the limit.
    card = good;
    card.fFWHM = 1e21F;
    card.eFLAG1 = card.eFLAG2 = 0;
    for (const auto& [limit, text] : std::vector<std::pair<int, std::string>>{{1, "########"}, {2, "********"}}) {
        card.eDLIMIT = limit;
        EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 31, "1000000020TM" + text + " 0$    "));
    }
    card.eFLAG1 = 1;
    card.eFLAG4 = card.eFLAG2 = 0;
    EXPECT_EQ(columnsOf(card), withColumns(columnsOf(good), 31, "1000000020TM********W0R SRF"));
}

TEST_F(KSMT4EvalCard4Test, ReportsTheFirstBadField) {
    using Card = KSMT4Card4;
    expectOrder({{[](Card& c) { c.fV1 = 0.0F; }, failure("%s: Unrecognized fV1 value.\n", kLabel), 1},
                 {[](Card& c) { c.fDV = 0.0F; }, failure("%s: Unrecognized fDV value.\n", kLabel), 21},
                 {[](Card& c) { c.fFWHM = 0.0F; }, failure("%s: Unrecognized fFWHM value.\n", kLabel), 31},
                 {[](Card& c) { c.eYFLAG = 2; }, failure("%s: Unrecognized eYFLAG value.\n", kLabel), 41},
                 {[](Card& c) { c.eXFLAG = 3; }, failure("%s: Unrecognized eXFLAG value.\n", kLabel), 42},
                 {[](Card& c) { c.eDLIMIT = 3; }, failure("%s: Unrecognized eDLIMIT value.\n", kLabel), 43},
                 {[](Card& c) { c.eFLAG1 = 4; }, failure("%s: Unrecognized eFLAG1 value.\n", kLabel), 51},
                 {[](Card& c) { c.eFLAG2 = 8; }, failure("%s: Unrecognized eFLAG2 value.\n", kLabel), 52},
                 {[](Card& c) { c.eFLAG3 = 2; }, failure("%s: Unrecognized eFLAG3 value.\n", kLabel), 53},
                 {[](Card& c) { c.eFLAG4 = 2; }, failure("%s: Unrecognized eFLAG4 value.\n", kLabel), 54},
                 {[](Card& c) { c.eFLAG5 = 2; }, failure("%s: Unrecognized eFLAG5 value.\n", kLabel), 55},
                 {[](Card& c) { c.eFLAG6 = 2; }, failure("%s: Unrecognized eFLAG6 value.\n", kLabel), 56},
                 {[](Card& c) { c.eFLAG7 = 3; }, failure("%s: Unrecognized eFLAG7 value.\n", kLabel), 57},
                 {[](Card& c) { c.eMLFLX = -1; }, failure("%s: Unrecognized eMLFLX value.\n", kLabel), 58}});
}

// ---- card 5 ----

struct KSMT4EvalCard5Test : CardTest<KSMT4Card5> {
    static constexpr const char* kLabel = "KSMT4EvalCard5";
    KSMT4EvalCard5Test() { eval = KSMT4EvalCard5; }
};

TEST_F(KSMT4EvalCard5Test, EveryValue) {
    EXPECT_EQ(columnsOf(good), padded("    0"));
    expectTexts(&KSMT4Card5::eIRPT, 5, {"0", "1", "3", "4"}, failure("%s: Unrecognized eIRPT value.\n", kLabel));
}

// ---- all of them ----

#ifdef KSLIB_TEST_LOCALES
TEST_F(KSMT4EvalCard3Test, NumbersHaveAPointInEveryLocale) {
    const std::string expected = columnsOf(good);
    ASSERT_TRUE(useDecimalComma(KSLIB_TEST_LOCALES));
    const std::string found = columnsOf(good);
    std::setlocale(LC_NUMERIC, "C");
    EXPECT_EQ(found, expected);
}
#endif

}  // namespace
