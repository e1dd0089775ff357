/** kslib: data sets.
 *  A data set is one open imaging-spectrometer file with everything decoded from its metadata: image size, sensor and
 *  bands, mission, chain of radiometric transforms, the channels of its bands and its vector-quantized cube.
 *
 *  Bands are numbered from 0; a band index addresses pBandRefs, peBandQual, pBandResp and the gains and offsets of
 * every transform alike. Channels of the file are numbered from 1. Wavelengths are nanometres. */
#ifndef KSLIB_KSDATSET_H
#define KSLIB_KSDATSET_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

enum { KS_SENSOR_UNKNOWN = 0, KS_SENSOR_WHISKBROOM = 1, KS_SENSOR_PUSHBROOM = 2, KS_SENSOR_FRAME = 3 };

/** Shape of a band's spectral response. */
enum {
    KS_RT_UNKNOWN = 0,
    KS_RT_GAUSSIAN = 1,
    KS_RT_TRIANGULAR = 2,
    KS_RT_BOX = 3,
    KS_RT_TRAPEZOIDAL = 4,
    KS_RT_CUSTOM = 5
};

typedef struct KSBandResp {
    int eRespType;     /**< KS_RT_... */
    float fCentre;     /**< centre wavelength; -1 when unknown */
    float fParm1;      /**< custom response: start wavelength */
    float fParm2;      /**< custom response: end wavelength */
    float fFWHM;       /**< full width at half maximum; -1 when unknown */
    float fWidth2;     /**< width of the flat top of a trapezoidal response */
    int nNumSamples;   /**< custom response: number of samples */
    float* pafSamples; /**< owned, and freed only while eRespType is KS_RT_CUSTOM */
} KSBandResp;

struct KSSensor {
    char* szModelName; /**< owned; null when unknown */
    int eType;         /**< KS_SENSOR_... */
    float fFOVLeft;    /**< fields of view; -1 when unknown */
    float fFOVRight;
    float fFOVFore;
    float fFOVAft;
    int nNumBands;
    int* peBandQual;       /**< nNumBands band qualities, KS_BQ_..., owned */
    KSBandResp* pBandResp; /**< nNumBands responses, owned */
};

/** When, where and how the image was taken. Unknown values lie outside the ranges that are ever written. */
typedef struct KSMission {
    int nYear;   /**< date and time; -1 when unknown */
    int nMonth;  /**< 1..12 */
    int nDay;    /**< 1..31 */
    int nHour;   /**< 0..23 */
    int nMinute; /**< 0..59 */
    int nMissionSpare;
    double dLatitude;   /**< degrees, north positive; 1000 when unknown */
    double dLongitude;  /**< degrees, east positive; 1000 when unknown */
    float fHeight;      /**< nominal height; -10000 when unknown */
    float fHeading;     /**< degrees; 1000 when unknown */
    float fForeAftTilt; /**< degrees; 1000 when unknown */
} KSMission;

typedef struct KSBandRef {
    int eStorage;  /**< KS_STORE_... */
    int nID;       /**< the channel's "ID"; -1 when no channel of the file has one */
    int nChan;     /**< channel of the file, from 1 */
    int nChanType; /**< the host's data type of that channel: 1 uint8, 2 int16, 3 uint16, 4 and up read as float */
} KSBandRef;

typedef struct KSAuxFile {
    char* szName; /**< owned */
    HostFile* fp; /**< closed with the record */
    int nValue;
    char* szText; /**< owned */
} KSAuxFile;

struct KSDataSet {
    char* szFileName;            /**< owned */
    int eOpenMode;               /**< row of aKSOpenMode */
    HostFile* GDBFile;           /**< null when not open */
    KSBandRef* pBandRefs;        /**< one per band, owned */
    int nXSize;                  /**< pixels per line */
    int nYSize;                  /**< number of lines */
    int nNumRadTrans;            /**< length of the transform chain */
    KSRadTrans** papRadTransSeq; /**< the chain, first applied first, owned */
    int nNumAuxFiles;
    KSAuxFile* paAuxFiles; /**< owned */
    KSSensor Sensor;
    KSMission Mission;
    KSVQubeInfo VQubeInfo;
};

/* ---- opening and closing ---- */

/** Opens a file and decodes its metadata. szAccess is "r" or "r+" (a short name of aKSOpenMode).
 *  Returns null after a report; the file itself then stays open when it was opened before the failure. */
KS_API KSDataSet* KSOpen(const char* szFileName, const char* szAccess);

