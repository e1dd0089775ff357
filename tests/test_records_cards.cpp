// Layouts of the card records: callers compiled earlier, and callers in other languages, rely on every offset.
#include <gtest/gtest.h>
#include <kslib/ksmodtran4.h>

#include <cstddef>
#include <type_traits>

namespace {

template <class T>
constexpr bool kPlain = std::is_standard_layout_v<T>&& std::is_trivial_v<T>;

static_assert(sizeof(int) == 4 && sizeof(float) == 4);

TEST(RecordLayout, Card1) {
    static_assert(kPlain<KSMT4Card1>);
    EXPECT_EQ(offsetof(KSMT4Card1, eMODTRN), 0U);
    EXPECT_EQ(offsetof(KSMT4Card1, eSPEED), 4U);
    EXPECT_EQ(offsetof(KSMT4Card1, eMODEL), 8U);
    EXPECT_EQ(offsetof(KSMT4Card1, eITYPE), 12U);
    EXPECT_EQ(offsetof(KSMT4Card1, eIEMSCT), 16U);
    EXPECT_EQ(offsetof(KSMT4Card1, eIMULT), 20U);
    EXPECT_EQ(offsetof(KSMT4Card1, eM1), 24U);
    EXPECT_EQ(offsetof(KSMT4Card1, eM2), 28U);
    EXPECT_EQ(offsetof(KSMT4Card1, eM3), 32U);
    EXPECT_EQ(offsetof(KSMT4Card1, eM4), 36U);
    EXPECT_EQ(offsetof(KSMT4Card1, eM5), 40U);
    EXPECT_EQ(offsetof(KSMT4Card1, eM6), 44U);
    EXPECT_EQ(offsetof(KSMT4Card1, MDEF), 48U);
    EXPECT_EQ(offsetof(KSMT4Card1, IM), 52U);
    EXPECT_EQ(offsetof(KSMT4Card1, NOPRNT), 56U);
    EXPECT_EQ(offsetof(KSMT4Card1, fTPTEMP), 60U);
    EXPECT_EQ(offsetof(KSMT4Card1, SURREF), 64U);
    EXPECT_EQ(offsetof(KSMT4Card1, fSURREFValue), 68U);
    EXPECT_EQ(sizeof(KSMT4Card1), 72U);
}

TEST(RecordLayout, Card1A) {
    static_assert(kPlain<KSMT4Card1A>);
    EXPECT_EQ(offsetof(KSMT4Card1A, eDIS), 0U);
    EXPECT_EQ(offsetof(KSMT4Card1A, eDISAZM), 4U);
    EXPECT_EQ(offsetof(KSMT4Card1A, eNSTR), 8U);
    EXPECT_EQ(offsetof(KSMT4Card1A, eLSUN), 12U);
    EXPECT_EQ(offsetof(KSMT4Card1A, nISUN), 16U);
    EXPECT_EQ(offsetof(KSMT4Card1A, fCO2MX), 20U);
    EXPECT_EQ(offsetof(KSMT4Card1A, eH2OSTRINT), 24U);
    EXPECT_EQ(offsetof(KSMT4Card1A, fH2OSTR), 28U);
    EXPECT_EQ(offsetof(KSMT4Card1A, eO3STRINT), 32U);
    EXPECT_EQ(offsetof(KSMT4Card1A, fO3STR), 36U);
    EXPECT_EQ(offsetof(KSMT4Card1A, eLSUNFL), 40U);
    EXPECT_EQ(offsetof(KSMT4Card1A, eLBMNAM), 44U);
    EXPECT_EQ(offsetof(KSMT4Card1A, eLFLTNM), 48U);
    EXPECT_EQ(offsetof(KSMT4Card1A, eH2OAER), 52U);
    EXPECT_EQ(offsetof(KSMT4Card1A, fSOLCON), 56U);
    EXPECT_EQ(sizeof(KSMT4Card1A), 60U);
}

TEST(RecordLayout, Card2) {
    static_assert(kPlain<KSMT4Card2>);
    EXPECT_EQ(offsetof(KSMT4Card2, eAPLUS), 0U);
    EXPECT_EQ(offsetof(KSMT4Card2, eIHAZE), 4U);
    EXPECT_EQ(offsetof(KSMT4Card2, eCNOVAM), 8U);
    EXPECT_EQ(offsetof(KSMT4Card2, eISEASN), 12U);
    EXPECT_EQ(offsetof(KSMT4Card2, eARUSS), 16U);
    EXPECT_EQ(offsetof(KSMT4Card2, eIVULCN), 20U);
    EXPECT_EQ(offsetof(KSMT4Card2, nICSTL), 24U);
    EXPECT_EQ(offsetof(KSMT4Card2, eICLD), 28U);
    EXPECT_EQ(offsetof(KSMT4Card2, eIVSA), 32U);
    EXPECT_EQ(offsetof(KSMT4Card2, fVIS), 36U);
    EXPECT_EQ(offsetof(KSMT4Card2, fWSS), 40U);
    EXPECT_EQ(offsetof(KSMT4Card2, fWHH), 44U);
    EXPECT_EQ(offsetof(KSMT4Card2, fRAINRT), 48U);
    EXPECT_EQ(offsetof(KSMT4Card2, fGNDALT), 52U);
    EXPECT_EQ(sizeof(KSMT4Card2), 56U);
}

TEST(RecordLayout, Card3) {
    static_assert(kPlain<KSMT4Card3>);
    EXPECT_EQ(offsetof(KSMT4Card3, bOmitH1), 0U);
    EXPECT_EQ(offsetof(KSMT4Card3, fH1), 4U);
    EXPECT_EQ(offsetof(KSMT4Card3, bOmitH2), 8U);
    EXPECT_EQ(offsetof(KSMT4Card3, fH2), 12U);
    EXPECT_EQ(offsetof(KSMT4Card3, bOmitANGLE), 16U);
    EXPECT_EQ(offsetof(KSMT4Card3, fANGLE), 20U);
    EXPECT_EQ(offsetof(KSMT4Card3, bOmitRANGE), 24U);
    EXPECT_EQ(offsetof(KSMT4Card3, fRANGE), 28U);
    EXPECT_EQ(offsetof(KSMT4Card3, bOmitBETA), 32U);
    EXPECT_EQ(offsetof(KSMT4Card3, fBETA), 36U);
    EXPECT_EQ(offsetof(KSMT4Card3, bOmitRO), 40U);
    EXPECT_EQ(offsetof(KSMT4Card3, fRO), 44U);
    EXPECT_EQ(offsetof(KSMT4Card3, eLENN), 48U);
    EXPECT_EQ(offsetof(KSMT4Card3, bOmitPHI), 52U);
    EXPECT_EQ(offsetof(KSMT4Card3, fPHI), 56U);
    EXPECT_EQ(sizeof(KSMT4Card3), 60U);
}

TEST(RecordLayout, Card3A1) {
    static_assert(kPlain<KSMT4Card3A1>);
    EXPECT_EQ(offsetof(KSMT4Card3A1, eIPARM), 0U);
    EXPECT_EQ(offsetof(KSMT4Card3A1, eIPH), 4U);
    EXPECT_EQ(offsetof(KSMT4Card3A1, nIDAY), 8U);
    EXPECT_EQ(offsetof(KSMT4Card3A1, eSOURC), 12U);
    EXPECT_EQ(sizeof(KSMT4Card3A1), 16U);
}

TEST(RecordLayout, Card3A2) {
    static_assert(kPlain<KSMT4Card3A2>);
    EXPECT_EQ(offsetof(KSMT4Card3A2, bOmitPARM1), 0U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, fPARM1), 4U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, bOmitPARM2), 8U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, fPARM2), 12U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, bOmitPARM3), 16U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, fPARM3), 20U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, bOmitPARM4), 24U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, fPARM4), 28U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, bOmitTIME), 32U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, fTIME), 36U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, bOmitPSIPO), 40U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, fPSIPO), 44U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, bOmitANGLEM), 48U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, fANGLEM), 52U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, bOmitG), 56U);
    EXPECT_EQ(offsetof(KSMT4Card3A2, fG), 60U);
    EXPECT_EQ(sizeof(KSMT4Card3A2), 64U);
}

