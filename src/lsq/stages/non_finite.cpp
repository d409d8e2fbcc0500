// Finds where a run leaves the finite numbers.

#include <algorithm>
#include <cmath>
#include <span>

#include "driver/bundle_project.h"
#include "lsq/stages/iteration_observer.h"
#include "lsq/stages/observation_equations.h"

namespace vorn {
namespace {

// Whether the squares that the equation adds to the normal equations are finite.
bool is_finite(const PointEquation& equation) {
  const double weight = std::max(std::fabs(equation.weights.xx), std::fabs(equation.weights.yy));
  const auto all_finite = [weight](std::span<const double> values) {
    return std::all_of(values.begin(), values.end(),
                       [weight](double value) { return std::isfinite(value * value * weight); });
  };
  return all_finite(equation.point) && all_finite(equation.rows) && all_finite(equation.misclosure);
}

}  // namespace

NonFiniteValue find_non_finite(const BundleProject& project, std::int32_t iteration) {
  PointEquation equation;
  for (const BundleImage& image : project.images) {
    ObservationEquations equations(image);
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object_point = object_point_of(point, project.object_points);
      if (object_point == nullptr) continue;
      const auto outcome =
          equations.linearise(observation_of(point, *image.camera), object_point->xyz, equation);
      if (outcome != ObservationEquations::Outcome::formed || !is_finite(equation)) {
        return {iteration, image.id, point.id};
      }
    }
  }
  return {iteration, {}, {}};
}

}  // namespace vorn
