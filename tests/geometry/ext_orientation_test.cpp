#include "geometry/ext_orientation.h"

#include <gtest/gtest.h>

#include <cmath>
#include <memory>
#include <string>

#include "geometry/eo_angles.h"
#include "geometry/eo_quaternion.h"
#include "geometry/linear_geometries.h"
#include "geometry_support.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_errors;
using test::captured_output;
using test::from_record;
using test::GeometryTest;
using test::written_text;

// An orientation without rotation at a given place.
std::unique_ptr<EOAnglesPOKRot> upright(const std::string& centre) {
  return from_record<EOAnglesPOKRot>("i rad 0 " + centre + " 1 1 1 0 0 0 1 1 1");
}

TEST_F(GeometryTest, PointAtTheHeightOfTheCentre) {
  const auto orientation = upright("0 0 100");
  Vec3 image = {0, 0, -0.1};
  EXPECT_EQ(captured_errors([&] {
              EXPECT_TRUE(orientation->projection({5, 0, 100}, image));
            }),
            "DEP::projection: zero denominator.\n");
  EXPECT_TRUE(std::isinf(image[0]));
  EXPECT_TRUE(std::isnan(image[1]));
  PointDerivs derivs;
  EXPECT_EQ(captured_output([&] {
              EXPECT_FALSE(orientation->get_derivs({0, 0, -0.1}, {5, 0, 100}, derivs));
            }),
            "ERROR: ExtOrientation::get_derivs: Zero denominator.\n");
}

TEST_F(GeometryTest, IntersectionOfRays) {
  struct Case {
    const char* other_centre;
    Vec3 image_this;
    Vec3 image_other;
    Vec3 point;
    double gap;
  };
  const Case cases[] = {
      {"10 0 0", {0, 0, -1}, {-1, 0, -1}, {0, 0, -10}, 0},    // meeting
      {"10 4 0", {1, 0, -1}, {-1, 0, -1}, {5, 2, -5}, 4},     // skew
      {"10 0 0", {-1, 0, -1}, {1, 0, -1}, {5, 0, 5}, 0},      // behind both
      {"10 0 0", {2, 0, -2}, {-0.1, 0, -0.1}, {5, 0, -5}, 0}  // lengths do not matter
  };
  const auto orientation = upright("0 0 0");
  for (const Case& c : cases) {
    const auto other = upright(c.other_centre);
    Vec3 point{};
    double gap = -1;
    EXPECT_TRUE(orientation->intersection(*other, c.image_this, c.image_other, point, gap));
    for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(point[k], c.point[k], 1e-14);
    EXPECT_NEAR(gap, c.gap, 1e-14);
  }
  Vec3 point = {1, 2, 3};
  double gap = 4;
  EXPECT_EQ(captured_errors([&] {
              EXPECT_FALSE(orientation->intersection(*upright("10 0 0"), {0.3, 0.2, -1},
                                                     {0.3, 0.2, -1}, point, gap));
              EXPECT_FALSE(orientation->intersection(PMFLinear(), {}, {}, point, gap));
            }),
            "DEP::intersection: rays are parallel.\n"
            "ExtOrientation::intersection: Incompatible image geometries!\n");
  EXPECT_EQ(point, (Vec3{1, 2, 3}));
  EXPECT_EQ(gap, 4);
}

// Output in other units than metres and radians.
TEST_F(GeometryTest, ListingsOfResults) {
  ls_params().unit_object.set("cm");
  ls_params().unit_angles.set("deg");
  const auto angles =
      from_record<EOAnglesPOKRot>("st1 gon 12.5 150 200 -300 25 0 1e31 100 0 0 0.5 1e31 0");
  angles->init_params();
  angles->index = 1;
  Vector corrections(7);
  corrections.zero();
  corrections[1] = 50;
  corrections[5] = -0.5;
  angles->apply_corrections(corrections);
  EXPECT_EQ(written_text([&](TextWriter& out) { angles->print_results(out); }),
            "Station ID :  st1\n"
            "Type       :  EO (phi-omega-kappa, rotated)\n"
            "Index      :  1\n"
            "\n"
            "  Param.    State      Initial      Adjusted        Change      Std.dev.\n"
            "\n"
            "  Xo        obs          1.500         2.000         0.500         0.250\n"
            "  Yo        eli          2.000         2.000         0.000       0.0e+00\n"
            "  Zo        unk         -3.000        -3.000         0.000       1.0e+31\n"
            "  phi       obs       90.00000      90.00000       0.00000       0.45000\n"
            "  omega     unk        0.00000     -28.64789     -28.64789       1.0e+31\n"
            "  kappa     eli        0.00000       0.00000       0.00000       0.0e+00\n"
            "\n"
            "Rotation matrix:\n"
            "    0.0000000  -0.4794255   0.8775826\n"
            "    0.0000000   0.8775826   0.4794255\n"
            "   -1.0000000  -0.0000000   0.0000000\n");
}

}  // namespace
}  // namespace vorn
