#include "report/run_ending.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <optional>
#include <unordered_set>

#include "driver/bundle_project.h"
#include "lsq/ls_params.h"
#include "lsq/stages/point_rays.h"
#include "report/residuals.h"
#include "sensors/image_ranges.h"
#include "text/ordered_ranges.h"

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

// The largest residuals of some images, and the first that is not finite.
struct Extremes {
  std::vector<LargeResidual> largest;
  std::optional<LargeResidual> non_finite;

  bool takes(double length) const {
    return largest.size() < kNumLargest || length > largest.back().length_m;
  }
  // Of residuals of the same length the one that comes first is the larger one.
  void add(const LargeResidual& residual) {
    const double length = residual.length_m;
    if (!takes(length)) return;
    if (largest.size() == kNumLargest) largest.pop_back();
    const auto place =
        std::find_if(largest.begin(), largest.end(),
                     [length](const LargeResidual& other) { return other.length_m < length; });
    largest.insert(place, residual);
  }
};

Extremes find_extremes(const BundleProject& project, std::size_t begin, std::size_t end) {
  Extremes extremes;
  ImageResiduals residuals;
  for_each_in(project.images, begin, end, [&](const BundleImage& image) {
    compute_residuals(image, project.object_points, residuals);
    for (const PointResidual& r : residuals.points) {
      if (r.object_point == nullptr) continue;
      const double length = std::hypot(r.vx, r.vy);
      const auto found = [&] {
        return LargeResidual{image.id, r.image_point->id, length, in_sigmas(r)};
      };
      if (!std::isfinite(length)) {
        if (!extremes.non_finite) extremes.non_finite = found();
      } else if (extremes.takes(length)) {
        extremes.add(found());
      }
    }
  });
  return extremes;
}

Extremes find_extremes(const BundleProject& project) {
  const std::size_t count = num_slots(project.images);
  const std::size_t grain = images_per_range(project.images);
  std::vector<Extremes> ranges(count / grain + 1);
  visit_ranges(count, grain, [&](std::size_t begin, std::size_t end) {
    ranges[begin / grain] = find_extremes(project, begin, end);
  });
  Extremes extremes;
  for (const Extremes& range : ranges) {
    for (const LargeResidual& residual : range.largest) extremes.add(residual);
    if (!extremes.non_finite) extremes.non_finite = range.non_finite;
  }
  return extremes;
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
  const Extremes extremes = find_extremes(project);
  ending.largest = extremes.largest;
  if (extremes.non_finite && ending.non_finite.iteration == 0) {
    ending.non_finite = {std::max(project.num_iterations, 1), extremes.non_finite->image,
                         extremes.non_finite->point};
  }
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
