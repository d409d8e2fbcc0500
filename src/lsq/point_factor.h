#pragma once

#include <cmath>
#include <cstddef>
#include <cstdint>

namespace vorn {

// The Cholesky factor L of the 3 x 3 diagonal block of one object point.
class PointFactor {
 public:
  // Factorises the block given as xx, xy, xz, yy, yz, zz. 0, or k when pivot k (counted from 1) is
  // not greater than 0.
  std::int32_t factorise(const double* n) {
    // Negated comparisons, so that pivots that are not numbers fail.
    if (!(n[0] > 0.0)) return 1;
    l00 = std::sqrt(n[0]);
    inverse_[0] = 1.0 / l00;
    l10 = n[1] * inverse_[0];
    l20 = n[2] * inverse_[0];
    const double d1 = n[3] - l10 * l10;
    if (!(d1 > 0.0)) return 2;
    l11 = std::sqrt(d1);
    inverse_[1] = 1.0 / l11;
    l21 = (n[4] - l20 * l10) * inverse_[1];
    const double d2 = n[5] - l20 * l20 - l21 * l21;
    if (!(d2 > 0.0)) return 3;
    l22 = std::sqrt(d2);
    inverse_[2] = 1.0 / l22;
    return 0;
  }

  // x := L^-1 x
  void forward(double (&x)[3]) const {
    x[0] *= inverse_[0];
    x[1] = (x[1] - l10 * x[0]) * inverse_[1];
    x[2] = (x[2] - l20 * x[0] - l21 * x[1]) * inverse_[2];
  }
  // x := L^-T x
  void backward(double (&x)[3]) const {
    x[2] *= inverse_[2];
    x[1] = (x[1] - l21 * x[2]) * inverse_[1];
    x[0] = (x[0] - l10 * x[1] - l20 * x[2]) * inverse_[0];
  }

  // V := L^-1 N for `width` columns; the rows of N and V stand so many doubles apart.
  void divide(const double* n, std::ptrdiff_t n_stride, std::ptrdiff_t width, double* v,
              std::ptrdiff_t v_stride) const {
    for (std::ptrdiff_t c = 0; c < width; ++c) {
      const double v0 = n[c] * inverse_[0];
      const double v1 = (n[n_stride + c] - l10 * v0) * inverse_[1];
      v[c] = v0;
      v[v_stride + c] = v1;
      v[2 * v_stride + c] = (n[2 * n_stride + c] - l20 * v0 - l21 * v1) * inverse_[2];
    }
  }

  double l00 = 0.0;
  double l10 = 0.0;
  double l11 = 0.0;
  double l20 = 0.0;
  double l21 = 0.0;
  double l22 = 0.0;

 private:
  double inverse_[3] = {};  // of the diagonal
};

}  // namespace vorn
