#include "quality/ellipsoid.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <functional>

namespace vorn {
namespace {

using Full3 = std::array<Vec3, 3>;

// Eigenvectors that follow the rotations, as rows.
class Vectors {
 public:
  void rotate(std::size_t p, std::size_t q, double c, double s) {
    for (std::size_t k = 0; k < 3; ++k) {
      const double vp = rows_[p][k];
      const double vq = rows_[q][k];
      rows_[p][k] = c * vp - s * vq;
      rows_[q][k] = s * vp + c * vq;
    }
  }
  const Vec3& operator[](std::size_t k) const { return rows_[k]; }

 private:
  Full3 rows_ = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
};

// Nobody asks for them.
struct NoVectors {
  void rotate(std::size_t, std::size_t, double, double) {}
};

// A := J'AJ with the rotation J of the plane (p, q) that makes A[p][q] zero; the vectors follow.
template <class V>
void rotate(Full3& a, V& vectors, std::size_t p, std::size_t q) {
  // What is this small against both turns nothing that counts.
  constexpr double kNegligible = 1e-36;
  if (a[p][q] * a[p][q] <= kNegligible * std::fabs(a[p][p] * a[q][q])) {
    a[p][q] = a[q][p] = 0.0;
    return;
  }
  const double theta = (a[q][q] - a[p][p]) / (2.0 * a[p][q]);
  const double t = std::copysign(1.0, theta) / (std::fabs(theta) + std::sqrt(1.0 + theta * theta));
  const double c = 1.0 / std::sqrt(1.0 + t * t);
  const double s = t * c;
  const std::size_t r = 3 - p - q;
  a[p][p] -= t * a[p][q];
  a[q][q] += t * a[p][q];
  a[p][q] = a[q][p] = 0.0;
  const double rp = a[r][p];
  const double rq = a[r][q];
  a[r][p] = a[p][r] = c * rp - s * rq;
  a[r][q] = a[q][r] = s * rp + c * rq;
  vectors.rotate(p, q, c, s);
}

// The eigenvalues, in no order.
template <class V>
Vec3 diagonalise(const Symmetric3& m, V& vectors) {
  Full3 a = {{{m[0], m[1], m[2]}, {m[1], m[3], m[4]}, {m[2], m[4], m[5]}}};
  constexpr int kMaxSweeps = 30;
  for (int sweep = 0; sweep < kMaxSweeps; ++sweep) {
    if (a[0][1] == 0.0 && a[0][2] == 0.0 && a[1][2] == 0.0) break;
    rotate(a, vectors, 0, 1);
    rotate(a, vectors, 0, 2);
    rotate(a, vectors, 1, 2);
  }
  return {a[0][0], a[1][1], a[2][2]};
}

// Rounding may leave the zero of a flat ellipsoid negative.
double semi_axis(double eigenvalue) { return std::sqrt(std::max(0.0, eigenvalue)); }

void make_largest_positive(Vec3& direction) {
  const auto largest = std::max_element(direction.begin(), direction.end(), [](double x, double y) {
    return std::fabs(x) < std::fabs(y);
  });
  if (*largest >= 0.0) return;
  for (double& component : direction) component = -component;
}

}  // namespace

Eigen3 eigen_decomposition(const Symmetric3& m) {
  Vectors vectors;
  const Vec3 values = diagonalise(m, vectors);
  std::array<std::size_t, 3> order = {0, 1, 2};
  std::stable_sort(order.begin(), order.end(),
                   [&](std::size_t x, std::size_t y) { return values[x] > values[y]; });
  Eigen3 result;
  for (std::size_t k = 0; k < 3; ++k) {
    result.values[k] = values[order[k]];
    result.vectors[k] = vectors[order[k]];
    make_largest_positive(result.vectors[k]);
  }
  return result;
}

Ellipsoid error_ellipsoid(const Symmetric3& covariance) {
  const Eigen3 eigen = eigen_decomposition(covariance);
  Ellipsoid ellipsoid;
  for (std::size_t k = 0; k < 3; ++k) ellipsoid.axes[k] = semi_axis(eigen.values[k]);
  ellipsoid.directions = eigen.vectors;
  return ellipsoid;
}

Vec3 semi_axes(const Symmetric3& covariance) {
  NoVectors none;
  Vec3 values = diagonalise(covariance, none);
  std::sort(values.begin(), values.end(), std::greater<>());
  for (double& value : values) value = semi_axis(value);
  return values;
}

}  // namespace vorn
