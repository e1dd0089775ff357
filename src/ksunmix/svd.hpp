// Singular value decomposition in single precision, after G. H. Golub and C. Reinsch, "Singular value decomposition and
// least squares solutions", Numerische Mathematik 14 (1970), 403-420.
#pragma once

namespace ks {

/// Decomposes the matrix A whose rows are given into U diag(w) V', with the columns of U in place of those of A.
/// rows    `rowCount` rows of `columns` values; A becomes U.
/// w       `columns` singular values, none below 0, in no order.
/// v       V, `columns` rows of `columns` values.
/// Fewer rows than columns are reported and then decomposed as if rows of zeros followed; a singular value that does
/// not converge is reported and left as it is. False, with nothing changed, when there is no memory.
[[nodiscard]] bool decompose(float* const* rows, int rowCount, int columns, float* w, float* v);

}  // namespace ks
