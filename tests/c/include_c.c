/* The public headers from C, and a few calls through them. Prints nothing and returns 0 when all is well. */
#include <kslib.h>
#include <kshost_app.h>

#include <string.h>

_Static_assert(sizeof(KSWinEx) == 72, "a window's layout does not depend on the language");
_Static_assert(sizeof(KSDataSet) == 248, "a data set's layout does not depend on the language");

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

int main(void) {
    if (KSWlenComp(0.5004f, 0.5f) != 0) return 1;
    if (strcmp(aKSRadQuant[KS_RQ_REFL].szName, "refl") != 0) return 1;
    KSRadTrans *pRadTrans = KSCreateRadTrans(3);
    if (pRadTrans == NULL) return 1;
    KSFreeRadTrans(pRadTrans);
    if (checkWindow() != 0) return 1;
    KSHostSetErrorHandler(count, NULL);
    if (KSAllocWinEx(NULL) != 1 || nReports != 1) return 1;
    return 0;
}
