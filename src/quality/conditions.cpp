#include "quality/conditions.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "geometry/eo_quaternion.h"

namespace vorn {
namespace {

constexpr std::int32_t kFirstOfQuaternion = 3;

bool is_constant(const AdjObject& object, std::int32_t k) {
  return object.param(k).state == ParamState::eliminated;
}

// The unit vector of the quaternion's free elements. Empty when all of them are fixed.
std::vector<double> quaternion_direction(const EOQuaternion& orientation) {
  std::vector<double> n(4, 0.0);
  double square = 0.0;
  for (std::int32_t k = 0; k < 4; ++k) {
    if (is_constant(orientation, kFirstOfQuaternion + k)) continue;
    const double element = orientation.value(kFirstOfQuaternion + k);
    n[static_cast<std::size_t>(k)] = element;
    square += element * element;
  }
  if (square == 0.0) return {};
  for (double& element : n) element /= std::sqrt(square);
  return n;
}

}  // namespace

Conditions::Conditions(const AdjObjectList& unknowns) : num_unknowns_(unknowns.num_unknowns()) {
  for (std::int32_t i = 0; i < unknowns.num_objects(); ++i) {
    const AdjObject& object = unknowns[i];
    for (std::int32_t k = 0; k < static_cast<std::int32_t>(object.num_params()); ++k) {
      if (is_constant(object, k)) add(object.index + k, {1.0}, true);
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
  parts_.resize(place(num_unknowns_));
  for (std::size_t k = 0; k < n.size(); ++k) {
    Part& part = parts_[place(first) + k];
    if (!part.fixed) part = {number, n[k], fixed};
  }
  directions_.push_back({first, std::move(n), 1.0});
}

void Conditions::apply(NormalMatrix& normal, Vector& rhs) {
  for (NormalMatrix::Direction& direction : directions_) {
    // The size of what stands beside it.
    double weight = 0.0;
    for (std::size_t k = 0; k < direction.n.size(); ++k) {
      const std::int32_t unknown = direction.index + static_cast<std::int32_t>(k);
      weight = std::max(weight, normal.at(unknown, unknown));
    }
    direction.weight = weight > 0.0 ? weight : 1.0;
  }
  normal.take_out(directions_, rhs);
}

}  // namespace vorn
