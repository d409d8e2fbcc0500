#include "geometry/ext_orientation.h"

#include <cmath>
#include <cstddef>

#include "calibration/corrections.h"
#include "lsq/ls_params.h"
#include "lsq/param_reading.h"
#include "lsq/project_number.h"
#include "text/records.h"

namespace vorn {
namespace {

constexpr NumberFormat kRecordFixed = fixed(4, 15);
constexpr NumberFormat kRecordScientific = scientific(6, 15);
constexpr NumberFormat kTime = fixed(4, 12);
constexpr NumberFormat kFreeOrFixed = scientific(1, 12);
constexpr NumberFormat kMatrixElement = fixed(7, 12);
constexpr int kCentreDecimals = 3;

// A listed standard deviation: in output units when observed, otherwise the value that says so.
FormattedNumber listed_std_dev(double sigma, double factor, NumberFormat number) {
  return ls_params().is_observed(sigma) ? number(sigma * factor) : kFreeOrFixed(sigma);
}

}  // namespace

ExtOrientation::ExtOrientation(std::uint32_t num_rotation_params)
    : ImageGeometry(std::uint32_t{kNumCentreParams} + num_rotation_params) {
  perspective_.num_rotation_params = static_cast<std::int32_t>(num_rotation_params);
}

std::string ExtOrientation::param_name(std::int32_t i,
                                       std::span<const std::string_view> rotation) const {
  constexpr std::array<std::string_view, 3> kCentre = {"Xo", "Yo", "Zo"};
  if (i < 0 || i >= num_values()) return ImageGeometry::get_param_name(i);
  return std::string(i < kNumCentreParams
                         ? kCentre[static_cast<std::size_t>(i)]
                         : rotation[static_cast<std::size_t>(i - kNumCentreParams)]);
}

// ---- files -------------------------------------------------------------------------------------

int ExtOrientation::read(TokenReader& in) {
  if (!in.need_name(id, "the station")) return reading_failed("ERROR: Reading ID failed.\n");
  in.begin_object("image-geometry", this);
  if (read_exposure_and_centre(in) != 1) return -1;
  if (!read_rotation(in)) return reading_failed("ERROR: Reading rotation parameters failed.\n");
  if (!read_rotation_std_devs(in)) {
    return reading_failed("ERROR: Reading std. dev. of rotation parameters failed.\n");
  }
  return 1;
}

int ExtOrientation::read_exposure_and_centre(TokenReader& in) {
  if (!in.read(exposure_time, kExposureTime)) {
    return reading_failed("ERROR: Cannot read exposure time.\n");
  }
  for (std::int32_t k = 0; k < kNumCentreParams; ++k) {
    if (!read_parameter(in, *this, k, value(k))) {
      return reading_failed("ERROR: Reading projection centre coords. failed.\n");
    }
  }
  for (std::int32_t k = 0; k < kNumCentreParams; ++k) {
    if (!read_std_dev(in, *this, k, std_dev(k))) {
      return reading_failed("ERROR: Reading std. dev. of proj. centre coords. failed.\n");
    }
  }
  return 1;
}

bool ExtOrientation::read_rotation(TokenReader& in) {
  for (std::int32_t k = kNumCentreParams; k < num_values(); ++k) {
    if (!read_parameter(in, *this, k, value(k))) return false;
  }
  return true;
}

bool ExtOrientation::read_rotation_std_devs(TokenReader& in) {
  for (std::int32_t k = kNumCentreParams; k < num_values(); ++k) {
    if (!read_std_dev(in, *this, k, std_dev(k))) return false;
  }
  return true;
}

void ExtOrientation::write(TextWriter& out) const {
  out << get_keyword() << ' ' << id << ' ' << kRecordFixed(exposure_time) << '\n';
  write_values(out, 1.0);
}

void ExtOrientation::write_values(TextWriter& out, double rotation_factor) const {
  const double factor = ls_params().unit_object.factor;
  for (std::int32_t k = 0; k < kNumCentreParams; ++k) out << ' ' << kRecordFixed(value(k) * factor);
  out << '\n';
  for (std::int32_t k = 0; k < kNumCentreParams; ++k) {
    const double sigma = std_dev(k);
    out << ' '
        << (ls_params().is_observed(sigma) ? kRecordFixed(sigma * factor)
                                           : kRecordScientific(sigma));
  }
  out << '\n';
  for (std::int32_t k = kNumCentreParams; k < num_values(); ++k) {
    out << ' ' << kRecordScientific(value(k) * rotation_factor);
  }
  out << '\n';
  for (std::int32_t k = kNumCentreParams; k < num_values(); ++k) {
    out << ' ' << kRecordScientific(std_dev(k));
  }
  out << '\n';
}

// ---- listings ----------------------------------------------------------------------------------

void ExtOrientation::print(TextWriter& out) const {
  print_in(out, {ls_params().unit_object.factor, 1.0, 6});
}

void ExtOrientation::print_changes(TextWriter& out, const Vector& corrections) const {
  print_changes_in(out, corrections, {1.0, 1.0, 6});
}

void ExtOrientation::print_results(TextWriter& out) const {
  print_results_in(out, {ls_params().unit_object.factor, 1.0, 6});
}

void ExtOrientation::print_in(TextWriter& out, const ListingStyle& style) const {
  out << "Station ID    :  " << id << '\n'
      << "Exposure time :  " << kTime(exposure_time) << '\n'
      << "Type          :  " << get_type_name() << "\n\n"
      << "  Param.     State         Value       Std.dev.\n\n";
  for (std::int32_t k = 0; k < num_values(); ++k) {
    const double factor = k < kNumCentreParams ? style.length_factor : style.rotation_factor;
    const NumberFormat number =
        fixed(k < kNumCentreParams ? kCentreDecimals : style.rotation_decimals, 12);
    out << "  " << left_aligned(get_param_name(k), 8) << "   "
        << left_aligned(state_name_of_sd(std_dev(k)), 4) << "   " << number(value(k) * factor)
        << "   " << listed_std_dev(std_dev(k), factor, number) << '\n';
  }
  out << '\n';
  print_matrix(out);
}

void ExtOrientation::print_changes_in(TextWriter& out, const Vector& corrections,
                                      const ListingStyle& style) const {
  out << "Station ID :  " << id << '\n'
      << "Type       :  " << get_type_name() << '\n'
      << "Index      :  " << project_number(index) << "\n\n"
      << "  Name       State       Approx.         Change       Adjusted\n\n";
  for (std::int32_t k = 0; k < num_values(); ++k) {
    const double factor = k < kNumCentreParams ? style.length_factor : style.rotation_factor;
    const NumberFormat number =
        fixed(k < kNumCentreParams ? kCentreDecimals : style.rotation_decimals, 12);
    const double change = correction_of(k, corrections);
    out << "  " << left_aligned(get_param_name(k), 8) << "   " << left_aligned(state_name(k), 4)
        << "   " << number(value(k) * factor) << "   " << number(change * factor) << "   "
        << number((value(k) + change) * factor) << '\n';
  }
  out << '\n';
}

void ExtOrientation::print_results_in(TextWriter& out, const ListingStyle& style) const {
  out << "Station ID :  " << id << '\n'
      << "Type       :  " << get_type_name() << '\n'
      << "Index      :  " << project_number(index) << "\n\n"
      << "  Param.    State      Initial      Adjusted        Change      Std.dev.\n\n";
  for (std::int32_t k = 0; k < num_values(); ++k) {
    const double factor = k < kNumCentreParams ? style.length_factor : style.rotation_factor;
    const NumberFormat number =
        fixed(k < kNumCentreParams ? kCentreDecimals : style.rotation_decimals, 12);
    const double initial = param(k).initial;
    out << "  " << left_aligned(get_param_name(k), 8) << "  " << left_aligned(state_name(k), 4)
        << "  " << number(initial * factor) << "  " << number(value(k) * factor) << "  "
        << number((value(k) - initial) * factor) << "  "
        << listed_std_dev(std_dev(k), factor, number) << '\n';
  }
  out << '\n';
  print_matrix(out);
}

void ExtOrientation::print_matrix(TextWriter& out) const {
  out << "Rotation matrix:\n";
  for (const Vec3& row : matrix_from_params(stored_rotation_params())) {
    out << ' ' << kMatrixElement(row[0]) << kMatrixElement(row[1]) << kMatrixElement(row[2])
        << '\n';
  }
}

// ---- adjustment --------------------------------------------------------------------------------

std::int32_t ExtOrientation::check_convergence(const Vector& corrections) const {
  const LSParams& settings = ls_params();
  for (std::int32_t k = 0; k < num_values(); ++k) {
    const bool check = k < kNumCentreParams ? settings.check_position : settings.check_rotation;
    const double limit = k < kNumCentreParams ? settings.limit_position : settings.limit_rotation;
    if (check && std::abs(correction_of(k, corrections)) > limit) return k;
  }
  return -1;
}

ExtOrientation::RotationParams ExtOrientation::stored_rotation_params() const {
  RotationParams params{};
  for (std::int32_t k = 0; k < num_rotation_params(); ++k) {
    params[static_cast<std::size_t>(k)] = value(kNumCentreParams + k);
  }
  return params;
}

void ExtOrientation::update_with(const RotationParams& params) {
  Vec3& centre = perspective_.centre;
  centre = {value(0), value(1), value(2)};
  if (pos_correction_ != nullptr) centre = centre + pos_correction_->value_at(exposure_time);
  rotation_params_ = params;
  perspective_.rotation = matrix_from_params(params);
}

void ExtOrientation::update() { update_with(stored_rotation_params()); }

bool ExtOrientation::projection(const Vec3& object_point, Vec3& image) const {
  const Vec3 u = state_of(perspective_, object_point).u;
  if (u[2] == 0.0) error_output() << "DEP::projection: zero denominator.\n";
  image = image_of(image[2], u);
  return true;
}

bool ExtOrientation::get_derivs(const Vec3& image, const Vec3& object_point, PointDerivs& derivs) {
  if (find_derivs(image, object_point, derivs)) return true;
  standard_output() << "ERROR: ExtOrientation::get_derivs: Zero denominator.\n";
  return false;
}

bool ExtOrientation::find_derivs(const Vec3& image, const Vec3& object_point, PointDerivs& derivs) {
  Matrix& a_point = derivs.point.a;
  Matrix& a = derivs.geometry.a;
  a_point.resize(2, 3);
  a.resize(2, num_values());
  derivs.geometry.index = index;

  point_ = state_of(perspective_, object_point);
  if (point_.u[2] == 0.0) return false;
  fill_centre_columns(perspective_, image[2], point_, RowPair<double*>{a[0], a[1]},
                      RowPair<double*>{a_point[0], a_point[1]});
  if (pos_correction_ != nullptr) {
    pos_correction_->get_derivs(exposure_time, derivs.geometry, derivs.pos);
  }
  get_rotation_derivs(derivs.geometry, derivs.att);
  set_identity(derivs.b);
  return true;
}

void ExtOrientation::get_rotation_derivs(DesignBlock& geometry, DesignBlock&) const {
  get_rot_param_derivs(geometry.a);
}

void ExtOrientation::get_rot_param_derivs(Matrix& a) const {
  fill_rotation_columns(perspective_, point_, RowPair<double*>{a[0] + 3, a[1] + 3});
}

bool ExtOrientation::intersection(const ImageGeometry& other, const Vec3& image_this,
                                  const Vec3& image_other, Vec3& object_point, double& gap) const {
  const auto* const partner = dynamic_cast<const ExtOrientation*>(&other);
  if (partner == nullptr) {
    error_output() << "ExtOrientation::intersection: Incompatible image geometries!\n";
    return false;
  }
  const Vec3 a = unit(rotation_matrix() * image_this);
  const Vec3 b = unit(partner->rotation_matrix() * image_other);
  const Vec3 normal = cross(a, b);
  const double det = dot(normal, normal);
  if (det == 0.0) {
    error_output() << "DEP::intersection: rays are parallel.\n";
    return false;
  }
  const Vec3 w = partner->projection_centre() - projection_centre();
  const Vec3 nearest = projection_centre() + (dot(cross(w, b), normal) / det) * a;
  const Vec3 nearest_other = partner->projection_centre() + (dot(cross(w, a), normal) / det) * b;
  object_point = 0.5 * (nearest + nearest_other);
  gap = length(nearest - nearest_other);
  return true;
}

// ---- three rotation parameters -----------------------------------------------------------------

void ExtOrientation3::update() {
  RotationParams params = stored_rotation_params();
  if (att_correction() != nullptr) {
    const Vec3 correction = att_correction()->value_at(exposure_time);
    for (std::size_t k = 0; k < 3; ++k) params[k] += correction[k];
  }
  update_with(params);
}

void ExtOrientation3::get_rotation_derivs(DesignBlock& geometry, DesignBlock& att) const {
  ExtOrientation::get_rotation_derivs(geometry, att);
  if (att_correction() != nullptr) att_correction()->get_derivs(exposure_time, geometry, att);
}

}  // namespace vorn
