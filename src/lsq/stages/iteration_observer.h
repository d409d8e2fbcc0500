#pragma once

#include <cstdint>
#include <functional>
#include <string>

#include "lsq/stages/statistics.h"

namespace vorn {

class BundleProject;

// What an observer wants to happen next.
enum class ObserverAnswer {
  go_on,
  finish,  // with the results that there are
  stop,    // the run fails
};

// Is shown each iteration when its corrections have been applied. Where somebody watches, the
// console does not name the parameter that moves: that is up to the observer.
using IterationObserver = std::function<ObserverAnswer(const IterationStatistics&)>;

// Where a run came upon the first number that is not finite.
struct NonFiniteValue {
  std::int32_t iteration = 0;  // 0: all were finite
  // The image point whose equation holds it; empty when no equation does: it came from the
  // solution.
  std::string image;
  std::string point;
};

// Looks for the first image point, in the order of the images, whose equation at the current values
// has or gives a number that is not finite.
NonFiniteValue find_non_finite(const BundleProject& project, std::int32_t iteration);

}  // namespace vorn
