#include "sensors/bundle_image.h"

#include <utility>

#include "text/records.h"

namespace vorn {

Pair BundleImage::object_to_image(const Vec3& object_point) const {
  Vec3 image{0.0, 0.0, -camera->c};
  // A projection that fails leaves what it could form.
  static_cast<void>(geometry->projection(object_point, image));
  return camera->camera_to_image(image);
}

int BundleImage::image_to_object() const {
  standard_output() << "ERROR: image_to_object() not implemented yet!\n";
  return -1;
}

bool BundleImage::calc_approx_geometry() const { return geometry->calc_approx(); }

bool BundleImage::remove_point(std::string_view point_id) {
  const std::int32_t slot = points.slot_of(point_id);
  if (slot == OwnedList<ImagePoint>::kNone) return false;
  points.remove(slot);
  return true;
}

bool BundleImage::insert_point(std::unique_ptr<ImagePoint> point) {
  const ImagePoint& inserted = *point;
  if (!points.put(std::move(point))) return true;
  standard_output() << "ATTENTION: BundleImage " << id << " point " << inserted.id
                    << " was replaced.\n";
  return false;
}

int BundleImage::read(TokenReader& in, const OwnedList<Camera>& cameras) {
  if (!in.need_name(id, "the identifier")) return -1;
  in.begin_object("image", this);
  if (!in.need_name(geometry_id, "the image geometry")) return -1;
  in.remember(&geometry_id, in.last_word());
  if (!in.need_name(camera_id, "the camera")) return -1;
  in.remember(&camera_id, in.last_word());
  camera = cameras.find(camera_id);
  if (camera == nullptr) {
    report_unknown_reference(in, in.last_word(), "camera", "camera", cameras);
    return reading_failed("ERROR: Attach camera ", camera_id, " for image ", id, " not failed.\n");
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
