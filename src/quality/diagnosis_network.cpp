#include "quality/diagnosis_network.h"

#include <algorithm>
#include <numeric>
#include <string>
#include <unordered_map>
#include <utility>

#include "driver/bundle_project.h"

namespace vorn {
namespace {

// Disjoint sets (Tarjan 1975).
class DisjointSets {
 public:
  explicit DisjointSets(std::size_t n) : parents_(n) {
    std::iota(parents_.begin(), parents_.end(), std::size_t{0});
  }
  std::size_t find(std::size_t i) {
    while (parents_[i] != i) i = parents_[i] = parents_[parents_[i]];
    return i;
  }
  void unite(std::size_t a, std::size_t b) { parents_[find(a)] = find(b); }

 private:
  std::vector<std::size_t> parents_;
};

bool is_held_anywhere(const AdjObject& object) {
  const auto n = static_cast<std::int32_t>(object.num_params());
  for (std::int32_t k = 0; k < n; ++k) {
    if (is_held(object, k)) return true;
  }
  return false;
}

}  // namespace

bool is_held(const AdjObject& object, std::int32_t k) {
  return object.param(k).state != ParamState::unknown;
}

Network::Network(const BundleProject& project) {
  const auto num_points = static_cast<std::size_t>(project.object_points.count());
  part_of_point_.assign(num_points, -1);
  constexpr std::int32_t kMeasured = 0;  // until the parts are known
  std::vector<const BundleImage*> images;
  for (const BundleImage& image : project.images) images.push_back(&image);

  // Points first, then images.
  DisjointSets sets(num_points + images.size());
  std::unordered_map<const ImageGeometry*, std::size_t> first_image_of;
  std::vector<const ObjectPoint*> measured;  // as the images come
  measured.reserve(num_points);
  for (std::size_t i = 0; i < images.size(); ++i) {
    const std::size_t node = num_points + i;
    sets.unite(node, first_image_of.try_emplace(images[i]->geometry, node).first->second);
    for (const ImagePoint& image_point : images[i]->points) {
      const ObjectPoint* const point = object_point_of(image_point, project.object_points);
      if (point == nullptr) continue;
      const auto number = static_cast<std::size_t>(point->index / 3);
      sets.unite(number, node);
      if (std::exchange(part_of_point_[number], kMeasured) < 0) measured.push_back(point);
    }
  }

  std::unordered_map<std::size_t, std::int32_t> part_of_root;
  for (std::size_t i = 0; i < images.size(); ++i) {
    const auto next = static_cast<std::int32_t>(parts_.size());
    const auto [found, is_new] = part_of_root.try_emplace(sets.find(num_points + i), next);
    const std::int32_t number = found->second;
    if (is_new) parts_.emplace_back();
    NetworkPart& part = parts_[static_cast<std::size_t>(number)];
    part.images.push_back(images[i]);
    if (first_image_of[images[i]->geometry] == num_points + i) {
      part.geometries.push_back(images[i]->geometry);
    }
  }
  for (const ObjectPoint* point : measured) {
    const auto number = static_cast<std::size_t>(point->index / 3);
    const std::int32_t part = part_of_root.at(sets.find(number));
    part_of_point_[number] = part;
    NetworkPart& to = parts_[static_cast<std::size_t>(part)];
    to.points.push_back(point);
    if (is_held_anywhere(*point)) to.held_points.push_back(point);
  }
}

UnknownNames::UnknownNames(const BundleProject& project) {
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    const AdjObject& object = project.unknowns[i];
    if (object.num_params() > 0) objects_.push_back(&object);
  }
}

const AdjObject& UnknownNames::object_of(std::int32_t unknown) const {
  const auto behind = std::upper_bound(
      objects_.begin(), objects_.end(), unknown,
      [](std::int32_t number, const AdjObject* object) { return number < object->index; });
  return **std::prev(behind);
}

DiagnosedItem UnknownNames::item(std::int32_t unknown) const {
  return item_of({&object_of(unknown), parameter_of(unknown)});
}

DiagnosedItem item_of(const AdjObject& object) {
  return {std::string(object_type_name(object_type_of(object))), object.id, {}};
}

DiagnosedItem item_of(const Unknown& unknown) {
  DiagnosedItem item = item_of(*unknown.object);
  item.parameter = parameter_name(unknown);
  return item;
}

}  // namespace vorn
