/** kslib: hyperspectral image analysis. All public headers. */
#ifndef KSLIB_H
#define KSLIB_H

#include <kslib/types.h>

#include <kslib/ksdatset.h>
#include <kslib/ksld.h>
#include <kslib/ksmatrix.h>
#include <kslib/ksradtrans.h>
#include <kslib/kswinex.h>

#endif
