#include "base/units.h"

#include <array>
#include <cstddef>

namespace vorn {
namespace {

// A unit's code is the number of its row.
struct UnitRow {
  std::string_view abbreviation;
  double factor;
};

// Factors are units per radian. Those of "min" and "sec" are no time-minutes and time-seconds; data
// files rely on them as they are.
constexpr std::array<UnitRow, 8> kAngleUnits = {{
    {"unk", 0.0},  // no unit
    {"none", 1.0},
    {"rad", 1.0},                   // radian
    {"deg", 57.29577951308232},     // degree
    {"hr", 3.819718634205488},      // hour
    {"min", 0.954929658551372},     // minute
    {"sec", 0.015915494309189534},  // second
    {"gon", 63.66197723675813},
}};

// Factors are metres per unit. That of "miUS" is not the survey mile; it too is fixed by data
// files.
constexpr std::array<UnitRow, 12> kLengthUnits = {{
    {"unk", 0.0},             // no unit
    {"km", 1000.0},           // kilometre
    {"m", 1.0},               // metre
    {"cm", 0.01},             // centimetre
    {"mm", 0.001},            // millimetre
    {"um", 1e-06},            // micrometre
    {"mi", 1609.344},         // intern. mile
    {"miUS", 1609.32721869},  // US state mile
    {"in", 0.0254},           // inch
    {"ft", 0.3048},           // feet
    {"yd", 0.9144},           // yard
    {"n.m.", 1852.0},         // nautical mile
}};

// Without the row of no unit.
template <std::size_t n>
constexpr std::array<std::string_view, n - 1> names_of(const std::array<UnitRow, n>& table) {
  std::array<std::string_view, n - 1> names;
  for (std::size_t i = 1; i < n; ++i) names[i - 1] = table[i].abbreviation;
  return names;
}
constexpr auto kAngleUnitNames = names_of(kAngleUnits);
constexpr auto kLengthUnitNames = names_of(kLengthUnits);

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

std::span<const std::string_view> angle_unit_names() { return kAngleUnitNames; }
std::span<const std::string_view> length_unit_names() { return kLengthUnitNames; }

std::int32_t angle_unit_code(std::string_view abbreviation) {
  return code_of(kAngleUnits, abbreviation);
}
double angle_unit_factor(std::int32_t code) { return row_of(kAngleUnits, code).factor; }
std::int32_t length_unit_code(std::string_view abbreviation) {
  return code_of(kLengthUnits, abbreviation);
}
double length_unit_factor(std::int32_t code) { return row_of(kLengthUnits, code).factor; }

}  // namespace vorn
