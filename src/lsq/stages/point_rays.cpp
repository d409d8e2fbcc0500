#include "lsq/stages/point_rays.h"

namespace vorn {

PointRays::PointRays(const OwnedList<BundleImage>& images,
                     const OwnedList<ObjectPoint>& object_points)
    : first_(static_cast<std::size_t>(object_points.num_slots()) + 1, 0) {
  struct Measured {
    std::int32_t slot;
    Ray ray;
  };
  std::vector<Measured> measured;
  for (std::int32_t slot = 0; slot < object_points.num_slots(); ++slot) {
    if (object_points[slot] != nullptr) object_points[slot]->slot = slot;
  }
  for (BundleImage& image : images) {
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object_point = object_point_of(point, object_points);
      if (object_point == nullptr) continue;
      const std::int32_t slot = object_point->slot;
      measured.push_back({slot, {&image, &point}});
      ++first_[static_cast<std::size_t>(slot) + 1];
    }
  }
  for (std::size_t i = 1; i < first_.size(); ++i) first_[i] += first_[i - 1];
  rays_.resize(measured.size());
  std::vector<std::size_t> next(first_.begin(), first_.end() - 1);
  for (const Measured& entry : measured) {
    rays_[next[static_cast<std::size_t>(entry.slot)]++] = entry.ray;
  }
}

}  // namespace vorn
