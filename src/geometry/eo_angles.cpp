#include "geometry/eo_angles.h"

#include "geometry/rotations.h"
#include "geometry/units.h"
#include "lsq/ls_params.h"

namespace vorn {
namespace {

constexpr NumberFormat kTime = fixed(4, 15);
constexpr int kAngleDecimals = 5;

Vec3 angles_of(const ExtOrientation::RotationParams& params) {
  return {params[0], params[1], params[2]};
}

ExtOrientation::RotationParams params_of(const Vec3& angles) {
  return {angles[0], angles[1], angles[2], 0};
}

}  // namespace

// ---- files and listings, shared by all angle types ---------------------------------------------

int EOAnglesPOKRot::read(TokenReader& in) {
  if (!in.read_word(id)) return fail("ERROR: Reading ID failed.\n");
  std::string_view abbreviation;
  if (!in.read_word(abbreviation)) {
    return fail("ERROR: Reading unit of rotation angles failed.\n");
  }
  UnitAngle unit;
  if (!unit.set(abbreviation)) {
    standard_output() << "ERROR: Unknown unit of rotation angles:" << abbreviation << '\n';
    return -1;
  }
  if (read_exposure_and_centre(in) != 1) return -1;
  if (!read_rotation(in)) return fail("ERROR: Reading rotation parameters failed.\n");
  for (std::int32_t k = 3; k < 6; ++k) value(k) /= unit.factor;
  if (!read_rotation_std_devs(in)) {
    return fail("ERROR: Reading std. dev. of rotation angles failed.\n");
  }
  for (std::int32_t k = 3; k < 6; ++k) {
    if (ls_params().is_observed(std_dev(k))) std_dev(k) /= unit.factor;
  }
  return 1;
}

void EOAnglesPOKRot::write(TextWriter& out) const {
  const UnitAngle& unit = ls_params().unit_angles;
  out << get_keyword() << ' ' << id << ' ' << unit.abbreviation() << ' ' << kTime(exposure_time)
      << '\n';
  write_values(out, unit.factor);
}

void EOAnglesPOKRot::print(TextWriter& out) const {
  print_in(out, {ls_params().unit_object.factor, ls_params().unit_angles.factor, kAngleDecimals});
}

void EOAnglesPOKRot::print_changes(TextWriter& out, const Vector& corrections) const {
  print_changes_in(
      out, corrections,
      {ls_params().unit_object.factor, ls_params().unit_angles.factor, kAngleDecimals});
}

void EOAnglesPOKRot::print_results(TextWriter& out) const {
  print_results_in(
      out, {ls_params().unit_object.factor, ls_params().unit_angles.factor, kAngleDecimals});
}

// dU/dp = U x b, b the axis of angle p in image space.
template <class T>
void EOAnglesPOKRot::fill_columns(const PointState<T>& point, const RowPair<T>& a) const {
  for (std::int32_t k = 0; k < 3; ++k) {
    point.set_column(a, k, cross(point.u, image_axes_[static_cast<std::size_t>(k)]));
  }
}

void EOAnglesPOKRot::get_rot_param_derivs(Matrix& a) const {
  fill_columns<double>(point(), {a[0] + 3, a[1] + 3});
}

void EOAnglesPOKRot::get_packed_rot_param_derivs(const PointState<Pack>& point,
                                                 const RowPair<Pack>& a) const {
  fill_columns(point, a);
}

// ---- the parametrisations ----------------------------------------------------------------------

std::string EOAnglesPOKRot::get_param_name(std::int32_t i) const {
  return param_name(i, {"phi", "omega", "kappa"});
}

void EOAnglesPOKRot::update() {
  ExtOrientation3::update();
  set_image_axes(pok_rot::image_axes(angles()));
}

ExtOrientation::RotationParams EOAnglesPOKRot::params_from_matrix(const Mat3& r) const {
  return params_of(pok_rot::params_from_matrix(r));
}

Mat3 EOAnglesPOKRot::matrix_from_params(const RotationParams& params) const {
  return pok_rot::matrix_from_params(angles_of(params));
}

std::string EOAnglesOPKRot::get_param_name(std::int32_t i) const {
  return param_name(i, {"omega", "phi", "kappa"});
}

void EOAnglesOPKRot::update() {
  ExtOrientation3::update();
  set_image_axes(opk_rot::image_axes(angles()));
}

ExtOrientation::RotationParams EOAnglesOPKRot::params_from_matrix(const Mat3& r) const {
  return params_of(opk_rot::params_from_matrix(r));
}

Mat3 EOAnglesOPKRot::matrix_from_params(const RotationParams& params) const {
  return opk_rot::matrix_from_params(angles_of(params));
}

std::string EOAnglesOPKFix::get_param_name(std::int32_t i) const {
  return param_name(i, {"omega", "phi", "kappa"});
}

void EOAnglesOPKFix::update() {
  ExtOrientation3::update();
  set_image_axes(opk_fix::image_axes(angles()));
}

ExtOrientation::RotationParams EOAnglesOPKFix::params_from_matrix(const Mat3& r) const {
  return params_of(opk_fix::params_from_matrix(r));
}

Mat3 EOAnglesOPKFix::matrix_from_params(const RotationParams& params) const {
  return opk_fix::matrix_from_params(angles_of(params));
}

std::string EOAustralis::get_param_name(std::int32_t i) const {
  return param_name(i, {"az", "elev", "roll"});
}

void EOAustralis::update() {
  ExtOrientation3::update();
  set_image_axes(australis::image_axes(angles()));
}

ExtOrientation::RotationParams EOAustralis::params_from_matrix(const Mat3& r) const {
  return params_of(australis::params_from_matrix(r));
}

Mat3 EOAustralis::matrix_from_params(const RotationParams& params) const {
  return australis::matrix_from_params(angles_of(params));
}

}  // namespace vorn
