#include "lsq/stages/weighted_squares.h"

#include <limits>

#include "driver/bundle_project.h"
#include "geometry/eo_quaternion.h"
#include "lsq/ls_params.h"
#include "lsq/stages/observation_equations.h"

namespace vorn {
namespace {

double parameter_squares(const AdjObjectList& unknowns) {
  double sum = 0.0;
  for (std::int32_t i = 0; i < unknowns.num_objects(); ++i) {
    const AdjObject& object = unknowns[i];
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      const ParamRecord& param = object.param(k);
      // An eliminated parameter never leaves its initial value.
      if (param.state != ParamState::observed) continue;
      const double d = param.initial - *param.value;
      sum += param.weight * d * d;
    }
  }
  return sum;
}

double condition_squares(const OwnedList<ImageGeometry>& geometries) {
  double sum = 0.0;
  for (const ImageGeometry& geometry : geometries) {
    const auto* const orientation = dynamic_cast<const EOQuaternion*>(&geometry);
    if (orientation == nullptr) continue;
    const double misclosure = orientation->unit_length_misclosure();
    sum += ls_params().weight_constraints * misclosure * misclosure;
  }
  return sum;
}

}  // namespace

bool is_in_front(const BundleImage& image, const Vec3& object_point) {
  const auto* const orientation = dynamic_cast<const ExtOrientation*>(image.geometry);
  return orientation == nullptr || orientation->is_in_front(-image.camera->c, object_point);
}

double weighted_square(const BundleImage& image, const ImagePoint& point,
                       const Vec3& object_point) {
  const Observation observation = observation_of(point, *image.camera);
  const Pair l = misclosure_of(observation.xy, image.object_to_image(object_point));
  return l[0] * l[0] / observation.cofactors[0] + l[1] * l[1] / observation.cofactors[1];
}

void find_weighted_squares(const BundleProject& project, const Loss& loss,
                           WeightedSquares& squares) {
  const double variance = ls_params().sigma0_apriori * ls_params().sigma0_apriori;
  squares.in_front.clear();
  squares.sum = parameter_squares(project.unknowns) + condition_squares(project.image_geometries);
  for (const BundleImage& image : project.images) {
    double sum = 0.0;
    const auto* const orientation = dynamic_cast<const ExtOrientation*>(image.geometry);
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object_point = object_point_of(point, project.object_points);
      if (object_point == nullptr) continue;
      squares.in_front.push_back(orientation == nullptr ||
                                 orientation->is_in_front(-image.camera->c, object_point->xyz));
      if (orientation != nullptr && orientation->is_singular_at(object_point->xyz)) {
        squares.sum = std::numeric_limits<double>::infinity();
        continue;
      }
      const double square = weighted_square(image, point, object_point->xyz);
      // The loss stands in for the weights that follow from it.
      sum += loss.kind() == RobustLoss::none
                 ? square
                 : loss(square / (point.weight_factor * variance)) * variance;
    }
    squares.sum += sum;
  }
}

}  // namespace vorn
