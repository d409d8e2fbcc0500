#include "quality/results.h"

#include <algorithm>

#include "quality/distributions.h"

namespace vorn {

double standardised(double v, double s, double r) {
  return r < kSmallestRedundancy ? kUndefined : v / (s * std::sqrt(r));
}

double smallest_detectable(double s, double r, double delta0) {
  return r < kSmallestRedundancy ? kUndefined : s * delta0 / std::sqrt(r);
}

double estimated_error(double v, double r) { return r < kSmallestRedundancy ? kUndefined : -v / r; }

// t = u'M^-1 u, u = (vx/sx, vy/sy), M the 2 x 2 block of the redundancy matrix. Where M is singular
// (a point with two rays is checked across the epipolar line only) the test is along the
// eigenvector of its larger eigenvalue.
JointTest joint_test(const ImagePointResult& result) {
  const double x = result.v[0] / result.s[0];
  const double y = result.v[1] / result.s[1];
  const auto [rx, ry] = result.r;
  const double rxy = result.rxy;
  const double mean = 0.5 * (rx + ry);
  const double difference = 0.5 * (rx - ry);
  const double radius = std::hypot(difference, rxy);
  const double larger = mean + radius;
  const double smaller = mean - radius;
  if (!(larger >= kSmallestRedundancy)) return {};
  // Rotation to the axes of M: cos and sin of the angle of the larger one.
  const double angle = 0.5 * std::atan2(rxy, difference);
  const double along = std::cos(angle) * x + std::sin(angle) * y;
  const double across = -std::sin(angle) * x + std::cos(angle) * y;
  JointTest test{along * along / larger, 1, kUndefined};
  if (smaller >= kSmallestRedundancy) {
    test.t += across * across / smaller;
    test.degrees_of_freedom = 2;
  }
  test.log10_p = chi_square_log10_tail(test.t, test.degrees_of_freedom);
  return test;
}

std::string correlation_kind(const Unknown& a, const Unknown& b) {
  const std::string_view first = object_type_name(object_type_of(*a.object));
  if (a.object == b.object) return "within_" + std::string(first);
  const std::string_view second = object_type_name(object_type_of(*b.object));
  return std::string(first) + "_and_" + std::string(second);
}

}  // namespace vorn
