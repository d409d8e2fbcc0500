// With S = L L' and Z = S^-1 it is Z L = L^-T, and L^-T has nothing below its diagonal. Column j of
// tiles of this equation, from the last column to the first, with I for the rows of the tiles of L
// below tile (j, j):
//
//   Z_Ij L_jj + Z_II L_Ij = 0               Z_Ij = -Z_II W',    W  = (L_Ij L_jj^-1)' = L_jj^-T
//   L_Ij' Z_jj L_jj + Z_jI L_Ij = L_jj^-T         Z_jj = T T' - W Z_Ij,                 T  =
//   L_jj^-T
//
// Z_II is complete by then and lies within the pattern: L fills in wherever two rows of I meet.
// (Takahashi, Fagan and Chin 1973; Erisman and Tinney 1975; here by tiles.)

#include "lsq/linalg/tile_inverse.h"

#include <algorithm>
#include <cstddef>
#include <span>
#include <vector>

#include "base/workers.h"
#include "lsq/linalg/kernels.h"

namespace vorn {
namespace {

// One column of tiles of Z after the other; workers share the tiles of a column.
class ColumnInverter {
 public:
  ColumnInverter(const TileMatrix& factor, TileMatrix& z)
      : factor_(factor),
        z_(z),
        size_(factor.tile_size()),
        area_(static_cast<std::size_t>(size_) * static_cast<std::size_t>(size_)),
        triangle_(area_) {}

  void invert(std::int32_t column) {
    const std::span<const std::int32_t> below = factor_.column(column).subspan(1);
    invert_diagonal(column);
    form_w(column, below);
    products_.resize(std::max(products_.size(), below.size() * area_));
    workers().run(below.size(), [&](std::size_t k, std::size_t) {
      multiply(below, k);
      copy_negative_transposed(product(k), z_.tile(below[k], column));
    });
    finish_diagonal(column, below);
  }

 private:
  double* w(std::size_t k) { return w_.data() + k * area_; }
  double* product(std::size_t k) { return products_.data() + k * area_; }
  double& element(double* tile, std::int32_t r, std::int32_t c) const {
    return tile[static_cast<std::ptrdiff_t>(c) * size_ + r];
  }

  // T = I L_jj^-T
  void invert_diagonal(std::int32_t column) {
    std::fill(triangle_.begin(), triangle_.end(), 0.0);
    for (std::int32_t i = 0; i < size_; ++i) element(triangle_.data(), i, i) = 1.0;
    kernel_.solve_right(triangle_.data(), factor_.tile(column, column), size_, size_);
  }

  // -W, tile by tile: -W_k = 0 - T L_kj'
  void form_w(std::int32_t column, std::span<const std::int32_t> below) {
    w_.resize(std::max(w_.size(), below.size() * area_));
    workers().run(below.size(), [&](std::size_t k, std::size_t) {
      std::fill_n(w(k), area_, 0.0);
      kernel_.multiply_subtract(w(k), triangle_.data(), factor_.tile(below[k], column), size_,
                                size_, size_);
    });
  }

  // -Z_jk = sum of W_l Z_lk = 0 - sum of (-W_l) Z_lk, where Z_lk stands in the lower triangle or is
  // the transpose of what stands there.
  void multiply(std::span<const std::int32_t> below, std::size_t k) {
    std::fill_n(product(k), area_, 0.0);
    for (std::size_t l = 0; l < below.size(); ++l) {
      if (l >= k) {
        kernel_.multiply_subtract_plain(product(k), w(l), z_.tile(below[l], below[k]), size_);
      } else {
        kernel_.multiply_subtract(product(k), w(l), z_.tile(below[k], below[l]), size_, size_,
                                  size_);
      }
    }
  }

  // Z_jj = T T' - W Z_Ij, with -Z_Ij' in the products; the upper triangle as the lower one.
  void finish_diagonal(std::int32_t column, std::span<const std::int32_t> below) {
    double* const z = z_.tile(column, column);
    std::fill_n(z, area_, 0.0);
    kernel_.square_subtract(z, triangle_.data(), size_, size_);
    for (std::size_t i = 0; i < area_; ++i) z[i] = -z[i];
    for (std::size_t k = 0; k < below.size(); ++k) {
      kernel_.multiply_subtract(z, w(k), product(k), size_, size_, size_);
    }
    for (std::int32_t c = 0; c < size_; ++c) {
      for (std::int32_t r = 0; r < c; ++r) element(z, r, c) = element(z, c, r);
    }
  }

  // Z_kj = Z_jk'
  void copy_negative_transposed(double* from, double* to) const {
    for (std::int32_t c = 0; c < size_; ++c) {
      for (std::int32_t r = 0; r < size_; ++r) element(to, r, c) = -element(from, c, r);
    }
  }

  const Kernels& kernel_ = kernels();
  const TileMatrix& factor_;
  TileMatrix& z_;
  std::int32_t size_;
  std::size_t area_;
  std::vector<double> triangle_;
  std::vector<double> w_;         // -W of the column's tiles
  std::vector<double> products_;  // -Z_jk
};

}  // namespace

bool TileInverse::compute(const TileMatrix& factor) {
  if (!z_.set_structure(factor)) return false;
  ColumnInverter inverter(factor, z_);
  for (std::int32_t j = factor.num_tiles() - 1; j >= 0; --j) inverter.invert(j);
  return true;
}

bool TileInverse::has(std::int32_t i, std::int32_t j) const {
  return z_.tile(std::max(i, j) / z_.tile_size(), std::min(i, j) / z_.tile_size()) != nullptr;
}

}  // namespace vorn
