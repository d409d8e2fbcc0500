// "Bundle Adjustment in the Large".

#include <string>

#include "app/exchange/readers.h"

namespace vorn::exchange {
namespace {

constexpr std::size_t kShortestObservation = 8;  // "0 0 0 0\n"
constexpr std::size_t kShortestCamera = 18;
constexpr std::size_t kShortestPoint = 6;

std::size_t read_count(Fields& fields, std::size_t room, std::size_t shortest, const char* what) {
  const auto count = fields.integer<std::int32_t>(what);
  if (count < 0 || static_cast<std::size_t>(count) > room / shortest + 1) {
    fields.fail(std::to_string(count) + " is a " + what + " that the file is too short for");
  }
  return static_cast<std::size_t>(count);
}

std::int32_t read_index(Fields& fields, std::size_t count, const char* what) {
  const auto index = fields.integer<std::int32_t>(what);
  if (index < 0 || static_cast<std::size_t>(index) >= count) {
    fields.fail(std::string(what) + " " + std::to_string(index) + ": there are only " +
                std::to_string(count));
  }
  return index;
}

}  // namespace

Reconstruction read_bal(const Source& source) {
  Reconstruction result;
  result.format = "BAL";
  result.axes = Axes::behind;
  Fields fields(source, source.content());
  const std::size_t room = source.content().size();
  const std::size_t num_cameras = read_count(fields, room, kShortestCamera, "number of cameras");
  const std::size_t num_points = read_count(fields, room, kShortestPoint, "number of points");
  const std::size_t num_rays =
      read_count(fields, room, kShortestObservation, "number of observations");
  result.cameras.resize(num_cameras);
  result.images.resize(num_cameras);
  result.points.resize(num_points);
  for (std::size_t i = 0; i < num_rays; ++i) {
    const auto camera = static_cast<std::size_t>(read_index(fields, num_cameras, "camera"));
    SourceRay ray;
    ray.point = read_index(fields, num_points, "point");
    ray.xy[0] = fields.real("image coordinate");
    ray.xy[1] = fields.real("image coordinate");
    result.images[camera].rays.push_back(ray);
  }
  for (std::size_t i = 0; i < num_cameras; ++i) {
    SourceCamera& camera = result.cameras[i];
    SourceImage& image = result.images[i];
    Vec3 rotation{};
    for (double& value : rotation) value = fields.real("rotation");
    for (double& value : image.pose.offset) value = fields.real("translation");
    image.pose.r = rotation_of_vector(rotation);
    image.camera = static_cast<std::int32_t>(i);
    image.name = "image" + std::to_string(i);
    camera.id = "camera" + std::to_string(i);
    camera.model = "f,k1,k2";
    camera.own = Lens::f | Lens::k1 | Lens::k2;
    camera.fx = camera.fy = fields.real("focal length");
    if (!(camera.fx > 0.0)) {
      fields.fail("camera " + std::to_string(i) + ": the focal length is not positive");
    }
    camera.k[0] = fields.real("distortion");
    camera.k[1] = fields.real("distortion");
  }
  for (std::size_t i = 0; i < num_points; ++i) {
    result.points[i].id = std::to_string(i);
    for (double& value : result.points[i].xyz) value = fields.real("coordinate");
  }
  fields.expect_end();
  return result;
}

}  // namespace vorn::exchange
