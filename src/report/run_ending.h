#pragma once

#include <string>
#include <vector>

#include "lsq/stages/iteration_observer.h"
#include "report/data_checks.h"

namespace vorn {

class BundleProject;

// A parameter by the words that a user knows it by.
struct NamedParameter {
  std::string kind;  // "EO", "point", "AP set", ...
  std::string id;
  std::string name;  // "Xo", ...
};
// The parameter beyond its limit after an iteration that has not converged.
NamedParameter open_parameter(const IterationStatistics& statistics);

// One of the residuals that stand out.
struct LargeResidual {
  std::string image;
  std::string point;
  double length_m = 0.0;   // |v| in the image
  double in_sigmas = 0.0;  // the larger of |vx| and |vy| in its a-priori standard deviations
};

// An object of the adjustment that too few measurements are left for.
struct LostObject {
  std::string kind;  // as in NamedParameter
  std::string id;
  std::string keyword;  // of the data file that its record stands in
};

// What a person should know about how a run ended. All texts are copies: it outlives the project.
struct RunEnding {
  bool converged = false;
  NamedParameter open;  // when it has not converged
  std::vector<Removal> removals;
  std::vector<LargeResidual> largest;  // the largest first
  std::vector<LostObject> lost;        // when the solution failed
  NonFiniteValue non_finite;
};

// Of an adjustment that was completed. Looks at all residuals and parameters.
RunEnding ending_of_completed(const BundleProject& project);
// Of a run that failed at any stage.
RunEnding ending_of_failed(BundleProject& project);

}  // namespace vorn
