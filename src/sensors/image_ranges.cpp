#include "sensors/image_ranges.h"

#include <algorithm>

#include "sensors/point_share.h"

namespace vorn {

std::size_t images_per_range(const OwnedList<BundleImage>& images) {
  std::size_t points = 0;
  for (const BundleImage& image : images) points += static_cast<std::size_t>(image.count_points());
  return std::max<std::size_t>(1, kElementsPerRange * num_slots(images) / (points + 1));
}

std::size_t complete_images_per_range(const OwnedList<BundleImage>& images) {
  return point_share() == nullptr ? images_per_range(images)
                                  : std::max<std::size_t>(1, num_slots(images));
}

}  // namespace vorn
