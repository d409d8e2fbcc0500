// Checks of the data before the adjustment: what cannot be determined or is not used is removed.

#include "report/data_checks.h"

#include <algorithm>
#include <cstdint>
#include <optional>
#include <string_view>
#include <vector>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/point_rays.h"
#include "sensors/point_share.h"
#include "text/text_writer.h"

namespace vorn {

namespace {

constexpr std::size_t kMinRaysPerPoint = 2;
constexpr std::int32_t kMinPointsPerImage = 3;

// Every coordinate is observed or fixed. Standard deviations that are not numbers count as free.
bool is_fully_observed(const ObjectPoint& point) {
  const double limit = ls_params().smax;
  return point.std_devs[0] <= limit && point.std_devs[1] <= limit && point.std_devs[2] <= limit;
}

// What becomes of the object point of a slot.
enum class Verdict : std::uint8_t { empty_slot, used, single_ray, removed };

std::vector<Verdict> judge_points(const BundleProject& project,
                                  const std::vector<std::size_t>& counts) {
  std::vector<Verdict> verdicts(static_cast<std::size_t>(project.object_points.num_slots()));
  for (std::int32_t slot = 0; slot < project.object_points.num_slots(); ++slot) {
    const ObjectPoint* const point = project.object_points[slot];
    if (point == nullptr) continue;
    const std::size_t num_rays = counts[static_cast<std::size_t>(slot)];
    const bool single = num_rays == 1 && project.options.single_ray && is_fully_observed(*point);
    verdicts[static_cast<std::size_t>(slot)] = num_rays >= kMinRaysPerPoint ? Verdict::used
                                               : single                     ? Verdict::single_ray
                                                                            : Verdict::removed;
  }
  return verdicts;
}

void print_rays(TextWriter& report, const BundleProject& project, const PointRays& rays,
                const std::vector<Verdict>& verdicts) {
  const OwnedList<ObjectPoint>& points = project.object_points;
  report << "Check number of rays per object point\n"
            "=====================================\n"
            "(Count number of rays per object point)\n";
  report << "Number of points to check : " << in_total(points.num_slots()) << '\n';
  report << "Single-ray option         : " << (project.options.single_ray ? "on" : "off") << "\n\n";
  report << "<point ID>: <image ID> ... [<number of rays>]\n\n";
  PointLines lines(report);
  for (std::int32_t slot = 0; slot < points.num_slots(); ++slot) {
    const Verdict verdict = verdicts[static_cast<std::size_t>(slot)];
    if (verdict == Verdict::empty_slot) continue;
    const ObjectPoint& point = *points[slot];
    lines.begin(slot);
    report << point.id << ':';
    for (const Ray& ray : rays[slot]) report << ' ' << ray.image->id;
    report << " [" << static_cast<std::uint64_t>(rays[slot].size()) << ']';
    if (verdict == Verdict::single_ray) report << " -> single ray";
    if (verdict == Verdict::removed) {
      report << " -> removed";
      for (const Ray& ray : rays[slot]) {
        report << "\nATTENTION: BundleImage " << ray.image->id << " point " << point.id
               << " removed.\n";
      }
    }
    report << '\n';
  }
  lines.finish();
  const auto removed = std::count(verdicts.begin(), verdicts.end(), Verdict::removed);
  report << "Number of removed object points: " << in_total(static_cast<std::int32_t>(removed))
         << "\n\n";
}

// Marks the points that stay and removes the others, with their measurements: only then are the
// rays asked for.
void apply(const std::vector<Verdict>& verdicts, const std::vector<std::size_t>& counts,
           const PointRays* rays, BundleProject& project) {
  for (std::int32_t slot = 0; slot < project.object_points.num_slots(); ++slot) {
    const Verdict verdict = verdicts[static_cast<std::size_t>(slot)];
    if (verdict == Verdict::empty_slot) continue;
    ObjectPoint& point = *project.object_points[slot];
    point.num_rays = static_cast<std::int32_t>(counts[static_cast<std::size_t>(slot)]);
    if (verdict != Verdict::removed) {
      point.used = true;
      continue;
    }
    for (const Ray& ray : (*rays)[slot]) ray.image->remove_point(point.id);
    Removal& removal = project.removed_objects.emplace_back();
    removal = {RemovalReason::too_few_rays, "object point", point.id, point.num_rays};
    removal.is_control = point.type == PointType::control;
    project.object_points.remove(slot);
  }
}

// How many points each image has; 0 for empty slots.
std::vector<std::int32_t> count_image_points(const OwnedList<BundleImage>& images) {
  std::vector<double> counts(static_cast<std::size_t>(images.num_slots()));
  for (std::int32_t slot = 0; slot < images.num_slots(); ++slot) {
    const BundleImage* const image = images[slot];
    if (image != nullptr) counts[static_cast<std::size_t>(slot)] = image->count_points();
  }
  if (PointShare* const share = point_share()) share->add_up(counts);
  return {counts.begin(), counts.end()};
}

// The images with too few points: their slots, and how many points they have.
struct PoorImage {
  std::int32_t slot;
  std::int32_t num_points;
};

std::vector<PoorImage> find_poor_images(const OwnedList<BundleImage>& images,
                                        const std::vector<std::int32_t>& counts) {
  std::vector<PoorImage> poor;
  for (std::int32_t slot = 0; slot < images.num_slots(); ++slot) {
    if (images[slot] == nullptr) continue;
    const std::int32_t num_points = counts[static_cast<std::size_t>(slot)];
    if (num_points < kMinPointsPerImage) poor.push_back({slot, num_points});
  }
  return poor;
}

void print_image_points(TextWriter& report, const OwnedList<BundleImage>& images,
                        const std::vector<std::int32_t>& counts, std::size_t num_removed) {
  report << "Check number of rays per image\n"
            "==============================\n"
            "(Count number of rays per image)\n";
  report << "Number of images to check : " << images.num_slots() << '\n';
  report << "<image ID>: <number of rays>\n\n";
  for (std::int32_t slot = 0; slot < images.num_slots(); ++slot) {
    if (images[slot] == nullptr) continue;
    const std::int32_t num_points = counts[static_cast<std::size_t>(slot)];
    report << images[slot]->id << ": " << num_points
           << (num_points < kMinPointsPerImage ? " -> removed\n" : "\n");
  }
  report << "Number of removed images: " << static_cast<std::uint64_t>(num_removed) << "\n\n";
}

// Objects of one kind that nothing uses.
struct UnusedObjects {
  std::string_view kind;
  std::string_view printed_kind;
  std::vector<std::int32_t> slots;
};

template <class T>
UnusedObjects find_unused(const OwnedList<T>& list, std::string_view kind,
                          std::string_view printed_kind) {
  UnusedObjects unused{kind, printed_kind, {}};
  for (std::int32_t slot = 0; slot < list.num_slots(); ++slot) {
    if (list[slot] != nullptr && !list[slot]->used) unused.slots.push_back(slot);
  }
  return unused;
}

template <class T>
void print_unused(TextWriter& report, const OwnedList<T>& list, const UnusedObjects& unused) {
  for (const std::int32_t slot : unused.slots) {
    report << "ATTENTION: " << unused.printed_kind << list[slot]->id << " removed.\n";
  }
}

template <class T>
void remove_unused(OwnedList<T>& list, const UnusedObjects& unused,
                   std::vector<Removal>& removals) {
  for (const std::int32_t slot : unused.slots) {
    removals.push_back({RemovalReason::unused, unused.kind, list[slot]->id, 0});
    list.remove(slot);
  }
}

void print_num_removed(TextWriter& report, std::string_view label, const UnusedObjects& unused) {
  report << label << static_cast<std::uint64_t>(unused.slots.size()) << '\n';
}

// Forgets which object points the image points belong to.
void unlink_points(const OwnedList<BundleImage>& images) {
  for (const BundleImage& image : images) {
    for (ImagePoint& point : image.points) point.object_point = nullptr;
  }
}

}  // namespace

void BundleProject::check_rays_per_point(TextWriter* out) {
  const std::vector<std::size_t> counts = count_rays(images, object_points);
  const std::vector<Verdict> verdicts = judge_points(*this, counts);
  std::optional<PointRays> rays;
  if (out != nullptr || std::count(verdicts.begin(), verdicts.end(), Verdict::removed) > 0) {
    rays.emplace(images, object_points);
  }
  if (out != nullptr) print_rays(*out, *this, *rays, verdicts);
  apply(verdicts, counts, rays ? &*rays : nullptr, *this);
}

void BundleProject::check_rays_per_image(TextWriter* out) {
  const std::vector<std::int32_t> counts = count_image_points(images);
  const std::vector<PoorImage> poor = find_poor_images(images, counts);
  if (out != nullptr) print_image_points(*out, images, counts, poor.size());
  for (const PoorImage& image : poor) {
    const BundleImage& poor_image = *images[image.slot];
    removed_objects.push_back({RemovalReason::too_few_points, "image", poor_image.id,
                               image.num_points, poor_image.geometry_id});
    images.remove(image.slot);
  }
}

void BundleProject::clean_up(TextWriter* out) {
  const UnusedObjects unused_images = find_unused(images, "image", "BundleImage ");
  const UnusedObjects unused_cameras = find_unused(cameras, "camera", "Camera ");
  const UnusedObjects unused_points = find_unused(object_points, "object point", "Object point ");
  const UnusedObjects unused_geometries = find_unused(image_geometries, "orientation", "Station ");
  const UnusedObjects unused_sets = find_unused(ap_sets, "parameter set", "AP set ");
  const UnusedObjects unused_pos =
      find_unused(pos_corrections, "position correction", "position correction ");
  const UnusedObjects unused_att =
      find_unused(att_corrections, "attitude correction", "attitude correction ");
  if (out != nullptr) {
    TextWriter& report = *out;
    report << "Clean up\n"
              "--------\n"
              "(Remove unused object points, EOs, Apsets, etc.)\n\n";
    print_unused(report, images, unused_images);
    print_unused(report, cameras, unused_cameras);
    print_unused(report, object_points, unused_points);
    print_unused(report, image_geometries, unused_geometries);
    print_unused(report, ap_sets, unused_sets);
    print_unused(report, pos_corrections, unused_pos);
    print_unused(report, att_corrections, unused_att);
    report << "Number of removed ...\n";
    print_num_removed(report, "  - images            : ", unused_images);
    print_num_removed(report, "  - cameras           : ", unused_cameras);
    print_num_removed(report, "  - object points     : ", unused_points);
    print_num_removed(report, "  - EOs               : ", unused_geometries);
    print_num_removed(report, "  - AP sets           : ", unused_sets);
    print_num_removed(report, "  - Position corr.    : ", unused_pos);
    print_num_removed(report, "  - Attitude corr.    : ", unused_att);
  }
  if (!unused_points.slots.empty()) unlink_points(images);
  remove_unused(images, unused_images, removed_objects);
  remove_unused(cameras, unused_cameras, removed_objects);
  remove_unused(object_points, unused_points, removed_objects);
  remove_unused(image_geometries, unused_geometries, removed_objects);
  remove_unused(ap_sets, unused_sets, removed_objects);
  remove_unused(pos_corrections, unused_pos, removed_objects);
  remove_unused(att_corrections, unused_att, removed_objects);
}

}  // namespace vorn
