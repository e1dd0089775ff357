/** kslib: how many lines of a large image to hold at a time. */
#ifndef KSLIB_KSLPS_H
#define KSLIB_KSLPS_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Which windows a caller holds for every line. */
enum {
    KS_USE_EX = 0,  /**< an explicit window */
    KS_USE_IM = 1,  /**< an index-map window, with the codebook */
    KS_USE_BOTH = 2 /**< both */
};

/** Lines (rows of nNumXSamples samples) whose windows fit into the fraction fFrac, 0 to 1, of the host's memory
 *  allowance, and at most 20 MiB: from 1 to nMaxLPS. One line when the host sets no limit.
 *  eWinUse        KS_USE_...
 *  bFloatSamples  nonzero: 4 bytes for each of the nNumSelBands values of an explicit sample, zero: 8.
 *  Returns 0 with *pnLPS set, or 1 after a report. */
KS_API int KSLPS(const KSDataSet* pDataSet, int nNumXSamples, int nNumSelBands, int eWinUse, int bFloatSamples,
                 float fFrac, int nMaxLPS, int* pnLPS);

#ifdef __cplusplus
}
#endif
#endif
