#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "base/owned_list.h"
#include "geometry/image_geometry.h"
#include "sensors/camera.h"
#include "sensors/image_point.h"
#include "text/token_reader.h"

namespace vorn {

class NormalMatrix;
class ObjectPoint;
class Vector;

// One photograph: binds an image geometry to a camera and holds the points measured in it.
class BundleImage {
 public:
  BundleImage() = default;
  BundleImage(const BundleImage&) = delete;
  BundleImage& operator=(const BundleImage&) = delete;

  virtual ~BundleImage() = default;
  virtual std::string_view get_type_name() const { return "frame"; }
  // Image coordinates [m] of an object point, additional parameters included.
  virtual Pair object_to_image(const Vec3& object_point) const;
  // Not implemented: says so on standard output and returns -1.
  virtual int image_to_object() const;
  virtual bool calc_approx_geometry() const;
  // Adds the observation equations of all points. Points without an object point are reported on
  // standard output and passed over; `count` grows by 2 per point. 1, or -1 with a message on
  // standard output when the equations of a point cannot be formed. Large projects add the same
  // equations in another order: see ObservationTable (lsq/stages/image_observations.cpp).
  [[nodiscard]] virtual int add_observations(const OwnedList<ObjectPoint>& object_points,
                                             NormalMatrix& normal, Vector& rhs, double& lPl,
                                             std::int32_t& count) const;

  bool has_point(std::string_view point_id) const { return points.find(point_id) != nullptr; }
  std::int32_t index_of_point(std::string_view point_id) const { return points.slot_of(point_id); }
  // Deletes the first point of that identifier and empties its slot; false when there is none.
  bool remove_point(std::string_view point_id);
  std::int32_t count_points() const { return points.count(); }
  // Appends the point; true. A point of the same identifier is replaced, with a message; false.
  bool insert_point(std::unique_ptr<ImagePoint> point);

  // Reads one record behind its keyword and binds the camera. 1 or -1.
  [[nodiscard]] int read(TokenReader& in, const OwnedList<Camera>& cameras);
  // Binds the image geometry that the image names and marks it as used; false when there is none.
  [[nodiscard]] bool attach_geometry(const OwnedList<ImageGeometry>& geometries);

  OwnedList<ImagePoint> points;
  std::string id;
  std::string geometry_id;
  ImageGeometry* geometry = nullptr;  // not owned
  std::string camera_id;
  Camera* camera = nullptr;  // not owned
  bool used = false;         // set once the geometry is attached
};

// Reads an image file into the list. 1, or -1 with a message on standard output.
[[nodiscard]] int read_image_file(TokenReader& in, OwnedList<BundleImage>& images,
                                  const OwnedList<Camera>& cameras);
// Reads an image-coordinates file into the images. 1, or -1 with a message on standard output.
[[nodiscard]] int read_image_crds_file(TokenReader& in, const OwnedList<BundleImage>& images);

}  // namespace vorn
