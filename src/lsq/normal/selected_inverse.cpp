#include "lsq/normal/selected_inverse.h"

#include <algorithm>
#include <cstddef>

namespace vorn {

void SelectedInverse::block_pair(std::int32_t a, std::int32_t b, Matrix& q) const {
  q.resize(normal_.block_width(a), normal_.block_width(b));
  for (std::int32_t r = 0; r < q.rows(); ++r) {
    for (std::int32_t c = 0; c < q.cols(); ++c) {
      q[r][c] = inverse_.at(reduced_.start(a) + r, reduced_.start(b) + c);
    }
  }
}

SelectedInverse::PointCofactors SelectedInverse::cofactors_of(const PointBatch::Product& product,
                                                              std::vector<double>& coupled) const {
  const std::int32_t width = normal_.coupled_width(product.point);
  const auto stride = static_cast<std::size_t>(width);
  const PointFactor& factor = product.factor;
  const double* const v = product.v;
  const double* const u = product.u;

  // Q_pr = -L_p^-T U
  coupled.resize(std::max(coupled.size(), 3 * stride));
  for (std::size_t c = 0; c < stride; ++c) {
    double q[3] = {-u[c], -u[stride + c], -u[2 * stride + c]};
    factor.backward(q);
    for (std::size_t r = 0; r < 3; ++r) coupled[r * stride + c] = q[r];
  }

  // M = I + U V', symmetric; L_p^-T M by columns, then (L_p^-T M) L_p^-1 by rows.
  PointCofactors result{product.point, {}, coupled.data(), width};
  double columns[3][3];  // column c of L_p^-T M
  for (std::size_t c = 0; c < 3; ++c) {
    for (std::size_t r = 0; r < 3; ++r) {
      double sum = r == c ? 1.0 : 0.0;
      for (std::size_t k = 0; k < stride; ++k) sum += u[r * stride + k] * v[c * stride + k];
      columns[c][r] = sum;
    }
    factor.backward(columns[c]);
  }
  for (std::size_t r = 0; r < 3; ++r) {
    double row[3] = {columns[0][r], columns[1][r], columns[2][r]};
    factor.backward(row);
    std::copy_n(row, 3, result.own[r]);
  }
  for (std::size_t r = 0; r < 3; ++r) {
    for (std::size_t c = 0; c < r; ++c) result.own[r][c] = result.own[c][r];
  }
  return result;
}

}  // namespace vorn
