// The cards, field by field in column order.
#include <kslib/ksmodtran4.h>

#include "ksmodtran4/line.hpp"
#include "support/report.hpp"

using namespace ks;

namespace {

bool isAtLeast(float value, double least) { return static_cast<double>(value) >= least; }
bool isWithin(float value, double least, double most) {
    return isAtLeast(value, least) && static_cast<double>(value) <= most;
}

/// The strength of an absorber: nothing but "0", or a value in one of three units.
bool putStrength(CardLine& line, int column, int kind, float strength) {
    constexpr int kWidth = 10;
    const double value = static_cast<double>(strength);
    switch (kind) {
        case 0:
            return line.choose(column + kWidth - 1, 0, {"0"});
        case 1:
            line.number(column, 'g', kWidth - 1, value, 3);
            break;
        case 2:
            line.number(column, 'a', kWidth - 1, value, 1);
            break;
        case 3:
            line.number(column, kWidth, value, 3);
            break;
        default:
            return false;
    }
    line.blank(column + kWidth);
    return true;
}

/// A number of ten columns with a blank behind it, except behind the last column.
void putTen(CardLine& line, int column, float value, int decimals) {
    constexpr int kWidth = 10;
    constexpr int kLastColumn = 80;
    line.number(column, kWidth, static_cast<double>(value), decimals);
    if (column + kWidth <= kLastColumn) line.blank(column + kWidth);
}

/// A surface: an albedo, or one of the models.
bool putSurface(CardLine& line, const KSMT4Card1& card) {
    constexpr int kAlbedo = 0;
    constexpr int kBRDF = 1;
    constexpr int kLambertian = 2;
    if (card.SURREF < kAlbedo) return false;
    if (card.SURREF == kAlbedo) {
        line.number(74, 6, static_cast<double>(card.fSURREFValue), 5);
        return true;
    }
    if (card.SURREF == kBRDF) return line.choose(77, 0, {"BRDF"});
    if (card.SURREF == kLambertian) return line.choose(75, 0, {"LAMBER"});
    constexpr int kFirstOfThree = 12;
    if (card.SURREF >= kFirstOfThree) return line.choose(78, card.SURREF - kFirstOfThree, {"-10", "-31"});
    return line.choose(79, card.SURREF - kLambertian - 1, {"-1", "-2", "-3", "-4", "-5", "-6", "-7", "-8", "-9"});
}

}  // namespace

int KSMT4EvalCard1(const KSMT4Card1* pCard, char* szLine) {
    constexpr const char* label = "KSMT4EvalCard1";
    constexpr int kBandModel = 1;
    const KSMT4Card1& card = *pCard;
    const auto models = {"0", "1", "2", "3", "4", "5", "6"};
    CardLine line(szLine);
    if (!line.choose(1, card.eMODTRN, {"T", "C", "L"})) return KS_FAIL("%s: Unrecognized eMODTRN value.\n", label);
    if (card.eMODTRN == kBandModel && !line.choose(2, card.eSPEED, {"S", "M"})) {
        return KS_FAIL("%s: Unrecognized eSPEED value.\n", label);
    }
    if (!line.choose(5, card.eMODEL, {"1", "2", "3", "4", "5", "6", "7", "0", "8"})) {
        return KS_FAIL("%s: Unrecognized eMODEL value.\n", label);
    }
    if (!line.choose(10, card.eITYPE, {"1", "3", "2"})) return KS_FAIL("%s: Unrecognized eITYPE value.\n", label);
    if (!line.choose(15, card.eIEMSCT, {"0", "1", "2", "3"})) {
        return KS_FAIL("%s: Unrecognized eIEMSCT value.\n", label);
    }
    if (!line.choose(20, card.eIMULT, {"1", "0"})) return KS_FAIL("%s: Unrecognized eIMULT value.\n", label);
    if (!line.choose(25, card.eM1, models)) return KS_FAIL("%s: Unrecognized eM1 value.\n", label);
    if (!line.choose(30, card.eM2, models)) return KS_FAIL("%s: Unrecognized eM2 value.\n", label);
    if (!line.choose(35, card.eM3, models)) return KS_FAIL("%s: Unrecognized eM3 value.\n", label);
    if (!line.choose(40, card.eM4, models)) return KS_FAIL("%s: Unrecognized eM4 value.\n", label);
    if (!line.choose(45, card.eM5, models)) return KS_FAIL("%s: Unrecognized eM5 value.\n", label);
    if (!line.choose(50, card.eM6, models)) return KS_FAIL("%s: Unrecognized eM6 value.\n", label);
    if (!line.choose(55, card.MDEF, {"1", "2"})) return KS_FAIL("%s: Unrecognized MDEF value.\n", label);
    if (!line.choose(60, card.IM, {"1", "0"})) return KS_FAIL("%s: Unrecognized IM value.\n", label);
    if (!line.choose(64, card.NOPRNT, {" 0", " 1", "-1", "-2"})) {
        return KS_FAIL("%s: Unrecognized NOPRNT value.\n", label);
    }
    line.number(66, 8, static_cast<double>(card.fTPTEMP), 3);
    line.blank(74);
    if (!putSurface(line, card)) return KS_FAIL("%s: Unrecognized SURREF value.\n", label);
    return kOk;
}

