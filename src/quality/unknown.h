#pragma once

#include <cstdint>
#include <string>
#include <string_view>

#include "lsq/adj_object.h"

namespace vorn {

// The kinds of objects with unknowns, in the order of registration.
enum class ObjectType : std::uint8_t {
  object_point,
  orientation,
  ap_set,
  position_correction,
  attitude_correction,
};
constexpr int kNumObjectTypes = 5;

// One unknown: parameter `k` of an object that the project owns.
struct Unknown {
  const AdjObject* object = nullptr;
  std::int32_t k = 0;

  const ParamRecord& record() const { return object->param(k); }
  std::int32_t number() const { return object->index + k; }
  bool is_fixed() const { return record().state == ParamState::eliminated; }
  bool is_observed() const { return record().state == ParamState::observed; }
  bool operator==(const Unknown&) const = default;
};

[[nodiscard]] ObjectType object_type_of(const AdjObject& object);
// "object_point", "orientation", "ap_set", "position_correction", "attitude_correction".
[[nodiscard]] std::string_view object_type_name(ObjectType type);
// The parameter as results spell it: "X", "Xo", "q0", "L1", "K1", "Xo[0]".
[[nodiscard]] std::string parameter_name(const Unknown& unknown);
// Its unit in powers of metre, radian and second: "m", "rad", "1", "1/m2", "m/s".
[[nodiscard]] std::string parameter_unit(const Unknown& unknown);
// "unknown", "observed", "fixed".
[[nodiscard]] std::string_view state_word(ParamState state);

}  // namespace vorn
