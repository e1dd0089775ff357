/** kslib: band statistics.
 *  Minimum, maximum, mean, standard deviation and covariance of the samples of an image or a region of it, in one pass
 *  over blocks that fit the host's memory allowance, in double precision. */
#ifndef KSLIB_KSSTATS_H
#define KSLIB_KSSTATS_H

#include <kslib/ksmatrix.h>
#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Members of a statistics record. */
enum { KS_BS_MIN = 0x01, KS_BS_MAX = 0x02, KS_BS_MEAN = 0x04, KS_BS_SD = 0x08, KS_BS_COV = 0x10 };

/** The caller's record. A statistic is wanted when its pointer is not null; vectors have one element for each selected
 *  band, in the order of the band map. */
typedef struct KSBandStats {
    unsigned int nNumSamples; /**< samples that entered the last evaluation */
    VEC* pMin;
    VEC* pMax; /**< never below 1.1754943508222875e-38, where it starts */
    VEC* pMean;
    VEC* pSD;  /**< of the population: the denominator is the number of samples */
    MAT* pCov; /**< square, of the population */
} KSBandStats;

/** Allocates members (KS_BS_..., combined) for nNumBands bands after setting all five to null; nNumSamples stays.
 *  Returns 0, or 1 after a report with all members null. */
KS_API int KSAllocMembsBandStats(KSBandStats* pBandStats, unsigned char byMembers, int nNumBands);

/** Frees the members and sets them null; the record is the caller's; null is accepted. */
KS_API void KSFreeMembsBandStats(KSBandStats* pBandStats);

/** Evaluates the members that are present, over a region or, with a null pROI, the whole image.
 *  nRadTransLev  level of the values, 0..nNumRadTrans.
 *  pSampDesc     band map and sample intervals; null: every band, every sample. Without bands nothing is done.
 *  The region is not clipped to the image. With a row interval above 1, rows between two blocks are not sampled. No
 *  samples leave the members as they start: minimum 3.4028234663852886e38, maximum 1.1754943508222875e-38, others 0.
 *  Returns 0, or 1 after a report; the members may then hold partial sums. */
KS_API int KSEvalBandStats(const KSDataSet* pDataSet, int nRadTransLev, const KSSampDesc* pSampDesc, const KSROI* pROI,
                           KSBandStats* pBandStats);

/** The same over the absolute differences between each sample and the one nXDiffOff columns and nYDiffOff rows of
 *  samples further on: an estimate of noise. Pairs must lie in one block. Without a region the last column and row that
 *  have a neighbour are left out; with one, so are its last column and row, and columns start at the number of its
 *  first row within the block. */
KS_API int KSEvalDiffBandStats(const KSDataSet* pDataSet, int nRadTransLev, int nXDiffOff, int nYDiffOff,
                               const KSSampDesc* pSampDesc, const KSROI* pROI, KSBandStats* pBandStats);

#ifdef __cplusplus
}
#endif
#endif
