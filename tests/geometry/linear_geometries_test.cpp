#include "geometry/linear_geometries.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>

#include "geometry/eo_quaternion.h"
#include "geometry_support.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_errors;
using test::captured_output;
using test::from_record;
using test::GeometryTest;

constexpr const char* kAffineDlt =
    "d 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1 0 1 0 1 0 1";  // L9 = L10 = L11 = 0
constexpr const char* kPmf = "p 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1";

TEST_F(GeometryTest, DltAtItsHorizon) {
  const auto dlt =
      from_record<DirectLinearTransf>("d 0 1 1 2 1 3 1 4 1 5 1 6 1 7 1 8 1 0 1 0 1 -1 1");
  Vec3 image{};
  PointDerivs derivs;
  EXPECT_EQ(captured_errors([&] {
              EXPECT_TRUE(dlt->projection({0, 0, 1}, image));
              EXPECT_TRUE(dlt->get_derivs(image, {0, 0, 1}, derivs));
            }),
            "DEP::projection: zero denominator.\n"
            "DirectLinearTransf::get_derivs: zero denominator.\n");
  EXPECT_TRUE(std::isinf(image[0]) && std::isinf(image[1]));
}

TEST_F(GeometryTest, IntersectionsThatFail) {
  const auto singular = from_record<PMFLinear>("p 0 1 1 1 1 0 1 0 1 5 1 0 1 1 1 0 1");
  const auto dlt = from_record<DirectLinearTransf>(kAffineDlt);
  struct Case {
    const ImageGeometry& one;
    const ImageGeometry& other;
    const char* output;
    const char* errors;
  };
  const Case cases[] = {
      {*dlt, *dlt, "DirectLinearTransf::intersection: Not implemented yet!\n", ""},
      {*dlt, EOQuaternion(), "",
       "DirectLinearTransf::intersection: Incompatible image geometries!\n"},
      {*singular, *singular, "ERROR: Decomposition of normal matrix failed.\n", ""},
      {*singular, *dlt, "", "PMFLinear::intersection: Incompatible image geometries!\n"}};
  for (const Case& c : cases) {
    Vec3 point{};
    double gap = 0;
    std::string output;
    EXPECT_EQ(captured_errors([&] {
                output = captured_output(
                    [&] { EXPECT_FALSE(c.one.intersection(c.other, {}, {}, point, gap)); });
              }),
              c.errors);
    EXPECT_EQ(output, c.output);
  }
}

TEST_F(GeometryTest, PmfIntersectsByLeastSquares) {
  const auto pmf = from_record<PMFLinear>(kPmf);
  const auto other = from_record<PMFLinear>("q 0 -1 1 1 1 0 1 2 1 3 1 -4 1 2 1 1 1");
  const Vec3 truth = {3, -2, 7};
  Vec3 image{};
  Vec3 image_other{};
  pmf->projection(truth, image);
  other->projection(truth, image_other);
  Vec3 point{};
  double gap = -1;
  EXPECT_TRUE(pmf->intersection(*other, image, image_other, point, gap));
  for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(point[k], truth[k], 1e-10);
  EXPECT_EQ(gap, -1);
}

}  // namespace
}  // namespace vorn
