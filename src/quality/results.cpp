#include "quality/results.h"

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
// (a point with two rays is checked across the epipolar plane only) the test is along the
// eigenvector of its larger eigenvalue.
JointTest joint_test(const ImagePointResult& result) {
  const double x = result.v[0] / result.s[0];
  const double y = result.v[1] / result.s[1];
  const auto [rx, ry] = result.r;
  const double rxy = result.rxy;
  const double difference = 0.5 * (rx - ry);
  const double radius = std::sqrt(difference * difference + rxy * rxy);
  const double larger = 0.5 * (rx + ry) + radius;
  const double smaller = 0.5 * (rx + ry) - radius;
  if (!(larger >= kSmallestRedundancy)) return {};
  JointTest test;
  if (smaller >= kSmallestRedundancy) {
    test.t = (ry * x * x - 2.0 * rxy * x * y + rx * y * y) / (rx * ry - rxy * rxy);
    test.degrees_of_freedom = 2;
  } else {
    // An eigenvector, from whichever row of M - larger I is not nearly zero.
    const double ex = difference >= 0.0 ? radius + difference : rxy;
    const double ey = difference >= 0.0 ? rxy : radius - difference;
    const double along = ex * x + ey * y;
    test.t = along * along / ((ex * ex + ey * ey) * larger);
    test.degrees_of_freedom = 1;
  }
  test.log10_p = chi_square_log10_tail(test.t, test.degrees_of_freedom);
  return test;
}

JointTest observed_test(const ObservedResult& result) {
  const double w = standardised(result.v, result.s(), result.r);
  if (!is_defined(w)) return {};
  return {w * w, 1, chi_square_log10_tail(w * w, 1)};
}

std::string correlation_kind(const Unknown& a, const Unknown& b) {
  const std::string_view first = object_type_name(object_type_of(*a.object));
  if (a.object == b.object) return "within_" + std::string(first);
  const std::string_view second = object_type_name(object_type_of(*b.object));
  return std::string(first) + "_and_" + std::string(second);
}

std::string_view suspect_kind(const SuspectResult& suspect) {
  if (suspect.image != nullptr) return "image_point";
  return object_type_name(object_type_of(*suspect.parameter.object));
}

}  // namespace vorn