TEST(RecordLayout, Card4) {
    static_assert(kPlain<KSMT4Card4>);
    EXPECT_EQ(offsetof(KSMT4Card4, fV1), 0U);
    EXPECT_EQ(offsetof(KSMT4Card4, fV2), 4U);
    EXPECT_EQ(offsetof(KSMT4Card4, fDV), 8U);
    EXPECT_EQ(offsetof(KSMT4Card4, fFWHM), 12U);
    EXPECT_EQ(offsetof(KSMT4Card4, eYFLAG), 16U);
    EXPECT_EQ(offsetof(KSMT4Card4, eXFLAG), 20U);
    EXPECT_EQ(offsetof(KSMT4Card4, eDLIMIT), 24U);
    EXPECT_EQ(offsetof(KSMT4Card4, eFLAG1), 28U);
    EXPECT_EQ(offsetof(KSMT4Card4, eFLAG2), 32U);
    EXPECT_EQ(offsetof(KSMT4Card4, eFLAG3), 36U);
    EXPECT_EQ(offsetof(KSMT4Card4, eFLAG4), 40U);
    EXPECT_EQ(offsetof(KSMT4Card4, eFLAG5), 44U);
    EXPECT_EQ(offsetof(KSMT4Card4, eFLAG6), 48U);
    EXPECT_EQ(offsetof(KSMT4Card4, eFLAG7), 52U);
    EXPECT_EQ(offsetof(KSMT4Card4, eMLFLX), 56U);
    EXPECT_EQ(sizeof(KSMT4Card4), 60U);
}

TEST(RecordLayout, Card5) {
    static_assert(kPlain<KSMT4Card5>);
    EXPECT_EQ(offsetof(KSMT4Card5, eIRPT), 0U);
    EXPECT_EQ(sizeof(KSMT4Card5), 4U);
}

TEST(RecordLayout, CardLine) { EXPECT_EQ(static_cast<int>(KS_MT4_LINE), 81); }

}  // namespace
