#include "check/start_rays.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "driver/bundle_project.h"
#include "geometry/ray_bundle.h"

namespace vorn {

std::vector<StartRay> start_rays(const BundleProject& project) {
  std::vector<StartRay> rays;
  for (const BundleImage& image : project.images) {
    if (image.geometry == nullptr) continue;
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object = point.object_point;
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

std::optional<Vec3> intersection(const std::vector<const StartRay*>& rays) {
  constexpr double kParallel = 6e-5;  // sine of the angle between two rays
  RayBundle bundle;
  for (const StartRay* ray : rays) {
    const auto& eo = static_cast<const ExtOrientation&>(*ray->image->geometry);
    bundle.add(eo.projection_centre(),
               eo.rotation_matrix() * ray->image->camera->image_to_camera(measured_in_image(*ray)));
  }
  return bundle.nearest_point(kParallel);
}

std::vector<StartRay> intersected_rays(const BundleProject& project,
                                       const std::unordered_set<const BundleImage*>& without) {
  std::unordered_map<std::string_view, std::size_t> place;
  std::vector<std::vector<StartRay>> groups;
  for (const BundleImage& image : project.images) {
    if (without.contains(&image) ||
        dynamic_cast<const ExtOrientation*>(image.geometry) == nullptr) {
      continue;
    }
    for (const ImagePoint& measured : image.points) {
      const ObjectPoint* const object = measured.object_point;
      if (object != nullptr && object->has_coords) continue;
      const auto [entry, added] = place.try_emplace(measured.id, groups.size());
      if (added) groups.emplace_back();
      groups[entry->second].push_back({&image, &measured, nullptr, {}});
    }
  }
  std::vector<StartRay> rays;
  for (std::vector<StartRay>& group : groups) {
    if (group.size() < 2) continue;
    std::vector<const StartRay*> all;
    for (const StartRay& ray : group) all.push_back(&ray);
    const std::optional<Vec3> xyz = intersection(all);
    if (!xyz) continue;
    for (StartRay& ray : group) {
      ray.xyz = *xyz;
      rays.push_back(ray);
    }
  }
  return rays;
}

StartFit::StartFit(const BundleProject& project, std::vector<StartRay> given_rays)
    : rays(std::move(given_rays)), num_given(rays.size()), extent_of_given(extent_of(rays)) {
  const std::vector<StartRay> others = intersected_rays(project);
  rays.insert(rays.end(), others.begin(), others.end());
  extent = others.empty() ? extent_of_given : extent_of(rays);
  residuals.reserve(rays.size());
  for (const StartRay& ray : rays) {
    residuals.push_back(residual(ray));
    worst = std::max(worst, residuals.back());
  }
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
