#include "check/remaining_network.h"

#include <unordered_map>

#include "driver/bundle_project.h"

namespace vorn {
namespace {

constexpr std::size_t kMinRaysPerPoint = 2;
constexpr std::size_t kMinPointsPerImage = 3;

}  // namespace

RemainingNetwork::RemainingNetwork(const BundleProject& project) {
  std::unordered_map<std::string_view, std::size_t> place;
  place.reserve(static_cast<std::size_t>(project.object_points.count()));
  for (const BundleImage& image : project.images) {
    for (const ImagePoint& measured : image.points) {
      const auto [entry, added] = place.try_emplace(measured.id, points_.size());
      if (added) points_.push_back({project.object_points.find(measured.id), measured.id, {}});
      points_[entry->second].images.push_back(&image);
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
