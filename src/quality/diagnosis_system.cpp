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
  const std::int32_t n = project.unknowns.num_unknowns();
  for (Vector* v : {&image_diagonal_, &own_weights_, &diagonal_, &condition_cofactors_}) {
    v->resize(n);
    v->zero();
  }
  add_images(project, visit);
  for (std::int32_t u = 0; u < n; ++u) image_diagonal_[u] = normal_.at(u, u);
  add_own_weights(project);
  for (std::int32_t u = 0; u < n; ++u) diagonal_[u] = image_diagonal_[u] + own_weights_[u];
  add_conditions(project);
  set_roles(project);
}

void DiagnosedSystem::add_images(BundleProject& project,
                                 const std::function<void(const LinearisedPoint&)>& visit) {
  normal_.zero();
  Vector rhs(size());
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
        degenerate_.push_back(object_point);
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

void DiagnosedSystem::add_own_weights(const BundleProject& project) {
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    const AdjObject& object = project.unknowns[i];
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      if (object.param(k).state != ParamState::observed) continue;
      own_weights_[object.index + k] = object.param(k).weight;
      normal_.add(object.index + k, object.index + k, object.param(k).weight);
    }
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
      weight = std::max(weight, diagonal_[geometry.index + k]);
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

void DiagnosedSystem::set_roles(const BundleProject& project) {
  roles_.assign(static_cast<std::size_t>(size()), UnknownRole::active);
  for (std::int32_t i = 0; i < project.unknowns.num_objects(); ++i) {
    const AdjObject& object = project.unknowns[i];
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      const std::int32_t u = object.index + k;
      UnknownRole& role = roles_[static_cast<std::size_t>(u)];
      if (object.param(k).state == ParamState::eliminated) role = UnknownRole::fixed;
      // Negated, so that what is not a number counts as nothing.
      if (role == UnknownRole::active && !(diagonal_[u] > 0.0)) role = UnknownRole::unobserved;
      if (role != UnknownRole::active) hold(u);
    }
  }
}

void DiagnosedSystem::hold(std::int32_t u) {
  normal_.add(u, u, kHold * (diagonal_[u] > 0.0 ? diagonal_[u] : 1.0));
}

void DiagnosedSystem::pin(std::int32_t u) {
  if (!is_active(u)) return;
  roles_[static_cast<std::size_t>(u)] = UnknownRole::pinned;
  hold(u);
}

void DiagnosedSystem::regularise(double fraction) {
  for (std::int32_t u = 0; u < size(); ++u) {
    if (is_active(u)) normal_.add(u, u, (fraction - regularised_) * diagonal_[u]);
  }
  regularised_ = fraction;
}

}  // namespace vorn
