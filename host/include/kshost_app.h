/** What an application may set in, and ask of, the embedded host beyond what kslib calls.
 *  Plain C; every text handed out is UTF-8 and says who owns it. */
#ifndef KSHOST_APP_H
#define KSHOST_APP_H

#include <kshost.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- reports and progress ---- */

typedef void (*KSHostErrorHandler)(void* pUser, int nCode, int nSeverity, const char* szText);
typedef void (*KSHostDebugHandler)(void* pUser, const char* szText);
/** dFraction as IMPCounter gives it: -1 start, 0..1 progress, 2 finish. */
typedef void (*KSHostProgressHandler)(void* pUser, double dFraction);

/** Where reports go; a null handler brings back the default: standard error, debug output only when the environment
 *  variable KSHOST_DEBUG is set, a progress bar only on a terminal. */
KS_API void KSHostSetErrorHandler(KSHostErrorHandler pfHandler, void* pUser);
KS_API void KSHostSetDebugHandler(KSHostDebugHandler pfHandler, void* pUser);
KS_API void KSHostSetProgressHandler(KSHostProgressHandler pfHandler, void* pUser);

/** What the host failed to do since the last reset: open, create, transfer, store. kslib does not see all of it: an
 *  application that exits with success must find 0 here. Notices (severity 0) and reports of kslib are not counted. */
KS_API int KSHostErrorCount(void);
KS_API void KSHostResetErrorCount(void);

/* ---- memory and task parameters ---- */

/** The working memory that IMPGetMemory answers, in bytes; 0 brings back the default (environment variable
 * KSHOST_MEMORY, else 256 MiB). */
KS_API void KSHostSetMemory(int nBytes);
/** Sets a window parameter of tasks ("DBIW", "DBOW"): x offset, y offset, width, height. Null removes it; an unset
 * window is the whole image. */
KS_API void KSHostSetWindow(const char* szParam, const int* panWindow);

/* ---- files ---- */

/** What GDBCreate makes, and fp2type and GDBLayer2Type answer. The formats for other programs hold one layer and
 * appear, whole or not at all, when the file is closed or flushed; a layer that is copied into one may lose fields. */
enum KSHostFileType {
    KSHOST_TYPE_NATIVE = 3,            /**< a file of this host: any number of layers, all their fields */
    KSHOST_TYPE_SPECTRAL_LIBRARY = 29, /**< ENVI spectral library: "Target", "Quantity" and wavelengths; adds a .hdr */
    KSHOST_TYPE_MEMORY = 60,           /**< in memory, gone when it is closed */
    KSHOST_TYPE_CSV = 201,             /**< comma-separated values, the field names in the first row */
    KSHOST_TYPE_GEOJSON = 202,         /**< a collection of features without a geometry */
    KSHOST_TYPE_DBF = 203              /**< the table of a shapefile: 255 fields, names of 10 characters */
};

/** Stores what was gathered for the file now, and brings written samples to the disk. Returns 1, or 0 after a report;
 *  metadata that could not be stored stays gathered. */
KS_API int KSHostFlush(HostFile* fp);

/** How a file is stored, for display. */
typedef struct KSHostLayout {
    const char* szFormat;     /**< "ENVI", "GTiff", "netCDF", "ENVI Spectral Library", ...; owned by the handle, as all
                                 texts here */
    const char* szInterleave; /**< "BIP", "BIL", "BSQ", or empty when not known */
    const char* szSampleType; /**< "UInt16", "Float32", ... of channel 1, or of the values of a spectral library */
    int bBigEndian;           /**< for formats that can be either */
    const char* szHeader;     /**< the absolute path of the header file beside the image, or empty */
    const char* szSidecar;    /**< the sidecar's absolute path, whether it exists or not */
    int bSidecar;             /**< 1 when a sidecar exists and is used */
} KSHostLayout;
/** Returns 1, or 0 when fp is not live. Texts are empty where there is nothing to say. */
KS_API int KSHostGetLayout(HostFile* fp, KSHostLayout* pLayout);

/** What was guessed, converted or ignored in the foreign header when the image was opened: one text each; the caller
 *  destroys the list. Null when there was nothing to say. */
KS_API HostStringList KSHostGetRemarks(HostFile* fp);

