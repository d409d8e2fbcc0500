#include "sensors/bundle_image.h"

#include <utility>
#include <vector>

#include "lsq/stages/point_equations.h"
#include "sensors/object_point.h"
#include "text/text_writer.h"

namespace vorn {

Pair BundleImage::object_to_image(const Vec3& object_point) const {
  Vec3 image{0.0, 0.0, -camera->c};
  geometry->projection(object_point, image);
  return camera->camera_to_image(image);
}

int BundleImage::image_to_object() const {
  standard_output() << "ERROR: image_to_object() not implemented yet!\n";
  return -1;
}

bool BundleImage::calc_approx_geometry() const { return geometry->calc_approx(); }

void BundleImage::add_structure(const OwnedList<ObjectPoint>& object_points,
                                NormalStructure& structure) const {
  std::vector<std::int32_t> blocks;
  for (const AdjObject* object : objects_of(*this)) {
    blocks.push_back(structure.block_of(object->index));
  }
  structure.add_group(std::move(blocks));
  for (const ImagePoint& point : points) {
    const ObjectPoint* const object_point = object_point_of(point, object_points);
    if (object_point != nullptr) structure.add_ray(object_point->index / 3);
  }
}

int BundleImage::add_observations(const OwnedList<ObjectPoint>& object_points, NormalMatrix& normal,
                                  Vector& rhs, double& lPl, std::int32_t& count) const {
  PointEquations equations(*this, normal);
  std::vector<std::int32_t> starts(equations.blocks().size());
  for (const ImagePoint& point : points) {
    const ObjectPoint* const object_point = object_point_of(point, object_points);
    if (object_point == nullptr) {
      standard_output() << "ATTENTION: Object point " << point.id << " not found.\n";
      continue;
    }
    const std::int32_t number = object_point->index / 3;
    for (std::size_t k = 0; k < starts.size(); ++k) {
      starts[k] = normal.coupling_start(number, equations.blocks()[k]);
    }
    const EquationTarget target{normal.point_rows(number), starts.data(), object_point->index};
    const PointEquations::Outcome outcome =
        equations.add(observation_of(point, *camera), object_point->xyz, target, rhs);
    if (outcome != PointEquations::Outcome::added) {
      equations.print_failure(outcome, object_point->xyz);
      return -1;
    }
    count += 2;
  }
  equations.finish(rhs, lPl);
  return 1;
}

bool BundleImage::remove_point(std::string_view point_id) {
  const std::int32_t slot = points.slot_of(point_id);
  if (slot == OwnedList<ImagePoint>::kNone) return false;
  points.remove(slot);
  return true;
}

bool BundleImage::insert_point(std::unique_ptr<ImagePoint> point) {
  const std::int32_t slot = points.slot_of(point->id);
  if (slot == OwnedList<ImagePoint>::kNone) {
    points.append(std::move(point));
    return true;
  }
  const ImagePoint& inserted = points.replace(slot, std::move(point));
  standard_output() << "ATTENTION: BundleImage " << id << " point " << inserted.id
                    << " was replaced.\n";
  return false;
}

int BundleImage::read(TokenReader& in, const OwnedList<Camera>& cameras) {
  if (!in.read_word(id) || !in.read_word(geometry_id) || !in.read_word(camera_id)) return -1;
  camera = cameras.find(camera_id);
  if (camera == nullptr) {
    standard_output() << "ERROR: Attach camera " << camera_id << " for image " << id
                      << " not failed.\n";
    return -1;
  }
  camera->used = true;
  return 1;
}

bool BundleImage::attach_geometry(const OwnedList<ImageGeometry>& geometries) {
  geometry = geometries.find(geometry_id);
  if (geometry == nullptr) return false;
  geometry->used = true;
  return true;
}

}  // namespace vorn
