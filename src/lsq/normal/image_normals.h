#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "base/pack.h"
#include "lsq/linalg/kernels.h"
#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_matrix.h"

namespace vorn {

// The linearised observation equation of one image point, two rows: v = A dx - l with weights P,
// l the misclosure, measured minus computed [m]. A falls into the 2 x 3 derivatives with respect to
// the object point and those with respect to everything else that the image depends on, lined up in
// the order of the unknowns.
struct PointEquation {
  double point[6];           // row x, then row y
  std::vector<double> rows;  // row x, then, `stride` elements later, row y; zero behind the width
  std::int32_t width = 0;
  std::int32_t stride = 0;  // the width, rounded up to a multiple of 8
  PointWeights weights;
  double misclosure[2];

  // Makes room for rows of a width, all zero.
  void resize(std::int32_t new_width);
};

// P = (B Q B')^-1 of a point's two observations: B (2 x 2) the derivatives of the conditions with
// respect to the observations, Q (2 x 2) their cofactors. False when B Q B' is not positive
// definite.
[[nodiscard]] bool weights_of(const Matrix& b, const Matrix& q, PointWeights& weights);

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
  std::int32_t points[Pack::kSize];  // places of the object points in their batch
  Pack point_x[3];                   // design rows of the object point
  Pack point_y[3];
  std::vector<Pack> x;  // design rows of everything else
  std::vector<Pack> y;
  Pack cofactors[2];         // of x and y; B is the identity
  Pack misclosure[2]{};      // of x and y
  std::vector<double> rows;  // working memory of the kernel
};

// What image points of one image have in common in the normal equations.
struct ImageSums {
  std::vector<double> products;  // sum of A'PA, upper triangle
  std::vector<double> sums;      // sum of A'Pl
  std::vector<double> weighted;  // working memory: design rows of a point, weighted
  double lPl = 0.0;
};

// Sums up the normal equations of one image: every image point gives a group of two correlated
// observations that touches an object point and the same blocks of the reduced part (its geometry,
// parameter sets and corrections). What the points have in common is summed up here and added to
// the normal equations in one go by `finish`.
class ImageNormals {
 public:
  // `blocks` are the numbers of the blocks in the normal matrix, ascending.
  ImageNormals(NormalMatrix& normal, std::vector<std::int32_t> blocks);
  const std::vector<std::int32_t>& blocks() const { return blocks_; }

  // Forgets what was summed up.
  void start() { start(sums_); }
  void start(ImageSums& sums) const;
  // Adds one image point, whose rows are as wide as the blocks.
  void add(const EquationTarget& target, const PointEquation& equation, Vector& rhs) {
    add(target, equation, rhs, sums_);
  }
  // The same with the image's part summed up by somebody else, who hands it over by `add`: several
  // may be at it, each at other object points.
  void add(const EquationTarget& target, const PointEquation& equation, Vector& rhs,
           ImageSums& sums) const;
  // Adds up to eight image points at once. False when a cofactor is not greater than 0 or infinite;
  // what was added so far is of no use then.
  [[nodiscard]] bool add(PackedEquations& equations, Vector& rhs, ImageSums& sums) const;
  void add(const ImageSums& sums);
  // Adds what up to eight image points give to the columns of their object points, given where each
  // piece of the image's blocks has its columns and the factors of the batch's points.
  void add_columns(const PackedEquations& equations, std::span<const RowPiece> pieces,
                   const double* factors) const;
  // What their couplings make of a vector, which has an element for each column of the design rows:
  // adds Ap'PA x to the products of the batch's points, three elements each.
  void multiply_couplings(PackedEquations& equations, const double* x, double* products) const;
  // Adds what is summed up: N, the right-hand side, and l'Pl.
  void finish(Vector& rhs, double& lPl);

 private:
  // Room for the kernels' rows; the design in the form that they take.
  PackedRows packed_rows(PackedEquations& equations) const;
  // All zero where there is no point.
  PackedWeights packed_weights(const PackedEquations& equations) const;
  void add_packed_points(const PackedEquations& equations, const PackedWeights& weights,
                         Vector& rhs) const;
  void add_packed_couplings(PackedEquations& equations) const;
  void add_coupling(const EquationTarget& target, const double* point, double* weighted) const;
  // `point` holds the 2 x 3 design rows of the object point, `weighted` is Pl.
  static void add_point(const EquationTarget& target, const double* point,
                        const PointWeights& weights, const double (&weighted)[2], Vector& rhs);

  const Kernels& kernel_ = kernels();
  NormalMatrix& normal_;
  std::vector<std::int32_t> blocks_;
  std::vector<std::int32_t> widths_;
  std::int32_t width_ = 0;   // of all blocks
  std::int32_t stride_ = 0;  // the same, rounded up to a multiple of 8
  ImageSums sums_;
};

}  // namespace vorn
