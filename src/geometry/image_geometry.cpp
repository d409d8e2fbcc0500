#include "geometry/image_geometry.h"

#include <cmath>

#include "lsq/ls_params.h"
#include "lsq/param_reading.h"
#include "text/records.h"

namespace vorn {
namespace {

constexpr NumberFormat kTime = fixed(6, 12);
constexpr NumberFormat kRecordValue = scientific(15, 23);
constexpr NumberFormat kListedValue = scientific(5, 12);

}  // namespace

ImageGeometry::ImageGeometry(std::uint32_t num_values)
    : num_values_(static_cast<std::int32_t>(num_values)),
      values_(std::make_unique<double[]>(num_values)),
      std_devs_(std::make_unique<double[]>(num_values)) {}

void ImageGeometry::set_identity(Matrix& b) {
  b.resize(2, 2);
  b[0][0] = b[1][1] = 1;
  b[0][1] = b[1][0] = 0;
}

void ImageGeometry::init_params() {
  if (alloc_params(static_cast<std::uint32_t>(num_values_)) != 1) return;
  for (std::int32_t k = 0; k < num_values_; ++k) set_param(k, value(k), std_dev(k));
}

std::int32_t ImageGeometry::check_convergence(const Vector& corrections) const {
  if (!ls_params().check_geometry) return -1;
  for (std::int32_t k = 0; k < num_values_; ++k) {
    if (std::abs(correction_of(k, corrections)) > ls_params().limit_geometry) return k;
  }
  return -1;
}

int ImageGeometry::read(TokenReader& in) {
  if (!in.need_name(id, "the station")) {
    return reading_failed("ERROR: Reading station ID failed.\n");
  }
  in.begin_object("image-geometry", this);
  if (!in.read(exposure_time, kExposureTime)) {
    return reading_failed("ERROR: Cannot read exposure time.\n");
  }
  for (std::int32_t k = 0; k < num_values_; ++k) {
    if (!read_parameter(in, *this, k, value(k)) || !read_std_dev(in, *this, k, std_dev(k))) {
      return reading_failed("ERROR: Reading values and std. devs. failed.\n");
    }
  }
  return 1;
}

void ImageGeometry::write(TextWriter& out) const {
  out << get_keyword() << "   " << id << "   " << kTime(exposure_time) << '\n';
  for (std::int32_t k = 0; k < num_values_; ++k) {
    out << kRecordValue(value(k)) << "   " << kRecordValue(std_dev(k)) << '\n';
  }
  out << '\n';
}

void ImageGeometry::print(TextWriter& out) const {
  out << "Station ID    :  " << id << '\n'
      << "Exposure time :  " << kTime(exposure_time) << '\n'
      << "Type          :  " << get_type_name() << "\n\n"
      << "  Param.     State         Value       Std.dev.\n\n";
  for (std::int32_t k = 0; k < num_values_; ++k) {
    out << "  " << left_aligned(get_param_name(k), 8) << "   "
        << left_aligned(state_name_of_sd(std_dev(k)), 4) << "   " << kListedValue(value(k)) << "   "
        << kListedValue(std_dev(k)) << '\n';
  }
  out << '\n';
}

bool ImageGeometry::calc_approx() {
  standard_output() << "ATTENTION: Calculate approximate image geometry not implemented.\n";
  return true;
}

}  // namespace vorn
