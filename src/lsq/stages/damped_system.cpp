#include "lsq/stages/damped_system.h"

#include <algorithm>
#include <cmath>
#include <cstddef>

#include "driver/bundle_project.h"
#include "lsq/stages/normal_equations.h"

namespace vorn {
namespace {

// Smallest ratio of a pivot to its diagonal element that is more than rounding.
constexpr double kSingular = 1e-12;
constexpr double kWeakDamping = 1e-8;
constexpr double kPlaceDamping = 1e12;

// Smallest ratio of the pivots of a symmetric 3 x 3 block (xx, xy, xz, yy, yz, zz) to its diagonal:
// 1 for independent coordinates, 0 for a singular block.
double smallest_pivot_ratio(const double* n) {
  if (!(n[0] > 0.0) || !(n[3] > 0.0) || !(n[5] > 0.0)) return 0.0;
  const double l10 = n[1] / n[0];
  const double l20 = n[2] / n[0];
  const double yy = n[3] - l10 * n[1];
  if (!(yy > 0.0)) return 0.0;
  const double yz = n[4] - l10 * n[2];
  const double zz = n[5] - l20 * n[2] - yz * yz / yy;
  return std::min(yy / n[3], zz / n[5]);
}

}  // namespace

DampedSystem::DampedSystem(BundleProject& project)
    : project_(project), holds_(static_cast<std::size_t>(project.normal.num_points()), Hold::none) {
  find_diagonal();
}

void DampedSystem::find_diagonal() {
  NormalMatrix& normal = project_.normal;
  diagonal_.reserve(static_cast<std::size_t>(normal.size()));
  for (std::int32_t point = 0; point < normal.num_points(); ++point) {
    double* const xx = normal.point_rows(point).diagonal;
    for (const int offset : {0, 3, 5}) diagonal_.push_back(xx + offset);
  }
  for (std::int32_t block = 0; block < normal.num_blocks(); ++block) {
    double* const elements = normal.block_pair(block, block);
    const std::ptrdiff_t width = normal.block_width(block);
    for (std::ptrdiff_t r = 0; r < width; ++r) diagonal_.push_back(elements + r * (width + 1));
  }
  formed_.resize(diagonal_.size());
  scale_.resize(diagonal_.size());
}

bool DampedSystem::form(std::int32_t& num_observations) {
  BundleProject& p = project_;
  if (add_all_observations(p, p.settings.derivatives(), p.observations, p.normal, p.rhs, p.lPl,
                           num_observations) != 1) {
    return false;
  }
  p.unknowns.add_weights(p.normal, p.rhs, p.lPl);
  for (std::size_t i = 0; i < diagonal_.size(); ++i) {
    // What no observation touches stays where it is.
    scale_[i] = *diagonal_[i] > 0.0 ? *diagonal_[i] : 1.0;
  }
  // Conditions are met by every step and must not slow any: their weight is in no scale.
  p.unknowns.add_constraints(p.normal, p.rhs, p.lPl);
  for (std::size_t i = 0; i < diagonal_.size(); ++i) formed_[i] = *diagonal_[i];
  find_weak_points();
  return true;
}

void DampedSystem::find_weak_points() {
  std::fill(holds_.begin(), holds_.end(), Hold::none);
  weak_points_.clear();
  for (std::int32_t point = 0; point < project_.normal.num_points(); ++point) {
    if (smallest_pivot_ratio(project_.normal.diagonal(point)) > kSingular) continue;
    holds_[static_cast<std::size_t>(point)] = Hold::weak;
    weak_points_.push_back(point);
  }
}

void DampedSystem::hold(const std::vector<std::int32_t>& points) {
  for (const std::int32_t point : points) holds_[static_cast<std::size_t>(point)] = Hold::place;
}

bool DampedSystem::solve(double lambda) {
  lambda_ = lambda;
  for (std::size_t i = 0; i < diagonal_.size(); ++i) {
    double damping = lambda;
    if (i / 3 < holds_.size()) {
      if (holds_[i / 3] == Hold::weak) damping = std::max(damping, kWeakDamping);
      if (holds_[i / 3] == Hold::place) damping = kPlaceDamping;
    }
    *diagonal_[i] = formed_[i] + damping * scale_[i];
  }
  Vector& x = project_.solution;
  const bool solved =
      project_.solver->try_solve(project_.normal, project_.rhs, x, project_.markers) == 0;
  // Whoever looks at N sees it as it was formed.
  for (std::size_t i = 0; i < diagonal_.size(); ++i) *diagonal_[i] = formed_[i];
  if (!solved) return false;
  for (std::size_t point = 0; point < holds_.size(); ++point) {
    if (holds_[point] != Hold::place) continue;
    for (std::size_t k = 3 * point; k < 3 * point + 3; ++k) x[static_cast<std::int32_t>(k)] = 0.0;
  }
  return true;
}

// l'Pl(0) - l'Pl(x) = 2 x'n - x'N x, and N x = n - lambda D x.
double DampedSystem::predicted_decrease() const {
  double sum = 0.0;
  for (std::int32_t i = 0; i < project_.solution.size(); ++i) {
    const double x = project_.solution[i];
    sum += x * (project_.rhs[i] + lambda_ * scale_[static_cast<std::size_t>(i)] * x);
  }
  return sum;
}

}  // namespace vorn
