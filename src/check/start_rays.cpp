#include "check/start_rays.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "driver/bundle_project.h"

namespace vorn {

std::vector<StartRay> start_rays(const BundleProject& project) {
  std::vector<StartRay> rays;
  for (const BundleImage& image : project.images) {
    if (image.geometry == nullptr) continue;
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object = project.object_points.find(point.id);
      if (object == nullptr || !object->has_coords) continue;
      rays.push_back({&image, &point, object, object->xyz});
    }
  }
  return rays;
}

Pair measured_in_image(const StartRay& ray) {
  return ray.image->camera->pixel_to_image({ray.measured->x, ray.measured->y});
}

double residual(const StartRay& ray, const Reading& reading) {
  const Camera& camera = *ray.image->camera;
  const Vec3 object = reading.object ? reading.object(ray) : ray.xyz;
  const double c = reading.distance ? reading.distance(camera) : camera.c;
  Vec3 image{0.0, 0.0, -c};
  if (const auto* const eo = dynamic_cast<const ExtOrientation*>(ray.image->geometry)) {
    const Pose pose =
        reading.pose ? reading.pose(*eo) : Pose{eo->projection_centre(), eo->rotation_matrix()};
    const Vec3 u = transposed_times(pose.rotation, object - pose.centre);
    if (!(u[2] * c < 0.0) && c > 0.0) return HUGE_VAL;
    image[0] = -c * u[0] / u[2];
    image[1] = -c * u[1] / u[2];
  } else {
    // Where it fails, the residual is not finite.
    static_cast<void>(ray.image->geometry->projection(object, image));
  }
  const Pair computed = camera.camera_to_image(image);
  const Pair measured = reading.measured ? reading.measured(ray) : measured_in_image(ray);
  const double distance = std::hypot(measured[0] - computed[0], measured[1] - computed[1]);
  return std::isfinite(distance) ? distance : HUGE_VAL;
}

double quantile(std::vector<double> values, double part) {
  if (values.empty()) return 0.0;
  const auto last = static_cast<double>(values.size() - 1);
  const auto at = values.begin() + static_cast<std::ptrdiff_t>(std::floor(part * last));
  std::nth_element(values.begin(), at, values.end());
  return *at;
}

double extent_of(const std::vector<StartRay>& rays, const Reading& reading) {
  double extent = 0.0;
  for (const StartRay& ray : rays) {
    const Pair p = reading.measured ? reading.measured(ray) : measured_in_image(ray);
    extent = std::max({extent, std::abs(p[0]), std::abs(p[1])});
  }
  return extent;
}

}  // namespace vorn
