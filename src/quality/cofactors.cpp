#include "quality/cofactors.h"

#include <algorithm>
#include <span>

#include "lsq/normal/point_factor.h"

namespace vorn {

Cofactors::Cofactors(const NormalMatrix& normal, const PointElimination& factor)
    : normal_(normal), first_reduced_(normal.num_point_unknowns()) {
  factor.invert_reduced(reduced_);
}

void Cofactors::of_point(std::int32_t point, PointCofactors& q) {
  const std::span<const NormalMatrix::PointBlock> blocks = normal_.blocks_of(point);
  q.width = normal_.coupled_width(point);
  const auto width = static_cast<std::size_t>(q.width);
  PointFactor factor;
  factor.factorise(normal_.diagonal(point));
  quotient_.resize(3 * width);
  q.coupled.assign(3 * width, 0.0);
  for (const NormalMatrix::PointBlock& at : blocks) {
    const std::int32_t n = normal_.block_width(at.block);
    const double* const coupling = normal_.coupling(point, at);
    for (std::int32_t c = 0; c < n; ++c) {
      double x[3] = {coupling[c], coupling[n + c], coupling[2 * n + c]};
      factor.forward(x);
      factor.backward(x);
      const std::size_t column = static_cast<std::size_t>(at.start / 3 + c);
      for (std::size_t r = 0; r < 3; ++r) quotient_[r * width + column] = x[r];
    }
  }
  for (const NormalMatrix::PointBlock& from : blocks) {
    for (std::int32_t i = 0; i < normal_.block_width(from.block); ++i) {
      const std::size_t row = static_cast<std::size_t>(from.start / 3 + i);
      const double* const cofactors =
          reduced_[normal_.block_index(from.block) + i - first_reduced_] - first_reduced_;
      const double z[3] = {quotient_[row], quotient_[width + row], quotient_[2 * width + row]};
      for (const NormalMatrix::PointBlock& to : blocks) {
        const double* const of = cofactors + normal_.block_index(to.block);
        double* const out = q.coupled.data() + to.start / 3;
        for (std::int32_t j = 0; j < normal_.block_width(to.block); ++j) {
          for (std::size_t r = 0; r < 3; ++r)
            out[r * width + static_cast<std::size_t>(j)] -= z[r] * of[j];
        }
      }
    }
  }
  // Q_pp, column by column of the inverse of N_pp.
  std::size_t element = 0;
  for (std::size_t r = 0; r < 3; ++r) {
    double unit[3] = {0.0, 0.0, 0.0};
    unit[r] = 1.0;
    factor.forward(unit);
    factor.backward(unit);
    for (std::size_t c = r; c < 3; ++c, ++element) {
      double sum = unit[c];
      for (std::size_t j = 0; j < width; ++j)
        sum -= q.coupled[r * width + j] * quotient_[c * width + j];
      q.own[element] = sum;
    }
  }
}

}  // namespace vorn
