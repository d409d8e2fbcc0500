#pragma once

#include <array>
#include <cstddef>

#include "lsq/linalg/matrix.h"

namespace vorn {

// Small dense problems of the diagnosis.

// Eigenvalues (ascending) and eigenvectors (columns) of a symmetric matrix, whose upper triangle is
// read, by cyclic Jacobi rotations (Jacobi 1846; Golub and Van Loan 2013, 8.5).
struct SymmetricEigen {
  Vector values;
  Matrix vectors;
};
[[nodiscard]] SymmetricEigen eigen_of_symmetric(Matrix a);

using Row7 = std::array<double, 7>;
using Square7 = std::array<Row7, 7>;

// An upper triangle R with R'R = sum of r r' over all rows given to it. Rows are worked in one by
// one by Givens rotations (George and Heath 1980), so that small sums keep all their digits beside
// large ones.
class RowTriangle {
 public:
  void add(Row7 row);
  const Square7& rows() const { return rows_; }

 private:
  Square7 rows_{};
};

// Generalised eigenvalues of (R'R, D), ascending, and their vectors as rows: squares of the
// singular values of R T with T'DT = I, by one-sided Jacobi rotations (Hestenes 1958), which keep
// the small ones exact. D is symmetric and not negative. What has no part in D is held by
// definition: its value is 1.
struct Eigen7 {
  Row7 values;
  Square7 vectors;
};
[[nodiscard]] Eigen7 generalised_eigen(const RowTriangle& r, const Square7& d);

// Brings the rows of a matrix of full row rank to a form in which each has an element, its largest,
// where all others are zero: elimination with complete pivoting. What has separate causes comes
// apart this way. Rows have unit length afterwards; those that vanish are dropped.
void separate_rows(Matrix& rows);

}  // namespace vorn
