/** kslib: spectra and the layers that keep them.
 *  A spectrum is a list of values at wavelengths with what was measured and where it was taken. Spectra are shapes of a
 *  vector layer "spectra"; a sample-table schema says which field of the layer holds what: metadata fields ("Target",
 *  "Quantity", ...), one measurement field for each wavelength ("m450_500" at 450.5) and possibly a quality field for
 *  each ("q450_500"). Wavelengths are nanometres. */
#ifndef KSLIB_KSSIO_H
#define KSLIB_KSSIO_H

#include <kslib/ksmatrix.h>
#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** One field of a layer. */
typedef struct KSSTFld {
    int eFldID;      /**< KS_FLD_... */
    float fWlen;     /**< of a measurement or quality field */
    int nFldInd;     /**< 0-based position in the layer */
    int nQualFldInd; /**< measurement field: position of the quality field of its wavelength, or -1 */
} KSSTFld;

struct KSSTSchema {
    KSSTFld* pMetaFlds; /**< owned */
    int nNumMetaFlds;
    KSSTFld* pMeasFld; /**< in increasing wavelength when read from a layer, owned */
    int nNumMeasFlds;
    KSSTFld* pQualFld; /**< owned */
    int nNumQualFlds;
};

struct KSSpectrum {
    char* szTarget;     /**< owned */
    int eRadQuant;      /**< KS_RQ_... */
    char* szSourceFile; /**< image that the spectrum was taken from; owned */
    char* szROIFile;    /**< file of region bitmaps; owned */
    KSROI* paROI;       /**< regions that the spectrum was taken over; owned */
    int nNumROIs;
    int nNumSamples;  /**< image samples behind the values */
    int nNumMeasVals; /**< number of values */
    VEC* pMeas;       /**< values; owned */
    VEC* pSD;         /**< their standard deviations; owned */
    float* pafWlen;   /**< their wavelengths; owned */
    int* peBandQual;  /**< their qualities, KS_BQ_...; owned */
    int nSpare;
};

/* ---- schemas ---- */

/** The schema of a layer for selected bands of a sensor, in the given order: "Target" and "Quantity" and measurement
 *  fields; with bFullSchema all five metadata fields and quality fields too. Returns null after a report. */
KS_API KSSTSchema* KSSTSchemaFromProfile(const KSSensor* pSensor, const int* panSelBands, int nNumSelBands,
                                         int bFullSchema);

/** The schema of a layer by its field names, sorted by wavelength; of a layer of type 29, up to 3000 nm. Returns null
 *  after a report. */
KS_API KSSTSchema* KSSTSchemaFromLayer(HostLayer* hLayer);

/** Frees a schema; null is accepted. */
KS_API void KSFreeSTSchema(KSSTSchema* pSTSchema);

/** 1 when every wavelength of the schema with fewer measurement fields is found, in order, in the other one, compared
 *  in thousandths; else 0. */
KS_API int KSSimilarSTSchema(const KSSTSchema* pSTSchema1, const KSSTSchema* pSTSchema2);

/** Field names of a wavelength, "m450_500" and "q450_500"; free with free. Null after a report for a negative one. */
KS_API char* _WlenToMeasFldName(float fWavelength);
KS_API char* _WlenToQualFldName(float fWavelength);

/** Classifies one field of a layer by its name; *pFld gets everything but nQualFldInd, which becomes -1. Returns 0, or
 *  1 after a report. */
KS_API int _EvalSTFldHdr(HostLayer* hLayer, int nFldInd, KSSTFld* pFld);

/** Counts a layer's fields of each kind; pnNumQualFields may be null. Returns 0, or 1 after a report. */
KS_API int _CountFields(HostLayer* hLayer, int* pnNumMetaFields, int* pnNumMeasFields, int* pnNumQualFields);

/* ---- spectra ---- */

/** A spectrum with room for, and the wavelengths of, a schema's measurement fields; everything else zero. Returns null
 *  after a report, or after another report a spectrum that lacks its last arrays: test pafWlen. */
KS_API KSSpectrum* KSCreateSpec(const KSSTSchema* pSTSchema);

/** Frees a spectrum and what it owns; null is accepted. */
KS_API void KSFreeSpec(KSSpectrum* pSpectrum);

/** Fills the values of a spectrum with means and standard deviations over its first region, at level nRadTransLev, and
 *  sets quantity, qualities, sample count and source file. The band map has nNumMeasVals bands. Returns 0, or 1 after
 *  a report; what was filled until then stays. */
KS_API int KSEvalSpecFromDataSet(const KSDataSet* pDataSet, int nRadTransLev, const KSSampDesc* pSampDesc,
                                 KSSpectrum* pSpectrum);

/* ---- texts in layers ---- */

/** A region as text in a block of 256 bytes: "point xoff 10 yoff 20 size 3", "rectangle xoff 1 yoff 2 xsize 3
 *  ysize 4", "bitmap 5"; an empty text for null. Free with free. Null after a report. */
KS_API char* _ROIStructToStr(const KSROI* pROI);

/** The region of such a text, which may be edited in place. Null after a report; without one for a blank text. */
KS_API KSROI* _ROIStrToStruct(char* szString);

/** Names of aKSBandQual and aKSRadQuant as new texts; null for a value that has none. Free with free. */
KS_API char* _BandQualEnumToStr(int eBandQual);
KS_API char* _RadQuantEnumToStr(int eRadQuant);
/** The value of a name, or 0. The quality's text is lower-cased in place first; quantities are compared exactly. */
KS_API int _BandQualStrToEnum(char* szString);
KS_API int _RadQuantStrToEnum(const char* szString);

/* ---- layers ---- */

/** Makes a layer "spectra" for a schema in a new file in memory and stores each field's position in the schema; the
 *  layer lives as long as its file (hLayer->fp). A wavelength that cannot be named is left out (position -1). Returns
 * null after a report. */
KS_API HostLayer* KSCreateSpectraLayer(KSSTSchema* pSTSchema);

/** The first spectra layer of an open file, owned by it, or null (without a report when there is none). */
KS_API HostLayer* KSReadSpectraLayer(HostFile* fpFilI);

/** Writes a layer to a new file of a host file type. A format that cannot hold all fields drops the last ones, with a
 *  report of number -1, and the call still succeeds. Returns 0, or 1 after a report. */
KS_API int KSWriteSpectraLayer(const char* szFilO, HostLayer* hLayer, int nFileType);

/** 1 when the layer has a measurement field and a field "Target", else 0. */
KS_API int KSIsASpectraLayer(HostLayer* hLayer);

/** Appends a spectrum to a layer as one shape. Returns 0, or 1 after a report. */
KS_API int KSAddShapeFromSpec(HostLayer* hLayer, const KSSTSchema* pSTSchema, const KSSpectrum* pSpectrum);

/** Fills a spectrum made for the schema from a shape. A value of 0 or below has quality "skip" whatever its quality
 *  field says; without a quality field it is "plot". Standard deviations are not stored and stay as they are. Returns
 *  0, or 1 after a report; what was filled until then stays. */
KS_API int KSEvalSpecFromShape(HostLayer* hLayer, int hShapeID, const KSSTSchema* pSTSchema, KSSpectrum* pSpectrum);

#ifdef __cplusplus
}
#endif
#endif