/** The entries of the processing history, oldest first; the caller destroys the list. Null when there are none. */
KS_API HostStringList KSHostGetHistory(HostFile* fp);

/** The three 1-based channels that the image itself names for display. Returns how many it names: 3, 1 (grey) or 0. */
KS_API int KSHostGetDefaultChannels(HostFile* fp, int anChannels[3]);

/** Affine map from pixel and line to projected coordinates, GDAL's order of six values. Returns 1, or 0 when the image
 *  has none. */
KS_API int KSHostGetGeoTransform(HostFile* fp, double adTransform[6]);
KS_API int KSHostSetGeoTransform(HostFile* fp, const double adTransform[6]);
/** Coordinate system as WKT, valid as long as a handle on the file is open; empty when the image has none. */
KS_API const char* KSHostGetCoordinateSystem(HostFile* fp);
KS_API int KSHostSetCoordinateSystem(HostFile* fp, const char* szWkt);
/** Turns nCount places in pixels and lines (0, 0 is the upper left corner of the first pixel) into longitudes, east
 *  positive, and latitudes in degrees on WGS 84; not-a-number outside the projection. Returns 1; or 0, and the places
 *  are no longer meaningful, when the image has no place on the ground, or after a report. */
KS_API int KSHostPixelsToGeographic(HostFile* fp, int nCount, double* padX, double* padY);
/** A channel's no-data value. Returns 1, or 0 when it has none. */
KS_API int KSHostGetNoData(HostFile* fp, int nChan, double* pdValue);
KS_API int KSHostSetNoData(HostFile* fp, int nChan, double dValue);

/** Copies coordinate system and geotransform for the window of fpSrc (x offset, y offset, width, height; null: all)
 * that fpDst holds, every nXInt-th pixel and nYInt-th line. No-data values are not copied. Returns 1, also when there
 * is nothing to copy, or 0 after a report. */
KS_API int KSHostCopyGeoreference(HostFile* fpSrc, HostFile* fpDst, const int* panWindow, int nXInt, int nYInt);

/** Whether a classic netCDF file ends before the data that its header announces, as a copy that was broken off does:
 *  the netCDF library reads zeros there. Returns 1, or 0 for whole files and those of other kinds. */
KS_API int KSHostIsCutShort(const char* szFileName);

/* ---- shapes on an image ---- */

/** Polygons, lines and points of a GeoJSON file (.json, .geojson), an ESRI Shapefile (.shp) or a table (.csv), brought
 *  to the place of one image. A table has a column WKT, or one vertex a row in columns "x" and "y" (the image's own
 *  coordinates), "lon" and "lat", or "column" and "line" (pixels); a column "polygon", "id" or "name" tells which
 *  vertices belong together: three or more make a polygon, two a line, one a point. */
typedef struct KSHostShapes KSHostShapes;

/** Reads all shapes of a file. Their coordinates are those of the file's own coordinate system, or the image's where
 * the file names none; bPixels, or an image without a geotransform: pixel and line, 0, 0 at the upper left corner of
 * the first pixel. The image may be closed before the shapes. Null after a report; free with KSHostCloseShapes. */
KS_API KSHostShapes* KSHostOpenShapes(const char* szFileName, HostFile* fp, int bPixels);
KS_API void KSHostCloseShapes(KSHostShapes* pShapes);
KS_API int KSHostShapeCount(const KSHostShapes* pShapes);
/** The name that the file gives a shape, 0-based; empty when it gives none. Owned by the shapes. */
KS_API const char* KSHostShapeName(const KSHostShapes* pShapes, int nShape);
/** The window of the image (x offset, y offset, width, height) that a shape reaches. Returns 1, or 0 when it lies
 *  outside the image. */
KS_API int KSHostShapeWindow(const KSHostShapes* pShapes, int nShape, int anWindow[4]);
/** Sets to 1 the pixels of a window, row after row, that a shape covers, and leaves the others: pixels whose centre
 * lies in a polygon, with bAllTouched all pixels that it touches; pixels that a line or a point meets. Returns 1, or 0
 * after a report. */
KS_API int KSHostRasterizeShape(const KSHostShapes* pShapes, int nShape, int bAllTouched, const int anWindow[4],
                                unsigned char* pbyMask);

#ifdef __cplusplus
}
#endif
#endif
