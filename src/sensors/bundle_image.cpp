#include "sensors/bundle_image.h"

#include <span>
#include <utility>
#include <vector>

#include "calibration/ap_set.h"
#include "calibration/corrections.h"
#include "geometry/ext_orientation.h"
#include "lsq/ls_params.h"
#include "lsq/observation_group.h"
#include "sensors/object_point.h"
#include "text/text_writer.h"

namespace vorn {

namespace {

// The corrections that act on an image's geometry; null where there is none.
struct Corrections {
  const AdjObject* pos = nullptr;
  const AdjObject* att = nullptr;
};

Corrections corrections_of(const BundleImage& image) {
  const auto* const orientation = dynamic_cast<const ExtOrientation*>(image.geometry);
  if (orientation == nullptr) return {};
  Corrections corrections;
  if (orientation->has_pos_correction()) corrections.pos = orientation->pos_correction();
  if (orientation->has_att_correction()) corrections.att = orientation->att_correction();
  return corrections;
}

constexpr std::size_t kAhead = 6;  // rays

// The equations of one image point, in memory that all points of an image share.
class PointEquations {
 public:
  PointEquations(const BundleImage& image, NormalMatrix& normal, Vector& rhs,
                 std::span<const std::int32_t> blocks)
      : image_(image),
        equations_(normal, rhs, blocks),
        ap_derivs_(image.camera->ap_sets.size()),
        cofactors_(2, 2) {
    cofactors_.zero();
    // The order of registration, so that unknown numbers ascend from block to block.
    design_ = {&derivs_.geometry};
    for (std::size_t i = 0; i < ap_derivs_.size(); ++i) {
      if (image.camera->ap_sets[i] != nullptr) design_.push_back(&ap_derivs_[i]);
    }
    const Corrections corrections = corrections_of(image);
    if (corrections.pos != nullptr) design_.push_back(&derivs_.pos);
    if (corrections.att != nullptr) design_.push_back(&derivs_.att);
  }

  bool add(const ImagePoint& point, const ObjectPoint& object_point,
           const ImageEquations::Target& target) {
    const Camera& camera = *image_.camera;
    const double sigma0 = ls_params().sigma0_apriori;
    const Pair sdev = camera.sdev_to_image({point.sx, point.sy});
    for (std::int32_t r = 0; r < 2; ++r) {
      const double ratio = sdev[static_cast<std::size_t>(r)] / sigma0;
      cofactors_[r][r] = ratio * ratio;
    }

    const Pair observed = camera.pixel_to_image({point.x, point.y});
    const Vec3 camera_vector = camera.image_to_camera(observed);
    if (!image_.geometry->get_derivs(camera_vector, object_point.xyz, derivs_)) return false;
    camera.get_derivs(camera_vector, ap_derivs_);

    const Pair computed = image_.object_to_image(object_point.xyz);
    const double reduced[2] = {observed[0] - computed[0], observed[1] - computed[1]};
    return equations_.add(target, derivs_.point.a, design_, derivs_.b, cofactors_, reduced);
  }

  void finish(double& lPl) { equations_.finish(lPl); }

 private:
  const BundleImage& image_;
  ImageEquations equations_;
  PointDerivs derivs_;
  std::vector<DesignBlock> ap_derivs_;
  std::vector<const DesignBlock*> design_;
  Matrix cofactors_;
};

// The objects whose parameters the observations of an image depend on, besides the object points,
// in the order of their unknowns.
std::vector<const AdjObject*> objects_of(const BundleImage& image) {
  std::vector<const AdjObject*> objects = {image.geometry};
  for (const APSet* set : image.camera->ap_sets) {
    if (set != nullptr) objects.push_back(set);
  }
  const Corrections corrections = corrections_of(image);
  if (corrections.pos != nullptr) objects.push_back(corrections.pos);
  if (corrections.att != nullptr) objects.push_back(corrections.att);
  return objects;
}

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

void BundleImage::add_structure(const OwnedList<ObjectPoint>& object_points,
                                NormalStructure& structure) {
  blocks_.clear();
  for (const AdjObject* object : objects_of(*this)) {
    // A correction without coefficients has no unknowns.
    if (object->num_params() > 0) blocks_.push_back(structure.block_of(object->index));
  }
  structure.add_group(blocks_);
  rays_.clear();
  rays_.reserve(static_cast<std::size_t>(points.count()));
  for (const ImagePoint& point : points) {
    const ObjectPoint* const object_point = object_point_of(point, object_points);
    rays_.push_back({&point, object_point, {}});
    if (object_point != nullptr) structure.add_ray(object_point->index / 3);
  }
}

void BundleImage::locate(NormalMatrix& normal) {
  starts_.assign(rays_.size() * blocks_.size(), 0);
  std::size_t next = 0;
  for (Ray& ray : rays_) {
    if (ray.object_point != nullptr) {
      const std::int32_t point = ray.object_point->index / 3;
      ray.rows = normal.point_rows(point);
      for (std::size_t k = 0; k < blocks_.size(); ++k) {
        starts_[next + k] = normal.coupling_start(point, blocks_[k]);
      }
    }
    next += blocks_.size();
  }
}

// Asks for the memory of a ray that is still some rays ahead; object points lie far apart.
void BundleImage::fetch(const Ray& ray, const std::int32_t* starts) {
  constexpr std::int32_t kCacheLine = 8;  // doubles
  if (ray.object_point == nullptr) return;
  __builtin_prefetch(&ray.object_point->xyz);
  __builtin_prefetch(&ray.object_point->xyz[2]);
  __builtin_prefetch(ray.rows.diagonal, 1);
  const double* const block = ray.rows.coupling + starts[0];
  for (std::int32_t k = 0; k < 3; ++k) __builtin_prefetch(block + k * kCacheLine, 1);
}

int BundleImage::add_observations(NormalMatrix& normal, Vector& rhs, double& lPl,
                                  std::int32_t& count) const {
  PointEquations equations(*this, normal, rhs, blocks_);
  const std::int32_t* starts = starts_.data();
  for (std::size_t k = 0; k < rays_.size(); ++k) {
    if (k + kAhead < rays_.size()) fetch(rays_[k + kAhead], starts + kAhead * blocks_.size());
    const Ray& ray = rays_[k];
    if (ray.object_point == nullptr) {
      standard_output() << "ATTENTION: Object point " << ray.point->id << " not found.\n";
    } else {
      const ImageEquations::Target target{ray.rows, starts, ray.object_point->index};
      if (!equations.add(*ray.point, *ray.object_point, target)) return -1;
      count += 2;
    }
    starts += blocks_.size();
  }
  equations.finish(lPl);
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
