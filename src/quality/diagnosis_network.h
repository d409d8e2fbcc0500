#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "quality/diagnosis.h"
#include "quality/diagnosis_motions.h"
#include "quality/unknown.h"
#include "sensors/bundle_image.h"
#include "sensors/object_point.h"

namespace vorn {

class BundleProject;

// A part of the network that measured points connect: images that share a point or an orientation.
struct NetworkPart {
  std::vector<const BundleImage*> images;
  std::vector<const ImageGeometry*> geometries;
  std::vector<const ObjectPoint*> points;
  std::vector<const ObjectPoint*> held_points;  // those with a coordinate that is held
};

// Whether an observation or a fixed value holds a parameter.
[[nodiscard]] bool is_held(const AdjObject& object, std::int32_t k);

// The image-point graph of a project whose unknowns are registered.
class Network {
 public:
  explicit Network(const BundleProject& project);

  // In the order of their first images.
  const std::vector<NetworkPart>& parts() const { return parts_; }
  // The part of an object point, or -1.
  std::int32_t part_of(const ObjectPoint& point) const {
    return part_of_point_[static_cast<std::size_t>(point.index / 3)];
  }
  // By the place of their unknowns.
  const std::vector<std::int32_t>& part_of_points() const { return part_of_point_; }

 private:
  std::vector<NetworkPart> parts_;
  std::vector<std::int32_t> part_of_point_;
};

// The unknowns of a project by number.
class UnknownNames {
 public:
  explicit UnknownNames(const BundleProject& project);

  const AdjObject& object_of(std::int32_t unknown) const;
  // Number of the parameter within its object.
  std::int32_t parameter_of(std::int32_t unknown) const {
    return unknown - object_of(unknown).index;
  }
  [[nodiscard]] DiagnosedItem item(std::int32_t unknown) const;

 private:
  std::vector<const AdjObject*> objects_;  // with parameters, by their first unknown
};

// The object as a whole.
[[nodiscard]] DiagnosedItem item_of(const AdjObject& object);
[[nodiscard]] DiagnosedItem item_of(const Unknown& unknown);

}  // namespace vorn
