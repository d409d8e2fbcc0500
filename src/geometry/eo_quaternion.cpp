#include "geometry/eo_quaternion.h"

#include <cmath>
#include <cstddef>

#include "geometry/rotations.h"
#include "lsq/ls_params.h"
#include "lsq/normal/observation_group.h"

namespace vorn {

std::string EOQuaternion::get_param_name(std::int32_t i) const {
  static constexpr std::array<std::string_view, 4> kNames = {"q0", "q1", "q2", "q3"};
  return param_name(i, kNames);
}

void EOQuaternion::update() {
  ExtOrientation::update();
  set_matrix_derivs(quaternion::matrix_derivs(rotation_params()));
}

ExtOrientation::RotationParams EOQuaternion::params_from_matrix(const Mat3& r) const {
  return quaternion::params_from_matrix(r);
}

Mat3 EOQuaternion::matrix_from_params(const RotationParams& params) const {
  return quaternion::matrix_from_params(params);
}

double EOQuaternion::unit_length_misclosure() const {
  double misclosure = 1.0;
  for (std::int32_t k = 3; k < num_values(); ++k) misclosure -= value(k) * value(k);
  return misclosure;
}

void EOQuaternion::normalise() {
  for (std::int32_t k = 3; k < num_values(); ++k) {
    if (param(k).state == ParamState::eliminated) return;
  }
  const double length = std::sqrt(1.0 - unit_length_misclosure());
  if (!(length > 0.0)) return;
  for (std::int32_t k = 3; k < num_values(); ++k) value(k) /= length;
}

// q'q = 1, linearised: 2 q'dq = 1 - q'q.
void EOQuaternion::add_constraints(NormalMatrix& normal, Vector& rhs, double& lPl) const {
  const RotationParams q = stored_rotation_params();
  DesignBlock block;
  block.index = index;
  block.a.resize(1, num_values());
  block.a.zero();
  Vector misclosure(1);
  misclosure[0] = 1;
  for (std::int32_t k = 0; k < 4; ++k) {
    const double q_k = q[static_cast<std::size_t>(k)];
    block.a[0][3 + k] = 2 * q_k;
    misclosure[0] -= q_k * q_k;
  }
  Vector weight(1);
  weight[0] = ls_params().weight_constraints;
  add_weighted_observations({&block}, weight, misclosure, normal, rhs, lPl);
}

}  // namespace vorn
