// Approximate coordinates of object points by spatial intersection of their image rays.

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "base/place.h"
#include "base/workers.h"
#include "driver/bundle_project.h"
#include "lsq/stages/point_rays.h"
#include "sensors/image_ranges.h"
#include "sensors/point_share.h"

namespace vorn {
namespace {

constexpr NumberFormat kCoordinate = fixed(3, 12);
constexpr NumberFormat kDistance = fixed(3, 9);
constexpr int kImageIdWidth = 12;

// An intersection point and the distance between its rays.
struct Intersection {
  Vec3 xyz{};
  double gap = 0.0;
};

// Reduced camera vector of a measured image point.
Vec3 camera_vector(const Ray& ray) {
  const Camera& camera = *ray.image->camera;
  return camera.image_to_camera(camera.pixel_to_image({ray.point->x, ray.point->y}));
}

// Intersection of two rays. Rays that the geometries reject leave zeros, which enter the means.
Intersection intersect_pair(const Ray& a, const Ray& b) {
  Intersection result;
  static_cast<void>(a.image->geometry->intersection(*b.image->geometry, camera_vector(a),
                                                    camera_vector(b), result.xyz, result.gap));
  return result;
}

void print_intersection(TextWriter& out, std::string_view label, const Intersection& at) {
  out << label << kCoordinate(at.xyz[0]) << "   " << kCoordinate(at.xyz[1]) << "   "
      << kCoordinate(at.xyz[2]) << "   " << kDistance(at.gap) << '\n';
}

// Mean of the intersections of all pairs of rays; each pair is printed when a stream is given.
Intersection mean_of_pairs(std::span<const Ray> rays, TextWriter* pairs_out) {
  Intersection sum;
  std::uint64_t count = 0;
  for (std::size_t i = 0; i < rays.size(); ++i) {
    for (std::size_t j = i + 1; j < rays.size(); ++j) {
      const Intersection pair = intersect_pair(rays[i], rays[j]);
      for (std::size_t k = 0; k < 3; ++k) sum.xyz[k] += pair.xyz[k];
      sum.gap += pair.gap;
      ++count;
      if (pairs_out == nullptr) continue;
      *pairs_out << "  " << right_aligned(rays[i].image->id, kImageIdWidth) << " - "
                 << right_aligned(rays[j].image->id, kImageIdWidth) << '\n';
      print_intersection(*pairs_out, "                      ", pair);
    }
  }
  const auto divisor = static_cast<double>(count);
  for (double& coordinate : sum.xyz) coordinate /= divisor;
  sum.gap /= divisor;
  return sum;
}

// Binds all image points to the object points that there are. Which images, by their slots, have
// image points without one.
std::vector<char> link_points(const OwnedList<BundleImage>& images,
                              const OwnedList<ObjectPoint>& object_points) {
  std::vector<char> incomplete(num_slots(images), 0);
  for_each_range(num_slots(images), images_per_range(images),
                 [&](std::size_t begin, std::size_t end, std::size_t) {
                   std::vector<ImagePoint*> measured;
                   for (std::size_t slot = begin; slot < end; ++slot) {
                     BundleImage* const image = images[static_cast<std::int32_t>(slot)];
                     if (image == nullptr) continue;
                     measured.clear();
                     for (ImagePoint& point : image->points) measured.push_back(&point);
                     object_points.find_each(
                         measured.size(),
                         [&](std::size_t k) { return std::string_view(measured[k]->id); },
                         [&](std::size_t k, ObjectPoint* found) {
                           measured[k]->object_point = found;
                           if (found == nullptr) incomplete[slot] = 1;
                         });
                   }
                 });
  return incomplete;
}

void print_rays(TextWriter& out, const ObjectPoint& point, std::span<const Ray> rays) {
  out << "Point: " << point.id << " by ";
  for (const Ray& ray : rays) out << right_aligned(ray.image->id, kImageIdWidth) << ' ';
  out << '[' << rays.size() << "]\n";
}

}  // namespace

int BundleProject::check_approximations(TextWriter* out) {
  if (out != nullptr) {
    *out << "Check object point approximations\n"
            "=================================\n\n";
  }
  std::optional<PointLines> lines;
  if (out != nullptr) lines.emplace(*out);
  std::int32_t added = 0;
  const std::vector<char> incomplete = link_points(images, object_points);
  for (std::int32_t slot = 0; slot < images.num_slots(); ++slot) {
    if (incomplete[place(slot)] == 0) continue;
    for (ImagePoint& measured : images[slot]->points) {
      if (measured.object_point != nullptr) continue;
      // Measured twice, it was added at the first place.
      measured.object_point = object_points.find(measured.id);
      if (measured.object_point != nullptr) continue;
      if (out != nullptr) lines->begin(object_points.num_slots());
      if (out != nullptr) *out << "Point " << measured.id << " has no approximations.\n";
      auto point = std::make_unique<ObjectPoint>();
      point->id = measured.id;
      measured.object_point = &object_points.append(std::move(point));
      ++added;
    }
  }
  if (PointShare* const share = point_share()) share->order_points(*this);
  added = in_total(added);
  if (out == nullptr) return 1;
  lines->finish();
  *out << "\nNumber of additional object points: " << added << "\n\n";
  return 1;
}

int BundleProject::intersect_approximations(TextWriter* out, bool debug) {
  if (out != nullptr) {
    *out << "Calculate object point approximations\n"
            "=====================================\n"
            "(By spatial intersection)\n\n"
            "                             X/m            Y/m            Z/m         e/m\n\n";
  }
  std::optional<PointRays> all_rays;  // found when the first point needs them
  std::optional<PointLines> lines;
  if (out != nullptr) lines.emplace(*out);
  double total_distance = 0.0;
  std::int32_t intersected = 0;
  for (std::int32_t slot = 0; slot < object_points.num_slots(); ++slot) {
    ObjectPoint* const point = object_points[slot];
    if (point == nullptr || point->has_coords) continue;
    if (!all_rays) all_rays.emplace(images, object_points);
    const std::span<const Ray> rays = (*all_rays)[slot];
    if (out != nullptr) {
      lines->begin(slot);
      print_rays(*out, *point, rays);
    }
    if (rays.size() < 2) {
      standard_output() << "ATTENTION: Too few rays to compute object coordinates.\n";
      continue;
    }
    const Intersection mean = mean_of_pairs(rays, debug ? out : nullptr);
    if (out != nullptr) print_intersection(*out, "            average : ", mean);
    point->xyz = mean.xyz;
    point->has_coords = true;
    total_distance += mean.gap;
    ++intersected;
  }
  intersected = in_total(intersected);
  total_distance = in_total(total_distance);
  if (out != nullptr) {
    lines->finish();
    *out << "Number of intersection points : " << intersected << '\n'
         << "Total average distance of rays: e_mean = ";
    if (intersected == 0) {
      *out << "   ---   ";
    } else {
      *out << kDistance(total_distance / intersected);
    }
    *out << " m\n\n";
  }
  return 1;
}

}  // namespace vorn
