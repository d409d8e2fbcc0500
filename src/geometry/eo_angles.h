#pragma once

#include <array>
#include <string>
#include <string_view>

#include "geometry/ext_orientation.h"

namespace vorn {

// What distinguishes one convention of three angles from another.
struct AngleConvention {
  std::string_view keyword;
  std::string_view type_name;
  std::array<std::string_view, 3> names;  // of the angles, in the order of the parameters
  // Rotation matrix of angles [rad], angles of a matrix, and the axes of the angles in image space
  // (geometry/rotations.h).
  Mat3 (*matrix_from_params)(const Vec3& angles);
  Vec3 (*params_from_matrix)(const Mat3& r);
  Mat3 (*image_axes)(const Vec3& angles);
};

// Phi, omega, kappa about rotated axes; omega, phi, kappa about rotated axes; the same about fixed
// axes, clockwise; azimuth, elevation, roll.
extern const AngleConvention kAnglesPOKRot;
extern const AngleConvention kAnglesOPKRot;
extern const AngleConvention kAnglesOPKFix;
extern const AngleConvention kAnglesAustralis;

// Exterior orientation by three angles [rad]. One reader, writer and set of listings serves all
// conventions: files carry an angle unit with each record, output is in the unit of the
// least-squares parameters.
class EOAngles : public ExtOrientation3 {
 public:
  explicit EOAngles(const AngleConvention& convention) : convention_(convention) {}

  std::string_view get_type_name() const override { return convention_.type_name; }
  std::string_view get_keyword() const override { return convention_.keyword; }
  std::string get_param_name(std::int32_t i) const override;
  void print_changes(TextWriter& out, const Vector& corrections) const override;
  void print_results(TextWriter& out) const override;

  int read(TokenReader& in) override;
  void write(TextWriter& out) const override;
  void print(TextWriter& out) const override;
  void update() override;

  RotationParams params_from_matrix(const Mat3& r) const override;
  Mat3 matrix_from_params(const RotationParams& params) const override;

 private:
  const AngleConvention& convention_;
};

}  // namespace vorn
