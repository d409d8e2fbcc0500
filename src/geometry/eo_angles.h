#pragma once

#include <string>
#include <string_view>

#include "geometry/ext_orientation.h"

namespace vorn {

// Exterior orientations by three angles [rad]. One reader, writer and set of listings serves all of
// them: files carry an angle unit with each record, output is in the unit of the least-squares
// parameters. Each type defines its matrix (geometry/rotations.h) and its rotation axes.

// Phi, omega, kappa about rotated axes; base of the other three.
class EOAnglesPOKRot : public ExtOrientation3 {
 public:
  std::string_view get_type_name() const override { return "EO (phi-omega-kappa, rotated)"; }
  std::string_view get_keyword() const override { return "ext-ori-pok-rot"; }
  std::string get_param_name(std::int32_t i) const override;
  void print_changes(TextWriter& out, const Vector& corrections) const override;
  void print_results(TextWriter& out) const override;

  int read(TokenReader& in) override;
  void write(TextWriter& out) const override;
  void print(TextWriter& out) const override;
  void update() override;

  RotationParams params_from_matrix(const Mat3& r) const override;
  Mat3 matrix_from_params(const RotationParams& params) const override;
  void get_rot_param_derivs(Matrix& a) const override;

 protected:
  // The angles, attitude correction included, and the image-space axes that belong to them.
  Vec3 angles() const { return {rotation_params()[0], rotation_params()[1], rotation_params()[2]}; }
  void set_image_axes(const Mat3& axes) { image_axes_ = axes; }
  void get_packed_rot_param_derivs(const PointState<Pack>& point,
                                   const RowPair<Pack>& a) const override;

 private:
  template <class T>
  void fill_columns(const PointState<T>& point, const RowPair<T>& a) const;

  Mat3 image_axes_{};
};

// Omega, phi, kappa about rotated axes.
class EOAnglesOPKRot : public EOAnglesPOKRot {
 public:
  std::string_view get_type_name() const override { return "EO (omega-phi-kappa, rotated)"; }
  std::string_view get_keyword() const override { return "ext-ori-opk-rot"; }
  std::string get_param_name(std::int32_t i) const override;
  void update() override;
  RotationParams params_from_matrix(const Mat3& r) const override;
  Mat3 matrix_from_params(const RotationParams& params) const override;
};

// Omega, phi, kappa about fixed axes, clockwise.
class EOAnglesOPKFix : public EOAnglesPOKRot {
 public:
  std::string_view get_type_name() const override { return "EO (omega-phi-kappa, fixed)"; }
  std::string_view get_keyword() const override { return "ext-ori-opk-fix"; }
  std::string get_param_name(std::int32_t i) const override;
  void update() override;
  RotationParams params_from_matrix(const Mat3& r) const override;
  Mat3 matrix_from_params(const RotationParams& params) const override;
};

// Azimuth, elevation, roll.
class EOAustralis : public EOAnglesPOKRot {
 public:
  std::string_view get_type_name() const override { return "EO (Australis)"; }
  std::string_view get_keyword() const override { return "ext-ori-australis"; }
  std::string get_param_name(std::int32_t i) const override;
  void update() override;
  RotationParams params_from_matrix(const Mat3& r) const override;
  Mat3 matrix_from_params(const RotationParams& params) const override;
};

}  // namespace vorn
