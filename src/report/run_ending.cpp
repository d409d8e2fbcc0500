#include "report/run_ending.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <unordered_set>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/point_rays.h"
#include "report/residuals.h"

namespace vorn {
namespace {

constexpr std::size_t kNumLargest = 5;
constexpr std::size_t kMinRays = 2;

std::string kind_of(const AdjObject& object) {
  if (dynamic_cast<const ImageGeometry*>(&object) != nullptr) return "EO";
  if (dynamic_cast<const ObjectPoint*>(&object) != nullptr) return "point";
  if (dynamic_cast<const APSet*>(&object) != nullptr) return "AP set";
  if (dynamic_cast<const PosCorrection*>(&object) != nullptr) return "position correction";
  return "attitude correction";
}

double in_sigmas(const PointResidual& r) {
  const double s0 = ls_params().sigma0_apriori;
  return std::max(std::fabs(r.vx) * std::sqrt(r.px), std::fabs(r.vy) * std::sqrt(r.py)) / s0;
}

// The largest residuals and, in `non_finite`, the first that is no number.
std::vector<LargeResidual> find_largest(const BundleProject& project, NonFiniteValue& non_finite) {
  std::vector<LargeResidual> largest;
  ImageResiduals residuals;
  for (const BundleImage& image : project.images) {
    compute_residuals(image, project.object_points, residuals);
    for (const PointResidual& r : residuals.points) {
      if (r.object_point == nullptr) continue;
      const double length = std::hypot(r.vx, r.vy);
      if (!std::isfinite(length) && non_finite.iteration == 0) {
        non_finite = {std::max(project.num_iterations, 1), image.id, r.image_point->id};
      }
      if (largest.size() == kNumLargest && !(length > largest.back().length_m)) continue;
      if (largest.size() == kNumLargest) largest.pop_back();
      const auto place =
          std::find_if(largest.begin(), largest.end(),
                       [length](const LargeResidual& other) { return other.length_m < length; });
      largest.insert(place, {image.id, r.image_point->id, length, in_sigmas(r)});
    }
  }
  return largest;
}

bool has_free_parameter(const AdjObject& object) {
  return object.count_state(ParamState::unknown) > 0;
}

// Orientations that no image with points is left for, and points that have lost their rays.
std::vector<LostObject> find_lost(BundleProject& project) {
  std::unordered_set<const ImageGeometry*> measured;
  for (const BundleImage& image : project.images) {
    if (image.count_points() > 0) measured.insert(image.geometry);
  }
  std::vector<LostObject> lost;
  for (const ImageGeometry& geometry : project.image_geometries) {
    if (!has_free_parameter(geometry) || measured.count(&geometry) > 0) continue;
    lost.push_back({kind_of(geometry), geometry.id, "image-geometry"});
  }
  const PointRays rays(project.images, project.object_points);
  for (std::int32_t slot = 0; slot < project.object_points.num_slots(); ++slot) {
    const ObjectPoint* const point = project.object_points[slot];
    if (point == nullptr || !has_free_parameter(*point) || rays[slot].size() >= kMinRays) continue;
    lost.push_back({kind_of(*point), point->id, "obj-crds"});
  }
  return lost;
}

RunEnding common_ending(const BundleProject& project) {
  RunEnding ending;
  ending.converged = project.converged;
  ending.removals = project.removed_objects;
  ending.non_finite = project.non_finite;
  if (!project.iterations.empty() && project.iterations.back().open_object != nullptr) {
    ending.open = open_parameter(project.iterations.back());
  }
  return ending;
}

}  // namespace

NamedParameter open_parameter(const IterationStatistics& statistics) {
  const AdjObject& object = *statistics.open_object;
  return {kind_of(object), object.id, object.get_param_name(statistics.open_param)};
}

RunEnding ending_of_completed(const BundleProject& project) {
  RunEnding ending = common_ending(project);
  ending.largest = find_largest(project, ending.non_finite);
  const bool finite = std::isfinite(project.vtpv) && std::isfinite(project.sigma0);
  if (!finite && ending.non_finite.iteration == 0) {
    ending.non_finite.iteration = std::max(project.num_iterations, 1);
  }
  return ending;
}

RunEnding ending_of_failed(BundleProject& project) {
  RunEnding ending = common_ending(project);
  // Before the iterations nothing is bound to an unknown yet, and another message says why.
  if (project.num_iterations > 0) ending.lost = find_lost(project);
  return ending;
}

}  // namespace vorn
