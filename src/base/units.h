#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace vorn {

// A unit of angles, chosen by its abbreviation. A value read in the unit becomes radians by
// dividing by `factor`; radians are printed in it by multiplying.
class UnitAngle {
 public:
  UnitAngle() = default;
  explicit UnitAngle(std::string_view abbreviation) { set(abbreviation); }
  UnitAngle(const UnitAngle&) = default;
  UnitAngle& operator=(const UnitAngle&) = default;
  virtual ~UnitAngle() = default;

  // True for a known unit. Otherwise the code becomes 0 and the factor stays as it was.
  bool set(std::string_view abbreviation);
  std::string_view abbreviation() const;

  std::int32_t code = 0;  // row of the unit table, 0 = unknown
  double factor = 0.0;    // units per radian
};

// A unit of lengths, chosen by its abbreviation.
class UnitLength {
 public:
  UnitLength() = default;
  explicit UnitLength(std::string_view abbreviation) { set(abbreviation); }
  UnitLength(const UnitLength&) = default;
  UnitLength& operator=(const UnitLength&) = default;
  virtual ~UnitLength() = default;

  // True for a known unit. Otherwise the code becomes 0 and the factor stays as it was.
  bool set(std::string_view abbreviation);
  std::string_view abbreviation() const;

  std::int32_t code = 0;  // row of the unit table, 0 = unknown
  double factor = 0.0;    // metres per unit
};

// The abbreviations that name a unit.
std::span<const std::string_view> angle_unit_names();
std::span<const std::string_view> length_unit_names();

// Look-ups by abbreviation (exact text; no match gives 0) and by code (unknown codes give 0.0).
std::int32_t angle_unit_code(std::string_view abbreviation);
double angle_unit_factor(std::int32_t code);
std::int32_t length_unit_code(std::string_view abbreviation);
double length_unit_factor(std::int32_t code);

}  // namespace vorn
