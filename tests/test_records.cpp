// Record layouts: callers compiled earlier, and callers in other languages, rely on every offset.
#include <gtest/gtest.h>
#include <kshost.h>
#include <kslib.h>

#include <cstddef>
#include <type_traits>
#include <vector>

namespace {

template <class T>
constexpr bool kPlain = std::is_standard_layout_v<T>&& std::is_trivial_v<T>;

// Offsets of a platform with 64-bit pointers.
static_assert(sizeof(void*) == 8);

TEST(RecordLayout, BandResponse) {
    static_assert(kPlain<KSBandResp>);
    EXPECT_EQ(offsetof(KSBandResp, eRespType), 0U);
    EXPECT_EQ(offsetof(KSBandResp, fCentre), 4U);
    EXPECT_EQ(offsetof(KSBandResp, fParm1), 8U);
    EXPECT_EQ(offsetof(KSBandResp, fParm2), 12U);
    EXPECT_EQ(offsetof(KSBandResp, fFWHM), 16U);
    EXPECT_EQ(offsetof(KSBandResp, fWidth2), 20U);
    EXPECT_EQ(offsetof(KSBandResp, nNumSamples), 24U);
    EXPECT_EQ(offsetof(KSBandResp, pafSamples), 32U);
    EXPECT_EQ(sizeof(KSBandResp), 40U);
}

TEST(RecordLayout, Sensor) {
    static_assert(kPlain<KSSensor>);
    EXPECT_EQ(offsetof(KSSensor, szModelName), 0U);
    EXPECT_EQ(offsetof(KSSensor, eType), 8U);
    EXPECT_EQ(offsetof(KSSensor, fFOVLeft), 12U);
    EXPECT_EQ(offsetof(KSSensor, fFOVRight), 16U);
    EXPECT_EQ(offsetof(KSSensor, fFOVFore), 20U);
    EXPECT_EQ(offsetof(KSSensor, fFOVAft), 24U);
    EXPECT_EQ(offsetof(KSSensor, nNumBands), 28U);
    EXPECT_EQ(offsetof(KSSensor, peBandQual), 32U);
    EXPECT_EQ(offsetof(KSSensor, pBandResp), 40U);
    EXPECT_EQ(sizeof(KSSensor), 48U);
}

TEST(RecordLayout, Mission) {
    static_assert(kPlain<KSMission>);
    EXPECT_EQ(offsetof(KSMission, nYear), 0U);
    EXPECT_EQ(offsetof(KSMission, nMonth), 4U);
    EXPECT_EQ(offsetof(KSMission, nDay), 8U);
    EXPECT_EQ(offsetof(KSMission, nHour), 12U);
    EXPECT_EQ(offsetof(KSMission, nMinute), 16U);
    EXPECT_EQ(offsetof(KSMission, nMissionSpare), 20U);
    EXPECT_EQ(offsetof(KSMission, dLatitude), 24U);
    EXPECT_EQ(offsetof(KSMission, dLongitude), 32U);
    EXPECT_EQ(offsetof(KSMission, fHeight), 40U);
    EXPECT_EQ(offsetof(KSMission, fHeading), 44U);
    EXPECT_EQ(offsetof(KSMission, fForeAftTilt), 48U);
    EXPECT_EQ(sizeof(KSMission), 56U);
}

TEST(RecordLayout, BandReference) {
    static_assert(kPlain<KSBandRef>);
    EXPECT_EQ(offsetof(KSBandRef, eStorage), 0U);
    EXPECT_EQ(offsetof(KSBandRef, nID), 4U);
    EXPECT_EQ(offsetof(KSBandRef, nChan), 8U);
    EXPECT_EQ(offsetof(KSBandRef, nChanType), 12U);
    EXPECT_EQ(sizeof(KSBandRef), 16U);
}

TEST(RecordLayout, AuxiliaryFile) {
    static_assert(kPlain<KSAuxFile>);
    EXPECT_EQ(offsetof(KSAuxFile, szName), 0U);
    EXPECT_EQ(offsetof(KSAuxFile, fp), 8U);
    EXPECT_EQ(offsetof(KSAuxFile, nValue), 16U);
    EXPECT_EQ(offsetof(KSAuxFile, szText), 24U);
    EXPECT_EQ(sizeof(KSAuxFile), 32U);
}

TEST(RecordLayout, Cube) {
    static_assert(kPlain<KSVQubeInfo>);
    EXPECT_EQ(offsetof(KSVQubeInfo, nPixels), 0U);
    EXPECT_EQ(offsetof(KSVQubeInfo, nLines), 4U);
    EXPECT_EQ(offsetof(KSVQubeInfo, nNumVQChans), 8U);
    EXPECT_EQ(offsetof(KSVQubeInfo, panVQChans), 16U);
    EXPECT_EQ(offsetof(KSVQubeInfo, papfVQChan), 24U);
    EXPECT_EQ(offsetof(KSVQubeInfo, nNumNonVQChans), 32U);
    EXPECT_EQ(offsetof(KSVQubeInfo, panNonVQChans), 40U);
    EXPECT_EQ(offsetof(KSVQubeInfo, papfNonVQChan), 48U);
    EXPECT_EQ(offsetof(KSVQubeInfo, nCodeVectors), 56U);
    EXPECT_EQ(offsetof(KSVQubeInfo, nDataType), 60U);
    EXPECT_EQ(offsetof(KSVQubeInfo, nSpare), 64U);
    EXPECT_EQ(offsetof(KSVQubeInfo, nBitsPerIndex), 68U);
    EXPECT_EQ(sizeof(KSVQubeInfo), 72U);
}

TEST(RecordLayout, DataSet) {
    static_assert(kPlain<KSDataSet>);
    EXPECT_EQ(offsetof(KSDataSet, szFileName), 0U);
    EXPECT_EQ(offsetof(KSDataSet, eOpenMode), 8U);
    EXPECT_EQ(offsetof(KSDataSet, GDBFile), 16U);
    EXPECT_EQ(offsetof(KSDataSet, pBandRefs), 24U);
    EXPECT_EQ(offsetof(KSDataSet, nXSize), 32U);
    EXPECT_EQ(offsetof(KSDataSet, nYSize), 36U);
    EXPECT_EQ(offsetof(KSDataSet, nNumRadTrans), 40U);
    EXPECT_EQ(offsetof(KSDataSet, papRadTransSeq), 48U);
    EXPECT_EQ(offsetof(KSDataSet, nNumAuxFiles), 56U);
    EXPECT_EQ(offsetof(KSDataSet, paAuxFiles), 64U);
    EXPECT_EQ(offsetof(KSDataSet, Sensor), 72U);
    EXPECT_EQ(offsetof(KSDataSet, Mission), 120U);
    EXPECT_EQ(offsetof(KSDataSet, VQubeInfo), 176U);
    EXPECT_EQ(sizeof(KSDataSet), 248U);
}

TEST(RecordLayout, RadiometricTransform) {
    static_assert(kPlain<KSRadTrans>);
    EXPECT_EQ(offsetof(KSRadTrans, eRadQuant), 0U);
    EXPECT_EQ(offsetof(KSRadTrans, pafGains), 8U);
    EXPECT_EQ(offsetof(KSRadTrans, pafOffsets), 16U);
    EXPECT_EQ(sizeof(KSRadTrans), 24U);
}

TEST(RecordLayout, Description) {
    static_assert(kPlain<KSDesc>);
    EXPECT_EQ(offsetof(KSDesc, szName), 0U);
    EXPECT_EQ(offsetof(KSDesc, szDesc), 8U);
    EXPECT_EQ(sizeof(KSDesc), 16U);
}

TEST(RecordLayout, Window) {
    static_assert(kPlain<KSWinEx> && kPlain<KSSampDesc>);
    EXPECT_EQ(offsetof(KSSampDesc, nXSampleInt), 0U);
    EXPECT_EQ(offsetof(KSSampDesc, nYSampleInt), 4U);
    EXPECT_EQ(offsetof(KSSampDesc, nNumBands), 8U);
    EXPECT_EQ(offsetof(KSSampDesc, panBandMap), 16U);
    EXPECT_EQ(sizeof(KSSampDesc), 24U);
    EXPECT_EQ(offsetof(KSWinEx, eBandIntlv), 0U);
    EXPECT_EQ(offsetof(KSWinEx, nRadTransLev), 4U);
    EXPECT_EQ(offsetof(KSWinEx, nXOff), 8U);
    EXPECT_EQ(offsetof(KSWinEx, nYOff), 12U);
    EXPECT_EQ(offsetof(KSWinEx, nXSize), 16U);
    EXPECT_EQ(offsetof(KSWinEx, nYSize), 20U);
    EXPECT_EQ(offsetof(KSWinEx, SampDesc), 24U);
    EXPECT_EQ(offsetof(KSWinEx, nNumXSamples), 48U);
    EXPECT_EQ(offsetof(KSWinEx, nNumYSamples), 52U);
    EXPECT_EQ(offsetof(KSWinEx, pafSamples), 56U);
    EXPECT_EQ(offsetof(KSWinEx, papafStart), 64U);
    EXPECT_EQ(sizeof(KSWinEx), 72U);
}

TEST(RecordLayout, IndexWindow) {
    static_assert(kPlain<KSWinIM>);
    EXPECT_EQ(offsetof(KSWinIM, nXOff), 0U);
    EXPECT_EQ(offsetof(KSWinIM, nYOff), 4U);
    EXPECT_EQ(offsetof(KSWinIM, nXSize), 8U);
    EXPECT_EQ(offsetof(KSWinIM, nYSize), 12U);
    EXPECT_EQ(offsetof(KSWinIM, nXSampleInt), 16U);
    EXPECT_EQ(offsetof(KSWinIM, nYSampleInt), 20U);
    EXPECT_EQ(offsetof(KSWinIM, nNumXSamples), 24U);
    EXPECT_EQ(offsetof(KSWinIM, nNumYSamples), 28U);
    EXPECT_EQ(offsetof(KSWinIM, pau16Samples), 32U);
    EXPECT_EQ(offsetof(KSWinIM, papau16Start), 40U);
    EXPECT_EQ(sizeof(KSWinIM), 48U);
}

TEST(RecordLayout, Codebook) {
    static_assert(kPlain<KSCbk>);
    EXPECT_EQ(offsetof(KSCbk, nRadTransLev), 0U);
    EXPECT_EQ(offsetof(KSCbk, nNumBands), 4U);
    EXPECT_EQ(offsetof(KSCbk, panBandMap), 8U);
    EXPECT_EQ(offsetof(KSCbk, nNumVects), 16U);
    EXPECT_EQ(offsetof(KSCbk, pafCodebook), 24U);
    EXPECT_EQ(offsetof(KSCbk, papafCodeVect), 32U);
    EXPECT_EQ(sizeof(KSCbk), 40U);
}

TEST(RecordLayout, Region) {
    static_assert(kPlain<KSROI>);
    EXPECT_EQ(offsetof(KSROI, eROIType), 0U);
    EXPECT_EQ(offsetof(KSROI, nXOff), 4U);
    EXPECT_EQ(offsetof(KSROI, nYOff), 8U);
    EXPECT_EQ(offsetof(KSROI, nXSize), 12U);
    EXPECT_EQ(offsetof(KSROI, nYSize), 16U);
    EXPECT_EQ(offsetof(KSROI, pbyBitmap), 24U);
    EXPECT_EQ(offsetof(KSROI, nBitmapID), 32U);
    EXPECT_EQ(sizeof(KSROI), 40U);
}

TEST(RecordLayout, BandStatistics) {
    static_assert(kPlain<KSBandStats>);
    EXPECT_EQ(offsetof(KSBandStats, nNumSamples), 0U);
    EXPECT_EQ(offsetof(KSBandStats, pMin), 8U);
    EXPECT_EQ(offsetof(KSBandStats, pMax), 16U);
    EXPECT_EQ(offsetof(KSBandStats, pMean), 24U);
    EXPECT_EQ(offsetof(KSBandStats, pSD), 32U);
    EXPECT_EQ(offsetof(KSBandStats, pCov), 40U);
    EXPECT_EQ(sizeof(KSBandStats), 48U);
}

TEST(RecordLayout, SampleTableSchema) {
    static_assert(kPlain<KSSTFld> && kPlain<KSSTSchema>);
    EXPECT_EQ(offsetof(KSSTFld, eFldID), 0U);
    EXPECT_EQ(offsetof(KSSTFld, fWlen), 4U);
    EXPECT_EQ(offsetof(KSSTFld, nFldInd), 8U);
    EXPECT_EQ(offsetof(KSSTFld, nQualFldInd), 12U);
    EXPECT_EQ(sizeof(KSSTFld), 16U);
    EXPECT_EQ(offsetof(KSSTSchema, pMetaFlds), 0U);
    EXPECT_EQ(offsetof(KSSTSchema, nNumMetaFlds), 8U);
    EXPECT_EQ(offsetof(KSSTSchema, pMeasFld), 16U);
    EXPECT_EQ(offsetof(KSSTSchema, nNumMeasFlds), 24U);
    EXPECT_EQ(offsetof(KSSTSchema, pQualFld), 32U);
    EXPECT_EQ(offsetof(KSSTSchema, nNumQualFlds), 40U);
    EXPECT_EQ(sizeof(KSSTSchema), 48U);
}

TEST(RecordLayout, Spectrum) {
    static_assert(kPlain<KSSpectrum>);
    EXPECT_EQ(offsetof(KSSpectrum, szTarget), 0U);
    EXPECT_EQ(offsetof(KSSpectrum, eRadQuant), 8U);
    EXPECT_EQ(offsetof(KSSpectrum, szSourceFile), 16U);
    EXPECT_EQ(offsetof(KSSpectrum, szROIFile), 24U);
    EXPECT_EQ(offsetof(KSSpectrum, paROI), 32U);
    EXPECT_EQ(offsetof(KSSpectrum, nNumROIs), 40U);
    EXPECT_EQ(offsetof(KSSpectrum, nNumSamples), 44U);
    EXPECT_EQ(offsetof(KSSpectrum, nNumMeasVals), 48U);
    EXPECT_EQ(offsetof(KSSpectrum, pMeas), 56U);
    EXPECT_EQ(offsetof(KSSpectrum, pSD), 64U);
    EXPECT_EQ(offsetof(KSSpectrum, pafWlen), 72U);
    EXPECT_EQ(offsetof(KSSpectrum, peBandQual), 80U);
    EXPECT_EQ(offsetof(KSSpectrum, nSpare), 88U);
    EXPECT_EQ(sizeof(KSSpectrum), 96U);
}

TEST(RecordLayout, ConversionCoefficients) {
    static_assert(kPlain<KSConvCoeffs>);
    EXPECT_EQ(offsetof(KSConvCoeffs, pafCoeffs), 0U);
    EXPECT_EQ(offsetof(KSConvCoeffs, nNumCoeffs), 8U);
    EXPECT_EQ(offsetof(KSConvCoeffs, nNumOutBands), 12U);
    EXPECT_EQ(offsetof(KSConvCoeffs, panStartInd), 16U);
    EXPECT_EQ(offsetof(KSConvCoeffs, panEndInd), 24U);
    EXPECT_EQ(sizeof(KSConvCoeffs), 32U);
}

TEST(RecordLayout, SmoothingParameters) {
    static_assert(kPlain<KSSmoothParms>);
    EXPECT_EQ(offsetof(KSSmoothParms, fWidth), 0U);
    EXPECT_EQ(offsetof(KSSmoothParms, pSTSchema), 8U);
    EXPECT_EQ(offsetof(KSSmoothParms, peBandQual), 16U);
    EXPECT_EQ(offsetof(KSSmoothParms, pSensor), 24U);
    EXPECT_EQ(offsetof(KSSmoothParms, bCheckQual), 32U);
    EXPECT_EQ(offsetof(KSSmoothParms, pnIndex1), 40U);
    EXPECT_EQ(offsetof(KSSmoothParms, pnIndex2), 48U);
    EXPECT_EQ(offsetof(KSSmoothParms, nNumSegments), 56U);
    EXPECT_EQ(sizeof(KSSmoothParms), 64U);
}

TEST(RecordLayout, Layer) {
    EXPECT_EQ(offsetof(HostLayer, fp), 0U);
    EXPECT_EQ(offsetof(HostLayer, nSegment), 8U);
    EXPECT_EQ(offsetof(HostLayer, nFlags), 12U);
}

TEST(EnumerationValues, AreThePublishedOnes) {
    EXPECT_EQ((std::vector<int>{KS_SENSOR_UNKNOWN, KS_SENSOR_WHISKBROOM, KS_SENSOR_PUSHBROOM, KS_SENSOR_FRAME}),
              (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ(
        (std::vector<int>{KS_RT_UNKNOWN, KS_RT_GAUSSIAN, KS_RT_TRIANGULAR, KS_RT_BOX, KS_RT_TRAPEZOIDAL, KS_RT_CUSTOM}),
        (std::vector<int>{0, 1, 2, 3, 4, 5}));
    EXPECT_EQ((std::vector<int>{KS_STORE_VQ, KS_STORE_EXPLICIT}), (std::vector<int>{0, 1}));
    EXPECT_EQ((std::vector<int>{KS_INTLV_BAND, KS_INTLV_PIXEL, KS_INTLV_LINE}), (std::vector<int>{0, 1, 2}));
    EXPECT_EQ((std::vector<int>{KS_BQ_UNKNOWN, KS_BQ_PLOT, KS_BQ_SKIP, KS_BQ_MASK, KS_BQ_BMASK}),
              (std::vector<int>{0, 1, 2, 3, 4}));
    EXPECT_EQ((std::vector<int>{KS_FLD_UNKNOWN, KS_FLD_TARGET, KS_FLD_QUANTITY, KS_FLD_SOURCE_FILE, KS_FLD_ROI_FILE,
                                KS_FLD_ROI, KS_FLD_MEAS, KS_FLD_QUAL}),
              (std::vector<int>{0, 1, 2, 3, 4, 5, 7, 8}));
    EXPECT_EQ((std::vector<int>{KS_ROI_UNKNOWN, KS_ROI_POINT, KS_ROI_RECTANGLE, KS_ROI_BITMAP}),
              (std::vector<int>{0, 1, 2, 3}));
    EXPECT_EQ((std::vector<int>{KS_BS_MIN, KS_BS_MAX, KS_BS_MEAN, KS_BS_SD, KS_BS_COV}),
              (std::vector<int>{0x01, 0x02, 0x04, 0x08, 0x10}));
    EXPECT_EQ((std::vector<int>{KS_USE_EX, KS_USE_IM, KS_USE_BOTH}), (std::vector<int>{0, 1, 2}));
}

}  // namespace
