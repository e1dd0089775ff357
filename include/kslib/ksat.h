/** kslib: kernels on the entries of radiance look-up tables. They allocate nothing and report nothing. */
#ifndef KSLIB_KSAT_H
#define KSLIB_KSAT_H

#include <kslib/ksrlut.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Interpolates a spectrum of entries multilinearly in eight dimensions, in double precision.
 *  pafPoint    8 coordinates.   pafBounds  8 pairs: lower, upper, lower, upper, ...; the bounds of a pair differ.
 *  papCorners  256 spectra of nEntries entries; bit i of a corner's number means the upper bound of dimension i.
 *  paOut       nEntries entries. */
KS_API void KSInterpSpec(const float* pafPoint, const float* pafBounds, const RLUTEntry* const* papCorners,
                         RLUTEntry* paOut, int nEntries);

/** Coefficients that turn radiance into surface reflectance, from the two values of an entry at two reflectances.
 *  fA1, fA2  the first value at fRefl1 and fRefl2.   fB1, fB2  the second value there.
 *  Returns 0, or 1 when the system is degenerate; then nothing is written, or coefficient 3 alone. */
KS_API int KSEvalSRCoeffs(float fA1, float fA2, float fB1, float fB2, float fRefl1, float fRefl2, double* pdCoef1,
                          double* pdCoef2, double* pdCoef3, double* pdCoef4);

#ifdef __cplusplus
}
#endif
#endif
