#pragma once

#include <optional>
#include <span>
#include <vector>

#include "lsq/stages/packed_equations.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"

namespace vorn {

// Where the current values of all parameters put object points in an image. They stay as they are
// as long as this object lives.
class ImageProjection {
 public:
  explicit ImageProjection(const BundleImage& image);

  // BundleImage::object_to_image of each point, to the bit: the same formulas, for eight points at
  // a time where the image takes packs. What stands for a null point is of no use.
  void find_coords(std::span<const ObjectPoint* const> points, std::vector<Pair>& coords) const;

 private:
  const BundleImage& image_;
  std::optional<PackedImage> packed_;
  FindPackedCoords find_packed_ = packed_formulas().find_coords;
};

}  // namespace vorn
