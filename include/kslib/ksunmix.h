/** kslib: linear unmixing.
 *  Explains a band vector as a mixture of endmember spectra by least squares. */
#ifndef KSLIB_KSUNMIX_H
#define KSLIB_KSUNMIX_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Fractions of the endmembers in one pixel, and the root-mean-square misfit over the bands.
 *  papafEndmembers  a row for each band, nNumEndmembers values each; one further row with bSumToOne, which is filled.
 *  pafPixel         nNumBands values; one further with bSumToOne, which is filled when bNewEndmembers is set.
 *  pafFractions     nNumEndmembers fractions, then the misfit.
 *  bSumToOne        an extra, heavily weighted equation draws the fractions towards a sum of one.
 *  bNonNegative     no fraction is negative: non-negative least squares (C. L. Lawson, R. J. Hanson, Solving Least
 *                   Squares Problems, 1974, chapter 23). Otherwise a singular value decomposition (G. H. Golub,
 *                   C. Reinsch, Numer. Math. 14, 1970), which overwrites the endmember rows: leave them alone between
 *                   calls. Singular values below 1e-5 of the largest do not contribute.
 *  bNormalise       negative fractions become 0 when they may not be negative; then, with bSumToOne, the fractions are
 *                   divided by the sum of those above 1e-6 in magnitude, or all become 0.
 *  bNewEndmembers   nonzero in the first call, and whenever endmembers, sizes, bSumToOne or bNonNegative changed; later
 *                   calls reuse the set-up, which is the library's and not safe to share between threads.
 *  Returns 0, or 1 when the non-negative solution was not found: the fractions are then as they were. */
KS_API int get_endmember_fractions(float** papafEndmembers, float* pafPixel, float* pafFractions, int nNumEndmembers,
                                   int nNumBands, int bSumToOne, int bNonNegative, int bNormalise, int bNewEndmembers);

#ifdef __cplusplus
}
#endif
#endif
