// Findings about what was removed, what nothing observes, and what rays leave open.

#include "quality/diagnosis_findings.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <utility>

#include "driver/bundle_project.h"
#include "geometry/ext_orientation.h"
#include "lsq/stages/point_rays.h"
#include "quality/diagnosis_algebra.h"
#include "quality/diagnosis_rays.h"
#include "quality/diagnosis_words.h"

namespace vorn {

// ---- removed and unobserved --------------------------------------------------------------------

namespace {

bool is_held(const AdjObject& object, std::int32_t k) {
  return object.param(k).state != ParamState::unknown;
}

// Why nothing depends on an object, and what helps.
std::pair<std::string, std::string> reason_of(const BundleProject& project,
                                              const AdjObject& object) {
  for (const RemovedImage& image : project.removals.images) {
    if (image.geometry_id == object.id && object_type_of(object) == ObjectType::orientation) {
      return {"its image " + image.id + " was removed, having " + std::to_string(image.num_points) +
                  " points",
              "Measure at least three points in image " + image.id +
                  ", or take the image and its orientation out of the files"};
    }
  }
  switch (object_type_of(object)) {
    case ObjectType::ap_set:
      return {"no image was taken with its camera",
              "Remove the set, or fix its parameters (standard deviation 1e-31)"};
    case ObjectType::position_correction:
    case ObjectType::attitude_correction:
      return {"none of its orientations belongs to an image with points",
              "Remove the correction, or fix its coefficients (standard deviation 1e-31)"};
    case ObjectType::object_point:
      return {"all images that measured it were removed",
              "Remove the point, or measure more points in its images"};
    case ObjectType::orientation:
      break;
  }
  return {"it has no image with points",
          "Remove the orientation, or fix it (standard deviation 1e-31)"};
}

void find_removed(const BundleProject& project, Diagnosis& diagnosis) {
  for (const RemovedImage& image : project.removals.images) {
    DiagnosisFinding& finding = diagnosis.findings.emplace_back();
    finding.code = "too_few_points";
    finding.severity = FindingSeverity::warning;
    finding.objects = {{"image", image.id, {}}};
    finding.message = "Image " + image.id + " was removed: it has " +
                      std::to_string(image.num_points) + " points, and three are needed.";
    finding.remedy = "Measure more points in it, or take it out of the image file.";
    finding.values = {{"points", image.num_points}};
  }
  for (const RemovedPoint& point : project.removals.points) {
    DiagnosisFinding& finding = diagnosis.findings.emplace_back();
    finding.code = "too_few_rays";
    // A tie point more or less matters little; control that was meant to hold the datum does.
    finding.severity = point.is_control ? FindingSeverity::warning : FindingSeverity::info;
    finding.objects = {{"object_point", point.id, {}}};
    finding.message =
        (point.is_control ? "Control point " : "Point ") + point.id + " was removed: " +
        (point.num_rays == 0 ? "no image measures it." : "only one image measures it.");
    finding.remedy = "Measure it in another image, if it is needed.";
    finding.values = {{"rays", point.num_rays}};
  }
}

}  // namespace

void find_unobserved(const BundleProject& project, const DiagnosedSystem& system,
                     Diagnosis& diagnosis) {
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    const AdjObject& object = project.unknowns[i];
    std::vector<DiagnosedItem> items;
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      if (system.role(object.index + k) == UnknownRole::unobserved) {
        items.push_back(item_of({&object, k}));
      }
    }
    if (items.empty()) continue;
    bool seen = false;
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      seen = seen || system.image_weight(object.index + k) > 0.0;
    }
    DiagnosisFinding& finding = diagnosis.findings.emplace_back();
    finding.code = "no_observations";
    finding.severity = FindingSeverity::error;
    finding.values = {{"unknowns", static_cast<double>(items.size())}};
    std::vector<std::string> names;
    for (const DiagnosedItem& item : items) names.push_back(item.parameter);
    const std::string whole = in_words(item_of(object));
    if (seen) {
      finding.message = "No observation depends on " + enumerated(names) + " of " + whole + ".";
      finding.remedy = "Fix what is not needed (standard deviation 1e-31).";
    } else {
      const auto [reason, remedy] = reason_of(project, object);
      finding.message = "No observation depends on " + whole + ": " + reason + ".";
      finding.remedy = remedy + ".";
    }
    finding.objects = std::move(items);
  }
  find_removed(project, diagnosis);
}

