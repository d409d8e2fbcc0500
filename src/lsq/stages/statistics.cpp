#include "lsq/stages/statistics.h"

#include <cmath>

#include "geometry/ext_orientation.h"
#include "sensors/object_point.h"
#include "sensors/point_share.h"

namespace vorn {
namespace {

constexpr std::int32_t kNumCentreParams = 3;

void find_largest(const AdjObject& object, std::int32_t k, const Vector& corrections,
                  GroupChange& change) {
  const double size = std::fabs(corrections[object.index + k]);
  if (object.param(k).state == ParamState::eliminated || !(size > change.max)) return;
  change.max = size;
  change.object = &object;
  change.param = k;
}

void add(const AdjObject& object, std::int32_t k, const Vector& corrections, GroupChange& change) {
  if (object.param(k).state == ParamState::eliminated) return;
  change.sum += std::fabs(corrections[object.index + k]);
  ++change.count;
  find_largest(object, k, corrections, change);
}

void add_all(const AdjObject& object, const Vector& corrections, GroupChange& change) {
  object.sum_abs_corrections(corrections, change.sum, change.count);
  const auto count = static_cast<std::int32_t>(object.num_params());
  for (std::int32_t k = 0; k < count; ++k) find_largest(object, k, corrections, change);
}

}  // namespace

Redundancy redundancy_of(const AdjObjectList& unknowns, std::int32_t observations) {
  Redundancy counts{observations, unknowns.num_unknowns(),
                    unknowns.count_state(ParamState::observed),
                    unknowns.count_state(ParamState::eliminated), unknowns.num_constraints()};
  if (point_share() == nullptr) return counts;
  const AdjObjectList::Counts own = unknowns.count_group<ObjectPoint>();
  const AdjObjectList::Counts all = in_total(own);
  counts.observations = in_total(observations);
  counts.unknowns += all.total - own.total;
  counts.observed += all.observed - own.observed;
  counts.eliminated += all.eliminated - own.eliminated;
  return counts;
}

void find_changes(const AdjObjectList& unknowns, const Vector& corrections,
                  IterationStatistics& statistics) {
  unknowns.for_each<ObjectPoint>(
      [&](const ObjectPoint& point) { add_all(point, corrections, statistics.points); });
  statistics.points.sum = in_total(statistics.points.sum);
  statistics.points.count = in_total(statistics.points.count);
  unknowns.for_each<ExtOrientation>([&](const ExtOrientation& orientation) {
    for (std::int32_t k = 0; k < orientation.num_values(); ++k) {
      add(orientation, k, corrections,
          k < kNumCentreParams ? statistics.centres : statistics.rotations);
    }
  });
  // Orientations are geometries too: their parameters count a second time.
  unknowns.for_each<ImageGeometry>([&](const ImageGeometry& geometry) {
    add_all(geometry, corrections, statistics.geometries);
  });
}

void find_open_parameter(const AdjObjectList& unknowns, const Vector& corrections,
                         IterationStatistics& statistics) {
  for (std::int32_t i = 0; i < unknowns.num_objects(); ++i) {
    const std::int32_t open = unknowns[i].check_convergence(corrections);
    if (open == -1) continue;
    statistics.open_object = &unknowns[i];
    statistics.open_param = open;
    return;
  }
}

}  // namespace vorn
