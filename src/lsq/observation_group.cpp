#include "lsq/observation_group.h"

namespace vorn {

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

ImageEquations::ImageEquations(NormalMatrix& normal, Vector& rhs,
                               std::span<const std::int32_t> blocks)
    : normal_(normal), rhs_(rhs), blocks_(blocks.begin(), blocks.end()) {
  for (const std::int32_t block : blocks_) {
    widths_.push_back(normal.block_width(block));
    width_ += widths_.back();
  }
  stride_ = (width_ + 7) / 8 * 8;
  const auto stride = static_cast<std::size_t>(stride_);
  rows_.assign(2 * stride, 0.0);
  weighted_.assign(2 * stride, 0.0);
  products_.assign(static_cast<std::size_t>(width_) * stride, 0.0);
  sums_.assign(stride, 0.0);
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

void ImageEquations::add_point(const Target& target, const Matrix& point,
                               const PointWeights& weights, const double (&weighted)[2]) {
  const double* const ax = point[0];
  const double* const ay = point[1];
  double* element = target.rows.diagonal;
  for (std::int32_t i = 0; i < 3; ++i) {
    const double wx = weights.xx * ax[i] + weights.xy * ay[i];
    const double wy = weights.xy * ax[i] + weights.yy * ay[i];
    for (std::int32_t j = i; j < 3; ++j) *element++ += wx * ax[j] + wy * ay[j];
    rhs_[target.index + i] += ax[i] * weighted[0] + ay[i] * weighted[1];
  }
}

bool ImageEquations::add(const Target& target, const Matrix& point,
                         std::span<const DesignBlock* const> design, const Matrix& b,
                         const Matrix& q, const double (&reduced)[2]) {
  PointWeights weights{};
  if (!weights_of(b, q, weights)) {
    standard_output() << "ERROR: Decomposition of weight matrix failed.\n";
    return false;
  }
  const double weighted[2] = {weights.xx * reduced[0] + weights.xy * reduced[1],
                              weights.xy * reduced[0] + weights.yy * reduced[1]};
  lPl_ += reduced[0] * weighted[0] + reduced[1] * weighted[1];
  add_point(target, point, weights, weighted);
  gather(design);
  const DesignRows rows{rows_.data(), weighted_.data(), width_, stride_};
  kernel_.add_products(products_.data(), sums_.data(), rows, weights, weighted);
  kernel_.add_coupling({target.rows.coupling, target.starts, widths_.data(),
                        static_cast<std::int32_t>(widths_.size())},
                       point[0], rows);
  return true;
}

void ImageEquations::finish(double& lPl) {
  lPl += lPl_;
  std::size_t row = 0;
  for (std::size_t a = 0; a < blocks_.size(); ++a) {
    for (std::int32_t r = 0; r < widths_[a]; ++r, ++row) {
      rhs_[normal_.block_index(blocks_[a]) + r] += sums_[row];
      std::size_t column = row - static_cast<std::size_t>(r);
      for (std::size_t b = a; b < blocks_.size(); ++b) {
        double* const to = normal_.block_pair(blocks_[a], blocks_[b]) + r * widths_[b];
        for (std::int32_t c = 0; c < widths_[b]; ++c, ++column) {
          to[c] += products_[row * sums_.size() + column];
        }
      }
    }
  }
}

}  // namespace vorn
