/** kslib: codebooks of vector-quantized cubes.
 *  A codebook holds, for some of the data set's bands, every code vector as single-precision values, optionally
 * calibrated. */
#ifndef KSLIB_KSCBK_H
#define KSLIB_KSCBK_H

#include <kslib/ksmatrix.h>
#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct KSCbk {
    int nRadTransLev;      /**< radiometric transforms applied when reading; 0 is stored values */
    int nNumBands;         /**< components of a code vector */
    int* panBandMap;       /**< 0-based data set band of each component, owned */
    int nNumVects;         /**< number of code vectors */
    float* pafCodebook;    /**< nNumVects * nNumBands values, vector after vector, owned */
    float** papafCodeVect; /**< nNumVects starts within pafCodebook, owned */
};

/** Zeroes the record and returns it. pCbk must not be null. */
KS_API KSCbk* KSInitCbk(KSCbk* pCbk);

/** Allocates band map, values and starts for the nNumBands and nNumVects that the caller set; a count of 0 or below
 * leaves its arrays null. Band map and values come back unset. Returns 0, or 1 after a report. */
KS_API int KSAllocCbk(KSCbk* pCbk);

/** Frees the three arrays and sets them null. Returns 0, or 1 after a report for a null codebook. */
KS_API int KSFreeCbk(KSCbk* pCbk);

/** Fills an allocated codebook with its band map set from the data set's cube, at level nRadTransLev.
 *  nNumVects must be the cube's. Returns 0, or 1 after a report. */
KS_API int KSReadCbk(const KSDataSet* pDataSet, KSCbk* pCbk);

/** Writes a codebook into the data set's cube as it is: integer types keep the low bits of the truncated values, and no
 *  transform is undone. Returns 0, or 1 (after a report, except when the host refuses the codebook). */
KS_API int KSWriteCbk(const KSDataSet* pDataSet, const KSCbk* pCbk);

/** Copies code vectors, matching components by band. Returns 0, or 1 after a report. */
KS_API int KSCopyCbk(const KSCbk* pCbkSrc, KSCbk* pCbkDst);

/** Copies code vector nCodeVect (0-based) into a vector of nNumBands components. Returns 0, or 1 after a report. */
KS_API int KSExtractVectCbk(VEC* pCodeVect, const KSCbk* pCbk, int nCodeVect);

/** Stores a vector as code vector nCodeVect, rounded to single precision. Returns 0, or 1 after a report. */
KS_API int KSInsertVectCbk(const VEC* pCodeVect, KSCbk* pCbk, int nCodeVect);

#ifdef __cplusplus
}
#endif
#endif
