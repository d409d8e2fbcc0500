#include "sensors/bundle_image.h"

#include <utility>
#include <vector>

#include "calibration/ap_set.h"
#include "lsq/ls_params.h"
#include "sensors/object_point.h"
#include "text/text_writer.h"

namespace vorn {

namespace {

// What one image point adds to the normal equations, in memory that all points of an image share.
class PointEquations {
 public:
  explicit PointEquations(const BundleImage& image)
      : image_(image), ap_derivs_(image.camera->ap_sets.size()), cofactors_(2, 2), reduced_(2) {
    cofactors_.zero();
    derivs_.geometry.index = image.geometry->index;
    // The order of registration, so that unknown numbers ascend from block to block.
    blocks_ = {&derivs_.point, &derivs_.geometry};
    for (std::size_t i = 0; i < ap_derivs_.size(); ++i) {
      if (image.camera->ap_sets[i] != nullptr) blocks_.push_back(&ap_derivs_[i]);
    }
    if (image.geometry->has_pos_correction()) blocks_.push_back(&derivs_.pos);
    if (image.geometry->has_att_correction()) blocks_.push_back(&derivs_.att);
  }

  bool add(const ImagePoint& point, const ObjectPoint& object_point, NormalMatrix& normal,
           Vector& rhs, double& lPl) {
    const Camera& camera = *image_.camera;
    const double sigma0 = ls_params().sigma0_apriori;
    const Pair sdev = camera.sdev_to_image({point.sx, point.sy});
    for (std::int32_t r = 0; r < 2; ++r) {
      const double ratio = sdev[static_cast<std::size_t>(r)] / sigma0;
      cofactors_[r][r] = ratio * ratio;
    }

    const Pair observed = camera.pixel_to_image({point.x, point.y});
    const Vec3 camera_vector = camera.image_to_camera(observed);
    derivs_.point.index = object_point.index;
    if (!image_.geometry->get_derivs(camera_vector, object_point.xyz, derivs_)) return false;
    camera.get_derivs(camera_vector, ap_derivs_);

    const Pair computed = image_.object_to_image(object_point.xyz);
    reduced_[0] = observed[0] - computed[0];
    reduced_[1] = observed[1] - computed[1];
    return add_observation_group(blocks_, derivs_.b, cofactors_, reduced_, normal, rhs, lPl);
  }

 private:
  const BundleImage& image_;
  PointDerivs derivs_;
  std::vector<DesignBlock> ap_derivs_;
  std::vector<const DesignBlock*> blocks_;
  Matrix cofactors_;
  Vector reduced_;
};

}  // namespace

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

int BundleImage::add_observations(const OwnedList<ObjectPoint>& object_points, NormalMatrix& normal,
                                  Vector& rhs, double& lPl, std::int32_t& count) const {
  PointEquations equations(*this);
  for (const ImagePoint& point : points) {
    const ObjectPoint* object_point = object_points.find(point.id);
    if (object_point == nullptr) {
      standard_output() << "ATTENTION: Object point " << point.id << " not found.\n";
      continue;
    }
    if (!equations.add(point, *object_point, normal, rhs, lPl)) return -1;
    count += 2;
  }
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
