// What follows from residuals and redundancy numbers: sums, variance components, tests, suspects.

#include "quality/summary.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <set>
#include <tuple>
#include <utility>

#include "calibration/ap_set.h"
#include "geometry/ext_orientation.h"
#include "quality/distributions.h"

namespace vorn {
namespace {

constexpr std::size_t kMaxSuspects = 1000;

// ---- groups -------------------------------------------------------------------------------------

// Where an observation belongs.
struct GroupKey {
  int rank = 0;  // place in the order of the groups
  std::string_view group;
  std::string_view id;
  std::int32_t order = 0;  // of the cameras, sets or corrections within the group

  auto operator<=>(const GroupKey& other) const {
    return std::tie(rank, order) <=> std::tie(other.rank, other.order);
  }
};

GroupKey group_of(const Unknown& unknown) {
  const auto& [object, k] = unknown;
  switch (object_type_of(*object)) {
    case ObjectType::object_point:
      return k < 2 ? GroupKey{1, "control_horizontal", {}} : GroupKey{2, "control_height", {}};
    case ObjectType::orientation:
      if (dynamic_cast<const ExtOrientation*>(object) == nullptr) {
        return {5, "orientation_coefficients", {}};
      }
      return k < 3 ? GroupKey{3, "orientation_position", {}}
                   : GroupKey{4, "orientation_rotation", {}};
    case ObjectType::ap_set:
      return {6, "ap_set", object->id, object->index};
    case ObjectType::position_correction:
      return {7, "position_correction", object->id, object->index};
    case ObjectType::attitude_correction:
      break;
  }
  return {8, "attitude_correction", object->id, object->index};
}

struct GroupSums {
  std::int64_t observations = 0;
  double redundancy = 0.0;
  double vtpv = 0.0;
};

// The factor of the variances of a group and its band (Foerstner 1979). The sum of redundancy
// numbers takes the place of the degrees of freedom.
void find_factor(GroupResult& group, double sigma0_prior, double confidence) {
  if (group.redundancy < kSmallestRedundancy) return;
  const double statistic = group.vtpv / (sigma0_prior * sigma0_prior);
  const double outside = 0.5 * (1.0 - confidence);
  group.factor = statistic / group.redundancy;
  group.factor_lower = statistic / chi_square_quantile(1.0 - outside, group.redundancy);
  group.factor_upper = statistic / chi_square_quantile(outside, group.redundancy);
  group.sd_factor = std::sqrt(group.factor);
}

}  // namespace

void find_groups(QualityResults& results) {
  std::map<GroupKey, GroupSums> sums;
  std::map<const Camera*, std::int32_t> camera_order;
  for (const ImageResult& image : results.images) {
    const Camera* const camera = image.image->camera;
    const auto order = static_cast<std::int32_t>(camera_order.size());
    const std::int32_t place = camera_order.try_emplace(camera, order).first->second;
    GroupSums& sum = sums[{0, "image_coordinates", camera->id, place}];
    sum.observations += 2 * static_cast<std::int64_t>(image.points);
    sum.redundancy += image.redundancy;
    sum.vtpv += image.vtpv;
  }
  const double sigma0 = results.settings.sigma0_prior;
  for (const ObservedResult& observed : results.observed_parameters) {
    GroupSums& sum = sums[group_of(observed.unknown)];
    const double weighted = observed.v * sigma0 / observed.s();
    ++sum.observations;
    sum.redundancy += observed.r;
    sum.vtpv += weighted * weighted;
  }
  if (!results.constraints.empty()) {
    sums[{9, "constraints", {}}] = {static_cast<std::int64_t>(results.constraints.size()),
                                    results.statistics.redundancy_sum.constraints,
                                    results.statistics.vtpv.constraints};
  }
  for (const auto& [key, sum] : sums) {
    GroupResult group{key.group, std::string(key.id), sum.observations, sum.redundancy, sum.vtpv};
    find_factor(group, sigma0, results.settings.confidence);
    results.groups.push_back(std::move(group));
  }
}

// v'Pv against the limits that chi-square keeps with the confidence asked for (Koch 1999).
GlobalTest global_test(double statistic, std::int32_t degrees_of_freedom, double confidence) {
  if (degrees_of_freedom <= 0) return {};
  const double outside = 0.5 * (1.0 - confidence);
  GlobalTest test;
  test.statistic = statistic;
  test.lower = chi_square_quantile(outside, degrees_of_freedom);
  test.upper = chi_square_quantile(1.0 - outside, degrees_of_freedom);
  test.passed = test.lower <= statistic && statistic <= test.upper;
  return test;
}

// ---- suspects -----------------------------------------------------------------------------------

void find_suspects(QualityResults& results) {
  const double alpha = results.settings.alpha;
  const double limits[] = {0.0, chi_square_quantile(1.0 - alpha, 1.0),
                           chi_square_quantile(1.0 - alpha, 2.0)};
  std::vector<SuspectResult>& suspects = results.suspects;
  const auto fails = [&limits](const JointTest& test) {
    return test.degrees_of_freedom > 0 && test.t > limits[test.degrees_of_freedom];
  };
  for (const ImagePointResult& row : results.image_points) {
    const JointTest test = joint_test(row);
    if (!fails(test)) continue;
    const BundleImage* const image = results.images[static_cast<std::size_t>(row.image)].image;
    suspects.push_back({image, row.point, {}, test});
  }
  for (const ObservedResult& row : results.observed_parameters) {
    const JointTest test = observed_test(row);
    if (fails(test)) suspects.push_back({nullptr, nullptr, row.unknown, test});
  }
  std::stable_sort(suspects.begin(), suspects.end(),
                   [](const SuspectResult& a, const SuspectResult& b) {
                     return a.test.log10_p < b.test.log10_p;
                   });
  results.num_suspects = suspects.size();
  if (suspects.size() > kMaxSuspects) suspects.resize(kMaxSuspects);
  // In this order the first one of an image, or of a point, is its worst.
  std::set<const BundleImage*> images;
  std::set<std::string_view> points;
  for (SuspectResult& suspect : suspects) {
    if (suspect.image == nullptr) continue;
    suspect.worst_of_image = images.insert(suspect.image).second;
    suspect.worst_of_point = points.insert(suspect.image_point->id).second;
  }
}

}  // namespace vorn
