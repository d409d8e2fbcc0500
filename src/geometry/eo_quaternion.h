#pragma once

#include <string>
#include <string_view>

#include "geometry/ext_orientation.h"

namespace vorn {

// Exterior orientation by a quaternion q0 (scalar), q1, q2, q3. Nothing normalises it: the
// condition q'q = 1 pulls it towards unit length during the adjustment.
class EOQuaternion : public ExtOrientation {
 public:
  EOQuaternion() : ExtOrientation(4) {}

  std::int32_t get_num_constraints() const override { return 1; }
  void add_constraints(NormalMatrix& normal, Vector& rhs, double& lPl) const override;
  std::string_view get_type_name() const override { return "EO (quaternion)"; }
  std::string_view get_keyword() const override { return "ext-ori-quaternion"; }
  std::string get_param_name(std::int32_t i) const override;

  // 1 - q'q.
  double unit_length_misclosure() const;
  // Gives q unit length, unless a component of it is eliminated.
  void normalise();

  void update() override;
  RotationParams params_from_matrix(const Mat3& r) const override;
  Mat3 matrix_from_params(const RotationParams& params) const override;
};

}  // namespace vorn
