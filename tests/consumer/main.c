/* A program of somebody else's: uses the library, the host and a Meschach vector from an installed kslib. */
#include <kshost_app.h>
#include <kslib.h>

int main(void) {
    KSWinEx window;
    VEC *vector = v_get(3);
    KSInitWinEx(&window);
    window.nXSize = 4;
    window.nYSize = 2;
    window.SampDesc.nXSampleInt = 1;
    window.SampDesc.nYSampleInt = 1;
    window.SampDesc.nNumBands = 3;
    if (KSAllocWinEx(&window) != 0) return 1;
    vector->ve[1] = 0.5;
    if (KSInsertVectWinEx(vector, &window, 3, 1) != 0) return 2;
    if (window.papafStart[1][3 * 3 + 1] != 0.5f) return 3;
    if (KSHostErrorCount() != 0) return 4;
    V_FREE(vector);
    return KSFreeWinEx(&window);
}
