/** kslib: hyperspectral image analysis. All public headers. */
#ifndef KSLIB_H
#define KSLIB_H

#include <kslib/types.h>

#include <kslib/extra.h>
#include <kslib/ksat.h>
#include <kslib/ksbrdfco.h>
#include <kslib/kscbk.h>
#include <kslib/ksconv.h>
#include <kslib/ksdatset.h>
#include <kslib/ksld.h>
#include <kslib/kslps.h>
#include <kslib/kslt.h>
#include <kslib/kslut.h>
#include <kslib/kslutvec.h>
#include <kslib/ksmatrix.h>
#include <kslib/ksmodtran4.h>
#include <kslib/ksradtrans.h>
#include <kslib/ksrlut.h>
#include <kslib/ksroi.h>
#include <kslib/kssio.h>
#include <kslib/kssmooth.h>
#include <kslib/ksstats.h>
#include <kslib/ksunmix.h>
#include <kslib/ksvq.h>
#include <kslib/kswinex.h>
#include <kslib/kswinim.h>
#include <kslib/kszaz.h>

#endif
