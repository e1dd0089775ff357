// Matrices in MATLAB level-4 files, one after another. Meschach writes headers of five longs and trusts whatever it
// reads; other programs write headers of five 32-bit integers. Both are examined here before anything is loaded.
#pragma once

#include <cstdio>
#include <string_view>

#include "support/heap.hpp"
#include "support/matrix.hpp"

namespace ks {

struct NamedMatrix {
    Matrix matrix;
    Heap<char> name;
    bool isNamed(const char* expected) const { return std::string_view(name.get()) == expected; }
};

/// Loads the next matrix of a file that can be positioned; false when what follows is no sound matrix of real numbers.
[[nodiscard]] bool loadMatrix(std::FILE* file, NamedMatrix& loaded);

/// Writes a matrix under a name; false also when the file could not take it.
[[nodiscard]] bool saveMatrix(std::FILE* file, MAT* matrix, const char* name);

}  // namespace ks