int KSMT4EvalCard1A(const KSMT4Card1A* pCard, char* szLine) {
    constexpr const char* label = "KSMT4EvalCard1A";
    constexpr int kDiscreteOrdinates = 0;
    constexpr int kUserSpectrum = 1;
    const KSMT4Card1A& card = *pCard;
    CardLine line(szLine);
    if (!line.choose(1, card.eDIS, {"T", "F"})) return KS_FAIL("%s: Unrecognized eDIS value.\n", label);
    if (card.eDIS == kDiscreteOrdinates) {
        if (!line.choose(2, card.eDISAZM, {"T", "F"})) return KS_FAIL("%s: Unrecognized eDISAZM value.\n", label);
        if (!line.choose(4, card.eNSTR, {" 2", " 4", " 8", "16"})) {
            return KS_FAIL("%s: Unrecognized eNSTR value.\n", label);
        }
    }
    if (!line.choose(6, card.eLSUN, {"F", "T"})) return KS_FAIL("%s: Unrecognized eLSUN value.\n", label);
    if (card.eLSUN == kUserSpectrum) {
        line.number(7, 4, card.nISUN);
        line.blank(11);
    }
    putTen(line, 11, card.fCO2MX, 5);
    if (!putStrength(line, 21, card.eH2OSTRINT, card.fH2OSTR)) {
        return KS_FAIL("%s: Unrecognized eH2OSTRINT value.\n", label);
    }
    if (!putStrength(line, 31, card.eO3STRINT, card.fO3STR)) {
        return KS_FAIL("%s: Unrecognized eO3STRINT value.\n", label);
    }
    if (!line.choose(42, card.eLSUNFL, {nullptr, "T", "F"})) return KS_FAIL("%s: Unrecognized eLSUNFL value.\n", label);
    if (!line.choose(44, card.eLBMNAM, {nullptr, "T", "F"})) return KS_FAIL("%s: Unrecognized eLBMNAM value.\n", label);
    if (!line.choose(46, card.eLFLTNM, {"T", "F"})) return KS_FAIL("%s: Unrecognized eLFLTNM value.\n", label);
    if (!line.choose(48, card.eH2OAER, {"T", "F"})) return KS_FAIL("%s: Unrecognized eH2OAER value.\n", label);
    line.number(51, 10, static_cast<double>(card.fSOLCON), 3);
    return kOk;
}

int KSMT4EvalCard2(const KSMT4Card2* pCard, char* szLine) {
    constexpr const char* label = "KSMT4EvalCard2";
    const KSMT4Card2& card = *pCard;
    CardLine line(szLine);
    if (!line.choose(1, card.eAPLUS, {"A+", nullptr})) return KS_FAIL("%s: Unrecognized eAPLUS value.\n", label);
    if (!line.choose(4, card.eIHAZE, {"-1", " 0", " 1", " 2", " 3", " 4", " 5", " 6", " 7", " 8", " 9", "10"})) {
        return KS_FAIL("%s: Unrecognized eIHAZE value.\n", label);
    }
    if (!line.choose(6, card.eCNOVAM, {"N", nullptr})) return KS_FAIL("%s: Unrecognized eCNOVAM value.\n", label);
    if (!line.choose(9, card.eISEASN, {"0", "1", "2"})) return KS_FAIL("%s: Unrecognized eISEASN value.\n", label);
    if (!line.choose(10, card.eARUSS, {nullptr, "USS"})) return KS_FAIL("%s: Unrecognized eARUSS value.\n", label);
    if (!line.choose(14, card.eIVULCN, {"1", "2", "3", "4", "5", "6", "7", "8"})) {
        return KS_FAIL("%s: Unrecognized eIVULCN value.\n", label);
    }
    if (card.nICSTL < 1 || card.nICSTL > 10) return KS_FAIL("%s: Unrecognized nICSTL value.\n", label);
    line.number(15, 5, card.nICSTL);
    line.blank(20);
    if (!line.choose(23, card.eICLD,
                     {" 0", " 1", " 2", " 3", " 4", " 5", " 6", " 7", " 8", " 9", "10", "11", "18", "19"})) {
        return KS_FAIL("%s: Unrecognized eICLD value.\n", label);
    }
    if (!line.choose(29, card.eIVSA, {"1", "0"})) return KS_FAIL("%s: Unrecognized eIVSA value.\n", label);
    if (!isAtLeast(card.fVIS, 0.0)) return KS_FAIL("%s: Unrecognized fVIS value.\n", label);
    putTen(line, 30, card.fVIS, 5);
    if (!isAtLeast(card.fWSS, 0.0)) return KS_FAIL("%s: Unrecognized fWSS value.\n", label);
    line.number(40, 10, static_cast<double>(card.fWSS), 5);
    line.blank(40);  // its own first column: speeds of 1000 and more lose a digit, as readers of these lines expect
    if (!isAtLeast(card.fWHH, 0.0)) return KS_FAIL("%s: Unrecognized fWHH value.\n", label);
    putTen(line, 50, card.fWHH, 5);
    if (!isAtLeast(card.fRAINRT, 0.0)) return KS_FAIL("%s: Unrecognized fRAINRT value.\n", label);
    putTen(line, 60, card.fRAINRT, 5);
    if (static_cast<double>(card.fGNDALT) > 6.0) return KS_FAIL("%s: Unrecognized fGNDALT value.\n", label);
    line.number(70, 10, static_cast<double>(card.fGNDALT), 5);
    return kOk;
}

