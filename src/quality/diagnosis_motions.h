#pragma once

#include <vector>

#include "geometry/image_geometry.h"
#include "geometry/vec3.h"
#include "quality/diagnosis.h"
#include "quality/diagnosis_algebra.h"

namespace vorn {

// The seven similarity motions of object space about a centre,
//
//   v(X) = t + w x (X - centre) + s (X - centre),
//
// as changes of parameters: images stay as they are when all points and geometries move along.
// Columns in the order of kMotionNames: t, w, s.
class SimilarityMotions {
 public:
  SimilarityMotions() = default;
  explicit SimilarityMotions(const Vec3& centre) : centre_(centre) {}

  const Vec3& centre() const { return centre_; }
  // Changes of the coordinates of a place; row k is coordinate k.
  [[nodiscard]] std::array<Row7, 3> of_place(const Vec3& place) const;
  // Changes of all parameters of a geometry; row k is parameter k. Where a rotation cannot be
  // expressed by the parameters (gimbal lock), the nearest one.
  [[nodiscard]] std::vector<Row7> of_geometry(const ImageGeometry& geometry) const;

 private:
  Vec3 centre_{};
};

// The motions that span the same space as combinations of t, w, s (rows, `count` of them), as
// simple as they come: translations, then rotations about axes, then a change of scale or a
// similarity. `length` is the extent of what moves.
[[nodiscard]] std::vector<FreeMotion> simple_motions(const std::vector<Row7>& combinations,
                                                     const Vec3& centre, double length);

}  // namespace vorn
