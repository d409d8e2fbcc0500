#pragma once

#include <cmath>
#include <cstdint>

namespace vorn {

// The Cholesky factor L of the 3 x 3 diagonal block of one object point.
class PointFactor {
 public:
  // Factorises the block given as xx, xy, xz, yy, yz, zz. 0, or k when pivot k (counted from 1) is
  // not greater than 0.
  std::int32_t factorise(const double* n) {
    // Negated comparisons, so that pivots that are not numbers fail.
    double& l10 = packed_[3];
    double& l20 = packed_[4];
    double& l21 = packed_[5];
    if (!(n[0] > 0.0)) return 1;
    set_diagonal(0, n[0]);
    l10 = n[1] * packed_[0];
    l20 = n[2] * packed_[0];
    const double d1 = n[3] - l10 * l10;
    if (!(d1 > 0.0)) return 2;
    set_diagonal(1, d1);
    l21 = (n[4] - l20 * l10) * packed_[1];
    const double d2 = n[5] - l20 * l20 - l21 * l21;
    if (!(d2 > 0.0)) return 3;
    set_diagonal(2, d2);
    return 0;
  }

  // x := L^-1 x
  void forward(double (&x)[3]) const {
    x[0] *= packed_[0];
    x[1] = (x[1] - l10() * x[0]) * packed_[1];
    x[2] = (x[2] - l20() * x[0] - l21() * x[1]) * packed_[2];
  }
  // x := L^-T x, for three numbers or three packs
  template <class T>
  void backward(T (&x)[3]) const {
    x[2] = x[2] * packed_[2];
    x[1] = (x[1] - l21() * x[2]) * packed_[1];
    x[0] = (x[0] - l10() * x[1] - l20() * x[2]) * packed_[0];
  }

  // Inverse diagonal of L and l10, l20, l21, as the kernels take them.
  const double* packed() const { return packed_; }

  double l00() const { return diagonal_[0]; }
  double l11() const { return diagonal_[1]; }
  double l22() const { return diagonal_[2]; }
  double l10() const { return packed_[3]; }
  double l20() const { return packed_[4]; }
  double l21() const { return packed_[5]; }

 private:
  void set_diagonal(int k, double pivot) {
    diagonal_[k] = std::sqrt(pivot);
    packed_[k] = 1.0 / diagonal_[k];
  }

  double diagonal_[3] = {};
  double packed_[6] = {};
};

}  // namespace vorn