int KSMT4EvalCard3(const KSMT4Card3* pCard, char* szLine) {
    constexpr const char* label = "KSMT4EvalCard3";
    const KSMT4Card3& card = *pCard;
    CardLine line(szLine);
    if (card.bOmitH1 == 0) putTen(line, 1, card.fH1, 3);
    if (card.bOmitH2 == 0) putTen(line, 11, card.fH2, 3);
    if (card.bOmitANGLE == 0) {
        if (!isWithin(card.fANGLE, 0.0, 180.0)) return KS_FAIL("%s: Unrecognized fANGLE value.\n", label);
        putTen(line, 21, card.fANGLE, 3);
    }
    if (card.bOmitRANGE == 0) {
        if (!isAtLeast(card.fRANGE, 0.0)) return KS_FAIL("%s: Unrecognized fRANGE value.\n", label);
        putTen(line, 31, card.fRANGE, 3);
    }
    if (card.bOmitBETA == 0) {
        if (!isWithin(card.fBETA, 0.0, 180.0)) return KS_FAIL("%s: Unrecognized fBETA value.\n", label);
        putTen(line, 41, card.fBETA, 3);
    }
    if (card.bOmitRO == 0) {
        if (!isAtLeast(card.fRO, 0.0)) return KS_FAIL("%s: Unrecognized fRO value.\n", label);
        putTen(line, 51, card.fRO, 3);
    }
    if (!line.choose(65, card.eLENN, {"0", "1"})) return KS_FAIL("%s: Unrecognized eLENN value.\n", label);
    if (card.bOmitPHI == 0) {
        if (!isWithin(card.fPHI, 0.0, 180.0)) return KS_FAIL("%s: Unrecognized fPHI value.\n", label);
        putTen(line, 71, card.fPHI, 3);
    }
    return kOk;
}

int KSMT4EvalCard3A1(const KSMT4Card3A1* pCard, char* szLine) {
    constexpr const char* label = "KSMT4EvalCard3A1";
    const KSMT4Card3A1& card = *pCard;
    CardLine line(szLine);
    if (!line.choose(4, card.eIPARM, {" 0", " 1", " 2", "10", "11", "12"})) {
        return KS_FAIL("%s: Unrecognized eIPARM value.\n", label);
    }
    if (!line.choose(10, card.eIPH, {"0", "1", "2"})) return KS_FAIL("%s: Unrecognized eIPH value.\n", label);
    if (card.nIDAY < 1 || card.nIDAY > 365) return KS_FAIL("%s: Unrecognized nIDAY value.\n", label);
    line.number(11, 5, card.nIDAY);
    line.blank(16);
    if (!line.choose(20, card.eSOURC, {"0", "1"})) return KS_FAIL("%s: Unrecognized eSOURC value.\n", label);
    return kOk;
}

