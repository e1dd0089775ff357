/** kslib: radiance look-up tables.
 *  A look-up table of nine labelled dimensions whose elements hold two single-precision values for one combination of
 *  eight atmospheric and geometric coordinates and one wavelength. The wavelengths of a combination lie together: a
 *  spectrum. Operations return 1 for success and 0 (or null) for failure, and report nothing. */
#ifndef KSLIB_KSRLUT_H
#define KSLIB_KSRLUT_H

#include <kslib/kslut.h>
#include <kslib/kslutvec.h>
#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef KSLUT RLUT;

typedef struct RLUTEntry {
    float fFirst;
    float fSecond;
} RLUTEntry;

enum {
    RLUT_SENSOR_ALTITUDE = 0,
    RLUT_SOLAR_ZENITH = 1,
    RLUT_REFLECTANCE = 2,
    RLUT_METEOROLOGICAL_RANGE = 3,
    RLUT_WATER_VAPOR = 4,
    RLUT_ELEVATION = 5,
    RLUT_RELATIVE_AZIMUTH = 6,
    RLUT_VIEW_ZENITH = 7,
    RLUT_WAVELENGTH = 8,
    RLUT_DIMENSIONS = 9
};

/** The labels of the nine dimensions, then null. */
extern KS_API const char* const gaszRLUTLabels[10];

/* ---- tables ---- */

/** An empty table with its labels and element size, or null; free with KSLUTDestroy. */
KS_API RLUT* RLUTCreate(void);
/** Opens a stored table; pszMode is "r" or "r+". Null when the segment holds no radiance table. */
KS_API RLUT* RLUTOpen(const char* pszFile, int nSegment, const char* pszMode);
/** 1 for a table of nine dimensions with sizes, these labels (in any case) and elements of 8 bytes. */
KS_API int RLUTValidate(const RLUT* pRLUT);

/** Moves whole spectra between the segment and spectrum records: the first values of the entries from or to
 *  paSpectraA, the second values paSpectraB. Value s of a spectrum's pMeas stands for every wavelength of spectrum s;
 *  when reading, that of the last wavelength is left. To move entries as they are use KSLUTFileIO.
 *  nMode           0 read (at least one array), 1 write (both).
 *  pOffset, pCount nine values each; value 8 is set to all wavelengths.
 *  pOpt1, pOpt2    as KSLUTFileIO, or null; with pOpt2, whose value 8 is set to 0, at most nSpectrumLimit spectra move.
 *  nMaxSpectra     what the arrays hold.   pnSpectra  spectra moved; unchanged after a failure. */
KS_API int RLUTFileIO(RLUT* pRLUT, int nMode, KSLUTVector* pOffset, KSLUTVector* pCount, KSLUTVector* pOpt1,
                      KSLUTVector* pOpt2, int nSpectrumLimit, KSSpectrum* paSpectraA, KSSpectrum* paSpectraB,
                      int nMaxSpectra, int* pnSpectra);

/* ---- buffers: free with free ---- */

/** Room for nSpectra stored spectra, unset; *pnBytes its size. */
KS_API void* RLUTAllocBuffer(const RLUT* pRLUT, int nSpectra, int64_t* pnBytes);
/** Entries of nSpectra spectra, all zero; *pnEntries their number. */
KS_API RLUTEntry* RLUTAllocEntries(const RLUT* pRLUT, int nSpectra, int64_t* pnEntries);
/** The same for a block that exists; it stays the caller's when null is returned. */
KS_API void* RLUTReallocBuffer(void* pBuffer, const RLUT* pRLUT, int nSpectra, int64_t* pnBytes);
KS_API RLUTEntry* RLUTReallocEntries(RLUTEntry* paEntries, const RLUT* pRLUT, int nSpectra, int64_t* pnEntries);

/** Between entries and their stored form of 8 bytes each, little-endian. Outputs may be null. */
KS_API void* RLUTSerialize(const RLUTEntry* paEntries, int64_t nEntries, int64_t* pnBytes);
KS_API int RLUTSerialize2(const RLUTEntry* paEntries, int64_t nEntries, void* pBuffer, int64_t* pnBytes);
KS_API RLUTEntry* RLUTDeserialize(const void* pBuffer, int64_t nBytes, int64_t* pnEntries);
KS_API int RLUTDeserialize2(const void* pBuffer, int64_t nBytes, RLUTEntry* paEntries, int64_t* pnEntries);

/* ---- coordinates ---- */

/** First and last stored coordinate of a dimension, or of all nine; outputs may be null. */
KS_API int RLUTGetCoordRange(const RLUT* pRLUT, int nDimension, float* pfFirst, float* pfLast);
KS_API int RLUTGetCoordRanges(const RLUT* pRLUT, float* pafFirst, float* pafLast);
/** Fractional index of a coordinate, for increasing coordinates c[0..n-1], in single precision. Below c[0] it is
 *  (x - c[0]) / (c[n-1] - x), above c[n-1] it is (x - c[n-1]) / (x - c[0]) + n - 1. */
KS_API int RLUTGetIndexFromCoord(const RLUT* pRLUT, int nDimension, float fCoord, float* pfIndex);
/** Indexes within the range fLow..fHigh (bInside 1), or those that enclose it. A range outside of the coordinates gives
 *  n as the first or -1 as the last index. */
KS_API int RLUTGetIndexesFromCoordRange(const RLUT* pRLUT, int nDimension, float fLow, float fHigh, int* pnFirst,
                                        int* pnLast, int bInside);
/** Spectra to move at a time: as KSLUTEPS, at least 1 and at most *pnMaxSpectra. */
KS_API int RLUTSPS(const RLUT* pRLUT, float fFraction, int* pnSpectra, const int* pnMaxSpectra);

/* ---- wavelengths ---- */

/** The schema of a spectra layer for the table's wavelengths, which must increase; null otherwise. */
KS_API KSSTSchema* KSSTSchemaFromRLUT(const RLUT* pRLUT);
/** Whether the table's wavelengths match the data set's bands, as KSSimilarSTSchema compares them. */
KS_API int RLUTIsDatasetSimilar(const RLUT* pRLUT, const KSDataSet* pDataSet, int* pbSimilar);

#ifdef __cplusplus
}
#endif
#endif
