/** kslib: vector quantization. Encoding replaces band vectors by numbers of code vectors, decoding does the reverse.
 *  Failures are debug reports. */
#ifndef KSLIB_KSVQ_H
#define KSLIB_KSVQ_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Encodes a window: sample (x, y) of pWinEx gives sample (x, y) of pWinIM, by city-block distance in double precision.
 * The best distance is carried from sample to sample: a sample takes a new code vector only where it comes closer than
 * every sample before it, and otherwise repeats the index before it. KSXVQEncodeNearest starts anew for every sample.
 *  Returns 0, or 1 after a report; the index map may then be partly written. */
KS_API int KSVQEncodeWin(const KSCbk* pCbk, KSWinIM* pWinIM, const KSWinEx* pWinEx);

/** Decodes the part of an index map at a window's image position. A position outside the index map gives a zero vector.
 *  Sample intervals and band maps must agree. Returns 0, or 1 after a report; the window may then be partly written. */
KS_API int KSVQDecodeWin(const KSCbk* pCbk, const KSWinIM* pWinIM, KSWinEx* pWinEx);

#ifdef __cplusplus
}
#endif
#endif
