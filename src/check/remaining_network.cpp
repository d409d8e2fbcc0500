#include "check/remaining_network.h"

#include <cstdint>
#include <unordered_map>

#include "driver/bundle_project.h"

namespace vorn {
namespace {

constexpr std::size_t kMinRaysPerPoint = 2;
constexpr std::size_t kMinPointsPerImage = 3;

}  // namespace

RemainingNetwork::RemainingNetwork(const BundleProject& project) {
  constexpr std::size_t kNone = SIZE_MAX;
  std::vector<std::size_t> place_of_slot(
      static_cast<std::size_t>(project.object_points.num_slots()), kNone);
  std::unordered_map<std::string_view, std::size_t> place_of_id;  // of points without a record
  for (const BundleImage& image : project.images) {
    for (const ImagePoint& measured : image.points) {
      const ObjectPoint* const object = measured.object_point;
      std::size_t& place = object != nullptr
                               ? place_of_slot[static_cast<std::size_t>(object->slot)]
                               : place_of_id.try_emplace(measured.id, kNone).first->second;
      if (place == kNone) {
        place = points_.size();
        points_.push_back({object, measured.id, {}});
        if (object != nullptr) {
          points_.back().images.reserve(static_cast<std::size_t>(object->num_rays));
        }
      }
      points_[place].images.push_back(&image);
    }
  }
  std::unordered_map<const BundleImage*, std::size_t> left;
  for (Point& point : points_) {
    const bool held = point.object != nullptr && !is_free(point.object->std_devs[0]) &&
                      !is_free(point.object->std_devs[1]) && !is_free(point.object->std_devs[2]);
    point.used = point.images.size() >= kMinRaysPerPoint || (project.options.single_ray && held);
    if (!point.used) continue;
    for (const BundleImage* image : point.images) ++left[image];
  }
  for (const BundleImage& image : project.images) {
    if (left[&image] >= kMinPointsPerImage) {
      images_.push_back(&image);
    } else if (image.count_points() > 0) {
      removed_.emplace_back(&image, left[&image]);
    }
  }
}

}  // namespace vorn
