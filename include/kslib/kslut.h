/** kslib: look-up tables.
 *  A dense array of elements of one size over N dimensions, each with a size, an optional label and one coordinate for
 *  every index. Elements are kept in a data segment of a host file, row-major with the last dimension fastest, and move
 *  by hyper-rectangles; shape and coordinates are kept in the segment's metadata.
 *
 *  Unlike the rest of the library these operations return 1 for success and 0 for failure, and report nothing.
 *  Outputs may be null; a null array given to a setter of all dimensions clears them.
 *
 *  Life cycle: KSLUTCreate, element size, sizes, labels, coordinates, KSLUTCreateFileSegment, KSLUTSetFileInfo,
 *  KSLUTSetAttributes, KSLUTFileIO; later KSLUTCreate, KSLUTSetFileInfo, KSLUTGetAttributes, KSLUTFileIO. */
#ifndef KSLIB_KSLUT_H
#define KSLIB_KSLUT_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

struct KSLUT {
    char** papszLabels;  /**< a label for each dimension, or null; owned */
    int* panSizes;       /**< indices of each dimension, 0 until set; owned */
    float** papafCoords; /**< for each dimension panSizes[d] coordinates, or null; owned */
    int nDimensions;     /**< at least 1 */
    int nElementSize;    /**< bytes of an element, 0 until set */
    HostFile* fp;        /**< file that holds the table, or null; one reference is owned */
    int nSegment;        /**< its segment in the file */
};

/* ---- making and copying ---- */

/** A table of nDimensions (1 or more) dimensions without sizes, labels and file, or null. */
KS_API KSLUT* KSLUTCreate(int nDimensions);
/** A copy with a reference of its own on the file, or null. */
KS_API KSLUT* KSLUTCreateFrom(const KSLUT* pSrc);
/** Copies element size, sizes, labels, coordinates and file between tables of the same number of dimensions; stops at
 *  the first step that fails. */
KS_API int KSLUTSetFrom(const KSLUT* pSrc, KSLUT* pDst);
/** Closes the table's file reference and frees the table; null is accepted. */
KS_API void KSLUTDestroy(KSLUT* pLUT);
/** A new number of dimensions drops labels, sizes and coordinates. When memory runs out the table itself has been
 *  released and must not be used any more. */
KS_API int KSLUTSetDimensions(KSLUT* pLUT, int nDimensions);

/* ---- dimensions ---- */

/** A size of 1 or more gives the dimension as many coordinates, all 0; a smaller one leaves them as they were. */
KS_API int KSLUTSetSize(KSLUT* pLUT, int nDimension, int nSize);
KS_API int KSLUTSetSizes(KSLUT* pLUT, const int* panSizes);
KS_API int KSLUTGetSize(const KSLUT* pLUT, int nDimension, int* pnSize);
KS_API int KSLUTGetSizes(const KSLUT* pLUT, int* panSizes);

/** The text is copied; null removes the label. */
KS_API int KSLUTSetLabel(KSLUT* pLUT, int nDimension, const char* pszLabel);
KS_API int KSLUTSetLabels(KSLUT* pLUT, const char* const* papszLabels);
/** A new copy, or null; free with free. */
KS_API char* KSLUTGetLabel(const KSLUT* pLUT, int nDimension);
/** A new array of nDimensions new copies, null where there is no label; free each and the array with free. */
KS_API char** KSLUTGetLabels(const KSLUT* pLUT);
/** The first dimension of that label, ignoring case. */
KS_API int KSLUTGetDimensionFromLabel(const KSLUT* pLUT, const char* pszLabel, int* pnDimension);

KS_API int KSLUTSetCoord(KSLUT* pLUT, int nDimension, int nIndex, float fCoord);
KS_API int KSLUTGetCoord(const KSLUT* pLUT, int nDimension, int nIndex, float* pfCoord);
/** As many coordinates as the dimension has indices; null sets zeros. A dimension without a size is left alone when
 *  setting, with success, and fails when getting. */
