/** kslib: windows of code-vector indexes.
 *  A vector-quantized image keeps, for every pixel, the 16-bit number of the code vector that stands for it. An
 * index-map window is a rectangle of these numbers in memory, with a sample interval each way. Failures are debug
 * reports. */
#ifndef KSLIB_KSWINIM_H
#define KSLIB_KSWINIM_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct KSWinIM {
    int nXOff;               /**< first image pixel, 0-based */
    int nYOff;               /**< first image line, 0-based */
    int nXSize;              /**< width in image pixels */
    int nYSize;              /**< height in image lines */
    int nXSampleInt;         /**< every n-th pixel, at least 1 */
    int nYSampleInt;         /**< every n-th line, at least 1 */
    int nNumXSamples;        /**< nXSize / nXSampleInt */
    int nNumYSamples;        /**< nYSize / nYSampleInt */
    uint16_t* pau16Samples;  /**< nNumXSamples * nNumYSamples indexes, row after row, owned */
    uint16_t** papau16Start; /**< nNumYSamples row starts within pau16Samples, owned */
};

/** Zeroes the record and returns it. pWinIM must not be null. */
KS_API KSWinIM* KSInitWinIM(KSWinIM* pWinIM);

/** Allocates the arrays for the sizes and intervals that the caller set; indexes come back unset.
 *  Returns 0, or 1 after a report; the arrays are then null. */
KS_API int KSAllocWinIM(KSWinIM* pWinIM);

/** Allocates the arrays alone, from the sample counts; a count of 0 gives empty arrays that are not null.
 *  Returns 0, or 1 after a report with both null. */
KS_API int _KSAllocWinIM(KSWinIM* pWinIM);

/** Gives an allocated window new sizes and intervals; the indexes are lost.
 *  Returns 0, or 1 after a report; the arrays are then null. */
KS_API int KSResizeWinIM(KSWinIM* pWinIM, int nXSize, int nYSize, int nXSampleInt, int nYSampleInt);

/** Frees both arrays and sets them null. Returns 0, or 1 after a report for a null window. */
KS_API int KSFreeWinIM(KSWinIM* pWinIM);

/** Fills a window from the data set's cube. With an interval above 1, rows start at the window's first line and columns
 * one interval in: sample (x, y) is element y * nYSampleInt * nXSize + (x + 1) * nXSampleInt of the full rectangle,
 * which for the last sample of a row can be the first of the next; past the end it is 0. Returns 0, or 1 after a
 * report. */
KS_API int KSReadWinIM(const KSDataSet* pDataSet, KSWinIM* pWinIM);

/** Sets every destination sample to 0: only positions outside the source in both directions are taken from it, and
 * there it holds nothing. Returns 0, or 1 after a report. */
KS_API int KSCopyWinIM(const KSWinIM* pWinIMSrc, KSWinIM* pWinIMDst);

/** Writes the index map of the whole image; the window must cover it, its offsets are not consulted.
 *  Returns 0, or 1 (after a report, except when the host refuses the map). */
KS_API int KSWriteWinIM(const KSDataSet* pDataSet, const KSWinIM* pWinIM);

#ifdef __cplusplus
}
#endif
#endif
