/** kslib: radiometric transforms.
 *  A transform maps the value x of band b to pafGains[b] * x + pafOffsets[b]. A data set carries a chain of them, first
 *  applied first: level 0 is the stored values, level k the values after the first k transforms. */
#ifndef KSLIB_KSRADTRANS_H
#define KSLIB_KSRADTRANS_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct KSRadTrans {
    int eRadQuant;     /**< the quantity that the transform produces, KS_RQ_... */
    float* pafGains;   /**< one per band, owned */
    float* pafOffsets; /**< one per band, owned */
};

/** Makes a transform for nNumGainsOffs bands (0 or more; 0 gives null arrays). Gains, offsets and eRadQuant are the
 *  caller's to set. Returns null after one debug report. Free with KSFreeRadTrans. */
KS_API KSRadTrans* KSCreateRadTrans(int nNumGainsOffs);

/** Frees a transform and its arrays; null is accepted. */
KS_API void KSFreeRadTrans(KSRadTrans* pRadTrans);

/** Composes the first nNumRadTrans transforms of a chain into one gain and one offset per band, formed in double
 *  precision. pRadTrans holds at least nNumBands bands; its eRadQuant is left alone. No transforms give gains 1 and
 *  offsets 0. Returns 0, or 1 after one debug report; pRadTrans is then unchanged. */
KS_API int KSCombRadTrans(KSRadTrans* const* papRadTransSeq, int nNumRadTrans, int nNumBands, KSRadTrans* pRadTrans);

/** Appends a transform to the data set's chain, which takes ownership.
 *  Returns 0, or 1 after one debug report; the chain and the caller's ownership are then unchanged. */
KS_API int KSAddRadTrans(KSDataSet* pDataSet, KSRadTrans* pRadTrans);

/** Removes the last transform of the chain and frees it; an empty chain is left alone.
 *  Returns 0, or 1 after one debug report. */
KS_API int KSDelRadTrans(KSDataSet* pDataSet);

/** The level (number of transforms to apply) at which values are in the quantity eRadQuant (KS_RQ_...); 0 for
 *  KS_RQ_UNCAL, -1 when no transform produces it or, after one report, when pDataSet is null. */
KS_API int KSRadTransQuantToLev(const KSDataSet* pDataSet, int eRadQuant);

/** Descriptions of all levels: a null-terminated array, element 0 the stored values, element k level k. The caller
 * frees every text and the array with free. Returns null on failure. */
KS_API char** KSRadTransDescList(const KSDataSet* pDataSet);

#ifdef __cplusplus
}
#endif
#endif
