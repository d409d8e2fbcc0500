#pragma once

#include <cstdint>
#include <vector>

#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/point_elimination.h"
#include "quality/ellipsoid.h"

namespace vorn {

// The cofactors that belong to one object point: with itself, and with all blocks that it meets.
struct PointCofactors {
  Symmetric3 own{};
  // 3 x width of all blocks, row by row; block `at` starts at column at.start / 3 of blocks_of.
  std::vector<double> coupled;
  std::int32_t width = 0;

  const double* row(std::int32_t r) const {
    return coupled.data() + static_cast<std::ptrdiff_t>(r) * width;
  }
};

// The cofactors Q = N^-1 of factorised normal equations, where the figures of quality need them:
//
//   Q_rr = S^-1                         the reduced part, S the reduced normal equations
//   Q_pr = -N_pp^-1 N_pr Q_rr           a point with the blocks that it meets
//   Q_pp = N_pp^-1 - Q_pr N_rp N_pp^-1  the point itself
//
// Of Q_rr only those blocks are asked for that meet in a point or an image.
class Cofactors {
 public:
  Cofactors(const NormalMatrix& normal, const PointElimination& factor);

  // Of two unknowns of the reduced part.
  double reduced(std::int32_t i, std::int32_t j) const {
    return reduced_[i - first_reduced_][j - first_reduced_];
  }
  void of_point(std::int32_t point, PointCofactors& q);

 private:
  const NormalMatrix& normal_;
  std::int32_t first_reduced_;
  Matrix reduced_;
  std::vector<double> quotient_;  // N_pp^-1 N_pr of the running point
};

}  // namespace vorn
