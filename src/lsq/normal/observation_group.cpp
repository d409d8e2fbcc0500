#include "lsq/normal/observation_group.h"

#include <algorithm>
#include <cmath>
#include <utility>

namespace vorn {
namespace {

// Whether B Q B' has an inverse, by an element of a diagonal Q. An infinite one would meet the
// zeros of B, which gives no number.
bool is_cofactor(double q) { return q > 0.0 && std::isfinite(q); }

}  // namespace

void add_weighted_observations(const std::vector<const DesignBlock*>& blocks, const Vector& weights,
                               const Vector& reduced, NormalMatrix& normal, Vector& rhs,
                               double& vtpv) {
  const std::int32_t m = reduced.size();
  for (std::int32_t r = 0; r < m; ++r) vtpv += weights[r] * reduced[r] * reduced[r];
  Matrix product;
  for (std::size_t i = 0; i < blocks.size(); ++i) {
    const Matrix& a = blocks[i]->a;
    for (std::int32_t c = 0; c < a.cols(); ++c) {
      for (std::int32_t r = 0; r < m; ++r) {
        rhs[blocks[i]->index + c] += a[r][c] * weights[r] * reduced[r];
      }
    }
    for (std::size_t j = i; j < blocks.size(); ++j) {
      const Matrix& other = blocks[j]->a;
      product.resize(a.cols(), other.cols());
      product.zero();
      for (std::int32_t c = 0; c < a.cols(); ++c) {
        for (std::int32_t d = 0; d < other.cols(); ++d) {
          for (std::int32_t r = 0; r < m; ++r) product[c][d] += a[r][c] * weights[r] * other[r][d];
        }
      }
      normal.add_block(blocks[i]->index, blocks[j]->index, product);
    }
  }
}

ImageEquations::ImageEquations(NormalMatrix& normal, std::vector<std::int32_t> blocks)
    : normal_(normal), blocks_(std::move(blocks)) {
  for (const std::int32_t block : blocks_) {
    widths_.push_back(normal.block_width(block));
    width_ += widths_.back();
  }
  stride_ = (width_ + 7) / 8 * 8;
  const auto stride = static_cast<std::size_t>(stride_);
  rows_.assign(2 * stride, 0.0);
  weighted_.assign(2 * stride, 0.0);
  products_.assign(stride * stride, 0.0);
  sums_.assign(stride, 0.0);
}

void ImageEquations::start() {
  std::fill(products_.begin(), products_.end(), 0.0);
  std::fill(sums_.begin(), sums_.end(), 0.0);
  lPl_ = 0.0;
}

// P = (B Q B')^-1 by the Cholesky factorisation of the 2 x 2 matrix.
bool ImageEquations::weights_of(const Matrix& b, const Matrix& q, PointWeights& weights) {
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

// Lines the blocks up.
void ImageEquations::gather(std::span<const DesignBlock* const> design) {
  double* x = rows_.data();
  for (const DesignBlock* block : design) {
    const std::int32_t width = block->a.cols();
    const double* const from = block->a[0];
    for (std::int32_t c = 0; c < width; ++c) {
      x[c] = from[c];
      x[stride_ + c] = from[width + c];
    }
    x += width;
  }
}

void ImageEquations::add_point(const EquationTarget& target, const double* point,
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

bool ImageEquations::add(const EquationTarget& target, const Matrix& point,
                         std::span<const DesignBlock* const> design, const Matrix& b,
                         const Matrix& q, const double (&reduced)[2], Vector& rhs) {
  PointWeights weights{};
  if (!weights_of(b, q, weights)) return false;
  const double weighted[2] = {weights.xx * reduced[0] + weights.xy * reduced[1],
                              weights.xy * reduced[0] + weights.yy * reduced[1]};
  lPl_ += reduced[0] * weighted[0] + reduced[1] * weighted[1];
  add_point(target, point[0], weights, weighted, rhs);
  gather(design);
  const DesignRows rows{rows_.data(), weighted_.data(), width_, stride_};
  kernel_.add_products(products_.data(), sums_.data(), rows, weights, weighted);
  add_coupling(target, point[0], weighted_.data());
  return true;
}

bool ImageEquations::add(PackedEquations& equations, Vector& rhs) {
  PackedWeights weights{};
  for (std::int32_t k = 0; k < equations.count; ++k) {
    const double xx = equations.cofactors[0][k];
    const double yy = equations.cofactors[1][k];
    if (!is_cofactor(xx) || !is_cofactor(yy)) return false;
    weights.xx[k] = 1.0 / xx;
    weights.yy[k] = 1.0 / yy;
    const double x = equations.reduced[0][k];
    const double y = equations.reduced[1][k];
    weights.reduced_x[k] = weights.xx[k] * x;
    weights.reduced_y[k] = weights.yy[k] * y;
    lPl_ += x * weights.reduced_x[k] + y * weights.reduced_y[k];
  }
  constexpr auto kLanes = static_cast<std::size_t>(Pack::kSize);
  equations.rows.resize(std::max(equations.rows.size(), 2 * kLanes * rows_.size()));
  kernel_.add_packed_products(products_.data(), sums_.data(),
                              {equations.x.data()->data(), equations.y.data()->data(),
                               equations.rows.data(), width_, stride_},
                              weights);
  add_packed_points(equations, weights, rhs);
  return true;
}

void ImageEquations::add_packed_points(PackedEquations& equations, const PackedWeights& weights,
                                       Vector& rhs) {
  const std::ptrdiff_t stride = stride_;
  double* weighted = equations.rows.data() + 2 * std::ptrdiff_t{Pack::kSize} * stride;
  for (std::int32_t k = 0; k < equations.count; ++k) {
    double rows[6];
    for (std::int32_t i = 0; i < 3; ++i) {
      rows[i] = equations.point_x[i][k];
      rows[3 + i] = equations.point_y[i][k];
    }
    const double reduced[2] = {weights.reduced_x[k], weights.reduced_y[k]};
    add_point(equations.targets[k], rows, {weights.xx[k], weights.xy[k], weights.yy[k]}, reduced,
              rhs);
    add_coupling(equations.targets[k], rows, weighted);
    weighted += 2 * stride;
  }
}

void ImageEquations::add_coupling(const EquationTarget& target, const double* point,
                                  double* weighted) {
  const DesignRows rows{rows_.data(), weighted, width_, stride_};
  kernel_.add_coupling({target.rows.coupling, target.starts, widths_.data(),
                        static_cast<std::int32_t>(widths_.size())},
                       point, rows);
}

void ImageEquations::finish(Vector& rhs, double& lPl) {
  lPl += lPl_;
  std::size_t row = 0;
  for (std::size_t a = 0; a < blocks_.size(); ++a) {
    for (std::int32_t r = 0; r < widths_[a]; ++r, ++row) {
      rhs[normal_.block_index(blocks_[a]) + r] += sums_[row];
      std::size_t column = row - static_cast<std::size_t>(r);
      for (std::size_t b = a; b < blocks_.size(); ++b) {
        double* const to =
            normal_.block_pair(blocks_[a], blocks_[b]) + std::ptrdiff_t{r} * widths_[b];
        for (std::int32_t c = 0; c < widths_[b]; ++c, ++column) {
          to[c] += products_[row * sums_.size() + column];
        }
      }
    }
  }
}

}  // namespace vorn
