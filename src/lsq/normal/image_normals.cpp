#include "lsq/normal/image_normals.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace vorn {
namespace {

// Rows are filled up to whole vectors of the kernels.
std::int32_t stride_of(std::int32_t width) { return (width + 7) / 8 * 8; }

// Whether B Q B' has an inverse, by an element of a diagonal Q. An infinite one would meet the
// zeros of B, which gives no number.
bool is_cofactor(double q) { return q > 0.0 && std::isfinite(q); }

}  // namespace

void PointEquation::resize(std::int32_t new_width) {
  width = new_width;
  stride = stride_of(new_width);
  rows.assign(2 * static_cast<std::size_t>(stride), 0.0);
}

// By the Cholesky factorisation of the 2 x 2 matrix.
bool weights_of(const Matrix& b, const Matrix& q, PointWeights& weights) {
  double bq[2][2];
  for (std::int32_t i = 0; i < 2; ++i) {
    for (std::int32_t j = 0; j < 2; ++j) bq[i][j] = b[i][0] * q[0][j] + b[i][1] * q[1][j];
  }
  const double xx = bq[0][0] * b[0][0] + bq[0][1] * b[0][1];
  const double xy = bq[0][0] * b[1][0] + bq[0][1] * b[1][1];
  const double yy = bq[1][0] * b[1][0] + bq[1][1] * b[1][1];
  // Negated comparisons, so that pivots that are not numbers fail.
  if (!(xx > 0.0)) return false;
  const double ratio = xy / xx;
  const double pivot = yy - xy * ratio;
  if (!(pivot > 0.0)) return false;
  weights.yy = 1.0 / pivot;
  weights.xy = -ratio * weights.yy;
  weights.xx = 1.0 / xx - ratio * weights.xy;
  return true;
}

ImageNormals::ImageNormals(NormalMatrix& normal, std::vector<std::int32_t> blocks)
    : normal_(normal), blocks_(std::move(blocks)) {
  for (const std::int32_t block : blocks_) {
    widths_.push_back(normal.block_width(block));
    width_ += widths_.back();
  }
  stride_ = stride_of(width_);
  start();
}

void ImageNormals::start(ImageSums& sums) const {
  const auto stride = static_cast<std::size_t>(stride_);
  sums.weighted.resize(2 * stride);
  sums.products.assign(stride * stride, 0.0);
  sums.sums.assign(stride, 0.0);
  sums.lPl = 0.0;
}

void ImageNormals::add_point(const EquationTarget& target, const double* point,
                             const PointWeights& weights, const double (&weighted)[2],
                             Vector& rhs) {
  const double* const ax = point;
  const double* const ay = point + 3;
  double* element = target.rows.diagonal;
  for (std::int32_t i = 0; i < 3; ++i) {
    const double wx = weights.xx * ax[i] + weights.xy * ay[i];
    const double wy = weights.xy * ax[i] + weights.yy * ay[i];
    for (std::int32_t j = i; j < 3; ++j) *element++ += wx * ax[j] + wy * ay[j];
    rhs[target.index + i] += ax[i] * weighted[0] + ay[i] * weighted[1];
  }
}

void ImageNormals::add(const EquationTarget& target, const PointEquation& equation, Vector& rhs,
                       ImageSums& sums) const {
  const PointWeights& weights = equation.weights;
  const double(&l)[2] = equation.misclosure;
  const double weighted[2] = {weights.xx * l[0] + weights.xy * l[1],
                              weights.xy * l[0] + weights.yy * l[1]};
  sums.lPl += l[0] * weighted[0] + l[1] * weighted[1];
  add_point(target, equation.point, weights, weighted, rhs);
  const DesignRows rows{equation.rows.data(), sums.weighted.data(), width_, stride_};
  kernel_.add_products(sums.products.data(), sums.sums.data(), rows, weights, weighted);
  if (target.rows.coupling != nullptr) {
    add_coupling(target, equation.point, sums.weighted.data());
  }
}

bool ImageNormals::add(PackedEquations& equations, Vector& rhs, ImageSums& sums) const {
  const PackedWeights weights = packed_weights(equations);
  for (std::int32_t k = 0; k < equations.count; ++k) {
    if (!is_cofactor(equations.cofactors[0][k]) || !is_cofactor(equations.cofactors[1][k])) {
      return false;
    }
    sums.lPl += equations.misclosure[0][k] * weights.reduced_x[k] +
                equations.misclosure[1][k] * weights.reduced_y[k];
  }
  kernel_.add_packed_products(sums.products.data(), sums.sums.data(), packed_rows(equations),
                              weights);
  add_packed_points(equations, weights, rhs);
  if (equations.targets[0].rows.coupling != nullptr) add_packed_couplings(equations);
  return true;
}

