#pragma once

#include <array>

#include "geometry/vec3.h"

namespace vorn {

// Symmetric 3 x 3 matrix: xx, xy, xz, yy, yz, zz.
using Symmetric3 = std::array<double, 6>;

// Error ellipsoid of a point: the square roots of the eigenvalues of its covariance matrix and
// their directions.
struct Ellipsoid {
  Vec3 axes;                       // a >= b >= c
  std::array<Vec3, 3> directions;  // unit vectors, the largest component positive
};

// Eigenvalues (descending) and eigenvectors, as rows, of a symmetric matrix by cyclic Jacobi
// rotations (Jacobi 1846; Golub and Van Loan 2013, 8.5).
struct Eigen3 {
  Vec3 values;
  std::array<Vec3, 3> vectors;
};
[[nodiscard]] Eigen3 eigen_decomposition(const Symmetric3& matrix);

[[nodiscard]] Ellipsoid error_ellipsoid(const Symmetric3& covariance);
// Its axes alone, digit for digit: half the work.
[[nodiscard]] Vec3 semi_axes(const Symmetric3& covariance);

}  // namespace vorn
