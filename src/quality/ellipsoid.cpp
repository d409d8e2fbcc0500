#include "quality/ellipsoid.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <utility>

namespace vorn {
namespace {

using Full3 = std::array<Vec3, 3>;

// A := J'AJ with the rotation J of the plane (p, q) that makes A[p][q] zero; the rows of V follow.
void rotate(Full3& a, Full3& v, std::size_t p, std::size_t q) {
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
  for (std::size_t k = 0; k < 3; ++k) {
    const double vp = v[p][k];
    const double vq = v[q][k];
    v[p][k] = c * vp - s * vq;
    v[q][k] = s * vp + c * vq;
  }
}

void make_largest_positive(Vec3& direction) {
  const auto largest = std::max_element(direction.begin(), direction.end(), [](double x, double y) {
    return std::fabs(x) < std::fabs(y);
  });
  if (*largest >= 0.0) return;
  for (double& component : direction) component = -component;
}

}  // namespace

Eigen3 eigen_decomposition(const Symmetric3& m) {
  Full3 a = {{{m[0], m[1], m[2]}, {m[1], m[3], m[4]}, {m[2], m[4], m[5]}}};
  Full3 v = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  constexpr int kMaxSweeps = 30;
  for (int sweep = 0; sweep < kMaxSweeps; ++sweep) {
    if (a[0][1] == 0.0 && a[0][2] == 0.0 && a[1][2] == 0.0) break;
    rotate(a, v, 0, 1);
    rotate(a, v, 0, 2);
    rotate(a, v, 1, 2);
  }
  std::array<std::size_t, 3> order = {0, 1, 2};
  std::stable_sort(order.begin(), order.end(),
                   [&a](std::size_t x, std::size_t y) { return a[x][x] > a[y][y]; });
  Eigen3 result;
  for (std::size_t k = 0; k < 3; ++k) {
    result.values[k] = a[order[k]][order[k]];
    result.vectors[k] = v[order[k]];
    make_largest_positive(result.vectors[k]);
  }
  return result;
}

Ellipsoid error_ellipsoid(const Symmetric3& covariance) {
  const Eigen3 eigen = eigen_decomposition(covariance);
  Ellipsoid ellipsoid;
  // Rounding may leave the zero of a flat ellipsoid negative.
  for (std::size_t k = 0; k < 3; ++k) ellipsoid.axes[k] = std::sqrt(std::max(0.0, eigen.values[k]));
  ellipsoid.directions = eigen.vectors;
  return ellipsoid;
}

}  // namespace vorn
