#pragma once

#include <optional>

#include "geometry/vec3.h"

namespace vorn {

// Rays from projection centres, and the point X with the smallest sum of squared distances from
// them:
//
//   N X = sum (I - d d') Xo,   N = sum (I - d d'),
//
// with the centres Xo and unit vectors d along the rays. The sums are taken about the first centre,
// so that large coordinates cost no digits.
class RayBundle {
 public:
  // A ray; its direction may have any length.
  void add(const Vec3& centre, const Vec3& direction);
  // Nothing where the rays fix the point less well than two rays that meet at an angle of this
  // sine, and where something is not finite. Below 1e-7 rounding decides.
  [[nodiscard]] std::optional<Vec3> nearest_point(double smallest_sine) const;

 private:
  Vec3 origin_{};
  Mat3 n_{};
  Vec3 rhs_{};
  double count_ = 0.0;
};

}  // namespace vorn
