// Look-up tables and their vectors, owned, whatever host keeps them.
#pragma once

#include <gtest/gtest.h>
#include <kslib/kslut.h>
#include <kslib/kslutvec.h>

#include <cstdint>
#include <cstdlib>
#include <memory>
#include <string>
#include <vector>

namespace kit {

constexpr int kTableSegment = 180;
constexpr int kOk = 1;  // of the table families
constexpr int kFailed = 0;

struct TableDeleter {
    void operator()(KSLUT* table) const { KSLUTDestroy(table); }
};
using Table = std::unique_ptr<KSLUT, TableDeleter>;

struct VectorDeleter {
    void operator()(KSLUTVector* vector) const { KSLUTVectorDestroy(vector); }
};
using Vector = std::unique_ptr<KSLUTVector, VectorDeleter>;

struct BlockDeleter {
    void operator()(void* block) const { std::free(block); }
};
template <class T>
using Block = std::unique_ptr<T, BlockDeleter>;

using Extents = std::vector<std::int64_t>;
using Sizes = std::vector<int>;
using Coords = std::vector<float>;

inline Vector vectorOf(const Extents& values) {
    Vector vector(KSLUTVectorCreate(static_cast<int>(values.size())));
    EXPECT_EQ(KSLUTVectorSetValues(vector.get(), values.data()), kOk);
    return vector;
}

inline Extents valuesOf(const Vector& vector) { return {vector->panValues, vector->panValues + vector->nDimensions}; }

/// A table with sizes, and coordinates that are all 0.
inline Table tableOf(const Sizes& sizes, int elementSize = 8) {
    Table table(KSLUTCreate(static_cast<int>(sizes.size())));
    EXPECT_EQ(KSLUTSetSizes(table.get(), sizes.data()), kOk);
    EXPECT_EQ(KSLUTSetElementSize(table.get(), elementSize), kOk);
    return table;
}

inline void setCoords(const Table& table, int d, const Coords& coords) {
    ASSERT_EQ(table->panSizes[d], static_cast<int>(coords.size()));
    EXPECT_EQ(KSLUTSetCoords(table.get(), d, coords.data()), kOk);
}

inline Sizes sizesOf(const Table& table) { return {table->panSizes, table->panSizes + table->nDimensions}; }

inline Coords coordsOf(const Table& table, int d) {
    const float* coords = table->papafCoords[d];
    return coords == nullptr ? Coords{} : Coords(coords, coords + table->panSizes[d]);
}

inline std::string labelOf(const Table& table, int d) {
    return table->papszLabels[d] == nullptr ? "(none)" : table->papszLabels[d];
}

}  // namespace kit