int KSMT4EvalCard3A2(const KSMT4Card3A2* pCard, char* szLine) {
    constexpr const char* label = "KSMT4EvalCard3A2";
    const KSMT4Card3A2& card = *pCard;
    CardLine line(szLine);
    if (card.bOmitPARM1 == 0) putTen(line, 1, card.fPARM1, 3);
    if (card.bOmitPARM2 == 0) putTen(line, 11, card.fPARM2, 3);
    if (card.bOmitPARM3 == 0) putTen(line, 21, card.fPARM3, 3);
    if (card.bOmitPARM4 == 0) putTen(line, 31, card.fPARM4, 3);
    if (card.bOmitTIME == 0) {
        if (!isWithin(card.fTIME, 0.0, 24.0)) return KS_FAIL("%s: Unrecognized fTIME value.\n", label);
        putTen(line, 41, card.fTIME, 3);
    }
    if (card.bOmitPSIPO == 0) putTen(line, 51, card.fPSIPO, 3);
    if (card.bOmitANGLEM == 0) {
        if (!isWithin(card.fANGLEM, 0.0, 180.0)) return KS_FAIL("%s: Unrecognized fANGLEM value.\n", label);
        putTen(line, 61, card.fANGLEM, 3);
    }
    if (card.bOmitG == 0) {
        if (!isWithin(card.fG, -1.0, 1.0)) return KS_FAIL("%s: Unrecognized fG value.\n", label);
        putTen(line, 71, card.fG, 3);
    }
    return kOk;
}

namespace {

__attribute__((noinline)) bool isPositive(float value) { return static_cast<double>(value) > 0.0; }

int putFlags(CardLine& line, const KSMT4Card4& card, const char* label) {
    if (!line.choose(51, card.eFLAG1, {nullptr, "W", "M", "N"})) {
        return KS_FAIL("%s: Unrecognized eFLAG1 value.\n", label);
    }
    if (!line.choose(52, card.eFLAG2, {nullptr, "T", "R", "G", "S", "C", "H", "U"})) {
        return KS_FAIL("%s: Unrecognized eFLAG2 value.\n", label);
    }
    if (card.eFLAG1 == 0 && card.eFLAG2 == 0) return kOk;
    if (!line.choose(53, card.eFLAG3, {"A", "R"})) return KS_FAIL("%s: Unrecognized eFLAG3 value.\n", label);
    if (!line.choose(54, card.eFLAG4, {nullptr, "A"})) return KS_FAIL("%s: Unrecognized eFLAG4 value.\n", label);
    if (!line.choose(55, card.eFLAG5, {"S", nullptr})) return KS_FAIL("%s: Unrecognized eFLAG5 value.\n", label);
    if (!line.choose(56, card.eFLAG6, {"R", nullptr})) return KS_FAIL("%s: Unrecognized eFLAG6 value.\n", label);
    if (!line.choose(57, card.eFLAG7, {"T", "F", nullptr})) return KS_FAIL("%s: Unrecognized eFLAG7 value.\n", label);
    return kOk;
}

}  // namespace

int KSMT4EvalCard4(const KSMT4Card4* pCard, char* szLine) {
    constexpr const char* label = "KSMT4EvalCard4";
    const KSMT4Card4& card = *pCard;
    CardLine line(szLine);
    if (!isPositive(card.fV1)) return KS_FAIL("%s: Unrecognized fV1 value.\n", label);
    putTen(line, 1, card.fV1, 0);
    // The first bound again: any last bound is accepted, and this never reports.
    if (!isPositive(card.fV1)) return KS_FAIL("%s: Unrecognized fV2 value.\n", label);
    putTen(line, 11, card.fV2, 0);
    if (!isPositive(card.fDV)) return KS_FAIL("%s: Unrecognized fDV value.\n", label);
    putTen(line, 21, card.fDV, 0);
    if (!isPositive(card.fFWHM)) return KS_FAIL("%s: Unrecognized fFWHM value.\n", label);
    putTen(line, 31, card.fFWHM, 0);
    if (!line.choose(41, card.eYFLAG, {"T", "R"})) return KS_FAIL("%s: Unrecognized eYFLAG value.\n", label);
    if (!line.choose(42, card.eXFLAG, {"W", "M", "N"})) return KS_FAIL("%s: Unrecognized eXFLAG value.\n", label);
    if (!line.choose(43, card.eDLIMIT, {nullptr, "########", "********"})) {
        return KS_FAIL("%s: Unrecognized eDLIMIT value.\n", label);
    }
    if (card.eDLIMIT != 0) line.blank(51);
    if (putFlags(line, card, label) != kOk) return kFailed;
    if (card.eMLFLX < 0) return KS_FAIL("%s: Unrecognized eMLFLX value.\n", label);
    line.number(58, 3, card.eMLFLX);
    return kOk;
}

int KSMT4EvalCard5(const KSMT4Card5* pCard, char* szLine) {
    CardLine line(szLine);
    if (!line.choose(5, pCard->eIRPT, {"0", "1", "3", "4"})) {
        return KS_FAIL("%s: Unrecognized eIRPT value.\n", "KSMT4EvalCard5");
    }
    return kOk;
}
