/** kslib: windows of explicit samples.
 *  A window is a rectangle of an image in memory: offset and size in image pixels and lines, a sample interval each
 * way, a band map that says which bands, in which order, make each sample's band vector, and an interleave.
 *
 *  Life cycle: KSInitWinEx, set sizes, KSAllocWinEx, fill the band map, KSReadWinEx or inserts, KSFreeWinEx. */
#ifndef KSLIB_KSWINEX_H
#define KSLIB_KSWINEX_H

#include <kslib/ksmatrix.h>
#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Band interleave: where component b of sample (x, y) is. */
enum {
    KS_INTLV_BAND = 0,  /**< papafStart[b][nNumXSamples * y + x]; one start per band */
    KS_INTLV_PIXEL = 1, /**< papafStart[y][nNumBands * x + b]; one start per sample row */
    KS_INTLV_LINE = 2   /**< papafStart[y][nNumXSamples * b + x]; one start per sample row */
};

struct KSSampDesc {
    int nXSampleInt; /**< every n-th pixel, at least 1 */
    int nYSampleInt; /**< every n-th line, at least 1 */
    int nNumBands;   /**< components of a band vector */
    int* panBandMap; /**< 0-based data set band of each component, owned */
};

struct KSWinEx {
    int eBandIntlv;   /**< KS_INTLV_... */
    int nRadTransLev; /**< radiometric transforms applied when reading, undone when writing; 0 is stored values */
    int nXOff;        /**< first image pixel, 0-based */
    int nYOff;        /**< first image line, 0-based */
    int nXSize;       /**< width in image pixels */
    int nYSize;       /**< height in image lines */
    KSSampDesc SampDesc;
    int nNumXSamples;   /**< nXSize / SampDesc.nXSampleInt */
    int nNumYSamples;   /**< nYSize / SampDesc.nYSampleInt */
    float* pafSamples;  /**< nNumBands * nNumXSamples * nNumYSamples values in one block, owned */
    float** papafStart; /**< starts within pafSamples, by interleave, owned */
};

/** Zeroes the record and sets pixel interleave. pWinEx must not be null. */
KS_API void KSInitWinEx(KSWinEx* pWinEx);

/** Allocates samples, starts and band map for the interleave, sizes, intervals and SampDesc.nNumBands that the caller
 * set. Samples and band map come back unset. Returns 0, or 1 after a report; the window then holds no buffers. */
KS_API int KSAllocWinEx(KSWinEx* pWinEx);

/** Allocates samples and starts alone, from the sample counts. Returns 0, or 1 after a report with both null. */
KS_API int _KSAllocWinEx(KSWinEx* pWinEx);

/** Gives an allocated window new sizes and intervals; the samples are lost, offsets and band map stay.
 *  Returns 0, or 1 after a report; the window then holds no buffers and no band map. */
KS_API int KSResizeWinEx(KSWinEx* pWinEx, int nXSize, int nYSize, int nXSampleInt, int nYSampleInt);

/** Frees the three arrays and sets them null; null is accepted. Returns 0. */
KS_API int KSFreeWinEx(KSWinEx* pWinEx);

/** Copies one sample's band vector out of a window, in band-map order.
 *  pBandVect  dim == SampDesc.nNumBands; the caller's, overwritten.   nXSample, nYSample  0-based.
 *  Returns 0, or 1 after one report; pBandVect is then unchanged. */
KS_API int KSExtractVectWinEx(VEC* pBandVect, const KSWinEx* pWinEx, int nXSample, int nYSample);

/** Stores a band vector as one sample, each component rounded to single precision.
 *  Returns 0, or 1 after one report; the window is then unchanged. */
KS_API int KSInsertVectWinEx(const VEC* pBandVect, KSWinEx* pWinEx, int nXSample, int nYSample);

/** Maps source samples onto a destination by image position and band. The destination is never written: the call
 * succeeds only for a destination without samples, and otherwise reports the insertion at (0, 0) and returns 1. */
KS_API int KSCopyWinEx(const KSWinEx* pWinExSrc, KSWinEx* pWinExDst);

/** Fills an allocated window from an open data set, reduced to the sample intervals, at level nRadTransLev: one gain
 * and one offset per band, multiplied then added in single precision. A window of no size succeeds without reading.
 *  Returns 0, or 1 after one report. A failed transfer is the host's to report. */
KS_API int KSReadWinEx(const KSDataSet* pDataSet, KSWinEx* pWinEx);

/** Writes a window with sample intervals 1 into explicit channels of a data set open for writing, undoing the
 * transforms up to nRadTransLev: component j is taken through gain and offset j of the chain, so a level above 0 wants
 * the band map 0, 1, 2, ... A pixel-interleaved window holds the stored values afterwards. Returns 0, or 1 after one
 * report with nothing written. A failed transfer is the host's to report. */
KS_API int KSWriteWinEx(const KSDataSet* pDataSet, KSWinEx* pWinEx);

#ifdef __cplusplus
}
#endif
#endif