/** Decodes the metadata of the open file pDataSet->GDBFile into the record, overwriting without releasing.
 *  Returns 0, or 1 after a report; the record may then be partly filled and is still fit for KSFree. */
KS_API int KSReadMetadata(KSDataSet* pDataSet);

/** Releases the decoded parts and decodes again, after the file's metadata changed. The old transforms stay allocated.
 *  Returns 0, or 1 after a report. */
KS_API int KSRefreshMetadata(KSDataSet* pDataSet);

/** Writes the metadata back when the data set was opened or created for writing, closes the file and frees the record.
 *  Returns 0, or 1 after a report; when the metadata could not be written the file stays open and the record is kept.
 */
KS_API int KSClose(KSDataSet* pDataSet);

/** Frees the record and what it owns; null is accepted. GDBFile is not closed. Of a chain of n transforms only the last
 *  ceil(n / 2) are freed: remove the others with KSDelRadTrans first where that matters. */
KS_API void KSFree(KSDataSet* pDataSet);

/* ---- creating, writing, duplicating ---- */

/** Creates the file of a data set that the caller has filled: szFileName, nXSize, nYSize, Sensor.nNumBands, pBandRefs
 *  (eStorage, nChanType and nChan of every band) and, for VQ storage, VQubeInfo. All channels of an explicit file take
 * the type of the first band. After creating a VQ cube GDBFile is as it was: open the new cube with KSOpen. Returns 0
 * with eOpenMode 2, or 1 after a report; an existing file is never touched. */
KS_API int KSCreate(KSDataSet* pDataSet);

/** Stores the record's metadata in the file's lists. Sensor model name and band qualities are never written.
 *  Returns 0, or 1 after a report; a bad band may be met after the file-level list was stored. */
KS_API int KSWriteMetadata(const KSDataSet* pDataSet);

/** A detached copy that describes the given bands, in that order: no file name, no file, open mode 0. A null panBandMap
 *  means all bands, whatever nNumBands is. The heading is not copied (0 in the copy), and the lists of VQubeInfo are
 * null. Returns null after a report; the source is never changed. Free with KSFree. */
KS_API KSDataSet* KSDupl(const KSDataSet* pDataSet, int nNumBands, const int* panBandMap);

/* ---- band maps and wavelengths ---- */

/** Compares two wavelengths in whole thousandths, as unsigned 32-bit numbers (a negative wavelength is above every
 *  positive one). Returns -1, 0 or 1. */
KS_API int KSWlenComp(float fWlen1, float fWlen2);

/** Selects bands into a new band map, sorted by centre wavelength when the data set's last band has a known response.
 *  pafWlenInt  null, or two values: both >= 0 select centres in [0]..[1]; both <= 0 exclude centres in -[0]..-[1].
 *  bGoodOnly   nonzero keeps only qualities plot and bmask.
 *  panChans    null, or nNumChans channel numbers to which the bands must belong.
 *  Outputs     *ppanBandMap the caller frees with free (null when nothing was selected), *pnNumBands its length.
 *  Returns 0, or 1 after a report; the outputs are then unchanged. */
KS_API int KSSelectBands(const KSDataSet* pDataSet, const float* pafWlenInt, int bGoodOnly, int nNumChans,
                         const int* panChans, int* pnNumBands, int** ppanBandMap);

/** The first band kept in channel nChan, or -1. */
KS_API int KSChanToBand(const KSDataSet* pDataSet, int nChan);

/** The channel of a band, or -1 after a report. */
KS_API int KSBandToChan(const KSDataSet* pDataSet, int nBandInd);

/** The centre wavelength of a band, or -1 after a report. */
KS_API float KSBandToWlen(const KSDataSet* pDataSet, int nBandInd);

/** The first band whose centre equals fWlen under KSWlenComp, or -1. A band of unknown response met before a match ends
 *  the search with a report. */
KS_API int KSWlenToBand(const KSDataSet* pDataSet, float fWlen);

/** Counts the bands of one storage (KS_STORE_...) and lists them in panBandMap (null, or room for every band).
 *  Returns 0, or 1 after a report. */
KS_API int KSEvalBandMapFmt(const KSDataSet* pDataSet, int eStorage, int* panBandMap, int* pnNumBands);

/** Gives every band a box response of width 1 at centre 1, 2, 3, ..., for files without wavelengths.
 *  Returns 1 always, also on success. */
KS_API int KSDummyBandResp(KSDataSet* pDataSet);

#ifdef __cplusplus
}
#endif
#endif
