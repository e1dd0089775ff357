// The tables of fields, card by card in column order.
#include <kslib/ksmodtran4.h>

#include <initializer_list>
#include <limits>

#include "modtran/card.hpp"

namespace kscli {
namespace {

constexpr double kAny = std::numeric_limits<double>::infinity();

template <class Record>
const Record& as(const void* record) {
    return *static_cast<const Record*>(record);
}

template <class Record, int (*evaluate)(const Record*, char*)>
int writeAs(const void* record, char* line) {
    return evaluate(static_cast<const Record*>(record), line);
}

const char* noObjection(const void*) { return nullptr; }

CardField choice(const char* name, const char* meaning, int first, int last, std::size_t at,
                 std::initializer_list<const char*> texts) {
    CardField field;
    field.name = name;
    field.meaning = meaning;
    field.first = first;
    field.last = last;
    field.at = at;
    field.texts = texts;
    return field;
}

CardField whole(const char* name, const char* meaning, int first, int last, std::size_t at, double least, double most) {
    CardField field = choice(name, meaning, first, last, at, {});
    field.kind = FieldKind::whole;
    field.least = least;
    field.most = most;
    return field;
}

CardField real(const char* name, const char* meaning, int first, int last, std::size_t at, int decimals,
               double least = -kAny, double most = kAny) {
    CardField field = whole(name, meaning, first, last, at, least, most);
    field.kind = FieldKind::real;
    field.decimals = decimals;
    return field;
}

/// Ten columns and three decimals, or nothing.
CardField omissible(const char* name, const char* meaning, int first, std::size_t omitAt, std::size_t at,
                    double least = -kAny, double most = kAny) {
    CardField field = real(name, meaning, first, first + 9, at, 3, least, most);
    field.omitAt = omitAt;
    field.mayBeOmitted = true;
    return field;
}

CardField strength(const char* name, const char* meaning, int first, std::size_t at, std::size_t besideAt) {
    CardField field = choice(name, meaning, first, first + 9, at, {});
    field.kind = FieldKind::strength;
    field.besideAt = besideAt;
    return field;
}

CardField when(CardField field, bool (*isWritten)(const void*), const char* condition) {
    field.isWritten = isWritten;
    field.condition = condition;
    return field;
}

std::vector<CardField> fieldsOfCard1() {
    using Card = KSMT4Card1;
    const auto levels = {"0", "1", "2", "3", "4", "5", "6"};
    const auto isCorrelated = [](const void* record) { return as<Card>(record).eMODTRN == 1; };
    CardField surface =
        choice("SURREF", "surface: albedo, BRDF, LAMBER or a model", 74, 80, offsetof(Card, SURREF),
               {nullptr, "BRDF", "LAMBER", "-1", "-2", "-3", "-4", "-5", "-6", "-7", "-8", "-9", "-10", "-31"});
    surface.kind = FieldKind::surface;
    surface.besideAt = offsetof(Card, fSURREFValue);
    surface.decimals = 5;
    return {choice("MODTRN", "band model: T MODTRAN, C correlated k, L LOWTRAN", 1, 1, offsetof(Card, eMODTRN),
                   {"T", "C", "L"}),
            when(choice("SPEED", "correlated k: S slow, M medium", 2, 2, offsetof(Card, eSPEED), {"S", "M"}),
                 isCorrelated, "MODTRN is C"),
            choice("MODEL", "atmosphere: 1 tropical to 6 US standard, 0, 7, 8 user's", 5, 5, offsetof(Card, eMODEL),
                   {"1", "2", "3", "4", "5", "6", "7", "0", "8"}),
            choice("ITYPE", "path: 1 horizontal, 2 between heights, 3 to space", 10, 10, offsetof(Card, eITYPE),
                   {"1", "3", "2"}),
            choice("IEMSCT", "0 transmittance, 1 thermal, 2 with sun, 3 direct sun", 15, 15, offsetof(Card, eIEMSCT),
                   {"0", "1", "2", "3"}),
            choice("IMULT", "multiple scattering: 1 yes, 0 no", 20, 20, offsetof(Card, eIMULT), {"1", "0"}),
            choice("M1", "temperature and pressure profile; 0: that of MODEL", 25, 25, offsetof(Card, eM1), levels),
            choice("M2", "water vapour profile", 30, 30, offsetof(Card, eM2), levels),
            choice("M3", "ozone profile", 35, 35, offsetof(Card, eM3), levels),
            choice("M4", "methane profile", 40, 40, offsetof(Card, eM4), levels),
            choice("M5", "nitrous oxide profile", 45, 45, offsetof(Card, eM5), levels),
            choice("M6", "carbon monoxide profile", 50, 50, offsetof(Card, eM6), levels),
            choice("MDEF", "profiles of the other gases", 55, 55, offsetof(Card, MDEF), {"1", "2"}),
            choice("IM", "1 reads a user's profile, 0 does not", 60, 60, offsetof(Card, IM), {"1", "0"}),
            choice("NOPRNT", "how much is printed", 64, 65, offsetof(Card, NOPRNT), {"0", "1", "-1", "-2"}),
            real("TPTEMP", "boundary temperature (K)", 66, 73, offsetof(Card, fTPTEMP), 3),
            surface};
}

std::vector<CardField> fieldsOfCard1A() {
    using Card = KSMT4Card1A;
    const auto isDiscrete = [](const void* record) { return as<Card>(record).eDIS == 0; };
    const auto isUsersSun = [](const void* record) { return as<Card>(record).eLSUN == 1; };
    return {
        choice("DIS", "discrete ordinates: T yes, F no", 1, 1, offsetof(Card, eDIS), {"T", "F"}),
        when(choice("DISAZM", "azimuth dependence: T yes, F no", 2, 2, offsetof(Card, eDISAZM), {"T", "F"}), isDiscrete,
             "DIS is T"),
        when(choice("NSTR", "number of streams", 4, 5, offsetof(Card, eNSTR), {"2", "4", "8", "16"}), isDiscrete,
             "DIS is T"),
        choice("LSUN", "solar irradiance: F built in, T from a file", 6, 6, offsetof(Card, eLSUN), {"F", "T"}),
        when(whole("ISUN", "width of its smoothing (cm-1)", 7, 10, offsetof(Card, nISUN), -kAny, kAny), isUsersSun,
             "LSUN is T"),
        real("CO2MX", "carbon dioxide (ppmv)", 11, 20, offsetof(Card, fCO2MX), 5),
        strength("H2OSTR", "water vapour column; g: g cm-2, a: atm cm", 21, offsetof(Card, eH2OSTRINT),
                 offsetof(Card, fH2OSTR)),
        strength("O3STR", "ozone column; g: g cm-2, a: atm cm", 31, offsetof(Card, eO3STRINT), offsetof(Card, fO3STR)),
        choice("LSUNFL", "reads the name of a solar file", 42, 42, offsetof(Card, eLSUNFL), {nullptr, "T", "F"}),
        choice("LBMNAM", "reads the name of a band model file", 44, 44, offsetof(Card, eLBMNAM), {nullptr, "T", "F"}),
        choice("LFLTNM", "reads the name of a filter file", 46, 46, offsetof(Card, eLFLTNM), {"T", "F"}),
        choice("H2OAER", "aerosols follow the water vapour", 48, 48, offsetof(Card, eH2OAER), {"T", "F"}),
        real("SOLCON", "solar constant (W m-2), 0: as it is", 51, 60, offsetof(Card, fSOLCON), 3)};
}

std::vector<CardField> fieldsOfCard2() {
    using Card = KSMT4Card2;
    return {choice("APLUS", "user-defined aerosols: A+", 1, 2, offsetof(Card, eAPLUS), {"A+", nullptr}),
            choice("IHAZE", "boundary layer aerosol", 4, 5, offsetof(Card, eIHAZE),
                   {"-1", "0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10"}),
            choice("CNOVAM", "naval aerosol model: N", 6, 6, offsetof(Card, eCNOVAM), {"N", nullptr}),
            choice("ISEASN", "season of the aerosols: 0 that of MODEL", 9, 9, offsetof(Card, eISEASN), {"0", "1", "2"}),
            choice("ARUSS", "user's optical properties: USS", 10, 12, offsetof(Card, eARUSS), {nullptr, "USS"}),
            choice("IVULCN", "stratospheric aerosol", 14, 14, offsetof(Card, eIVULCN),
                   {"1", "2", "3", "4", "5", "6", "7", "8"}),
            whole("ICSTL", "air mass, 1 open ocean to 10 continent", 15, 19, offsetof(Card, nICSTL), 1, 10),
            choice("ICLD", "clouds and rain", 23, 24, offsetof(Card, eICLD),
                   {"0", "1", "2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "18", "19"}),
            choice("IVSA", "vertical structure of the aerosol: 1 yes", 29, 29, offsetof(Card, eIVSA), {"1", "0"}),
            real("VIS", "visibility (km)", 30, 39, offsetof(Card, fVIS), 5, 0),
            real("WSS", "wind speed (m/s), below 1000", 40, 49, offsetof(Card, fWSS), 5, 0),
            real("WHH", "mean wind speed of 24 hours (m/s)", 50, 59, offsetof(Card, fWHH), 5, 0),
            real("RAINRT", "rain rate (mm/h)", 60, 69, offsetof(Card, fRAINRT), 5, 0),
            real("GNDALT", "height of the ground (km)", 70, 79, offsetof(Card, fGNDALT), 5, -kAny, 6)};
}

std::vector<CardField> fieldsOfCard3() {
    using Card = KSMT4Card3;
    return {
        omissible("H1", "height of the sensor (km)", 1, offsetof(Card, bOmitH1), offsetof(Card, fH1)),
        omissible("H2", "height of the other end (km)", 11, offsetof(Card, bOmitH2), offsetof(Card, fH2)),
        omissible("ANGLE", "zenith angle at H1 (degrees)", 21, offsetof(Card, bOmitANGLE), offsetof(Card, fANGLE), 0,
                  180),
        omissible("RANGE", "length of the path (km)", 31, offsetof(Card, bOmitRANGE), offsetof(Card, fRANGE), 0),
        omissible("BETA", "angle at the Earth's centre (degrees)", 41, offsetof(Card, bOmitBETA), offsetof(Card, fBETA),
                  0, 180),
        omissible("RO", "radius of the Earth (km)", 51, offsetof(Card, bOmitRO), offsetof(Card, fRO), 0),
        choice("LENN", "0 short, 1 long path", 65, 65, offsetof(Card, eLENN), {"0", "1"}),
        omissible("PHI", "zenith angle at H2 (degrees)", 71, offsetof(Card, bOmitPHI), offsetof(Card, fPHI), 0, 180)};
}

std::vector<CardField> fieldsOfCard3A1() {
    using Card = KSMT4Card3A1;
    return {choice("IPARM", "how card 3A2 says where the sun is", 4, 5, offsetof(Card, eIPARM),
                   {"0", "1", "2", "10", "11", "12"}),
            choice("IPH", "phase function: 0, 1 user's, 2 built in", 10, 10, offsetof(Card, eIPH), {"0", "1", "2"}),
            whole("IDAY", "day of the year", 11, 15, offsetof(Card, nIDAY), 1, 365),
            choice("SOURC", "0 sun, 1 moon", 20, 20, offsetof(Card, eSOURC), {"0", "1"})};
}

std::vector<CardField> fieldsOfCard3A2() {
    using Card = KSMT4Card3A2;
    return {omissible("PARM1", "as IPARM says, such as the sun's azimuth (degrees)", 1, offsetof(Card, bOmitPARM1),
                      offsetof(Card, fPARM1)),
            omissible("PARM2", "as IPARM says, such as the sun's zenith (degrees)", 11, offsetof(Card, bOmitPARM2),
                      offsetof(Card, fPARM2)),
            omissible("PARM3", "as IPARM says", 21, offsetof(Card, bOmitPARM3), offsetof(Card, fPARM3)),
            omissible("PARM4", "as IPARM says", 31, offsetof(Card, bOmitPARM4), offsetof(Card, fPARM4)),
            omissible("TIME", "universal time (hours)", 41, offsetof(Card, bOmitTIME), offsetof(Card, fTIME), 0, 24),
            omissible("PSIPO", "azimuth of the path (degrees)", 51, offsetof(Card, bOmitPSIPO), offsetof(Card, fPSIPO)),
            omissible("ANGLEM", "phase of the moon (degrees)", 61, offsetof(Card, bOmitANGLEM), offsetof(Card, fANGLEM),
                      0, 180),
            omissible("G", "asymmetry of scattering", 71, offsetof(Card, bOmitG), offsetof(Card, fG), -1, 1)};
}

std::vector<CardField> fieldsOfCard4() {
    using Card = KSMT4Card4;
    constexpr double kAboveZero = std::numeric_limits<float>::denorm_min();
    const auto hasFlags = [](const void* record) {
        return as<Card>(record).eFLAG1 != 0 || as<Card>(record).eFLAG2 != 0;
    };
    const char* const flags = "FLAG1 or FLAG2 is not blank";
    return {
        real("V1", "first wavenumber or wavelength, a whole number", 1, 10, offsetof(Card, fV1), 0, kAboveZero),
        real("V2", "last, above V1", 11, 20, offsetof(Card, fV2), 0),
        real("DV", "step, a whole number", 21, 30, offsetof(Card, fDV), 0, kAboveZero),
        real("FWHM", "width of the slit, a whole number", 31, 40, offsetof(Card, fFWHM), 0, kAboveZero),
        choice("YFLAG", "plot file: T transmittances, R radiances", 41, 41, offsetof(Card, eYFLAG), {"T", "R"}),
        choice("XFLAG", "its axis: W cm-1, M um, N nm", 42, 42, offsetof(Card, eXFLAG), {"W", "M", "N"}),
        choice("DLIMIT", "closes each run in the plot file", 43, 50, offsetof(Card, eDLIMIT),
               {nullptr, "########", "********"}),
        choice("FLAG1", "unit of V1 to FWHM: W cm-1, M um, N nm", 51, 51, offsetof(Card, eFLAG1),
               {nullptr, "W", "M", "N"}),
        choice("FLAG2", "shape of the slit, such as T triangle, R box, G gauss", 52, 52, offsetof(Card, eFLAG2),
               {nullptr, "T", "R", "G", "S", "C", "H", "U"}),
        when(choice("FLAG3", "FWHM: A absolute, R relative", 53, 53, offsetof(Card, eFLAG3), {"A", "R"}), hasFlags,
             flags),
        when(choice("FLAG4", "A: all components", 54, 54, offsetof(Card, eFLAG4), {nullptr, "A"}), hasFlags, flags),
        when(choice("FLAG5", "S: saves the results before the slit", 55, 55, offsetof(Card, eFLAG5), {"S", nullptr}),
             hasFlags, flags),
        when(choice("FLAG6", "R: uses saved results", 56, 56, offsetof(Card, eFLAG6), {"R", nullptr}), hasFlags, flags),
        when(choice("FLAG7", "where the slit's results go: T, F or blank", 57, 57, offsetof(Card, eFLAG7),
                    {"T", "F", nullptr}),
             hasFlags, flags),
        whole("MLFLX", "number of levels with fluxes", 58, 60, offsetof(Card, eMLFLX), 0, kAny)};
}

const char* objectionToCard4(const void* record) {
    const auto& card = as<KSMT4Card4>(record);
    return card.fV2 > card.fV1 ? nullptr : "V2 must be above V1";
}

std::vector<CardField> fieldsOfCard5() {
    return {choice("IRPT", "what follows: 0 nothing, 1, 3, 4 another run", 5, 5, offsetof(KSMT4Card5, eIRPT),
                   {"0", "1", "3", "4"})};
}

template <class Record, int (*evaluate)(const Record*, char*)>
CardType type(const char* name, std::vector<CardField> fields, const char* (*objection)(const void*) = noObjection) {
    return {name, sizeof(Record), writeAs<Record, evaluate>, objection, std::move(fields)};
}

}  // namespace

const std::vector<CardType>& cardTypes() {
    static const std::vector<CardType> kTypes = {
        type<KSMT4Card1, KSMT4EvalCard1>("1", fieldsOfCard1()),
        type<KSMT4Card1A, KSMT4EvalCard1A>("1A", fieldsOfCard1A()),
        type<KSMT4Card2, KSMT4EvalCard2>("2", fieldsOfCard2()),
        type<KSMT4Card3, KSMT4EvalCard3>("3", fieldsOfCard3()),
        type<KSMT4Card3A1, KSMT4EvalCard3A1>("3A1", fieldsOfCard3A1()),
        type<KSMT4Card3A2, KSMT4EvalCard3A2>("3A2", fieldsOfCard3A2()),
        type<KSMT4Card4, KSMT4EvalCard4>("4", fieldsOfCard4(), objectionToCard4),
        type<KSMT4Card5, KSMT4EvalCard5>("5", fieldsOfCard5())};
    return kTypes;
}

}  // namespace kscli
