/** kslib: linear transforms of band vectors, dst = T (src - sub) + add, and the file that keeps their parameters. */
#ifndef KSLIB_KSLT_H
#define KSLIB_KSLT_H

#include <kslib/ksmatrix.h>
#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Writes a parameter file: the matrices "TF" (forward), "TI" (inverse), "C" (pc, one row) and "S" (ps, one row) in
 * MATLAB level-4 format, in this order. Returns 0, or 1 after a report; the file may then be incomplete. */
KS_API int KSWriteLTP(const char* szFileName, MAT* pTF, MAT* pTI, VEC* ps, IVEC* pc);

/** Reads a parameter file, also one with the standard 20-byte MATLAB level-4 headers that other programs write. Files
 * are examined before anything is loaded from them. On success the four results are new and the caller's (m_free,
 * v_free, iv_free). Returns 0, or 1 after a report with nothing handed out. */
KS_API int KSReadLTP(const char* szFileName, MAT** ppTF, MAT** ppTI, VEC** pps, IVEC** ppc);

/** Transforms every sample of a window into the sample at the same place of another, which may be the same window.
 *  pT      as many columns as source bands, as many rows as destination bands.
 *  psSub   null, or subtracted before (pT->n components).   psAdd   null, or added after (pT->m components).
 *  Products are formed in double precision and summed in component order, as mv_mlt does. Returns 0, or 1 after a debug
 * report. */
KS_API int KSLTWinEx(const KSWinEx* pWinExSrc, KSWinEx* pWinExDst, MAT* pT, VEC* psSub, VEC* psAdd);

/** The same for code vectors. Here psAdd is added only where psSub is given too.
 *  Returns 0, or 1 after a debug report; code vectors before the failure are then written. */
KS_API int KSLTCbk(const KSCbk* pCbkSrc, KSCbk* pCbkDst, MAT* pT, VEC* psSub, VEC* psAdd);

#ifdef __cplusplus
}
#endif
#endif
