/** kslib: regions of interest.
 *  A region selects image pixels for statistics and spectra: a point with a square neighbourhood, a rectangle, or a
 *  bitmap of any pixels inside a rectangle. Coordinates are image columns and rows, 0-based; an extent is inclusive on
 *  both ends. Failures are reported once. */
#ifndef KSLIB_KSROI_H
#define KSLIB_KSROI_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct KSROI {
    int eROIType; /**< KS_ROI_... */
    int nXOff;    /**< point: column of the centre; rectangle and bitmap: leftmost column */
    int nYOff;    /**< point: row of the centre; rectangle and bitmap: top row */
    int nXSize;   /**< point: side of the square neighbourhood, odd; rectangle and bitmap: width in pixels */
    int nYSize;   /**< rectangle and bitmap: height in pixels; a point does not use it */
    /** Bitmap: one bit a pixel, row after row without padding, the first pixel in the top bit of byte 0; owned.
     *  (nXSize * nYSize + 7) / 8 bytes. Null for the other kinds. */
    unsigned char* pbyBitmap;
    int nBitmapID; /**< bitmap: number of the bitmap in a spectrum's region file, from 1; -1 when unset */
};

/* ---- records ---- */

/** A new record: type 0, offsets, sizes and number -1, no bitmap. Returns null after a report. */
KS_API KSROI* KSCreateROI(void);

/** Frees a record and its bitmap; null is accepted. Elements of an array are not freed singly. */
KS_API void KSFreeROI(KSROI* pROI);

/** Grows an array of nNumROIs records by one new record at its end; with 0 records a new array is made and paROI is
 *  ignored. Returns the array that replaces paROI, or null after a report with paROI still valid. */
KS_API KSROI* KSAddROI(KSROI* paROI, int nNumROIs);

/** Frees an array and the bitmaps of its records; null is accepted. */
KS_API void KSFreeROIList(KSROI* paROI, int nNumROIs);

/* ---- regions and windows ---- */

/** Tells whether a region overlaps a window, and which samples of the window its extent covers. The window starts at
 *  pixel (nXOff, nYOff); each sample stands for nXSampleInt columns and nYSampleInt rows, the last one too.
 *  Outputs  *pbOverlap 1 or 0; when 1, the first and last covered sample each way, 0-based and inclusive. The first one
 *  may lie before the region when the interval is above 1: KSInROIWin tells for a single sample.
 *  Returns 0, or 1 after a report with no output written. */
KS_API int KSROIWin(const KSROI* pROI, int nXOff, int nYOff, int nNumXSamples, int nNumYSamples, int nXSampleInt,
                    int nYSampleInt, int* pbOverlap, int* pnXStart, int* pnYStart, int* pnXEnd, int* pnYEnd);
/** The same for an explicit window. */
KS_API int KSROIWinEx(const KSROI* pROI, const KSWinEx* pWinEx, int* pbOverlap, int* pnXStart, int* pnYStart,
                      int* pnXEnd, int* pnYEnd);
/** The same for an index-map window. */
KS_API int KSROIWinIM(const KSROI* pROI, const KSWinIM* pWinIM, int* pbOverlap, int* pnXStart, int* pnYStart,
                      int* pnXEnd, int* pnYEnd);

/** Writes to *pbInROI whether sample (nXSample, nYSample) of a window lies in the region; its pixel is
 *  nXOff + nXSample * nXSampleInt, nYOff + nYSample * nYSampleInt. Returns 0, or 1 after a report with nothing written.
 */
KS_API int KSInROIWin(const KSROI* pROI, int nXOff, int nYOff, int nXSampleInt, int nYSampleInt, int nXSample,
                      int nYSample, int* pbInROI);
KS_API int KSInROIWinEx(const KSROI* pROI, const KSWinEx* pWinEx, int nXSample, int nYSample, int* pbInROI);
KS_API int KSInROIWinIM(const KSROI* pROI, const KSWinIM* pWinIM, int nXSample, int nYSample, int* pbInROI);

/** The union of the regions of an array as a bitmap region: a new one that just holds them (free with KSFreeROI), or
 *  pConsROI, whose extent and bits stay and which clips them.
 *  Returns null after a report. A region of unknown type among the others frees the result, pConsROI too: it must not
 *  be used after that. When no bitmap can be had, a new region is returned without one after a report: test pbyBitmap.
 */
KS_API KSROI* KSConsolidateROIs(const KSROI* paROI, int nNumROIs, KSROI* pConsROI);

/* ---- bitmaps ---- */

/** Gives a bitmap region a bitmap of zeros for its sizes; one that it had is not freed. Returns 0, or 1 after a report.
 */
KS_API int KSAllocROIBitmap(KSROI* pROI);

/** Bits by pixel relative to the corner of a bitmap region. A pixel without a bit is left alone and reads as 0. */
KS_API void KSSetROIBit(KSROI* pROI, int nX, int nY);
KS_API void KSClrROIBit(KSROI* pROI, int nX, int nY);
KS_API int KSGetROIBit(const KSROI* pROI, int nX, int nY);

/** Rows relative to nYOff that contain every set bit; found byte by byte, so up to two rows more than needed. The whole
 *  bitmap when no bit is set. Returns 0, or 1 after a report. */
KS_API int KSBitmapROIBounds(const KSROI* pROI, int* pnFirstRow, int* pnLastRow);

#ifdef __cplusplus
}
#endif
#endif
