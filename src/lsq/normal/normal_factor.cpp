#include "lsq/normal/normal_factor.h"

#include <algorithm>

namespace vorn {

void NormalFactor::substitute(const Matrix& b, Matrix& x) const {
  x.resize(b.rows(), b.cols());
  Vector rhs(b.cols());
  Vector solution;
  for (std::int32_t row = 0; row < b.rows(); ++row) {
    std::copy_n(b[row], b.cols(), rhs.data());
    substitute(rhs, solution);
    std::copy_n(solution.data(), b.cols(), x[row]);
  }
}

void NormalFactor::pivot_ratios(Vector& ratios) const {
  ratios.resize(diagonal_.size());
  for (std::int32_t i = 0; i < diagonal_.size(); ++i) {
    ratios[i] = diagonal_[i] * diagonal_[i] / normal_.at(i, i);
  }
}

}  // namespace vorn
