#pragma once

#include <span>
#include <vector>

#include "geometry/vec3.h"

namespace vorn {

// Largest angle between two of some lines, given by unit vectors [rad], 0 to pi/2; 0 for fewer than
// two lines.
[[nodiscard]] double largest_angle(std::span<const Vec3> lines);
// The same for the lines through a point and the given places; a place on the point gives none.
[[nodiscard]] double largest_angle(const Vec3& point, std::span<const Vec3> places);

// How places spread: root mean square distances from their centre along the principal axes,
// descending, and the first axis.
struct Spread {
  Vec3 centre{};
  Vec3 lengths{};
  Vec3 axis{};
  // Places on one line have none across it.
  double across() const { return lengths[0] > 0.0 ? lengths[1] / lengths[0] : 0.0; }
};
[[nodiscard]] Spread spread_of(std::span<const Vec3> places);

}  // namespace vorn
