#include "base/units.h"

#include <gtest/gtest.h>

#include <string>
#include <vector>

namespace vorn {
namespace {

struct Row {
  std::string abbreviation;
  double factor;
};

// Units per radian and metres per unit, code after code.
const std::vector<Row> kAngles = {
    {"unk", 0.0},
    {"none", 1.0},
    {"rad", 1.0},
    {"deg", 57.29577951308232},
    {"hr", 3.819718634205488},
    {"min", 0.954929658551372},
    {"sec", 0.015915494309189534},
    {"gon", 63.66197723675813},
};
const std::vector<Row> kLengths = {
    {"unk", 0.0},   {"km", 1000.0}, {"m", 1.0},       {"cm", 0.01},
    {"mm", 0.001},  {"um", 1e-06},  {"mi", 1609.344}, {"miUS", 1609.32721869},
    {"in", 0.0254}, {"ft", 0.3048}, {"yd", 0.9144},   {"n.m.", 1852.0},
};

template <class Unit>
void expect_units(const std::vector<Row>& rows) {
  for (std::size_t code = 0; code < rows.size(); ++code) {
    const Row& row = rows[code];
    Unit unit;
    EXPECT_EQ(unit.set(row.abbreviation), code != 0) << row.abbreviation;
    EXPECT_EQ(unit.code, static_cast<std::int32_t>(code)) << row.abbreviation;
    EXPECT_EQ(unit.factor, row.factor) << row.abbreviation;
    EXPECT_EQ(unit.abbreviation(), row.abbreviation);
    for (const std::string& other :
         {row.abbreviation + " ", "x" + row.abbreviation, std::string()}) {
      EXPECT_FALSE(unit.set(other)) << other;
      EXPECT_EQ(unit.code, 0);
      EXPECT_EQ(unit.factor, row.factor) << "an unknown unit changes no factor";
    }
  }
}

TEST(Units, HaveTheirFactors) {
  expect_units<UnitAngle>(kAngles);
  expect_units<UnitLength>(kLengths);
  EXPECT_EQ(angle_unit_factor(-1), 0.0);
  EXPECT_EQ(length_unit_factor(12), 0.0);
  EXPECT_EQ(angle_unit_names().size() + 1, kAngles.size());
  EXPECT_EQ(length_unit_names().size() + 1, kLengths.size());
  EXPECT_FALSE(UnitAngle().set("m"));
  EXPECT_FALSE(UnitAngle().set("DEG"));
}

}  // namespace
}  // namespace vorn
