/** kslib: the one place that includes the Meschach matrix library.
 *  Gives its declarations C linkage and takes back the macros that would break a caller's own names. */
#ifndef KSLIB_KSMATRIX_H
#define KSLIB_KSMATRIX_H

#include <float.h>
#include <malloc.h>
#include <math.h>
#include <setjmp.h>
#include <stddef.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <unistd.h>

#ifdef __cplusplus
extern "C" {
#endif
#include <meschach/matrix.h>
#include <meschach/matrix2.h>
#ifdef __cplusplus
}
#endif

#undef catch
#undef catchall
#undef tracecatch
#undef error
#undef warning
#undef input
#undef max
#undef min
#undef Real

#endif
