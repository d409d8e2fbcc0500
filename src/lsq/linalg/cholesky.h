#pragma once

#include "lsq/linalg/matrix.h"
#include "text/text_writer.h"

namespace vorn {

// Dense Cholesky factorisation N = L L' of a symmetric positive definite matrix, by rows. Reads the
// upper triangle and the diagonal of N, writes L without its diagonal into the strict lower
// triangle and the diagonal of L into p. 0; -1 when N is not square; k > 0 when the pivot of row k
// (counted from 1) is not greater than 0, rows behind it being untouched then. No pivoting, no
// tolerance.
int cholesky(Matrix& n, Vector& p);

// Solves N x = b with N and p as `cholesky` leaves them. 0, or -1, -2, -3 when N is not square or p
// or b have a wrong length.
int back_substitution(const Matrix& n, const Vector& p, const Vector& b, Vector& x);

// Writes the inverse of N into its upper triangle; the lower one keeps L. 0, or -1, -2 as above.
int invert_from_cholesky(Matrix& n, const Vector& p);

// Non-zero pattern of a symmetric matrix as a plain portable bitmap "P1"; reads the upper triangle.
void write_sparsity_pbm(TextWriter& out, const Matrix& n);

}  // namespace vorn
