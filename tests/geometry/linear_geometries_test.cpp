#include "geometry/linear_geometries.h"

#include <gtest/gtest.h>

#include <cmath>

#include "geometry/eo_quaternion.h"
#include "geometry_support.h"
#include "support/captured_output.h"

namespace vorn {
namespace {

using test::captured_errors;
using test::captured_output;
using test::from_record;
using test::GeometryTest;
using test::written_text;

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

TEST_F(GeometryTest, DltDoesNotIntersect) {
  const auto dlt = from_record<DirectLinearTransf>(kAffineDlt);
  const EOQuaternion orientation;
  Vec3 point{};
  double gap = 0;
  EXPECT_EQ(captured_output([&] {
              EXPECT_FALSE(dlt->intersection(*dlt, {1, 2, 0}, {3, 4, 0}, point, gap));
            }),
            "DirectLinearTransf::intersection: Not implemented yet!\n");
  EXPECT_EQ(
      captured_errors([&] { EXPECT_FALSE(dlt->intersection(orientation, {}, {}, point, gap)); }),
      "DirectLinearTransf::intersection: Incompatible image geometries!\n");
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
  // A contradiction is spread: the residuals are orthogonal to the columns of the design matrix.
  image[0] += 1;
  EXPECT_TRUE(pmf->intersection(*other, image, image_other, point, gap));
  Vec3 fit{};
  Vec3 fit_other{};
  pmf->projection(point, fit);
  other->projection(point, fit_other);
  for (std::int32_t k = 1; k < 4; ++k) {
    const double sum = pmf->value(k) * (image[0] - fit[0]) +
                       pmf->value(4 + k) * (image[1] - fit[1]) +
                       other->value(k) * (image_other[0] - fit_other[0]) +
                       other->value(4 + k) * (image_other[1] - fit_other[1]);
    EXPECT_NEAR(sum, 0, 1e-10);
  }
}

TEST_F(GeometryTest, PmfIntersectionThatFails) {
  const auto pmf = from_record<PMFLinear>("p 0 1 1 1 1 0 1 0 1 5 1 0 1 1 1 0 1");
  const auto dlt = from_record<DirectLinearTransf>(kAffineDlt);
  Vec3 point{};
  double gap = 0;
  EXPECT_EQ(captured_output([&] { EXPECT_FALSE(pmf->intersection(*pmf, {}, {}, point, gap)); }),
            "ERROR: Decomposition of normal matrix failed.\n");
  EXPECT_EQ(captured_errors([&] { EXPECT_FALSE(pmf->intersection(*dlt, {}, {}, point, gap)); }),
            "PMFLinear::intersection: Incompatible image geometries!\n");
}

TEST_F(GeometryTest, GenericRecordAndListing) {
  const auto pmf = from_record<PMFLinear>("p 2.5 1 1 -2 0 3 1e31 4 1 5 1 6 1 7 1 8 1");
  EXPECT_EQ(written_text([&](TextWriter& out) { pmf->write(out); }).substr(0, 130),
            "pmf-linear   p   "
            "    2.500000\n"
            "  1.000000000000000e+00     1.000000000000000e+00\n"
            " -2.000000000000000e+00     0.000000000000000e+00\n");
  EXPECT_TRUE(written_text([&](TextWriter& out) { pmf->write(out); }).ends_with("e+00\n\n"));
  EXPECT_EQ(written_text([&](TextWriter& out) { pmf->print(out); }),
            "Station ID    :  p\n"
            "Exposure time :      2.500000\n"
            "Type          :  PMF linear\n"
            "\n"
            "  Param.     State         Value       Std.dev.\n"
            "\n"
            "  a0         obs     1.00000e+00    1.00000e+00\n"
            "  a1         eli    -2.00000e+00    0.00000e+00\n"
            "  a2         unk     3.00000e+00    1.00000e+31\n"
            "  a3         obs     4.00000e+00    1.00000e+00\n"
            "  b0         obs     5.00000e+00    1.00000e+00\n"
            "  b1         obs     6.00000e+00    1.00000e+00\n"
            "  b2         obs     7.00000e+00    1.00000e+00\n"
            "  b3         obs     8.00000e+00    1.00000e+00\n"
            "\n");
  const DirectLinearTransf dlt;
  EXPECT_EQ(dlt.get_param_name(0), "L1");
  EXPECT_EQ(dlt.get_param_name(10), "L11");
  EXPECT_EQ(dlt.get_param_name(11), "x[11]");
  EXPECT_EQ(pmf->get_param_name(-1), "x[-1]");
}

TEST_F(GeometryTest, GenericConvergenceAndApproximation) {
  const auto pmf = from_record<PMFLinear>(kPmf);
  pmf->index = 1;
  Vector corrections(9);
  corrections.zero();
  corrections[6] = -2e-8;
  EXPECT_EQ(pmf->check_convergence(corrections), 5);
  ls_params().check_geometry = false;
  EXPECT_EQ(pmf->check_convergence(corrections), -1);
  EXPECT_EQ(captured_output([&] { EXPECT_TRUE(pmf->calc_approx()); }),
            "ATTENTION: Calculate approximate image geometry not implemented.\n");
}

}  // namespace
}  // namespace vorn