KS_API int KSLUTSetCoords(KSLUT* pLUT, int nDimension, const float* pafCoords);
KS_API int KSLUTGetCoords(const KSLUT* pLUT, int nDimension, float* pafCoords);
KS_API int KSLUTSetAllCoords(KSLUT* pLUT, const float* const* papafCoords);
KS_API int KSLUTGetAllCoords(const KSLUT* pLUT, float* const* papafCoords);
/** Evenly spaced coordinates from fMin on, in single precision; the last one is what the formula
 *  k * (fMax - fMin) / (size - 1) + fMin gives. */
KS_API int KSLUTSetCoordRange(KSLUT* pLUT, int nDimension, float fMin, float fMax);
KS_API int KSLUTSetCoordRanges(KSLUT* pLUT, const float* pafMin, const float* pafMax);

/* ---- the whole table ---- */

KS_API int KSLUTGetDimensions(const KSLUT* pLUT, int* pnDimensions);
KS_API int KSLUTSetElementSize(KSLUT* pLUT, int nElementSize);
KS_API int KSLUTGetElementSize(const KSLUT* pLUT, int* pnElementSize);
/** 1 when there is at least one dimension and every size is at least 1. */
KS_API int KSLUTIsValid(const KSLUT* pLUT);

/** Number of elements, and the distance in elements between neighbours along each dimension (nDimensions values). */
KS_API int KSLUTGetNumElems(const KSLUT* pLUT, int64_t* pnElems);
KS_API int KSLUTGetElemDist(const KSLUT* pLUT, int64_t* panDist);
/** Blocks of 512 bytes that the table's segment takes. */
KS_API int KSLUTGetBlockSize(const KSLUT* pLUT, int64_t* pnBlocks);
/** Elements to move at a time: the share fFraction of the host's memory allowance, at most 20 MiB and *pnMaxElems
 *  (null: no limit); 1 where the host sets no limit. */
KS_API int KSLUTEPS(const KSLUT* pLUT, float fFraction, int64_t* pnElems, const int64_t* pnMaxElems);

/* ---- the file ---- */

/** Makes fp and segment the table's place, with a reference of its own; gives back the one it had first, which closes a
 *  file that nobody else holds. A place that holds no table segment clears both fields and fails. */
KS_API int KSLUTSetFileInfo(KSLUT* pLUT, HostFile* fp, int nSegment);
KS_API int KSLUTGetFileInfo(const KSLUT* pLUT, HostFile** pfp, int* pnSegment);
/** 1 when the file is open, can hold segments, and has a table segment of that number. */
KS_API int KSLUTIsFileInfoValid(const KSLUT* pLUT);

/** Makes a segment for the table in a file; follow with KSLUTSetFileInfo. The texts are the segment's name and
 *  description. */
KS_API int KSLUTCreateFileSegment(KSLUT* pLUT, HostFile* fp, int* pnSegment, const char* szName, const char* szDesc);
/** Stores the shape in the segment's metadata; keys of dimensions that a larger table left behind stay. */
KS_API int KSLUTSetAttributes(KSLUT* pLUT);
/** Reads the shape from the segment's metadata; after a failure the table may be partly changed, and when memory ran
 *  out for its dimensions it has been released. */
KS_API int KSLUTGetAttributes(KSLUT* pLUT);

/** Reads (nMode 0) or writes (1) a hyper-rectangle of elements.
 *  pOffset, pCount  first index and number of indices of each dimension.
 *  pOpt1            step in each dimension, or null.   pOpt2  index inside the rectangle to resume at, or null.
 *  nPosition        most elements to move, 0 for no limit; nBytes, the size of pBuffer, always limits.
 *  pnMoved          bytes moved.
 *  What the host could not move, it reports; this call then succeeds all the same unless the host abandons it. */
KS_API int KSLUTFileIO(KSLUT* pLUT, int nMode, KSLUTVector* pOffset, KSLUTVector* pCount, KSLUTVector* pOpt1,
                       KSLUTVector* pOpt2, int64_t nPosition, void* pBuffer, int64_t nBytes, int64_t* pnMoved);

#ifdef __cplusplus
}
#endif
#endif
