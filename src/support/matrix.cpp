#include "support/matrix.hpp"

namespace ks {

Vector makeVector(int dim) {
    return Vector(underMatrixTrap(static_cast<VEC*>(nullptr), [dim] { return v_get(dim); }));
}

}  // namespace ks
