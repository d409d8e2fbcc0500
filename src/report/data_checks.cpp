// Checks of the data before the adjustment: what cannot be determined or is not used is removed.

#include <cstdint>
#include <string_view>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/point_rays.h"
#include "text/text_writer.h"

namespace vorn {

namespace {

constexpr std::int32_t kMinRaysPerPoint = 2;
constexpr std::int32_t kMinPointsPerImage = 3;

// Every coordinate is observed or fixed. Standard deviations that are not numbers count as free.
bool is_fully_observed(const ObjectPoint& point) {
  const double limit = ls_params().smax;
  return point.std_devs[0] <= limit && point.std_devs[1] <= limit && point.std_devs[2] <= limit;
}

// Removes the objects that nothing uses; returns their number.
template <class T>
std::int32_t remove_unused(OwnedList<T>& list, std::string_view kind, TextWriter& out) {
  std::int32_t count = 0;
  for (std::int32_t slot = 0; slot < list.num_slots(); ++slot) {
    if (list[slot] == nullptr || list[slot]->used) continue;
    out << "ATTENTION: " << kind << list[slot]->id << " removed.\n";
    list.remove(slot);
    ++count;
  }
  return count;
}

// Forgets which object points the image points belong to.
void unlink_points(const OwnedList<BundleImage>& images) {
  for (const BundleImage& image : images) {
    for (ImagePoint& point : image.points) point.object_point = nullptr;
  }
}

}  // namespace

void BundleProject::check_rays_per_point(TextWriter* out) {
  TextWriter silence;
  TextWriter& report = out != nullptr ? *out : silence;
  report << "Check number of rays per object point\n"
            "=====================================\n"
            "(Count number of rays per object point)\n";
  report << "Number of points to check : " << object_points.num_slots() << '\n';
  report << "Single-ray option         : " << (options.single_ray ? "on" : "off") << "\n\n";
  report << "<point ID>: <image ID> ... [<number of rays>]\n\n";

  const PointRays rays(images, object_points);
  std::int32_t removed = 0;
  for (std::int32_t slot = 0; slot < object_points.num_slots(); ++slot) {
    ObjectPoint* const point = object_points[slot];
    if (point == nullptr) continue;
    report << point->id << ':';
    for (const Ray& ray : rays[slot]) report << ' ' << ray.image->id;
    point->num_rays = static_cast<std::int32_t>(rays[slot].size());
    report << " [" << point->num_rays << ']';
    if (point->num_rays >= kMinRaysPerPoint) {
      point->used = true;
    } else if (point->num_rays == 1 && options.single_ray && is_fully_observed(*point)) {
      point->used = true;
      report << " -> single ray";
    } else {
      report << " -> removed";
      for (const Ray& ray : rays[slot]) {
        ray.image->remove_point(point->id);
        report << "\nATTENTION: BundleImage " << ray.image->id << " point " << point->id
               << " removed.\n";
      }
      removals.points.push_back({point->id, point->num_rays});
      object_points.remove(slot);
      ++removed;
    }
    report << '\n';
  }
  report << "Number of removed object points: " << removed << "\n\n";
}

void BundleProject::check_rays_per_image(TextWriter* out) {
  TextWriter silence;
  TextWriter& report = out != nullptr ? *out : silence;
  report << "Check number of rays per image\n"
            "==============================\n"
            "(Count number of rays per image)\n";
  report << "Number of images to check : " << images.num_slots() << '\n';
  report << "<image ID>: <number of rays>\n\n";

  std::int32_t removed = 0;
  for (std::int32_t slot = 0; slot < images.num_slots(); ++slot) {
    const BundleImage* const image = images[slot];
    if (image == nullptr) continue;
    const std::int32_t num_points = image->count_points();
    report << image->id << ": " << num_points;
    if (num_points < kMinPointsPerImage) {
      report << " -> removed";
      removals.images.push_back({image->id, image->geometry_id, num_points});
      images.remove(slot);
      ++removed;
    }
    report << '\n';
  }
  report << "Number of removed images: " << removed << "\n\n";
}

void BundleProject::clean_up(TextWriter* out) {
  TextWriter silence;
  TextWriter& report = out != nullptr ? *out : silence;
  report << "Clean up\n"
            "--------\n"
            "(Remove unused object points, EOs, Apsets, etc.)\n\n";
  const std::int32_t num_images = remove_unused(images, "BundleImage ", report);
  const std::int32_t num_cameras = remove_unused(cameras, "Camera ", report);
  const std::int32_t num_points = remove_unused(object_points, "Object point ", report);
  if (num_points > 0) unlink_points(images);
  const std::int32_t num_geometries = remove_unused(image_geometries, "Station ", report);
  const std::int32_t num_ap_sets = remove_unused(ap_sets, "AP set ", report);
  const std::int32_t num_pos = remove_unused(pos_corrections, "position correction ", report);
  const std::int32_t num_att = remove_unused(att_corrections, "attitude correction ", report);
  report << "Number of removed ...\n";
  report << "  - images            : " << num_images << '\n';
  report << "  - cameras           : " << num_cameras << '\n';
  report << "  - object points     : " << num_points << '\n';
  report << "  - EOs               : " << num_geometries << '\n';
  report << "  - AP sets           : " << num_ap_sets << '\n';
  report << "  - Position corr.    : " << num_pos << '\n';
  report << "  - Attitude corr.    : " << num_att << '\n';
}

}  // namespace vorn
