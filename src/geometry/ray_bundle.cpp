#include "geometry/ray_bundle.h"

#include <cmath>
#include <cstddef>

namespace vorn {

void RayBundle::add(const Vec3& centre, const Vec3& direction) {
  if (count_ == 0.0) origin_ = centre;
  count_ += 1.0;
  const Vec3 d = unit(direction);
  const Vec3 from_origin = centre - origin_;
  for (std::size_t i = 0; i < 3; ++i) {
    Vec3 across = -d[i] * d;
    across[i] += 1.0;
    n_[i] = n_[i] + across;
    rhs_[i] += dot(across, from_origin);
  }
}

// The smallest eigenvalue of N, whose inverse is the variance along the rays, is det N / n^2 for n
// rays that are nearly parallel, and half the squared sine for two of them.
std::optional<Vec3> RayBundle::nearest_point(double smallest_sine) const {
  const Vec3 across = cross(n_[1], n_[2]);
  const double determinant = dot(n_[0], across);
  const double smallest = 0.5 * smallest_sine * smallest_sine * count_ * count_;
  if (!(determinant >= smallest && determinant > 0.0)) return std::nullopt;
  // Cramer's rule; N is symmetric.
  const Vec3 x = (1.0 / determinant) *
                 (rhs_[0] * across + rhs_[1] * cross(n_[2], n_[0]) + rhs_[2] * cross(n_[0], n_[1]));
  const Vec3 point = origin_ + x;
  if (!std::isfinite(point[0] + point[1] + point[2])) return std::nullopt;
  return point;
}

}  // namespace vorn
