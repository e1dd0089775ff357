/** kslib: additions that share the library's kernels where the given functions answer another question than a user
 * asks. */
#ifndef KSLIB_EXTRA_H
#define KSLIB_EXTRA_H

#include <kslib/kssmooth.h>
#include <kslib/ksstats.h>
#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Encodes like KSVQEncodeWin, with the best distance reset for every sample: each gets the number of its nearest code
 * vector, of equally near ones the lowest; a sample that has no distance to any (not-a-number) gets 0. Returns 0, or 1
 * after a debug report. */
KS_API int KSXVQEncodeNearest(const KSCbk* pCbk, KSWinIM* pWinIM, const KSWinEx* pWinEx);

/** Like KSEvalBandStats, for all values, regions and intervals: the minimum starts at infinity and the maximum at minus
 *  infinity, the region is clipped to the image and sampled at its whole intervals without gaps (one sample where it is
 *  smaller than an interval), and a variance that rounds below zero counts as 0. A not-a-number makes all statistics of
 *  its band not-a-number: leave such pixels out with a bitmap region. Returns 0, or 1 after a report. */
KS_API int KSXEvalBandStats(const KSDataSet* pDataSet, int nRadTransLev, const KSSampDesc* pSampDesc, const KSROI* pROI,
                            KSBandStats* pBandStats);

/** Like KSEvalDiffBandStats, in the same way: over all pairs of samples nXDiffOff columns and nYDiffOff rows of samples
 *  apart, each 0 or more, whose both samples lie in the region. Returns 0, or 1 after a report. */
KS_API int KSXEvalDiffBandStats(const KSDataSet* pDataSet, int nRadTransLev, int nXDiffOff, int nYDiffOff,
                                const KSSampDesc* pSampDesc, const KSROI* pROI, KSBandStats* pBandStats);

/** Smooth a vector in place like KSSmoothGauss and KSSmoothMedian, each value of a segment in a window of its own that
 *  lies around it: N / 2 values to either side, N = fWidth + 0.5, or fewer where the segment, from pnIndex1 to pnIndex2
 *  inclusive, ends sooner. Windows never leave their segment. The Gaussian weighs values by exp(-(d / fWidth)^2), d the
 *  distance of their wavelengths in pSTSchema, which has as many; the median does not use pSTSchema. With bCheckQual, a
 *  value that is not finite, masked (-1.23e34), or of quality skip or mask by peBandQual (else by pSensor) stays as it
 *  is and ends the windows around it like the end of a segment. Return 1, or 0 after a report. */
KS_API int KSXSmoothGauss(VEC* pValues, KSSmoothParms* psParms);
KS_API int KSXSmoothMedian(VEC* pValues, KSSmoothParms* psParms);

/** What unmixing needs of a set of endmembers, made once and then shared: nothing changes it. */
typedef struct KSXUnmixer KSXUnmixer;

/** What became of a sample. */
enum {
    KSX_UNMIX_SOLVED = 0,
    KSX_UNMIX_NOT_CONVERGED = 1, /**< the non-negative solver gave up; fractions and misfit are not-a-number */
    KSX_UNMIX_INVALID = 2        /**< a value was not finite; fractions and misfit are not-a-number */
};

/** Prepares unmixing with the options of get_endmember_fractions.
 *  papafEndmembers  a row for each band, nNumEndmembers finite values each; copied, and no further row is asked for.
 *  Returns the caller's to free with KSXFreeUnmixer, or null after a report. */
KS_API KSXUnmixer* KSXCreateUnmixer(const float* const* papafEndmembers, int nNumEndmembers, int nNumBands,
                                    int bSumToOne, int bNonNegative, int bNormalise);

/** Null is accepted. */
KS_API void KSXFreeUnmixer(KSXUnmixer* pUnmixer);

/** Unmixes every sample of a window, each to the bit as get_endmember_fractions does with the element for the sum
 * filled in. Calls that share pUnmixer may run at the same time. pWinEx        SampDesc.nNumBands as the unmixer's.
 *  pafFractions  nNumEndmembers fractions and the misfit of each sample, row by row.
 *  pbyStatus     KSX_UNMIX_... of each sample.
 *  Returns 0, or 1 after a report with the outputs unchanged. */
KS_API int KSXUnmixWin(const KSXUnmixer* pUnmixer, const KSWinEx* pWinEx, float* pafFractions,
                       unsigned char* pbyStatus);

#ifdef __cplusplus
}
#endif
#endif
