/** kslib: what every public header shares.
 *  Forward declarations of the records and host handles, the band storage, the VQ cube description and the export
 *  macro. */
#ifndef KSLIB_TYPES_H
#define KSLIB_TYPES_H

#include <stdint.h>

#if defined(__GNUC__)
#define KS_API __attribute__((visibility("default")))
#else
#define KS_API
#endif

#ifdef __cplusplus
static_assert(sizeof(int) == 4, "kslib's integers are 32 bits wide");
extern "C" {
#else
_Static_assert(sizeof(int) == 4, "kslib's integers are 32 bits wide");
#endif

/* Handles of the host database library. HostFile is opaque; HostLayer shows its first members in kshost.h. */
typedef struct HostFile HostFile;
typedef struct HostLayer HostLayer;
/** A null-terminated array of "KEY=VALUE" texts, or of tokens; null is the empty list. */
typedef char** HostStringList;

typedef struct KSDataSet KSDataSet;
typedef struct KSRadTrans KSRadTrans;
typedef struct KSWinEx KSWinEx;
typedef struct KSWinIM KSWinIM;
typedef struct KSCbk KSCbk;
typedef struct KSSampDesc KSSampDesc;
typedef struct KSSensor KSSensor;
typedef struct KSROI KSROI;
typedef struct KSSTSchema KSSTSchema;
typedef struct KSSpectrum KSSpectrum;
typedef struct KSLUT KSLUT;
typedef struct KSLUTVector KSLUTVector;

/** Where the samples of a band are kept. */
enum {
    KS_STORE_VQ = 0,      /**< in the file's vector-quantized cube */
    KS_STORE_EXPLICIT = 1 /**< in an ordinary channel of the file */
};

/** The vector-quantized cube of a file. Filled by VQubeGetInfo, released by VQubeCleanUp; the handles are borrowed.
 *  A data set has a cube exactly when one was reported and nCodeVectors is at least 1. */
typedef struct KSVQubeInfo {
    int nPixels; /**< pixels per line */
    int nLines;
    int nNumVQChans;       /**< channels that belong to the cube */
    int* panVQChans;       /**< their channel numbers, from 1 */
    HostFile** papfVQChan; /**< their handles; the first one stands for the cube */
    int nNumNonVQChans;    /**< channels outside the cube */
    int* panNonVQChans;
    HostFile** papfNonVQChan;
    int nCodeVectors; /**< 1..65535 */
    int nDataType;    /**< stored component: 1 uint8, 2 int16, 3 uint16, 4 float32 */
    int nSpare;
    int nBitsPerIndex; /**< 1..16 */
} KSVQubeInfo;

#ifdef __cplusplus
}
#endif
#endif
