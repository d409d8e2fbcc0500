#include "calibration/ap_set.h"

#include <algorithm>

#include "driver/options.h"
#include "lsq/ls_params.h"
#include "lsq/param_reading.h"

namespace vorn {

namespace {

// Beyond this many points a grid counts as a mistake in the options.
constexpr double kMaxGridPoints = 1e6;

// Points of a grid over a camera's format, row by row from its upper left corner [m].
struct Grid {
  std::int32_t nx = 0;
  std::int32_t ny = 0;
  double step_x = 0;
  double step_y = 0;
  double x_min = 0;
  double x_max = 0;
  double y_min = 0;
  double y_max = 0;
  double z = 0;
};

Grid grid_of(const Camera& camera, std::int32_t nx, std::int32_t ny) {
  const double gaps_x = static_cast<double>(nx) - 1.0;
  const double gaps_y = static_cast<double>(ny) - 1.0;
  Grid grid;
  grid.nx = nx;
  grid.ny = ny;
  grid.step_x = camera.sx / gaps_x;
  grid.step_y = camera.sy / gaps_y;
  grid.x_min = -0.5 * gaps_x * grid.step_x;
  grid.x_max = grid.x_min + gaps_x * grid.step_x;
  grid.y_max = 0.5 * gaps_y * grid.step_y;
  grid.y_min = grid.y_max - gaps_y * grid.step_y;
  grid.z = camera.c;
  return grid;
}

bool make_grid(const APSet& set, const Options& options, const OwnedList<Camera>& cameras,
               Grid& grid) {
  const Camera* const camera = cameras.find(set.camera_id);
  if (camera == nullptr) {
    standard_output() << "ERROR: Camera " << set.camera_id << " not found.\n";
    return false;
  }
  grid = grid_of(*camera, options.grid_x, options.grid_y);
  const double columns = std::max(grid.nx, 1);
  const double rows = std::max(grid.ny, 1);
  return columns * rows <= kMaxGridPoints;
}

void print_range(TextWriter& out, std::string_view axis, double min, double max) {
  constexpr NumberFormat kMillimetres = with_plus(fixed(1, 6));
  out << "  - range in " << axis << "       :  min = " << kMillimetres(min * 1000)
      << " mm ,  max = " << kMillimetres(max * 1000) << " mm\n";
}

void print_effects(TextWriter& out, const APSet& set, const Grid& grid, std::string_view mask) {
  constexpr NumberFormat kMicrometres = with_plus(fixed(1, 6));
  for (std::int32_t row = 0; row < grid.ny; ++row) {
    for (std::int32_t column = 0; column < grid.nx; ++column) {
      const Vec3 point = {grid.x_min + column * grid.step_x, grid.y_max - row * grid.step_y,
                          grid.z};
      const Pair effect = set.get_correction_masked(point, mask);
      out << " (" << kMicrometres(effect[0] * 1e6) << ',' << kMicrometres(effect[1] * 1e6) << ')';
    }
    out << '\n';
  }
}

}  // namespace

APSet::APSet(const APModel& model)
    : model_(model),
      num_ap_(static_cast<std::int32_t>(model.num_ap)),
      values_(std::make_unique<double[]>(model.num_ap)),
      std_devs_(std::make_unique<double[]>(model.num_ap)) {}

std::string APSet::get_param_name(std::int32_t i) const {
  if (!model_.param_names.empty()) {
    return std::string(model_.param_names[static_cast<std::size_t>(i)]);
  }
  std::string name = "a";
  name += std::to_string(i + 1);
  return name;
}

void APSet::init_params() {
  if (alloc_params(model_.num_ap) != 1) return;
  for (std::int32_t k = 0; k < num_ap_; ++k) set_param(k, value(k), std_dev(k));
}

int APSet::read(TokenReader& in) {
  if (!read_ids(in)) return -1;
  read_params(in);
  return 1;
}

void APSet::write(TextWriter& out) const {
  write_ids(out);
  write_params(out);
}

void APSet::print(TextWriter& out) const {
  print_ids(out);
  print_params(out);
}

void APSet::reserved_op() { error_output() << "ERROR: calling empty function!\n"; }

void APSet::print_grid_effects(TextWriter& out, const Options& options,
                               const OwnedList<Camera>& cameras) const {
  out << "AP set ID            :  " << id << '\n';
  out << "AP set type          :  " << get_type_name() << '\n';
  out << "Corresponding camera :  " << camera_id << '\n';
  Grid grid;
  if (!make_grid(*this, options, cameras, grid)) {
    standard_output() << "ERROR: Initilization of AP grid failed.\n";
    return;
  }
  out << "Effects on photo-coordinates\n";
  print_range(out, "x", grid.x_min, grid.x_max);
  print_range(out, "y", grid.y_min, grid.y_max);
  out << '\n';
  for (const EffectGrid& effect : model_.effect_grids) {
    out << effect.caption;
    print_effects(out, *this, grid, effect.mask);
  }
  if (model_.effect_grids.empty()) {
    out << get_type_name() << ":\n\n";
    print_effects(out, *this, grid, std::string(model_.num_ap, '1'));
  }
  out << '\n';
}

int APSet::bind_to_camera(const OwnedList<Camera>& cameras) {
  Camera* const camera = cameras.find(camera_id);
  if (camera == nullptr) {
    standard_output() << "ERROR: AP set " << id << " : camera " << camera_id << " not found.\n";
    return -1;
  }
  camera->ap_sets.push_back(this);
  camera->used = true;
  used = true;
  return 1;
}

void APSet::get_derivs(const Vec3& point, DesignBlock& block) const {
  block.a.resize(2, num_ap_);
  block.index = index;
  fill_set_columns(terms(), point, RowPair<double*>{block.a[0], block.a[1]});
}

Pair APSet::get_correction_masked(const Vec3& point, std::string_view mask) const {
  get_derivs(point, derivs_);
  Pair sum{};
  const auto n = std::min(num_ap_, static_cast<std::int32_t>(mask.size()));
  for (std::int32_t k = 0; k < n; ++k) {
    if (mask[static_cast<std::size_t>(k)] != '1') continue;
    sum[0] += derivs_.a[0][k] * value(k);
    sum[1] += derivs_.a[1][k] * value(k);
  }
  return sum;
}

bool APSet::read_ids(TokenReader& in) {
  if (!in.need_name(id, "the identifier")) return false;
  in.begin_object("ap-set", this);
  // A set without a camera is found out when it is bound.
  if (in.need_name(camera_id, "the camera")) in.remember(&camera_id, in.last_word());
  return true;
}

void APSet::read_params(TokenReader& in) {
  for (std::int32_t k = 0; k < num_ap_; ++k) {
    read_parameter(in, *this, k, value(k));
    read_std_dev(in, *this, k, std_dev(k));
  }
}

void APSet::write_ids(TextWriter& out) const {
  out << get_keyword() << "   " << id << "   " << camera_id << '\n';
}

void APSet::write_params(TextWriter& out) const {
  constexpr NumberFormat kValue = scientific(8, 16);
  constexpr NumberFormat kStdDev = scientific(4, 12);
  for (std::int32_t k = 0; k < num_ap_; ++k) {
    out << kValue(value(k)) << "   " << kStdDev(std_dev(k)) << '\n';
  }
  out << '\n';
}

void APSet::print_ids(TextWriter& out) const {
  out << "AP set ID   :  " << id << '\n';
  out << "AP set Type :  " << get_type_name() << '\n';
  out << "Camera      :  " << camera_id << '\n';
}

void APSet::print_params(TextWriter& out) const {
  constexpr NumberFormat kNumber = scientific(3, 12);
  out << "\n  Param.     State         Value       Std.dev.\n\n";
  for (std::int32_t k = 0; k < num_ap_; ++k) {
    out << "  " << left_aligned(get_param_name(k), 8) << "   "
        << left_aligned(state_name_of_sd(std_dev(k)), 4) << "   " << kNumber(value(k)) << "   "
        << kNumber(std_dev(k)) << '\n';
  }
}

}  // namespace vorn
