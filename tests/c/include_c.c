/* The public headers from C, and a few calls through them. Prints nothing and returns 0 when all is well. */
#include <kslib.h>
#include <kshost_app.h>

#include <stdlib.h>
#include <string.h>

_Static_assert(sizeof(KSWinEx) == 72, "a window's layout does not depend on the language");
_Static_assert(sizeof(KSDataSet) == 248, "a data set's layout does not depend on the language");
_Static_assert(sizeof(KSROI) == 40, "a region's layout does not depend on the language");
_Static_assert(sizeof(KSSpectrum) == 96, "a spectrum's layout does not depend on the language");

static int nReports = 0;

static void count(void *pUser, int nCode, int nSeverity, const char *szText) {
    (void)pUser;
    (void)nSeverity;
    if (nCode == 83 && strcmp(szText, "KSAllocWinEx(): pWinEx == NULL\n") == 0) ++nReports;
}

static int checkWindow(void) {
    KSWinEx window;
    KSInitWinEx(&window);
    window.nXSize = 4;
    window.nYSize = 3;
    window.SampDesc.nXSampleInt = 2;
    window.SampDesc.nYSampleInt = 1;
    window.SampDesc.nNumBands = 5;
    if (KSAllocWinEx(&window) != 0) return 1;
    if (window.nNumXSamples != 2 || window.nNumYSamples != 3) return 1;
    VEC *pVector = v_get(5);
    for (int b = 0; b < 5; ++b) pVector->ve[b] = 0.5 * b;
    if (KSInsertVectWinEx(pVector, &window, 1, 2) != 0) return 1;
    v_zero(pVector);
    if (KSExtractVectWinEx(pVector, &window, 1, 2) != 0) return 1;
    const int bSame = pVector->ve[4] == 2.0;
    v_free(pVector);
    KSFreeWinEx(&window);
    return !bSame;
}

/* Regions, their union, and the statistics records. */
static int checkRegion(void) {
    KSROI *paROI = KSAddROI(NULL, 0);
    if (paROI == NULL) return 1;
    paROI[0].eROIType = KS_ROI_RECTANGLE;
    paROI[0].nXOff = 10;
    paROI[0].nYOff = 10;
    paROI[0].nXSize = 3;
    paROI[0].nYSize = 2;
    KSROI *pUnion = KSConsolidateROIs(paROI, 1, NULL);
    KSFreeROIList(paROI, 1);
    if (pUnion == NULL || pUnion->nXSize != 3 || KSGetROIBit(pUnion, 2, 1) != 1) return 1;
    int bOverlap = 0, nXStart = 0, nYStart = 0, nXEnd = 0, nYEnd = 0;
    const int nFailed = KSROIWin(pUnion, 0, 0, 6, 6, 2, 2, &bOverlap, &nXStart, &nYStart, &nXEnd, &nYEnd);
    KSFreeROI(pUnion);
    if (nFailed != 0 || bOverlap != 1 || nXStart != 5 || nXEnd != 5) return 1;
    KSBandStats stats;
    if (KSAllocMembsBandStats(&stats, KS_BS_MEAN | KS_BS_COV, 4) != 0) return 1;
    const int bGood = stats.pMean->dim == 4 && stats.pCov->n == 4 && stats.pSD == NULL;
    KSFreeMembsBandStats(&stats);
    return !bGood;
}

/* A schema by itself, a spectrum of it, and the names of its fields. */
static int checkSpectrum(void) {
    KSSTFld field = {KS_FLD_MEAS, 450.5f, 0, -1};
    KSSTSchema schema = {NULL, 0, &field, 1, NULL, 0};
    KSSpectrum *pSpectrum = KSCreateSpec(&schema);
    if (pSpectrum == NULL || pSpectrum->nNumMeasVals != 1 || pSpectrum->pafWlen[0] != 450.5f) return 1;
    KSFreeSpec(pSpectrum);
    char *szName = _WlenToMeasFldName(450.5f);
    const int bSame = szName != NULL && strcmp(szName, "m450_500") == 0;
    free(szName);
    KSFreeSmoothParms(KSCreateSmoothParms(2));
    KSConvCoeffs *pCoeffs = KSCreateConvCoeffs(1, 1);
    if (pCoeffs == NULL || pCoeffs->panStartInd[0] != -1) return 1;
    KSFreeConvCoeffs(pCoeffs);
    free(pCoeffs);
    return !bSame;
}

/* A table in memory, the labels of a radiance table, a spectrum between spectra, and a card. */
static int checkTable(void) {
    KSLUT *pLUT = KSLUTCreate(3);
    const int anSizes[3] = {4, 5, 6};
    int64_t anDistances[3] = {0, 0, 0};
    if (pLUT == NULL || KSLUTSetSizes(pLUT, anSizes) != 1 || KSLUTGetElemDist(pLUT, anDistances) != 1) return 1;
    KSLUTDestroy(pLUT);
    KSLUTVector *pVector = KSLUTVectorCreate(3);
    if (pVector == NULL || KSLUTVectorSetValues(pVector, anDistances) != 1 || pVector->panValues[0] != 30) return 1;
    KSLUTVectorDestroy(pVector);
    RLUT *pRLUT = RLUTCreate();
    int nDimension = 0;
    if (pRLUT == NULL || KSLUTGetDimensionFromLabel(pRLUT, gaszRLUTLabels[8], &nDimension) != 1) return 1;
    KSLUTDestroy(pRLUT);
    KSMT4Card4 card;
    char szLine[KS_MT4_LINE];
    memset(&card, 0, sizeof card);
    card.fV1 = 400.0f, card.fV2 = 2500.0f, card.fDV = 1.0f, card.fFWHM = 2.0f;
    return nDimension != RLUT_WAVELENGTH || KSMT4EvalCard4(&card, szLine) != 0;
}

/* Angles and coefficients, which write their outputs only. */
static int checkAngles(void) {
    float fZenith = -1.0f, fAzimuth = -1.0f;
    KSSolarZAz(2020, 6, 21, 12, 0, 0, 0.0f, 0.0f, &fZenith, &fAzimuth);
    double adCoefs[4] = {0.0, 0.0, 0.0, 0.0};
    return !(fZenith > 20.0f && fZenith < 26.0f) ||
           KSEvalSRCoeffs(0.0f, 0.0f, 0.0f, 0.0f, 0.0f, 0.0f, &adCoefs[0], &adCoefs[1], &adCoefs[2], &adCoefs[3]) != 1;
}

int main(void) {
    if (KSWlenComp(0.5004f, 0.5f) != 0) return 1;
    if (strcmp(aKSRadQuant[KS_RQ_REFL].szName, "refl") != 0) return 1;
    KSRadTrans *pRadTrans = KSCreateRadTrans(3);
    if (pRadTrans == NULL) return 1;
    KSFreeRadTrans(pRadTrans);
    if (checkWindow() != 0 || checkRegion() != 0 || checkSpectrum() != 0) return 1;
    if (checkTable() != 0 || checkAngles() != 0) return 1;
    KSHostSetErrorHandler(count, NULL);
    if (KSAllocWinEx(NULL) != 1 || nReports != 1) return 1;
    return 0;
}
