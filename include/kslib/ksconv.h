/** kslib: spectral resampling.
 *  Converts finely sampled spectra to the bands of a sensor: each band's value is the mean of the input values weighted
 *  by the band's spectral response. A band is converted only when input wavelengths lie on both sides of its interval;
 *  a band that is not gets the value -1.23e34 and quality KS_BQ_MASK. */
#ifndef KSLIB_KSCONV_H
#define KSLIB_KSCONV_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Weights for all bands of a sensor. All bands share one weight array: where the ranges of two bands overlap, the
 *  weights of the later band stand for both. Convert such bands one at a time, each with a sensor of its own. */
typedef struct KSConvCoeffs {
    float* pafCoeffs; /**< one weight for each input wavelength, owned */
    int nNumCoeffs;   /**< number of input wavelengths */
    int nNumOutBands; /**< number of sensor bands */
    int* panStartInd; /**< for each band the first input inside its interval, or -1; owned */
    int* panEndInd;   /**< for each band the last input inside its interval, or -1; owned */
} KSConvCoeffs;

/** Coefficients for all bands of a sensor against a schema's measurement wavelengths, which must increase. Gaussian
 *  (fFWHM), triangular, box and trapezoidal responses (fFWHM at the base, fWidth2 at the top) reach half their width
 *  from the centre. A tabulated one reaches from fParm1 to fParm2, which is nNumSamples + 1 steps of the table; its
 *  samples begin at fParm1 and zeroes follow them. A band of unknown type is reported and leaves itself and the bands
 *  behind it uncovered. Returns null after a report. Release with KSFreeConvCoeffs, then free. */
KS_API KSConvCoeffs* KSGenSpPrConvCoeffs(const KSSTSchema* pSTSchema, const KSSensor* pSensor);

/** Frees the arrays and sets them null; the record is left to the caller's free. Null is accepted. */
KS_API void KSFreeConvCoeffs(KSConvCoeffs* pConvCoeffs);

/** Converts a spectrum to nNumSelBands bands of the sensor; value k of the output belongs to band panSelBands[k].
 *  bUseBandQual nonzero uses only inputs of quality plot or bmask; negative inputs are never used. A weighted sum of
 *  1e-5 or less gives a masked value, and so does a band number outside the coefficients. A named input names the
 *  output, with " (resampled)" behind the name; wavelengths and deviations of the output are left as they are. Returns
 *  0, or 1 after a report, with the output unchanged. */
KS_API int KSConvSpec(const KSSpectrum* pSpectrumIn, KSSpectrum* pSpectrumOut, const KSConvCoeffs* pConvCoeffs,
                      int bUseBandQual, const int* panSelBands, int nNumSelBands);

/** Keeps in place only the values whose wavelength, in thousandths, is one of the schema's; when any was dropped, the
 *  target gains " (selected samples)". Returns 0, or 1 after a report. */
KS_API int KSFiltSpecSamples(KSSpectrum* pSpectrum, const KSSTSchema* pSTSchemaFilt);

/** Converts every spectrum of a spectra layer to selected bands of a sensor; spectra that have all its wavelengths are
 *  only filtered. Returns *pnSpectra spectra (free each with KSFreeSpec, the array with free), or null after a debug
 *  report. */
KS_API KSSpectrum** KSConvLib(HostLayer* hLibLayer, const KSSensor* pSensor, const int* panSelBands, int nNumSelBands,
                              int* pnSpectra);

/* ---- steps of KSGenSpPrConvCoeffs ---- */

/** A record with all weights 0 and all indices -1. Returns null after a report. */
KS_API KSConvCoeffs* KSCreateConvCoeffs(int nNumCoeffs, int nNumOutBands);

/** Finds the inputs inside the interval of one band. Returns 0, or 1 after a report. */
KS_API int _EvalStartEndInds(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor,
                             int nOutBand);

/** Write the weights of one band of the response type in their name, over its inputs. Return 0, or 1 after a report. */
KS_API int _GenGaussianConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor,
                                  int nOutBand);
KS_API int _GenTriangularConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor,
                                    int nOutBand);
KS_API int _GenBoxConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor,
                             int nOutBand);
KS_API int _GenTrapConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor,
                              int nOutBand);
KS_API int _GenCustConvCoeffs(KSConvCoeffs* pConvCoeffs, const KSSTSchema* pSTSchema, const KSSensor* pSensor,
                              int nOutBand);

#ifdef __cplusplus
}
#endif
#endif
