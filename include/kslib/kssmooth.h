/** kslib: smoothing of spectra.
 *  A value becomes a Gaussian-weighted mean or the median of its neighbours, within segments of the band list that the
 *  caller names, so that smoothing never crosses, say, an absorption gap. */
#ifndef KSLIB_KSSMOOTH_H
#define KSLIB_KSSMOOTH_H

#include <kslib/ksmatrix.h>
#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct KSSmoothParms {
    float fWidth;          /**< window width in samples; also the Gaussian's width, in wavelength */
    KSSTSchema* pSTSchema; /**< wavelength of each value and the number of values; not owned */
    int* peBandQual;       /**< quality of each value, KS_BQ_...; not owned; set by KSSmoothSpectrum and KSSmoothLib */
    KSSensor* pSensor;     /**< when set, its band qualities decide instead; not owned */
    int bCheckQual;        /**< nonzero: a window that holds an unusable value is not smoothed */
    int* pnIndex1;         /**< first value of each segment, 0-based; below N / 2 it moves up by N / 2; owned */
    int* pnIndex2;         /**< last value of each segment, itself not smoothed; nearer to the last value than a whole
                                window it moves down by N / 2; owned */
    int nNumSegments;
} KSSmoothParms;

/** Smooths a vector in place. Returns 1 on success and 0 on failure, unlike the library's other calls. */
typedef int (*KSSmoothFunc)(VEC* pValues, KSSmoothParms* psParms);

/** A record of zeros with room for nNumSegments segments. Returns null after a report. */
KS_API KSSmoothParms* KSCreateSmoothParms(int nNumSegments);

/** Frees the record and its index arrays; null is accepted. */
KS_API void KSFreeSmoothParms(KSSmoothParms* psSmoothParms);

/** Gaussian-weighted mean over N values around each centre c: c - N / 2 to c + N / 2 - 1, where N is fWidth rounded to
 *  whole values. The weights are those of the first window of a segment, in wavelength; for odd N the last of them
 *  weighs a 0. Values outside the vector are reported and count as 0. Returns 1; 0 after a report, and without one when
 *  N is below 2. */
KS_API int KSSmoothGauss(VEC* pValues, KSSmoothParms* psParms);

/** Median of the N values around each centre. For odd N the window lacks its last value, and the greatest one of the
 *  window before it, also of another segment, takes its place (0 at first); for even N the two values above the middle
 *  are averaged, and of two values the greater one is taken. Returns 1, also when N is below 2; 0 after a report. */
KS_API int KSSmoothMedian(VEC* pValues, KSSmoothParms* psParms);

/** Smooths a spectrum's values with its own qualities. Returns 0 whatever the function returned, or 1 after a report.
 */
KS_API int KSSmoothSpectrum(KSSpectrum* psSpe, KSSmoothParms* psParms, KSSmoothFunc pfSmoothFunc);

/** Smooths every band vector of a window. Returns 0, or 1 after a report; vectors before the failing one are smoothed.
 */
KS_API int KSSmoothWinEx(KSWinEx* psWinEx, KSSmoothParms* psParms, KSSmoothFunc pfSmoothFunc);

/** Smooths every code vector of a codebook. Returns as KSSmoothWinEx. */
KS_API int KSSmoothCbk(KSCbk* psCbk, KSSmoothParms* psParms, KSSmoothFunc pfSmoothFunc);

/** Appends every spectrum of a layer, smoothed with its own qualities, to a layer of the same fields. What cannot be
 *  read, smoothed or stored is reported and gone on from. peBandQual is null afterwards. Returns 0, or 1 after a report
 *  when no spectrum could be made for the layer. */
KS_API int KSSmoothLib(HostLayer* hLayerIn, HostLayer* hLayerOut, KSSmoothParms* psParms, KSSmoothFunc pfSmoothFunc);

#ifdef __cplusplus
}
#endif
#endif
