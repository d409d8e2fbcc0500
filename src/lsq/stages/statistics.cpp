#include "lsq/stages/statistics.h"

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstddef>
#include <vector>

#include "base/workers.h"
#include "geometry/ext_orientation.h"
#include "sensors/object_point.h"
#include "sensors/point_share.h"

namespace vorn {
namespace {

constexpr std::size_t kObjectsPerRange = 1024;

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

// As add_all for all object points, without a look at them: their unknowns stand together.
void add_all_points(const AdjObjectList& unknowns, const Vector& corrections, GroupChange& change) {
  const std::vector<std::int32_t>& eliminated = unknowns.eliminated();
  auto held = eliminated.begin();
  std::int32_t largest = -1;
  unknowns.for_each_run<ObjectPoint>([&](const AdjObjectList::Run& run) {
    const AdjObject& last = unknowns[run.end - 1];
    const std::int32_t end = last.index + static_cast<std::int32_t>(last.num_params());
    for (std::int32_t u = unknowns[run.begin].index; u < end; ++u) {
      while (held != eliminated.end() && *held < u) ++held;
      if (held != eliminated.end() && *held == u) continue;
      const double size = std::fabs(corrections[u]);
      change.sum += size;
      ++change.count;
      if (!(size > change.max)) continue;
      change.max = size;
      largest = u;
    }
  });
  if (largest < 0) return;
  change.object = &unknowns.object_of(largest);
  change.param = largest - change.object->index;
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
  add_all_points(unknowns, corrections, statistics.points);
  statistics.points.sum = in_total(statistics.points.sum);
  statistics.points.count = in_total(statistics.points.count);
  unknowns.for_each<ExtOrientation>([&](const ExtOrientation& orientation) {
    for (std::int32_t k = 0; k < orientation.num_values(); ++k) {
      add(orientation, k, corrections,
          k < ExtOrientation::kNumCentreParams ? statistics.centres : statistics.rotations);
    }
  });
  // Orientations are geometries too: their parameters count a second time.
  unknowns.for_each<ImageGeometry>([&](const ImageGeometry& geometry) {
    add_all(geometry, corrections, statistics.geometries);
  });
}

void find_open_parameter(const AdjObjectList& unknowns, const Vector& corrections,
                         IterationStatistics& statistics) {
  const auto count = static_cast<std::size_t>(unknowns.num_objects());
  std::atomic<std::size_t> first = count;  // object found so far
  for_each_range(count, kObjectsPerRange, [&](std::size_t begin, std::size_t end, std::size_t) {
    for (std::size_t i = begin; i < std::min(end, first.load()); ++i) {
      if (unknowns[static_cast<std::int32_t>(i)].check_convergence(corrections) == -1) continue;
      std::size_t found = first;
      while (i < found && !first.compare_exchange_weak(found, i)) {
      }
      return;
    }
  });
  if (first == count) return;
  statistics.open_object = &unknowns[static_cast<std::int32_t>(first)];
  statistics.open_param = statistics.open_object->check_convergence(corrections);
}

}  // namespace vorn
