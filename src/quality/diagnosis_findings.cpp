// Findings about what was removed, what nothing observes, and what rays leave open.

#include "quality/diagnosis_findings.h"

#include <algorithm>
#include <cmath>
#include <limits>
#include <numbers>
#include <optional>
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

// Why nothing depends on an object, and what helps.
std::pair<std::string, std::string> reason_of(const BundleProject& project,
                                              const AdjObject& object) {
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
  for (const Removal& image : project.removed_objects) {
    if (image.reason != RemovalReason::too_few_points || image.geometry_id != object.id) continue;
    return {
        "its image " + image.id + " was removed, having " + std::to_string(image.count) + " points",
        "Measure at least three points in image " + image.id +
            ", or take the image and its orientation out of the files"};
  }
  return {"it has no image with points",
          "Remove the orientation, or fix it (standard deviation 1e-31)"};
}

// Images first.
void find_removed(const BundleProject& project, Diagnosis& diagnosis) {
  for (const Removal& image : project.removed_objects) {
    if (image.reason != RemovalReason::too_few_points) continue;
    DiagnosisFinding& finding = diagnosis.findings.emplace_back();
    finding.code = "too_few_points";
    finding.severity = FindingSeverity::warning;
    finding.objects = {{"image", image.id, {}}};
    finding.message = "Image " + image.id + " was removed: it has " + std::to_string(image.count) +
                      " points, and three are needed.";
    finding.remedy = "Measure more points in it, or take it out of the image file.";
    finding.values = {{"points", image.count}};
  }
  for (const Removal& point : project.removed_objects) {
    if (point.reason != RemovalReason::too_few_rays) continue;
    DiagnosisFinding& finding = diagnosis.findings.emplace_back();
    finding.code = "too_few_rays";
    // A tie point more or less matters little; control that was meant to hold the datum does.
    finding.severity = point.is_control ? FindingSeverity::warning : FindingSeverity::info;
    finding.objects = {{"object_point", point.id, {}}};
    finding.message = (point.is_control ? "Control point " : "Point ") + point.id +
                      " was removed: " +
                      (point.count == 0 ? "no image measures it." : "only one image measures it.");
    finding.remedy = "Measure it in another image, if it is needed.";
    finding.values = {{"rays", point.count}};
  }
}

}  // namespace

void find_unobserved(const BundleProject& project, const UnknownWeights& weights,
                     Diagnosis& diagnosis) {
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    const AdjObject& object = project.unknowns[i];
    std::vector<DiagnosedItem> items;
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      if (weights.role(object.index + k) == UnknownRole::unobserved) {
        items.push_back(item_of({&object, k}));
      }
    }
    if (items.empty()) continue;
    bool seen = false;
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      seen = seen || weights.image_weight(object.index + k) > 0.0;
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

constexpr double kOneDegree = std::numbers::pi / 180;

// Whether a point's block of N, scaled to a unit diagonal, is singular but for rounding: by its
// smallest eigenvalue. The product of all three is the determinant, and as they add up to 3, no two
// of them have a product above 9/4.
bool is_singular(const NormalMatrix& normal, std::int32_t point) {
  constexpr double kSingular = 1e-13;
  const double* const n = normal.diagonal(point);
  const double xy = n[1] / std::sqrt(n[0] * n[3]);
  const double xz = n[2] / std::sqrt(n[0] * n[5]);
  const double yz = n[4] / std::sqrt(n[3] * n[5]);
  const double determinant = 1.0 + 2.0 * xy * xz * yz - xy * xy - xz * xz - yz * yz;
  constexpr double kFarFromIt = 1e3;
  if (determinant > kFarFromIt * kSingular) return false;
  Matrix block(3, 3);
  for (std::int32_t i = 0; i < 3; ++i) block[i][i] = 1.0;
  block[0][1] = xy;
  block[0][2] = xz;
  block[1][2] = yz;
  // Negated, so that what is not a number counts as singular.
  return !(eigen_of_symmetric(std::move(block)).values[0] > kSingular);
}

// Where the rays of a point come from, and how precise their directions are [rad]. No places where
// an image has no projection centre.
struct RayOrigins {
  std::vector<Vec3> places;
  double precision = 0.0;
};
RayOrigins origins_of(std::span<const Ray> rays) {
  RayOrigins origins;
  for (const Ray& ray : rays) {
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(ray.image->geometry);
    if (orientation == nullptr) return {};
    origins.places.push_back(orientation->projection_centre());
    const Camera& camera = *ray.image->camera;
    const Pair sdev = camera.sdev_to_image({ray.point->sx, ray.point->sy});
    origins.precision = std::max({origins.precision, sdev[0] / camera.c, sdev[1] / camera.c});
  }
  return origins;
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

// Whether a point is to be found by its images, and they can say something of it.
bool is_intersected(const ObjectPoint& point, const UnknownWeights& weights) {
  bool held = true;
  bool observed = true;
  for (std::int32_t k = 0; k < 3; ++k) {
    held = held && is_held(point, k);
    observed = observed && weights.role(point.index + k) != UnknownRole::unobserved;
  }
  return observed && !held;
}

}  // namespace

std::vector<const ObjectPoint*> find_weak_intersections(const BundleProject& project,
                                                        const UnknownWeights& weights,
                                                        const NormalMatrix& normal,
                                                        const std::vector<double>& angles,
                                                        Diagnosis& diagnosis) {
  constexpr double kNearOneDegree = 1.001 * kOneDegree;
  std::optional<PointRays> rays;
  std::vector<const ObjectPoint*> undetermined;
  for (std::int32_t slot = 0; slot < project.object_points.num_slots(); ++slot) {
    const ObjectPoint* const point = project.object_points[slot];
    if (point == nullptr || !is_intersected(*point, weights)) continue;
    const std::int32_t number = point->index / 3;
    const bool singular = is_singular(normal, number);
    const bool may_be_weak =
        angles.empty() || angles[static_cast<std::size_t>(number)] < kNearOneDegree;
    if (!singular && !may_be_weak) continue;
    if (!rays) rays.emplace(project.images, project.object_points);
    const RayOrigins origins = origins_of((*rays)[slot]);
    const double angle = origins.places.empty() ? std::numeric_limits<double>::quiet_NaN()
                                                : largest_angle(point->xyz, origins.places);
    if (!singular && !(angle < kOneDegree)) continue;
    if (singular) undetermined.push_back(point);
    const bool useless = singular || angle < 3 * origins.precision;
    diagnosis.findings.push_back(weak_intersection(*point, (*rays)[slot].size(), angle, useless));
  }
  return undetermined;
}

}  // namespace vorn
