#include "quality/diagnosis_system.h"

#include <algorithm>
#include <cmath>

#include "driver/bundle_project.h"
#include "geometry/eo_quaternion.h"
#include "lsq/stages/observation_equations.h"

namespace vorn {
namespace {

// What holds an unknown that is left out: so much that nothing else counts, and finite.
constexpr double kHold = 1e20;

bool is_finite(const PointEquation& equation) {
  const auto finite = [](double v) { return std::isfinite(v); };
  const PointWeights& weights = equation.weights;
  return finite(weights.xx) && finite(weights.yy) &&
         std::all_of(equation.point, equation.point + 6, finite) &&
         std::all_of(equation.rows.begin(), equation.rows.end(), finite);
}

}  // namespace

DiagnosedSystem::DiagnosedSystem(BundleProject& project,
                                 const std::function<void(const LinearisedPoint&)>& visit)
    : normal_(project.normal) {
  condition_cofactors_.resize(normal_.size());
  condition_cofactors_.zero();
  add_images(project, visit);
  weights_ = UnknownWeights(project, normal_);
  add_own_weights();
  add_conditions(project);
  hold_inactive();
}

void DiagnosedSystem::add_images(BundleProject& project,
                                 const std::function<void(const LinearisedPoint&)>& visit) {
  normal_.store_couplings();
  normal_.zero();
  Vector rhs(normal_.size());
  rhs.zero();
  double lPl = 0.0;
  PointEquation equation;
  for (const BundleImage& image : project.images) {
    ObservationEquations equations(image, Derivatives::exact);
    ImageNormals normals(normal_, blocks_of(image, normal_));
    std::vector<std::int32_t> starts(normals.blocks().size());
    for (const ImagePoint& point : image.points) {
      const ObjectPoint* const object_point = object_point_of(point, project.object_points);
      if (object_point == nullptr) continue;
      const Observation observation = observation_of(point, *image.camera);
      if (equations.is_singular_at(object_point->xyz) ||
          equations.linearise(observation, object_point->xyz, equation) !=
              ObservationEquations::Outcome::formed ||
          !is_finite(equation)) {
        continue;
      }
      const std::int32_t number = object_point->index / 3;
      for (std::size_t k = 0; k < starts.size(); ++k) {
        starts[k] = normal_.coupling_start(number, normals.blocks()[k]);
      }
      normals.add({normal_.point_rows(number), starts.data(), object_point->index}, equation, rhs);
      if (visit) visit({image, *object_point, equation});
    }
    normals.finish(rhs, lPl);
  }
}

void DiagnosedSystem::add_own_weights() {
  for (std::int32_t u = 0; u < size(); ++u) {
    if (weights_.own_weight(u) > 0.0) normal_.add(u, u, weights_.own_weight(u));
  }
}

// q'q = 1: 2 q'dq = 0, with the weight of the best determined element. Images do not feel a change
// along q, so that this weight w alone gives its cofactor, q q' / (w (q'q)^2).
void DiagnosedSystem::add_conditions(const BundleProject& project) {
  for (const ImageGeometry& geometry : project.image_geometries) {
    if (dynamic_cast<const EOQuaternion*>(&geometry) == nullptr) continue;
    double weight = 0.0;
    double squares = 0.0;
    for (std::int32_t k = 3; k < 7; ++k) {
      weight = std::max(weight, diagonal(geometry.index + k));
      squares += geometry.value(k) * geometry.value(k);
    }
    for (std::int32_t k = 3; k < 7; ++k) {
      if (weight > 0.0) {
        condition_cofactors_[geometry.index + k] =
            geometry.value(k) * geometry.value(k) / (weight * squares * squares);
      }
      for (std::int32_t l = k; l < 7; ++l) {
        normal_.add(geometry.index + k, geometry.index + l,
                    weight * geometry.value(k) * geometry.value(l));
      }
    }
  }
}

void DiagnosedSystem::hold_inactive() {
  for (std::int32_t u = 0; u < size(); ++u) {
    if (!is_active(u)) hold(u);
  }
}

void DiagnosedSystem::hold(std::int32_t u) {
  normal_.add(u, u, kHold * (diagonal(u) > 0.0 ? diagonal(u) : 1.0));
}

void DiagnosedSystem::pin(std::int32_t u) {
  if (!is_active(u)) return;
  weights_.pin(u);
  hold(u);
}

void DiagnosedSystem::regularise(double fraction) {
  for (std::int32_t u = 0; u < size(); ++u) {
    if (is_active(u)) normal_.add(u, u, (fraction - regularised_) * diagonal(u));
  }
  regularised_ = fraction;
}

}  // namespace vorn
