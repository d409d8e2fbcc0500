#include "lsq/normal/dense_factor.h"

#include <algorithm>
#include <cstddef>

#include "lsq/linalg/cholesky.h"

namespace vorn {

DenseFactor::DenseFactor(const NormalMatrix& normal)
    : NormalFactor(normal), values_(normal.size(), normal.size()) {}

void DenseFactor::fill() {
  values_.zero();
  for (std::int32_t point = 0; point < normal_.num_points(); ++point) {
    const double* element = normal_.diagonal(point);
    for (std::int32_t r = 0; r < 3; ++r) {
      double* const row = values_[3 * point + r];
      for (std::int32_t c = r; c < 3; ++c) row[3 * point + c] = *element++;
      for (const NormalMatrix::PointBlock& at : normal_.blocks_of(point)) {
        const std::ptrdiff_t width = normal_.block_width(at.block);
        std::copy_n(normal_.coupling(point, at) + r * width, width,
                    row + normal_.block_index(at.block));
      }
    }
  }
  normal_.for_each_pair([this](std::int32_t a, std::int32_t b, const double* elements) {
    const std::ptrdiff_t width = normal_.block_width(b);
    for (std::int32_t r = 0; r < normal_.block_width(a); ++r) {
      std::copy_n(elements + r * width, width,
                  values_[normal_.block_index(a) + r] + normal_.block_index(b));
    }
  });
}

std::int32_t DenseFactor::factorise() {
  fill();
  const int failed = cholesky(values_, diagonal_);
  factorised_ = failed == 0;
  return failed;
}

// The routine's codes name wrong shapes, which cannot be here.
void DenseFactor::substitute(const Vector& b, Vector& x) const {
  (void)back_substitution(values_, diagonal_, b, x);
}

std::int32_t DenseFactor::solve(const Vector& b, Vector& x) {
  const std::int32_t failed = factorise();
  if (failed == 0) substitute(b, x);
  return failed;
}

double DenseFactor::lower(std::int32_t i, std::int32_t j) const {
  return factorised_ ? values_[i][j] : 0.0;
}

void DenseFactor::invert(Matrix& q) const {
  q = values_;
  (void)invert_from_cholesky(q, diagonal_);  // as above
  q.symmetrise();
}

}  // namespace vorn
