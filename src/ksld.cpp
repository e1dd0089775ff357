// The published description tables. Their spellings are what callers and files carry, so they never change.
#include <kslib/ksld.h>

extern "C" {

const KSDesc aKSOpenMode[3] = {
    {"unknown", nullptr},
    {"r", "read"},
    {"r+", "read and write"},
};

const KSDesc aKSBandQual[5] = {
    {"unknown", nullptr},
    {"plot", "valid and may be plotted"},
    {"skip", "invalid, replace by interpolation"},
    {"mask", "invalid, do not replace by interpoation"},
    {"bmask", "valid and immediately preceeds a masked band"},
};

const KSDesc aKSFldID[6] = {
    {"unknown", nullptr},
    {"Target", "name for the measured target"},
    {"Quantity", "measured physical quantity"},
    {"Source_File", "file holding source image for image-derived spectrum"},
    {"ROI_File", "file holding the ROI bitmap"},
    {"ROI", "ROI description"},
};

const KSDesc aKSROIType[4] = {
    {"unknown", nullptr},
    {"point", "point location and square neighbouthood"},
    {"rectangle", "rectange corner location and side dimensions"},
    {"bitmap", "1-valued pixels in a bitmap"},
};

const KSDesc aKSRadQuant[7] = {
    {"unknown", nullptr},
    {"uncal", "uncalibrated DN values"},
    {"adj_no_units", "non-physical adjustment"},
    {"apprad", "at-sensor (apparent) radiance"},
    {"scrad", "scene radiance"},
    {"scirrad", "scene irradiance"},
    {"refl", "reflectance"},
};

}  // extern "C"
