#pragma once

#include "lsq/linalg/matrix.h"

namespace vorn {

// Dense Cholesky factorisation N = L L' of a symmetric positive definite matrix, by rows. Reads the
// upper triangle and the diagonal of N, writes L without its diagonal into the strict lower
// triangle and the diagonal of L into p. 0; -1 when N is not square; k > 0 when the pivot of row k
// (counted from 1) is not greater than 0, rows behind it being untouched then. No pivoting, no
// tolerance.
[[nodiscard]] int cholesky(Matrix& n, Vector& p);

// Solves N x = b with N and p as `cholesky` leaves them. 0, or -1, -2, -3 when N is not square or p
// or b have a wrong length.
[[nodiscard]] int back_substitution(const Matrix& n, const Vector& p, const Vector& b, Vector& x);

// Writes the inverse of N into its upper triangle; the lower one keeps L. 0, or -1, -2 as above.
[[nodiscard]] int invert_from_cholesky(Matrix& n, const Vector& p);

}  // namespace vorn
