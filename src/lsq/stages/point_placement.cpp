#include "lsq/stages/point_placement.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <optional>
#include <span>
#include <string_view>

#include "driver/bundle_project.h"
#include "geometry/ray_bundle.h"
#include "lsq/stages/weighted_squares.h"

namespace vorn {
namespace {

constexpr std::size_t kMaxListed = 200;
// How much better an intersection must fit than the given coordinates of a point in a good place.
constexpr double kMuchBetter = 0.25;

const ExtOrientation* orientation_of(const Ray& ray) {
  return dynamic_cast<const ExtOrientation*>(ray.image->geometry);
}

bool is_free(const ObjectPoint& point) {
  for (std::int32_t k = 0; k < 3; ++k) {
    if (point.param(k).state != ParamState::unknown) return false;
  }
  return true;
}

// Weighted sum of squares of a point's rays with the point elsewhere; infinite where one of them
// has no image.
double squares_at(std::span<const Ray> rays, const Vec3& xyz) {
  double sum = 0.0;
  for (const Ray& ray : rays) {
    const ExtOrientation* const orientation = orientation_of(ray);
    if (orientation != nullptr && orientation->is_singular_at(xyz)) {
      return std::numeric_limits<double>::infinity();
    }
    sum += weighted_square(*ray.image, *ray.point, xyz);
  }
  return std::isnan(sum) ? std::numeric_limits<double>::infinity() : sum;
}

bool is_before_all(std::span<const Ray> rays, const Vec3& xyz) {
  for (const Ray& ray : rays) {
    if (!is_in_front(*ray.image, xyz)) return false;
  }
  return true;
}

// The point nearest to the rays. Nothing where they do not fix it or one of them is no ray.
std::optional<Vec3> intersection(std::span<const Ray> rays) {
  constexpr double kParallel = 1e-7;  // sine of the angle between two rays
  RayBundle bundle;
  for (const Ray& ray : rays) {
    const ExtOrientation* const orientation = orientation_of(ray);
    if (orientation == nullptr) return std::nullopt;
    const Camera& camera = *ray.image->camera;
    const Pair measured = camera.pixel_to_image({ray.point->x, ray.point->y});
    bundle.add(orientation->projection_centre(),
               orientation->rotation_matrix() * camera.image_to_camera(measured));
  }
  return bundle.nearest_point(kParallel);
}

std::string_view sentence(HeldPoint::Reason reason) {
  switch (reason) {
    case HeldPoint::Reason::at_centre:
      return "was in the plane of a projection centre; intersected anew";
    case HeldPoint::Reason::behind:
      return "was behind an image; intersected anew where that fits better";
    case HeldPoint::Reason::crossing:
      return "was held: its step led behind an image";
    case HeldPoint::Reason::parallel_rays:
      return "was held along its rays: they are nearly parallel";
    case HeldPoint::Reason::still_behind:
      return "is behind an image at the end";
  }
  return "";
}

}  // namespace

PointPlacement::PointPlacement(BundleProject& project)
    : points_(project.object_points), rays_(project.images, project.object_points) {}

void PointPlacement::place_all(std::vector<HeldPoint>& noted) {
  for (ObjectPoint& point : points_) {
    const std::span<const Ray> rays = rays_[point.slot];
    if (!is_free(point) || rays.size() < 2) continue;
    const double given = squares_at(rays, point.xyz);
    const bool good_place = is_before_all(rays, point.xyz);
    if (!good_place) {
      noted.push_back({&point,
                       std::isinf(given) ? HeldPoint::Reason::at_centre : HeldPoint::Reason::behind,
                       1});
    }
    const std::optional<Vec3> xyz = intersection(rays);
    if (!xyz || !is_before_all(rays, *xyz)) continue;
    if (squares_at(rays, *xyz) < (good_place ? kMuchBetter : 1.0) * given) point.xyz = *xyz;
  }
}

bool PointPlacement::place(ObjectPoint& point) {
  const std::span<const Ray> rays = rays_[point.slot];
  if (!is_free(point)) return false;
  const std::optional<Vec3> xyz = intersection(rays);
  if (!xyz || !is_before_all(rays, *xyz)) return false;
  if (!(squares_at(rays, *xyz) < squares_at(rays, point.xyz))) return false;
  point.xyz = *xyz;
  return true;
}

void print_held_points(const std::vector<HeldPoint>& points, TextWriter& report) {
  if (points.empty()) return;
  report << "Object points that were held or moved\n"
            "-------------------------------------\n\n";
  for (std::size_t i = 0; i < std::min(points.size(), kMaxListed); ++i) {
    const HeldPoint& held = points[i];
    report << "ATTENTION: Object point " << held.point->id << ' ' << sentence(held.reason);
    if (held.iterations > 1) report << " (" << held.iterations << " iterations)";
    report << ".\n";
  }
  if (points.size() > kMaxListed) report << "... and " << points.size() - kMaxListed << " more\n";
  report << '\n';
}

}  // namespace vorn
