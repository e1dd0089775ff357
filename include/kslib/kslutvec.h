/** kslib: vectors of 64-bit values, one for each dimension of a look-up table.
 *  Offsets, extents and steps of transfers. Like the tables, these operations return 1 for success and 0 for failure,
 *  and report nothing. */
#ifndef KSLIB_KSLUTVEC_H
#define KSLIB_KSLUTVEC_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct KSLUTVector {
    int nDimensions;    /**< number of values, at least 1 */
    int64_t* panValues; /**< owned */
};

/** A vector of nDimensions (1 or more) zeros, or null. Free with KSLUTVectorDestroy. */
KS_API KSLUTVector* KSLUTVectorCreate(int nDimensions);
/** A copy of a vector, or null. */
KS_API KSLUTVector* KSLUTVectorCreateFrom(const KSLUTVector* pSrc);
/** Copies all values between vectors of the same number of dimensions. */
KS_API int KSLUTVectorSetFrom(const KSLUTVector* pSrc, KSLUTVector* pDst);
/** Null is accepted. */
KS_API void KSLUTVectorDestroy(KSLUTVector* pVec);

KS_API int KSLUTVectorZero(KSLUTVector* pVec);
/** Copies nDimensions values in; a null array zeroes them. */
KS_API int KSLUTVectorSetValues(KSLUTVector* pVec, const int64_t* panValues);
/** Copies nDimensions values out; a null array is left alone, with success. */
KS_API int KSLUTVectorGetValues(const KSLUTVector* pVec, int64_t* panValues);
/** One value, 0 <= i < nDimensions; the output may be null. */
KS_API int KSLUTVectorSetValue(KSLUTVector* pVec, int i, int64_t nValue);
KS_API int KSLUTVectorGetValue(const KSLUTVector* pVec, int i, int64_t* pnValue);
KS_API int KSLUTVectorGetDimensions(const KSLUTVector* pVec, int* pnDimensions);

#ifdef __cplusplus
}
#endif
#endif
