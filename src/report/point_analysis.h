#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <vector>

#include "base/owned_list.h"
#include "sensors/object_point.h"

namespace vorn {

// Statistics of the differences of one coordinate [m].
struct DifferenceStatistics {
  std::int32_t count = 0;
  double sum = 0;
  double sum_of_squares = 0;
  double max = 0;  // of the absolute values

  void add(double difference);
  // 0 without differences.
  double mean() const;
  double rms() const;
};

// One point: which of its coordinates are compared, and their differences [m].
struct PointDifference {
  const ObjectPoint* point = nullptr;
  std::array<bool, 3> compared{};
  std::array<double, 3> difference{};
};

struct PointDifferences {
  std::vector<PointDifference> points;             // in list order
  std::array<DifferenceStatistics, 3> statistics;  // X, Y, Z
};

// Check points: a priori minus adjusted, of the components that are checked.
PointDifferences compute_check_differences(const OwnedList<ObjectPoint>& points);
// Control points: adjusted minus a priori, the opposite sign on purpose: a residual is a
// correction. Of the components that are observed, neither fixed nor free.
PointDifferences compute_control_residuals(const OwnedList<ObjectPoint>& points);

}  // namespace vorn
