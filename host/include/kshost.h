/** The host boundary: everything kslib asks of a host database library, in plain C.
 *  kslib calls these names and links to whatever provides them. A null handle or list means failure or absence. Images
 *  have channels numbered from 1; metadata is kept as lists of "KEY=VALUE" texts, one for the file (level 1, number
 * -1), one per channel (level 2) and one per segment (level 3); keys are matched exactly.
 *
 *  A host call that fails reports the failure and, while a trap is armed, jumps to it; without one it returns its
 *  failing value. The host takes a trap down before it jumps to it. GDBChanNum, the channel sizes, CheckWin, CheckChan
 *  and the lists only report and never jump. A handle that is not live makes a call fail, and is not looked into.
 *  Traps belong to a thread; files, reports and settings are for one thread at a time. */
#ifndef KSHOST_H
#define KSHOST_H

#include <setjmp.h>
#include <stddef.h>
#include <stdint.h>

#include <kslib/types.h>

/* Formats are checked by the compiler where a caller gives them whole. */
#if defined(__GNUC__)
#define KSHOST_PRINTF(nFormat, nFirst) __attribute__((format(printf, nFormat, nFirst)))
#else
#define KSHOST_PRINTF(nFormat, nFirst)
#endif

#ifdef __cplusplus
extern "C" {
#endif

/** A vector layer; callers see its first members. */
struct HostLayer {
    HostFile* fp;
    int nSegment;
    unsigned nFlags;
};

/* ---- files ---- */

/** Makes the host know its image formats; may be called any number of times. */
KS_API void ImageRegister(void);
/** 1 if a file of that name exists (a link to nowhere is none), 0 if not. */
KS_API int DKCheck(const char* szFileName);
/** Opens an image, a native file of layers or an ENVI spectral library; szAccess is "r" or "r+". The name is that of an
 * image, or NETCDF:"FILE":variable or HDF5:"FILE"://variable; a relative one counts from the folder of this moment. An
 * image whose samples cannot be written opens with "r+" all the same, for its metadata. Neither access makes a file. */
KS_API HostFile* GDBOpen(const char* szFileName, const char* szAccess);
/** Stores what was gathered for the file, whatever references remain, and gives this one back; null is accepted. What
 *  cannot be stored is reported, and lost with the last handle on the file. */
KS_API void GDBClose(HostFile* fp);
/** Creates an image of zeros; anChannels counts the channels of type 1, 2, 3 and any other, in that order, and all but
 *  one are 0; szInterleave "PIXEL". A name in .tif or .tiff gives a GeoTIFF, any other an ENVI image. Refuses a name
 * whose image, header or sidecar exists, and leaves nothing behind when it fails. */
KS_API HostFile* IDBCreate(const char* szFileName, int nXSize, int nYSize, const int anChannels[4],
                           const char* szInterleave);
/** Creates a file for vector layers, without channels; nFileType is 60 for one in memory (no name needed, nothing on
 * the disk), 3 for a native one, or a type of another program's format (kshost_app.h). nXSize, nYSize, n0, n1 and
 * szText are 512, 512, 0, 1 and "" by convention. Refuses a name whose file, header or sidecar exists. A native file is
 * there at once; one of another format appears, whole or not at all, when it is closed or flushed with a layer in it.
 */
KS_API HostFile* GDBCreate(int nFileType, const char* szFileName, int nXSize, int nYSize, int n0, int n1,
                           const char* szText);
/** Adds an entry to the file's processing history, whatever level and channel. */
KS_API void GDBWriteHistory(HostFile* fp, int nLevel, int nChan, const char* szText);
/** The file's name as it was opened, owned by the handle. */
KS_API const char* fp2filename(HostFile* fp);
/** The file's type: 3 for an image and a native file, which can hold segments, else the type that GDBCreate takes (29
 * for an ENVI spectral library, 60 in memory); 0 for a handle that is not live. */
KS_API int fp2type(HostFile* fp);
/** 1 if the handle is live; a dead handle is never dereferenced. */
KS_API int fpValidate(HostFile* fp);
/** Raises the handle's reference count and returns the same handle; each reference is given back with GDBClose. Null
 * for a handle that is not live. */
KS_API HostFile* fpReference(HostFile* fp);

/* ---- channels ---- */

/** These three are 0 for a file of layers. */
KS_API int GDBChanNum(HostFile* fp);
KS_API int GDBChanXSize(HostFile* fp);
KS_API int GDBChanYSize(HostFile* fp);
/** 1 unsigned 8-bit, 2 signed 16-bit, 3 unsigned 16-bit, 4 any other; 0 after a report. */
KS_API int GDBChanType(HostFile* fp, int nChan);
/** Moves a rectangle of several channels (nMode 0 read, 1 write) to or from a pixel-interleaved buffer. Reading reduces
 *  to nBufXSize x nBufYSize: sample i of n from a width w is column nXOff + i * w / n. Writing takes a buffer of the
 *  rectangle's size, clamps to the channel's type and rounds to nearest; a NaN in an integer channel becomes its
 * no-data value, else 0. Returns 1, or 0 after a report; a failed read leaves NaN throughout the buffer, and after any
 * failed transfer the handle refuses to write samples. */
KS_API int GDBRealChanIOLow(HostFile* fp, int nMode, int nXOff, int nYOff, int nXSize, int nYSize, float* pafBuffer,
                            int nBufXSize, int nBufYSize, int nNumChans, const int* panChans);
/** Reads (nMode 0, cut to fit szText of at least 65 bytes) or writes (1) a channel's description. */
KS_API int GDBChanDescIO(HostFile* fp, int nMode, int nChan, char* szText);
/** Fetches the window that was set for a task parameter: x offset, y offset, width, height. The whole image when none
 * was set, or, after a report, when it does not lie in the image. */
KS_API void CheckWin(HostFile* fp, const char* szParam, int anWindow[4]);
/** Reports the first channel of a task parameter's list that the file does not have. */
KS_API void CheckChan(HostFile* fp, const char* szParam, const int* panChans, int nNumChans);

/* ---- metadata and string lists ---- */

/** Reads (nDirection 0: a new list, the caller's to destroy, null when empty) or replaces (1: returns null) a level's
 *  list; null empties it. What is written is seen at once by every handle on the file and stored when one is closed.
 *  A gain, offset, centre or width that only repeats the stored text in fewer digits leaves that text standing. */
KS_API HostStringList GDBMetaDataIO(HostFile* fp, int nDirection, int nLevel, int nNumber, HostStringList pList);
/** One value of a level's list; null when there is no such key. Valid as long as a handle on the file is open. */
KS_API const char* GDBFetchMetaDataEntry(HostFile* fp, int nLevel, int nNumber, const char* szKey);
/** The value of a key, owned by the list, or null. */
KS_API const char* FetchAuxEntry(HostStringList pList, const char* szKey);
/** Sets a key's one entry; go on with the returned list. */
KS_API HostStringList SetAuxEntry(HostStringList pList, const char* szKey, const char* szValue);
/** Removes a key's entries; go on with the returned list. Callers pass 0 and 1 for n0 and n1. */
KS_API HostStringList DeleteAuxEntries(HostStringList pList, const char* szKey, int n0, int n1);
KS_API void DestroyStringList(HostStringList pList);
KS_API int CountStringList(HostStringList pList);
/** The tokens of a text between any of the delimiter characters; empty tokens are skipped. */
KS_API HostStringList TokenizeDelim(const char* szText, const char* szDelim);
/** A formatted text that stays valid for the thread's next 15 calls. */
KS_API const char* MkName(const char* szFormat, ...) KSHOST_PRINTF(1, 2);
/** A malloc'ed copy; null for null. */
KS_API char* _HString(const char* szText);

/* ---- segments ----
 * Numbered from 1. A vector layer is a segment of type 116; a segment of any other type holds data, in blocks of 512
 * bytes. A segment has a metadata list, at level 3 or at the level of its type. */

/** A new data segment of zeros, which takes room on the disk only where it is written to. It is stored at once, and so
 *  is what was gathered for the file. The texts may be null. Returns its number, or 0 after a report. */
KS_API int IDBSegCreate(HostFile* fp, const char* szName, const char* szDesc, int nType, int64_t nBlocks);
/** Reads (nMode 0) what a segment is: status 'A' and its type, or, without a report, 'E' and 0 for none of that number.
 *  The pointers may be null; p0 to p2 are not used. Returns 1, or 0 after a report. */
KS_API int IDBSegInfoIO(HostFile* fp, int nSegment, int nMode, char* pchStatus, int* pnType, void* p0, void* p1,
                        void* p2);
/** The next segment of a type behind nPrevious (0: the first); -1 at the end. */
KS_API int GDBSegNext(HostFile* fp, int nType, int nPrevious);
/** Reads (nMode 0) or writes (1) a rectangle of the multi-dimensional array that a data segment holds from its first
 *  byte on, in row-major order with the last dimension fastest; the buffer takes the rectangle's elements in that
 *  order, as bytes. All arrays have nDimensions values.
 *  - panSizes: of the whole array, which must fit into the segment.
 *  - panOffset, panCount: first index, which must be one of the array, and number of indexes.
 *  - panOpt1: step from one index to the next, at least 1; null: 1.
 *  - panOpt2: index within the rectangle at which to begin, as to resume; null: its first element.
 *  - nPosition: most elements to move; 0: no limit.
 *  - nBytes: of the buffer, which also limits.
 *  - pnMoved: bytes moved, may be null; 0 after a failure.
 *
 *  A write is stored at once, all of it or nothing. Returns 1, or 0 after a report; what a failed read leaves in the
 *  buffer is not to be used. */
KS_API int IDBMultiArrayIO(HostFile* fp, int nMode, int nSegment, int nDimensions, const int64_t* panSizes,
                           int nElementSize, const int64_t* panOffset, const int64_t* panCount, const int64_t* panOpt1,
                           const int64_t* panOpt2, int64_t nPosition, void* pBuffer, int64_t nBytes, int64_t* pnMoved);

/* ---- vector layers ----
 * Tables: one shape a row, one value for each field. Fields and shapes count from 0. Numbers are kept to the bit, texts
 * of any length and bytes as they are. What is written is seen at once by every handle on the file in this process and
 * stored when one is closed or flushed. A null layer, or one whose file is closed, is reported, as is a shape or field
 * that is not there. The layer of a spectral library that was opened is only read. */

/** A new layer; its segment number follows the highest of the file. szText1 is its description; both texts may be null.
 */
KS_API HostLayer* GDBCreateLayer(HostFile* fp, const char* szName, const char* szText1, const char* szText2);
/** The layer of a segment: always the same handle, which lives until the last reference to fp is closed. Null after a
 *  report when there is none. */
KS_API HostLayer* GDBGetLayer(HostFile* fp, int nSegment);
/** The type of the file that the layer lies in; 29 for the spectra of a library, also where the library's sidecar holds
 *  layers of type 3. 0 after a report. */
KS_API int GDBLayer2Type(HostLayer* hLayer);
KS_API int GDBGetNumFields(HostLayer* hLayer);
/** Valid as long as a handle on the file is open; null after a report. */
KS_API const char* GDBGetFieldName(HostLayer* hLayer, int nField);
/** Adds a field, type 2 real or 3 text; names may repeat. Shapes that are there get 0 or an empty text. Returns the
 *  field's number, or -1 after a report, also when the file's format has no room for it. */
KS_API int GDBDefineNewField(HostLayer* hLayer, const char* szName, int nFieldType);
/** A new text, to be freed, that says how to show a field's values: a width, and for numbers n0 decimals. */
KS_API char* GDBGenFieldFormat(int nFieldType, int nWidth, int n0, int n1);
/** Keeps a format with the field; values are stored and handed out whole all the same. */
KS_API int GDBSetFieldFormat(HostLayer* hLayer, int nField, const char* szFormat);
/** Appends a shape of zeros and empty texts; its number, or -1 after a report. The type is kept and means nothing here.
 */
KS_API int GDBCreateShape(HostLayer* hLayer, int nShapeType);
/** In a text field the number becomes its shortest exact text. */
KS_API int GDBSetValue(HostLayer* hLayer, int nShape, int nField, double dValue);
/** In a real field the text must begin with a number. */
KS_API int GDBSetValueString(HostLayer* hLayer, int nShape, int nField, const char* szValue);
/** A text's value is the number that it begins with, or 0. 0 after a report. */
KS_API double GDBGetValue(HostLayer* hLayer, int nShape, int nField);
/** A copy, owned by the layer and valid for its next 15 texts, that the caller may edit in place. A number gives its
 *  shortest exact text. Null after a report. */
KS_API char* GDBGetValueString(HostLayer* hLayer, int nShape, int nField);
/** Copies a layer into another file, without the fields that the file's format cannot hold, in which names may be
 *  shortened and made unique; n0 to n3 are 0. Returns the segment of the copy, or 0 after a report. */
KS_API int GDBVectorCopy(HostFile* fpSrc, int nSegSrc, HostFile* fpDst, int n0, int n1, int n2, int n3);
/** The first shape and the one behind nShape; -1 at the end. */
KS_API int GDBGetFirst(HostLayer* hLayer);
KS_API int GDBGetNext(HostLayer* hLayer, int nShape);

/* ---- vector-quantized cubes ---- */

/** Describes the file's cube: 1 and *pInfo filled, or 0 when the file holds none. */
KS_API int VQubeGetInfo(HostFile* fp, KSVQubeInfo* pInfo);
/** Makes a cube whose codebook and index map are all zeros. Returns 1, or 0 after a report with nothing left behind. */
KS_API int VQubeCreate(const char* szFileName, int nPixels, int nLines, int nBands, int nCodeVectors, int nDataType);
/** Frees the lists of a description; the handles are borrowed and stay. */
KS_API void VQubeCleanUp(KSVQubeInfo* pInfo);
/** Copies all code vectors, one after another, in the cube's data type. fpVQ is the file or one of its channels'
 * handles.
 */
KS_API int VQubeGetCodeBook(HostFile* fpVQ, void* pBuf);
/** Replaces the codebook, whole or not at all. szFileName is the name of the file or of one of its channels' handles,
 * which may be cut at the first ':'; component j of each vector belongs to channel panChans[j]. Returns 1, or 0 after a
 * report.
 */
KS_API int VQubePutCodeBook(const char* szFileName, int nCodeVectors, int nDataType, int nCbkBands, int nDataSetBands,
                            const int* panChans, const void* pBuf);
/** Reads and writes a rectangle (x offset, y offset, width, height) of the index map. */
KS_API int VQubeGetIndexMap(HostFile* fpVQ, const int anWindow[4], uint16_t* pau16Buf);
KS_API int VQubePutIndexMap(const char* szFileName, const int anWindow[4], int nCodeVectors, int nXSize, int nYSize,
                            const uint16_t* pau16Buf);

/* ---- reports, traps, sorting, memory, progress ---- */

/** Reports an error. The first placeholder of the format is the reporting function's label. */
KS_API void IMPError(int nCode, int nSeverity, const char* szFormat, ...) KSHOST_PRINTF(3, 4);
KS_API void Debug(const char* szFormat, ...) KSHOST_PRINTF(1, 2);
/** Sets whether an error ends the program; returns the previous setting. */
KS_API int IMPFatal(int bFatal);
/** Reports an error that concerns a text parameter of a task. */
KS_API void IMPErrChar(int nCode, int nSeverity, const char* szParam, const char* szText);
/** Arms a trap (null: 32 are armed already); the caller then marks a return point on its buffer. Traps nest. */
KS_API void* IMP_Protect(void);
KS_API jmp_buf* IMPProtectBuffer(void);
KS_API void IMPUnprotect(void);
/** Sorts in place with the contract of qsort. */
KS_API void ORV_qsort(void* pBase, size_t nCount, size_t nSize, int (*pfCompare)(const void*, const void*));
/** Bytes of working memory that the host allows; *pbFlag is set to 1 when they are a limit. */
KS_API int IMPGetMemory(int* pbFlag);
/** Progress: (0, -1.0) starts, (0, fraction) advances, (0, 2.0) finishes. */
KS_API void IMPCounter(int nDone, double dFraction);

#ifdef __cplusplus
}
#endif
#endif
