#include "quality/conditions.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "geometry/eo_quaternion.h"

namespace vorn {
namespace {

constexpr std::int32_t kFirstOfQuaternion = 3;

bool is_held(const AdjObject& object, std::int32_t k) {
  return object.param(k).state == ParamState::eliminated;
}

// The unit vector of the quaternion's free elements. Empty when all of them are fixed.
std::vector<double> quaternion_direction(const EOQuaternion& orientation) {
  std::vector<double> n(4, 0.0);
  double square = 0.0;
  for (std::int32_t k = 0; k < 4; ++k) {
    if (is_held(orientation, kFirstOfQuaternion + k)) continue;
    const double element = orientation.value(kFirstOfQuaternion + k);
    n[static_cast<std::size_t>(k)] = element;
    square += element * element;
  }
  if (square == 0.0) return {};
  for (double& element : n) element /= std::sqrt(square);
  return n;
}

// Place of element (i, j), i <= j, in the diagonal block of a point.
std::size_t diagonal_place(std::size_t i, std::size_t j) { return i == 0 ? j : i + j + 1; }

}  // namespace

Conditions::Conditions(const AdjObjectList& unknowns) : parts_(place(unknowns.num_unknowns())) {
  for (std::int32_t i = 0; i < unknowns.num_objects(); ++i) {
    const AdjObject& object = unknowns[i];
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      if (is_held(object, k)) add(object.index + k, {1.0}, true);
    }
    if (object.get_num_constraints() == 0) continue;
    if (const auto* const orientation = dynamic_cast<const EOQuaternion*>(&object)) {
      std::vector<double> n = quaternion_direction(*orientation);
      if (!n.empty()) add(object.index + kFirstOfQuaternion, std::move(n), false);
    }
  }
}

void Conditions::add(std::int32_t first, std::vector<double> n, bool fixed) {
  const auto number = static_cast<std::int32_t>(directions_.size());
  for (std::size_t k = 0; k < n.size(); ++k) {
    Part& part = parts_[place(first) + k];
    if (!part.fixed) part = {number, n[k], fixed};
  }
  directions_.push_back({first, std::move(n)});
}

void Conditions::apply(NormalMatrix& normal, Vector& rhs) {
  weights_.clear();
  for (const Direction& direction : directions_) {
    // The size of what stands beside it.
    double weight = 0.0;
    for (std::size_t k = 0; k < direction.n.size(); ++k) {
      const std::int32_t unknown = direction.first + static_cast<std::int32_t>(k);
      weight = std::max(weight, normal.at(unknown, unknown));
    }
    weights_.push_back(weight > 0.0 ? weight : 1.0);
  }
  project(rhs.data(), 0, rhs.size(), 1);
  restrict_points(normal);
  restrict_pairs(normal);
}

void Conditions::project(double* elements, std::int32_t first_unknown, std::int32_t size,
                         std::ptrdiff_t stride) const {
  std::int32_t done = -1;
  for (std::int32_t k = 0; k < size; ++k) {
    const Part& part = parts_[place(first_unknown + k)];
    if (part.fixed) elements[k * stride] = 0.0;
    if (part.fixed || part.condition <= done) continue;
    done = part.condition;
    const Direction& direction = directions_[place(part.condition)];
    double* const at = elements + (direction.first - first_unknown) * stride;
    double along = 0.0;
    for (std::size_t i = 0; i < direction.n.size(); ++i) {
      along += direction.n[i] * at[static_cast<std::ptrdiff_t>(i) * stride];
    }
    for (std::size_t i = 0; i < direction.n.size(); ++i) {
      at[static_cast<std::ptrdiff_t>(i) * stride] -= along * direction.n[i];
    }
  }
}

void Conditions::restrict_points(NormalMatrix& normal) const {
  std::vector<bool> has_condition(place(normal.num_blocks()), false);
  for (const Direction& direction : directions_) {
    if (direction.first < normal.num_point_unknowns()) continue;
    has_condition[place(normal.block_of(direction.first))] = true;
  }
  for (std::int32_t point = 0; point < normal.num_points(); ++point) {
    const NormalMatrix::PointRows rows = normal.point_rows(point);
    for (const NormalMatrix::PointBlock& at : normal.blocks_of(point)) {
      if (!has_condition[place(at.block)]) continue;
      const std::int32_t n = normal.block_width(at.block);
      for (std::int32_t r = 0; r < 3; ++r) {
        project(rows.coupling + at.start + r * n, normal.block_index(at.block), n, 1);
      }
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const Part& part = parts_[3 * place(point) + axis];
      if (!part.fixed) continue;
      for (std::size_t k = 0; k < 3; ++k) {
        rows.diagonal[diagonal_place(std::min(axis, k), std::max(axis, k))] = 0.0;
      }
      rows.diagonal[diagonal_place(axis, axis)] = weights_[place(part.condition)];
      double* block = rows.coupling;
      for (const NormalMatrix::PointBlock& at : normal.blocks_of(point)) {
        const std::int32_t n = normal.block_width(at.block);
        std::fill_n(block + place(n) * axis, n, 0.0);
        block += 3 * place(n);
      }
    }
  }
}

void Conditions::restrict_pairs(NormalMatrix& normal) const {
  const auto restrict_pair = [&](std::int32_t a, std::int32_t b) {
    double* const elements = normal.block_pair(a, b);
    const std::int32_t rows = normal.block_width(a);
    const std::int32_t columns = normal.block_width(b);
    for (std::int32_t r = 0; r < rows; ++r) {
      project(elements + std::ptrdiff_t{r} * columns, normal.block_index(b), columns, 1);
    }
    for (std::int32_t c = 0; c < columns; ++c) {
      project(elements + c, normal.block_index(a), rows, columns);
    }
  };
  const NormalStructure& structure = normal.structure();
  // Pairs that meet in several groups are restricted again, which changes nothing.
  for (std::int32_t g = 0; g < structure.num_groups(); ++g) {
    for (const std::int32_t a : structure.group(g)) {
      for (const std::int32_t b : structure.group(g)) {
        if (a < b) restrict_pair(a, b);
      }
    }
  }
  for (std::int32_t block = 0; block < normal.num_blocks(); ++block) {
    double* const elements = normal.block_pair(block, block);
    const std::ptrdiff_t n = normal.block_width(block);
    for (std::ptrdiff_t r = 0; r < n; ++r) {
      for (std::ptrdiff_t c = 0; c < r; ++c) elements[r * n + c] = elements[c * n + r];
    }
    restrict_pair(block, block);
  }
  for (std::size_t k = 0; k < directions_.size(); ++k) {
    const auto& [first, n] = directions_[k];
    if (first < normal.num_point_unknowns()) continue;
    for (std::size_t i = 0; i < n.size(); ++i) {
      for (std::size_t j = i; j < n.size(); ++j) {
        normal.add(first + static_cast<std::int32_t>(i), first + static_cast<std::int32_t>(j),
                   weights_[k] * n[i] * n[j]);
      }
    }
  }
}

}  // namespace vorn
