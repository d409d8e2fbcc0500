#pragma once

#include <cstdint>
#include <vector>

#include "lsq/adj_object_list.h"

namespace vorn {

// Where the redundancy comes from.
struct Redundancy {
  std::int32_t observations = 0;
  std::int32_t unknowns = 0;
  std::int32_t observed = 0;    // unknowns that carry an a-priori observation
  std::int32_t eliminated = 0;  // unknowns that are held
  std::int32_t constraints = 0;

  std::int32_t value() const {
    return constraints - unknowns + eliminated + observed + observations;
  }
};
Redundancy redundancy_of(const AdjObjectList& unknowns, std::int32_t observations);

// Absolute corrections of a group of parameters, eliminated ones left out.
struct GroupChange {
  double sum = 0.0;
  std::int32_t count = 0;
  // The largest one, and whose it is; null when none is greater than 0.
  double max = 0.0;
  const AdjObject* object = nullptr;
  std::int32_t param = -1;

  // -1 when none was counted.
  double mean() const { return count > 0 ? sum / count : -1.0; }
};

// One attempt at a damped step.
struct DampedStep {
  double damping = 0.0;   // in units of the diagonal of N
  double cost = 0.0;      // weighted sum of squares that it leads to [m^2]; not finite: a failure
  double ratio = 0.0;     // of its decrease to the predicted one
  std::int32_t held = 0;  // object points held at their places
  bool accepted = false;
};

// Why the iterations ended.
enum class IterationEnding {
  limits,  // all corrections within their limits
  cost,    // the weighted sum of squares falls no more, though a correction is above its limit
  max_iterations,  // neither
};

// What an iteration came to.
struct IterationStatistics {
  std::int32_t number = 0;  // counted from 1
  Redundancy counts;
  double vtpv = 0.0;    // of the solution, as the linearised equations predict it
  double sigma0 = 0.0;  // a posteriori [m]; 0 without redundancy

  GroupChange points;      // object point coordinates
  GroupChange centres;     // perspective centres of exterior orientations
  GroupChange rotations;   // their rotation parameters
  GroupChange geometries;  // all parameters of image geometries

  // The first parameter beyond its limit; null when the iteration has converged.
  const AdjObject* open_object = nullptr;
  std::int32_t open_param = -1;

  // Damped iterations only: the weighted sum of squares before them [m^2], and the attempts; the
  // last one was accepted unless the iterations end there.
  double cost = 0.0;
  std::vector<DampedStep> steps;

  double cpu_seconds = 0.0;
  double solution_cpu_seconds = 0.0;
};

// Fills in the first parameter whose correction is beyond its limit.
void find_open_parameter(const AdjObjectList& unknowns, const Vector& corrections,
                         IterationStatistics& statistics);
// Fills in how much the groups of parameters change.
void find_changes(const AdjObjectList& unknowns, const Vector& corrections,
                  IterationStatistics& statistics);

}  // namespace vorn
