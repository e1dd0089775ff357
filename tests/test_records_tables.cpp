// Layouts of the table records: callers compiled earlier, and callers in other languages, rely on every offset.
#include <gtest/gtest.h>
#include <kslib/kslut.h>
#include <kslib/kslutvec.h>
#include <kslib/ksrlut.h>

#include <cstddef>
#include <string>
#include <type_traits>

namespace {

template <class T>
constexpr bool kPlain = std::is_standard_layout_v<T>&& std::is_trivial_v<T>;

// Offsets of a platform with 64-bit pointers.
static_assert(sizeof(void*) == 8);

TEST(RecordLayout, LookUpTable) {
    static_assert(kPlain<KSLUT>);
    static_assert(std::is_same_v<decltype(KSLUT::papszLabels), char**>);
    static_assert(std::is_same_v<decltype(KSLUT::panSizes), int*>);
    static_assert(std::is_same_v<decltype(KSLUT::papafCoords), float**>);
    EXPECT_EQ(offsetof(KSLUT, papszLabels), 0U);
    EXPECT_EQ(offsetof(KSLUT, panSizes), 8U);
    EXPECT_EQ(offsetof(KSLUT, papafCoords), 16U);
    EXPECT_EQ(offsetof(KSLUT, nDimensions), 24U);
    EXPECT_EQ(offsetof(KSLUT, nElementSize), 28U);
    EXPECT_EQ(offsetof(KSLUT, fp), 32U);
    EXPECT_EQ(offsetof(KSLUT, nSegment), 40U);
    EXPECT_EQ(sizeof(KSLUT), 48U);
}

TEST(RecordLayout, LookUpTableVector) {
    static_assert(kPlain<KSLUTVector>);
    static_assert(std::is_same_v<decltype(KSLUTVector::panValues), std::int64_t*>);
    EXPECT_EQ(offsetof(KSLUTVector, nDimensions), 0U);
    EXPECT_EQ(offsetof(KSLUTVector, panValues), 8U);
    EXPECT_EQ(sizeof(KSLUTVector), 16U);
}

TEST(RecordLayout, RadianceTableEntry) {
    static_assert(kPlain<RLUTEntry>);
    static_assert(std::is_same_v<RLUT, KSLUT>);
    EXPECT_EQ(offsetof(RLUTEntry, fFirst), 0U);
    EXPECT_EQ(offsetof(RLUTEntry, fSecond), 4U);
    EXPECT_EQ(sizeof(RLUTEntry), 8U);
}

TEST(RecordLayout, RadianceTableLabels) {
    static_assert(std::is_same_v<decltype(gaszRLUTLabels), const char* const[10]>);
    const char* const labels[] = {"Sensor altitude",
                                  "Solar zenith angle",
                                  "Reflectance",
                                  "Surface meteorological range",
                                  "Vertical water vapor column",
                                  "Scene elevation",
                                  "Relative view-solar azimuth",
                                  "View zenith angle",
                                  "Wavelength"};
    for (int d = 0; d < 9; ++d) EXPECT_EQ(std::string(gaszRLUTLabels[d]), labels[d]);
    EXPECT_EQ(gaszRLUTLabels[9], nullptr);
}

}  // namespace
