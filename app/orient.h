#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "geometry/vec3.h"

namespace vorn::app {

// A ray of an image: its point, and the image vector (x, y, -c), in any unit.
struct OrientRay {
  std::string point;
  Vec3 vector{};
};

// Projection centre and the rotation whose columns are the image axes in object space.
struct Orient {
  Vec3 centre{};
  Mat3 rot_obj_from_img{};
};

// The orientation of an image from four or more of its points whose coordinates are known: of the
// solutions of many triples (Grunert 1841) the one that most points agree with, then by least
// squares. Nothing when fewer than four agree within some hundredths of a radian.
[[nodiscard]] std::optional<Orient> resect(const std::vector<OrientRay>& rays,
                                           const std::map<std::string, Vec3>& known);

// Orients image after image: the one that shows most known points comes next, and what two oriented
// images see becomes known. Images (in the order of `images`) that cannot be oriented stay empty;
// those that are given stay as they are.
void orient_all(const std::vector<std::vector<OrientRay>>& images,
                std::map<std::string, Vec3> known, std::vector<std::optional<Orient>>& oriented);

}  // namespace vorn::app
