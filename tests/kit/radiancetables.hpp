// Radiance tables.
#pragma once

#include <kslib/ksrlut.h>

#include "tables.hpp"

namespace kit {

/// A radiance table of such sizes, with coordinates that are all 0.
inline Table radianceTable(const Sizes& sizes) {
    Table table(RLUTCreate());
    EXPECT_EQ(sizes.size(), 9U);
    EXPECT_EQ(KSLUTSetSizes(table.get(), sizes.data()), kOk);
    return table;
}

/// A radiance table of one combination of coordinates and the given wavelengths.
inline Table tableOfWavelengths(const Coords& wavelengths) {
    Table table = radianceTable({1, 1, 1, 1, 1, 1, 1, 1, static_cast<int>(wavelengths.size())});
    setCoords(table, RLUT_WAVELENGTH, wavelengths);
    return table;
}

}  // namespace kit