void ImageNormals::add_columns(const PackedEquations& equations, std::span<const RowPiece> pieces,
                               const double* factors) const {
  const PackedRays rays{equations.point_x->data(),
                        equations.point_y->data(),
                        equations.x.data()->data(),
                        equations.y.data()->data(),
                        equations.cofactors->data(),
                        equations.points,
                        equations.count};
  kernel_.add_columns(pieces.data(), static_cast<std::int32_t>(pieces.size()), rays, factors);
}

PackedWeights ImageNormals::packed_weights(const PackedEquations& equations) const {
  PackedWeights weights;
  kernel_.find_packed_weights(weights, equations.cofactors->data(), equations.misclosure->data());
  for (std::int32_t k = equations.count; k < Pack::kSize; ++k) {
    for (double* const of_points : {weights.xx, weights.yy, weights.reduced_x, weights.reduced_y}) {
      of_points[k] = 0.0;
    }
  }
  return weights;
}

void ImageNormals::multiply_couplings(PackedEquations& equations, const double* x,
                                      double* products) const {
  constexpr std::int32_t kLanes = Pack::kSize;
  double s[2 * kLanes];  // A x, then PA x
  kernel_.multiply_packed_rows(s, packed_rows(equations), x);
  for (std::int32_t k = 0; k < kLanes; ++k) {
    s[k] /= equations.cofactors[0][k];
    s[kLanes + k] /= equations.cofactors[1][k];
  }
  for (std::int32_t k = 0; k < equations.count; ++k) {
    double* const product = products + 3 * equations.points[k];
    for (std::int32_t i = 0; i < 3; ++i) {
      product[i] += equations.point_x[i][k] * s[k] + equations.point_y[i][k] * s[kLanes + k];
    }
  }
}

PackedRows ImageNormals::packed_rows(PackedEquations& equations) const {
  const auto room = 4 * static_cast<std::size_t>(Pack::kSize * stride_);
  if (equations.rows.size() < room) equations.rows.resize(room);
  return {equations.x.data()->data(), equations.y.data()->data(), equations.rows.data(), width_,
          stride_};
}

// `add_point` for a pack, operation by operation.
void ImageNormals::add_packed_points(const PackedEquations& equations, const PackedWeights& weights,
                                     Vector& rhs) const {
  Pack products[9];
  kernel_.multiply_packed_points(products->data(), equations.point_x->data(),
                                 equations.point_y->data(), weights);
  for (std::int32_t k = 0; k < equations.count; ++k) {
    const EquationTarget& target = equations.targets[k];
    for (std::int32_t e = 0; e < 6; ++e) target.rows.diagonal[e] += products[e][k];
    for (std::int32_t i = 0; i < 3; ++i) rhs[target.index + i] += products[6 + i][k];
  }
}

// From the weighted rows that the kernel has left behind the plain ones.
void ImageNormals::add_packed_couplings(PackedEquations& equations) const {
  const std::ptrdiff_t stride = stride_;
  double* weighted = equations.rows.data() + 2 * std::ptrdiff_t{Pack::kSize} * stride;
  for (std::int32_t k = 0; k < equations.count; ++k) {
    double rows[6];
    for (std::int32_t i = 0; i < 3; ++i) {
      rows[i] = equations.point_x[i][k];
      rows[3 + i] = equations.point_y[i][k];
    }
    add_coupling(equations.targets[k], rows, weighted);
    weighted += 2 * stride;
  }
}

void ImageNormals::add_coupling(const EquationTarget& target, const double* point,
                                double* weighted) const {
  const DesignRows design{nullptr, weighted, width_, stride_};
  kernel_.add_coupling({target.rows.coupling, target.starts, widths_.data(),
                        static_cast<std::int32_t>(widths_.size())},
                       point, design);
}

void ImageNormals::add(const ImageSums& sums) {
  for (std::size_t i = 0; i < sums_.products.size(); ++i) sums_.products[i] += sums.products[i];
  for (std::size_t i = 0; i < sums_.sums.size(); ++i) sums_.sums[i] += sums.sums[i];
  sums_.lPl += sums.lPl;
}

void ImageNormals::finish(Vector& rhs, double& lPl) {
  lPl += sums_.lPl;
  std::size_t row = 0;
  for (std::size_t a = 0; a < blocks_.size(); ++a) {
    for (std::int32_t r = 0; r < widths_[a]; ++r, ++row) {
      rhs[normal_.block_index(blocks_[a]) + r] += sums_.sums[row];
      std::size_t column = row - static_cast<std::size_t>(r);
      for (std::size_t b = a; b < blocks_.size(); ++b) {
        double* const to =
            normal_.block_pair(blocks_[a], blocks_[b]) + std::ptrdiff_t{r} * widths_[b];
        for (std::int32_t c = 0; c < widths_[b]; ++c, ++column) {
          to[c] += sums_.products[row * sums_.sums.size() + column];
        }
      }
    }
  }
}

}  // namespace vorn
