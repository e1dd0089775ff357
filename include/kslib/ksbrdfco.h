/** kslib: removal of the across-track brightness trend. */
#ifndef KSLIB_KSBRDFCO_H
#define KSLIB_KSBRDFCO_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Fits a polynomial of order nORDER to the column means of the input channels, and writes every value less the trend
 *  plus the band's mean to channels 1 to nNumChans, in place, with a history line and a description for each.
 *  szFILI   the image, opened for writing.   panDBIC  nNumChans channel numbers, from 1.
 *  The host's windows "DBIW" (columns and lines that are averaged) and "DBOW" (what is corrected) are the whole image
 *  unless the application set them. What fails is reported; nothing is returned. */
KS_API void BRDFCorrection(const char* szFILI, const int* panDBIC, int nNumChans, int nORDER);

#ifdef __cplusplus
}
#endif
#endif
