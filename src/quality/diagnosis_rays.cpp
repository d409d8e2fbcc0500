#include "quality/diagnosis_rays.h"

#include <algorithm>
#include <cmath>

#include "quality/ellipsoid.h"

namespace vorn {
namespace {

// Places this much nearer to the point than the farthest one lie on it.
constexpr double kCoincident = 1e-12;

std::vector<Vec3> unit_lines(const Vec3& point, std::span<const Vec3> places) {
  double farthest = 0.0;
  for (const Vec3& place : places) {
    farthest = std::max(farthest, length(place - point));
  }
  std::vector<Vec3> lines;
  for (const Vec3& place : places) {
    const Vec3 line = place - point;
    if (length(line) > kCoincident * farthest) lines.push_back(unit(line));
  }
  return lines;
}

}  // namespace

double largest_angle(std::span<const Vec3> lines) {
  double smallest_cosine = 1.0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    for (std::size_t j = i + 1; j < lines.size(); ++j) {
      smallest_cosine = std::min(smallest_cosine, std::fabs(dot(lines[i], lines[j])));
    }
  }
  // The cosine of a small angle has lost its digits; the sine keeps them.
  constexpr double kSmall = 0.99;
  if (smallest_cosine < kSmall) return std::acos(smallest_cosine);
  double largest_sine = 0.0;
  for (std::size_t i = 0; i < lines.size(); ++i) {
    for (std::size_t j = i + 1; j < lines.size(); ++j) {
      const Vec3 sine = cross(lines[i], lines[j]);
      largest_sine = std::max(largest_sine, dot(sine, sine));
    }
  }
  return std::asin(std::min(1.0, std::sqrt(largest_sine)));
}

double largest_angle(const Vec3& point, std::span<const Vec3> places) {
  return largest_angle(unit_lines(point, places));
}

Spread spread_of(std::span<const Vec3> places) {
  Spread spread;
  if (places.empty()) return spread;
  const double share = 1.0 / static_cast<double>(places.size());
  for (const Vec3& place : places) spread.centre = spread.centre + share * (place - places.front());
  spread.centre = spread.centre + places.front();
  Symmetric3 moments{};
  for (const Vec3& place : places) {
    const Vec3 d = place - spread.centre;
    const Symmetric3 squares = {d[0] * d[0], d[0] * d[1], d[0] * d[2],
                                d[1] * d[1], d[1] * d[2], d[2] * d[2]};
    for (std::size_t k = 0; k < moments.size(); ++k) moments[k] += share * squares[k];
  }
  const Eigen3 eigen = eigen_decomposition(moments);
  for (std::size_t k = 0; k < 3; ++k) spread.lengths[k] = std::sqrt(std::max(eigen.values[k], 0.0));
  spread.axis = eigen.vectors[0];
  return spread;
}

}  // namespace vorn