// ---- intersections -----------------------------------------------------------------------------

namespace {

// The smallest eigenvalue of a point's block of N scaled to a unit diagonal.
double smallest_eigenvalue(const ObjectPoint& point, const NormalMatrix& normal) {
  Matrix block(3, 3);
  const std::int32_t u = point.index;
  for (std::int32_t i = 0; i < 3; ++i) {
    for (std::int32_t j = i; j < 3; ++j) {
      const double scale = normal.at(u + i, u + i) * normal.at(u + j, u + j);
      block[i][j] = normal.at(u + i, u + j) / std::sqrt(scale);
    }
  }
  return eigen_of_symmetric(std::move(block)).values[0];
}

// Where the rays of a point come from, and how precise their directions are [rad]. No places where
// an image has no projection centre.
struct RayBundle {
  std::vector<Vec3> places;
  double precision = 0.0;
};
RayBundle bundle_of(std::span<const Ray> rays) {
  RayBundle bundle;
  for (const Ray& ray : rays) {
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(ray.image->geometry);
    if (orientation == nullptr) return {};
    bundle.places.push_back(orientation->projection_centre());
    const Camera& camera = *ray.image->camera;
    const Pair sdev = camera.sdev_to_image({ray.point->sx, ray.point->sy});
    bundle.precision = std::max({bundle.precision, sdev[0] / camera.c, sdev[1] / camera.c});
  }
  return bundle;
}

DiagnosisFinding weak_intersection(const ObjectPoint& point, std::size_t rays, double angle,
                                   bool useless) {
  DiagnosisFinding finding;
  finding.code = "weak_intersection";
  finding.severity = useless ? FindingSeverity::error : FindingSeverity::warning;
  finding.objects = {item_of(point)};
  const std::string name = "Point " + point.id;
  if (rays < 2) {
    finding.message = name + " has a single ray left, which does not determine it.";
    finding.remedy = "Measure it in another image, or remove it.";
  } else {
    finding.message =
        useless ? "The rays of point " + point.id + " coincide: its place along them is open."
                : name + " is intersected under less than one degree.";
    finding.remedy = "Measure it from another place, remove it, or give it observed coordinates.";
  }
  finding.values = {{"rays", static_cast<double>(rays)}};
  if (std::isfinite(angle)) finding.values.emplace_back("angle", angle);
  return finding;
}

}  // namespace

void find_weak_intersections(const BundleProject& project, DiagnosedSystem& system,
                             Diagnosis& diagnosis) {
  constexpr double kOneDegree = std::numbers::pi / 180;
  constexpr double kSingular = 1e-13;
  const PointRays rays(project.images, project.object_points);
  for (std::int32_t slot = 0; slot < project.object_points.num_slots(); ++slot) {
    const ObjectPoint* const point = project.object_points[slot];
    if (point == nullptr) continue;
    if (is_held(*point, 0) && is_held(*point, 1) && is_held(*point, 2)) continue;
    bool observed = true;
    for (std::int32_t k = 0; k < 3; ++k) {
      observed = observed && system.role(point->index + k) != UnknownRole::unobserved;
    }
    if (!observed) continue;
    const RayBundle bundle = bundle_of(rays[slot]);
    const double angle = bundle.places.empty() ? std::numeric_limits<double>::quiet_NaN()
                                               : largest_angle(point->xyz, bundle.places);
    // Negated, so that what is not a number counts as singular.
    const bool singular = !(smallest_eigenvalue(*point, system.normal()) > kSingular);
    if (!singular && !(angle < kOneDegree)) continue;
    if (singular) {
      for (std::int32_t k = 0; k < 3; ++k) system.pin(point->index + k);
    }
    const bool useless = singular || angle < 3 * bundle.precision;
    diagnosis.findings.push_back(weak_intersection(*point, rays[slot].size(), angle, useless));
  }
}

}  // namespace vorn
