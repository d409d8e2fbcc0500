#include "geometry/units.h"

#include <array>
#include <cstddef>

namespace vorn {
namespace {

// A unit's code is the number of its row.
struct UnitRow {
  std::string_view abbreviation;
  std::string_view name;
  double factor;
};

// Factors are units per radian. Those of "min" and "sec" are no time-minutes and time-seconds; data
// files rely on them as they are.
constexpr std::array<UnitRow, 8> kAngleUnits = {{
    {"unk", "unkown", 0.0},
    {"none", "none", 1.0},
    {"rad", "radian", 1.0},
    {"deg", "degree", 57.29577951308232},
    {"hr", "hour", 3.819718634205488},
    {"min", "minute", 0.954929658551372},
    {"sec", "second", 0.015915494309189534},
    {"gon", "gon", 63.66197723675813},
}};

// Factors are metres per unit. That of "miUS" is not the survey mile; it too is fixed by data
// files.
constexpr std::array<UnitRow, 12> kLengthUnits = {{
    {"unk", "unkown", 0.0},
    {"km", "kilometre", 1000.0},
    {"m", "metre", 1.0},
    {"cm", "centimetre", 0.01},
    {"mm", "millimetre", 0.001},
    {"um", "micrometre", 1e-06},
    {"mi", "intern. mile", 1609.344},
    {"miUS", "US state mile", 1609.32721869},
    {"in", "inch", 0.0254},
    {"ft", "feet", 0.3048},
    {"yd", "yard", 0.9144},
    {"n.m.", "nautical mile", 1852.0},
}};

template <std::size_t n>
std::int32_t code_of(const std::array<UnitRow, n>& table, std::string_view abbreviation) {
  for (std::size_t code = 0; code < n; ++code) {
    if (table[code].abbreviation == abbreviation) return static_cast<std::int32_t>(code);
  }
  return 0;
}

template <std::size_t n>
const UnitRow& row_of(const std::array<UnitRow, n>& table, std::int32_t code) {
  const auto row = static_cast<std::size_t>(code);
  return code >= 0 && row < n ? table[row] : table[0];
}

}  // namespace

bool UnitAngle::set(std::string_view abbreviation) {
  code = angle_unit_code(abbreviation);
  if (code == 0) return false;
  factor = angle_unit_factor(code);
  return true;
}

std::string_view UnitAngle::abbreviation() const { return row_of(kAngleUnits, code).abbreviation; }

bool UnitLength::set(std::string_view abbreviation) {
  code = length_unit_code(abbreviation);
  if (code == 0) return false;
  factor = length_unit_factor(code);
  return true;
}

std::string_view UnitLength::abbreviation() const {
  return row_of(kLengthUnits, code).abbreviation;
}

std::int32_t angle_unit_code(std::string_view abbreviation) {
  return code_of(kAngleUnits, abbreviation);
}
double angle_unit_factor(std::int32_t code) { return row_of(kAngleUnits, code).factor; }
std::int32_t length_unit_code(std::string_view abbreviation) {
  return code_of(kLengthUnits, abbreviation);
}
double length_unit_factor(std::int32_t code) { return row_of(kLengthUnits, code).factor; }

}  // namespace vorn
