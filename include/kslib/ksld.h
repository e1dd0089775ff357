/** kslib: description tables.
 *  Read-only rows {short name, description}, indexed by the value of the enumeration beside each table.
 *  Row 0 is always {"unknown", null}. The short names of band qualities and radiometric quantities are also the
 *  value texts of metadata; spellings are published and stay as they are. */
#ifndef KSLIB_KSLD_H
#define KSLIB_KSLD_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef struct KSDesc {
    const char* szName;
    const char* szDesc;
} KSDesc;

enum { KS_OPEN_UNKNOWN = 0, KS_OPEN_READ = 1, KS_OPEN_READWRITE = 2 };

enum {
    KS_BQ_UNKNOWN = 0,
    KS_BQ_PLOT = 1, /**< valid */
    KS_BQ_SKIP = 2, /**< invalid, may be interpolated */
    KS_BQ_MASK = 3, /**< invalid, not to be interpolated */
    KS_BQ_BMASK = 4 /**< valid, the band before a masked one */
};

/** Fields of a spectra table. */
enum {
    KS_FLD_UNKNOWN = 0,
    KS_FLD_TARGET = 1,
    KS_FLD_QUANTITY = 2,
    KS_FLD_SOURCE_FILE = 3,
    KS_FLD_ROI_FILE = 4,
    KS_FLD_ROI = 5,
    KS_FLD_MEAS = 7,
    KS_FLD_QUAL = 8
};

/** Regions of interest. */
enum { KS_ROI_UNKNOWN = 0, KS_ROI_POINT = 1, KS_ROI_RECTANGLE = 2, KS_ROI_BITMAP = 3 };

/** Radiometric quantities. */
enum {
    KS_RQ_UNKNOWN = 0,
    KS_RQ_UNCAL = 1,
    KS_RQ_ADJ_NO_UNITS = 2,
    KS_RQ_APPRAD = 3,
    KS_RQ_SCRAD = 4,
    KS_RQ_SCIRRAD = 5,
    KS_RQ_REFL = 6
};

extern KS_API const KSDesc aKSOpenMode[3];
extern KS_API const KSDesc aKSBandQual[5];
extern KS_API const KSDesc aKSFldID[6];
extern KS_API const KSDesc aKSROIType[4];
extern KS_API const KSDesc aKSRadQuant[7];

#ifdef __cplusplus
}
#endif
#endif
