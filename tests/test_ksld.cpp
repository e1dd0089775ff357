// The description tables: their texts are published, misspellings included.
#include <gtest/gtest.h>
#include <kslib.h>

#include <vector>

namespace {

struct Row {
    const char* name;
    const char* description;
};

template <std::size_t N>
void expectTable(const KSDesc (&table)[N], const std::vector<Row>& rows) {
    ASSERT_EQ(N, rows.size());
    EXPECT_STREQ(table[0].szName, "unknown");
    EXPECT_EQ(table[0].szDesc, nullptr);
    for (std::size_t i = 1; i < N; ++i) {
        EXPECT_STREQ(table[i].szName, rows[i].name);
        EXPECT_STREQ(table[i].szDesc, rows[i].description);
    }
}

TEST(DescriptionTables, OpenModes) {
    expectTable(aKSOpenMode, {{"unknown", nullptr}, {"r", "read"}, {"r+", "read and write"}});
}

TEST(DescriptionTables, BandQualities) {
    expectTable(aKSBandQual, {{"unknown", nullptr},
                              {"plot", "valid and may be plotted"},
                              {"skip", "invalid, replace by interpolation"},
                              {"mask", "invalid, do not replace by interpoation"},
                              {"bmask", "valid and immediately preceeds a masked band"}});
}

TEST(DescriptionTables, SpectraFields) {
    expectTable(aKSFldID, {{"unknown", nullptr},
                           {"Target", "name for the measured target"},
                           {"Quantity", "measured physical quantity"},
                           {"Source_File", "file holding source image for image-derived spectrum"},
                           {"ROI_File", "file holding the ROI bitmap"},
                           {"ROI", "ROI description"}});
}

TEST(DescriptionTables, RegionTypes) {
    expectTable(aKSROIType, {{"unknown", nullptr},
                             {"point", "point location and square neighbouthood"},
                             {"rectangle", "rectange corner location and side dimensions"},
                             {"bitmap", "1-valued pixels in a bitmap"}});
}

TEST(DescriptionTables, RadiometricQuantities) {
    expectTable(aKSRadQuant, {{"unknown", nullptr},
                              {"uncal", "uncalibrated DN values"},
                              {"adj_no_units", "non-physical adjustment"},
                              {"apprad", "at-sensor (apparent) radiance"},
                              {"scrad", "scene radiance"},
                              {"scirrad", "scene irradiance"},
                              {"refl", "reflectance"}});
}

TEST(DescriptionTables, EnumerationsAreTheirRows) {
    EXPECT_STREQ(aKSOpenMode[KS_OPEN_READ].szName, "r");
    EXPECT_STREQ(aKSOpenMode[KS_OPEN_READWRITE].szName, "r+");
    EXPECT_STREQ(aKSBandQual[KS_BQ_PLOT].szName, "plot");
    EXPECT_STREQ(aKSBandQual[KS_BQ_SKIP].szName, "skip");
    EXPECT_STREQ(aKSBandQual[KS_BQ_MASK].szName, "mask");
    EXPECT_STREQ(aKSBandQual[KS_BQ_BMASK].szName, "bmask");
    EXPECT_STREQ(aKSFldID[KS_FLD_TARGET].szName, "Target");
    EXPECT_STREQ(aKSFldID[KS_FLD_ROI].szName, "ROI");
    EXPECT_STREQ(aKSROIType[KS_ROI_POINT].szName, "point");
    EXPECT_STREQ(aKSROIType[KS_ROI_RECTANGLE].szName, "rectangle");
    EXPECT_STREQ(aKSROIType[KS_ROI_BITMAP].szName, "bitmap");
    EXPECT_STREQ(aKSRadQuant[KS_RQ_UNCAL].szName, "uncal");
    EXPECT_STREQ(aKSRadQuant[KS_RQ_ADJ_NO_UNITS].szName, "adj_no_units");
    EXPECT_STREQ(aKSRadQuant[KS_RQ_APPRAD].szName, "apprad");
    EXPECT_STREQ(aKSRadQuant[KS_RQ_SCRAD].szName, "scrad");
    EXPECT_STREQ(aKSRadQuant[KS_RQ_SCIRRAD].szName, "scirrad");
    EXPECT_STREQ(aKSRadQuant[KS_RQ_REFL].szName, "refl");
}

}  // namespace
