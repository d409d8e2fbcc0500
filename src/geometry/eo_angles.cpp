#include "geometry/eo_angles.h"

#include "base/units.h"
#include "geometry/rotations.h"
#include "lsq/ls_params.h"
#include "text/records.h"

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

// ---- conventions -------------------------------------------------------------------------------

const AngleConvention kAnglesPOKRot = {"ext-ori-pok-rot",           "EO (phi-omega-kappa, rotated)",
                                       {"phi", "omega", "kappa"},   pok_rot::matrix_from_params,
                                       pok_rot::params_from_matrix, pok_rot::image_axes};
const AngleConvention kAnglesOPKRot = {"ext-ori-opk-rot",           "EO (omega-phi-kappa, rotated)",
                                       {"omega", "phi", "kappa"},   opk_rot::matrix_from_params,
                                       opk_rot::params_from_matrix, opk_rot::image_axes};
const AngleConvention kAnglesOPKFix = {"ext-ori-opk-fix",           "EO (omega-phi-kappa, fixed)",
                                       {"omega", "phi", "kappa"},   opk_fix::matrix_from_params,
                                       opk_fix::params_from_matrix, opk_fix::image_axes};
const AngleConvention kAnglesAustralis = {
    "ext-ori-australis",           "EO (Australis)",
    {"az", "elev", "roll"},        australis::matrix_from_params,
    australis::params_from_matrix, australis::image_axes};

std::string EOAngles::get_param_name(std::int32_t i) const {
  return param_name(i, convention_.names);
}

ExtOrientation::RotationParams EOAngles::params_from_matrix(const Mat3& r) const {
  return params_of(convention_.params_from_matrix(r));
}

Mat3 EOAngles::matrix_from_params(const RotationParams& params) const {
  return convention_.matrix_from_params(angles_of(params));
}

void EOAngles::update() {
  ExtOrientation3::update();
  set_axes(convention_.image_axes(angles_of(rotation_params())));
}

// ---- files and listings ------------------------------------------------------------------------

int EOAngles::read(TokenReader& in) {
  if (!in.need_name(id, "the station")) return reading_failed("ERROR: Reading ID failed.\n");
  in.begin_object("image-geometry", this);
  std::string_view abbreviation;
  if (!in.need_word(abbreviation, "the angle unit")) {
    return reading_failed("ERROR: Reading unit of rotation angles failed.\n");
  }
  UnitAngle unit;
  if (!unit.set(abbreviation)) {
    report_unknown_word(in, abbreviation, "angle unit", angle_unit_names());
    return reading_failed("ERROR: Unknown unit of rotation angles:", abbreviation, '\n');
  }
  if (read_exposure_and_centre(in) != 1) return -1;
  if (!read_rotation(in)) return reading_failed("ERROR: Reading rotation parameters failed.\n");
  for (std::int32_t k = 3; k < 6; ++k) value(k) /= unit.factor;
  if (!read_rotation_std_devs(in)) {
    return reading_failed("ERROR: Reading std. dev. of rotation angles failed.\n");
  }
  for (std::int32_t k = 3; k < 6; ++k) {
    if (ls_params().is_observed(std_dev(k))) std_dev(k) /= unit.factor;
  }
  return 1;
}

void EOAngles::write(TextWriter& out) const {
  const UnitAngle& unit = ls_params().unit_angles;
  out << get_keyword() << ' ' << id << ' ' << unit.abbreviation() << ' ' << kTime(exposure_time)
      << '\n';
  write_values(out, unit.factor);
}

void EOAngles::print(TextWriter& out) const {
  print_in(out, {ls_params().unit_object.factor, ls_params().unit_angles.factor, kAngleDecimals});
}

void EOAngles::print_changes(TextWriter& out, const Vector& corrections) const {
  print_changes_in(
      out, corrections,
      {ls_params().unit_object.factor, ls_params().unit_angles.factor, kAngleDecimals});
}

void EOAngles::print_results(TextWriter& out) const {
  print_results_in(
      out, {ls_params().unit_object.factor, ls_params().unit_angles.factor, kAngleDecimals});
}

}  // namespace vorn
