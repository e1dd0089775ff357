/** kslib: additions that share the library's kernels where the given functions answer another question than a user
 * asks. */
#ifndef KSLIB_EXTRA_H
#define KSLIB_EXTRA_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Encodes like KSVQEncodeWin, with the best distance reset for every sample: each gets the number of its nearest code
 * vector, of equally near ones the lowest; a sample that has no distance to any (not-a-number) gets 0. Returns 0, or 1
 * after a debug report. */
KS_API int KSXVQEncodeNearest(const KSCbk* pCbk, KSWinIM* pWinIM, const KSWinEx* pWinEx);

#ifdef __cplusplus
}
#endif
#endif
