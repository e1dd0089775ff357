/** kslib: solar and view geometry. Pure computations; angles are degrees. */
#ifndef KSLIB_KSZAZ_H
#define KSLIB_KSZAZ_H

#include <kslib/types.h>

#ifdef __cplusplus
extern "C" {
#endif

/** Zenith and azimuth (clockwise from north) of the sun, for a date, a universal time and a place. Declination and
 *  equation of time by J. W. Spencer, Fourier series representation of the position of the sun, Search 2 (5), 1971.
 *  Every year divisible by 4 counts one day more from its first day on. nUnused is not used. */
KS_API void KSSolarZAz(int nYear, int nMonth, int nDay, int nHour, int nMinute, int nUnused, float fLatitude,
                       float fLongitude, float* pfZenith, float* pfAzimuth);

/** Zenith and azimuth of the view to pixel (nCol, nRow), 0-based, of an image nWidth pixels wide.
 *  fTilt, fHeading, fForeAftTilt  of the platform.   fRightAngle, fLeftAngle  half fields of view.
 *  The azimuth is not brought back into 0..360. nUnused and nUnused2 are not used. */
KS_API void KSViewZAz(int nCol, int nRow, float fTilt, float fHeading, int nWidth, int nUnused, float fRightAngle,
                      float fLeftAngle, float fForeAftTilt, int nUnused2, float* pfZenith, float* pfAzimuth);

#ifdef __cplusplus
}
#endif
#endif
