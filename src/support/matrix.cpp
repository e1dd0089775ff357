#include "support/matrix.hpp"

namespace ks {

Vector makeVector(int dim) {
    return Vector(underMatrixTrap(static_cast<VEC*>(nullptr), [dim] { return v_get(dim); }));
}

IntegerVector makeIntegerVector(int dim) {
    return IntegerVector(underMatrixTrap(static_cast<IVEC*>(nullptr), [dim] { return iv_get(dim); }));
}

Matrix makeMatrix(int rows, int columns) {
    return Matrix(underMatrixTrap(static_cast<MAT*>(nullptr), [=] { return m_get(rows, columns); }));
}

}  // namespace ks
