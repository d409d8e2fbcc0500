#include "sensors/object_point.h"

#include <array>
#include <atomic>
#include <cmath>

#include "lsq/project_number.h"

namespace vorn {

namespace {

// A standard deviation of an observed coordinate is shown in the unit of object-space coordinates,
// the marks of free and fixed ones as they are.
void put_std_dev(TextWriter& out, double sigma, int width) {
  const LSParams& params = ls_params();
  if (params.is_observed(sigma)) {
    out << fixed(3, width)(sigma * params.unit_object.factor);
  } else {
    out << scientific(1, width)(sigma);
  }
}

}  // namespace

std::string_view point_type_name(PointType type) {
  constexpr std::array<std::string_view, 4> kNames = {"nu", "co", "in", "ch"};
  // Listings are written by several threads.
  static std::atomic<std::size_t> last_code = kNames.size();
  const auto code = static_cast<std::size_t>(type);
  if (code < kNames.size()) {
    if (last_code.load(std::memory_order_relaxed) != code) last_code = code;
    return kNames[code];
  }
  return last_code < kNames.size() ? kNames[last_code] : std::string_view();
}

std::string ObjectPoint::get_param_name(std::int32_t i) const {
  switch (i) {
    case 0:
      return "objc-X";
    case 1:
      return "objc-Y";
    case 2:
      return "objc-Z";
    default:
      return AdjObject::get_param_name(i);
  }
}

void ObjectPoint::init_params() {
  if (alloc_params(3) != 1) return;
  for (std::int32_t k = 0; k < 3; ++k) {
    const auto c = static_cast<std::size_t>(k);
    set_param(k, xyz[c], std_devs[c]);
  }
}

void ObjectPoint::print_changes(TextWriter& out, const Vector& corrections) const {
  out << "Point ID : " << id << '\n';
  out << "Index    : " << project_number(index) << "\n\n";
  print_change_rows(out, corrections);
}

std::int32_t ObjectPoint::check_convergence(const Vector& corrections) const {
  const LSParams& params = ls_params();
  if (!params.check_points) return -1;
  for (std::int32_t k = 0; k < 3; ++k) {
    if (std::fabs(correction_of(k, corrections)) > params.limit_points) return k;
  }
  return -1;
}

void ObjectPoint::classify() {
  const double smax = ls_params().smax;
  for (bool& component : check) component = false;
  // A standard deviation that is not a number is not beyond the limit: such a point is a control
  // point.
  const bool all_free = std_devs[0] > smax && std_devs[1] > smax && std_devs[2] > smax;
  type = all_free ? PointType::intersection : PointType::control;
}

int ObjectPoint::set_from_cs(const ControlSupport& record) {
  const bool control = record.type == PointType::control;
  const bool checked = record.type == PointType::check;
  if (!control && !checked && record.type != PointType::intersection) {
    standard_output() << "ERROR: Invalid object point type: "
                      << static_cast<std::int32_t>(record.type) << '\n';
    return -1;
  }
  const LSParams& params = ls_params();
  for (std::size_t k = 0; k < 3; ++k) {
    std_devs[k] = control && record.marked[k] ? params.sminu : params.smaxu;
    check[k] = checked && record.marked[k];
  }
  type = record.type;
  return 1;
}

void ObjectPoint::print_line(TextWriter& out) const {
  constexpr NumberFormat kCoordinate = fixed(3, 11);
  out << right_aligned(id, 8);
  for (const double coordinate : xyz) out << ' ' << kCoordinate(coordinate);
  for (const double sigma : std_devs) {
    out << ' ';
    put_std_dev(out, sigma, 9);
  }
  out << "   " << point_type_name(type) << '\n';
}

void ObjectPoint::write_line(TextWriter& out) const {
  constexpr NumberFormat kCoordinate = fixed(3, 11);
  out << "  " << right_aligned(id, 8);
  for (const double coordinate : xyz) out << ' ' << kCoordinate(coordinate);
  for (const double sigma : std_devs) {
    out << ' ';
    put_std_dev(out, sigma, 11);
  }
  out << '\n';
}

}  // namespace vorn
