#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "base/owned_list.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"

namespace vorn {

// One image ray of an object point.
struct Ray {
  BundleImage* image;
  const ImagePoint* point;
};

// How many rays every object point has, by slots; each point knows its slot afterwards.
std::vector<std::size_t> count_rays(const OwnedList<BundleImage>& images,
                                    const OwnedList<ObjectPoint>& object_points);

// The rays of every object point, in the order of the images; found in one pass over the image
// points. A snapshot: removing objects or image points makes it stale.
class PointRays {
 public:
  PointRays(const OwnedList<BundleImage>& images, const OwnedList<ObjectPoint>& object_points);

  // Rays of the object point of a slot.
  std::span<const Ray> operator[](std::int32_t slot) const {
    const std::size_t first = first_[static_cast<std::size_t>(slot)];
    return {rays_.data() + first, first_[static_cast<std::size_t>(slot) + 1] - first};
  }

 private:
  std::vector<std::size_t> first_;  // of each slot, and the end
  std::vector<Ray> rays_;
};

}  // namespace vorn
