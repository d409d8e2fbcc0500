#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "base/pack.h"
#include "lsq/linalg/kernels.h"
#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_matrix.h"

namespace vorn {

// Derivatives of a group of observations with respect to the parameters of one object: an
// m x n matrix and the number of the object's first unknown.
struct DesignBlock {
  Matrix a;
  std::int32_t index = -1;
};

// Two rows of a design matrix, x and y: of numbers, or of packs of numbers.
template <class T>
struct RowPair {
  T* x;
  T* y;
};

// Adds observations with individual weights to the normal equations:
// N += A'PA, rhs += A'Pl, vtpv += l'Pl with P = diag(weights). Blocks stand in ascending order of
// their unknowns. All arrays have m elements, m the number of rows of each block.
void add_weighted_observations(const std::vector<const DesignBlock*>& blocks, const Vector& weights,
                               const Vector& reduced, NormalMatrix& normal, Vector& rhs,
                               double& vtpv);

// Where the contributions of one image point go.
struct EquationTarget {
  NormalMatrix::PointRows rows;
  const std::int32_t* starts;  // of the blocks, within the point's coupling blocks
  std::int32_t index;          // first unknown of the object point
};

// The observation equations of up to eight points of one image side by side, with the memory that
// their way into the normal equations takes; one serves all images.
struct PackedEquations {
  std::int32_t count = 0;  // of the points; the others hold finite numbers and are passed over
  EquationTarget targets[Pack::kSize];
  Pack point_x[3];  // design rows of the object point
  Pack point_y[3];
  std::vector<Pack> x;  // design rows of all blocks
  std::vector<Pack> y;
  Pack cofactors[2];         // of x and y
  Pack reduced[2];           // reduced observations of x and y
  std::vector<double> rows;  // working memory of the kernel
};

// The observation equations of one image: every image point gives a group of two correlated
// observations that touches an object point and the same blocks of the reduced part (its geometry,
// parameter sets and corrections). What the points have in common is summed up here and added to
// the normal equations in one go by `finish`.
class ImageEquations {
 public:
  // `blocks` are the numbers of the blocks in the normal matrix, ascending.
  ImageEquations(NormalMatrix& normal, std::vector<std::int32_t> blocks);
  const std::vector<std::int32_t>& blocks() const { return blocks_; }
  std::int32_t width() const { return width_; }

  // Forgets what was summed up.
  void start();
  // Adds one image point. `point` (2 x 3) and `design` (2 x n each, in the order of the blocks) are
  // its design blocks, `b` (2 x 2) the derivatives of the conditions with respect to the
  // observations, `q` (2 x 2) the cofactors of the observations, `reduced` the reduced
  // observations. The weight matrix is (B Q B')^-1. False, with nothing added, when it is not
  // positive definite.
  bool add(const EquationTarget& target, const Matrix& point,
           std::span<const DesignBlock* const> design, const Matrix& b, const Matrix& q,
           const double (&reduced)[2], Vector& rhs);

  // Adds up to eight image points at once; B is the identity. False when a cofactor is not greater
  // than 0 or infinite; what was added so far is of no use then.
  bool add(PackedEquations& equations, Vector& rhs);

  // Adds what is summed up: N, the right-hand side, and l'Pl.
  void finish(Vector& rhs, double& lPl);

 private:
  static bool weights_of(const Matrix& b, const Matrix& q, PointWeights& weights);
  void add_packed_points(PackedEquations& equations, const PackedWeights& weights, Vector& rhs);
  void add_coupling(const EquationTarget& target, const double* point, double* weighted);
  void gather(std::span<const DesignBlock* const> design);
  // `point` holds the 2 x 3 design rows of the object point.
  void add_point(const EquationTarget& target, const double* point, const PointWeights& weights,
                 const double (&weighted)[2], Vector& rhs);

  const Kernels& kernel_ = kernels();
  NormalMatrix& normal_;
  std::vector<std::int32_t> blocks_;
  std::vector<std::int32_t> widths_;
  std::int32_t width_ = 0;        // of all blocks
  std::int32_t stride_ = 0;       // the same, rounded up to a multiple of 8
  std::vector<double> rows_;      // design rows of all blocks, x then y
  std::vector<double> weighted_;  // the same, weighted
  std::vector<double> products_;  // sum of A'PA, upper triangle
  std::vector<double> sums_;      // sum of A'Pl
  double lPl_ = 0.0;
};

}  // namespace vorn
