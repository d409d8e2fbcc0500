// Analytic derivatives of every image geometry against central differences.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <string>

#include "calibration/corrections.h"
#include "geometry/eo_file.h"
#include "geometry/ext_orientation.h"

namespace vorn {
namespace {

// Orientations above, beside and below the object, with small and with large angles.
const char* const kModels[] = {
    "ext-ori-pok-rot i deg 5 500 -900 800  1 1 1  130 -50 -160  1 1 1",
    "ext-ori-opk-rot i deg 5 500 -900 800  1 1 1  65 40 20  1 1 1",
    "ext-ori-opk-fix i rad 5 100 210 1500  1 1 1  0.15 0.25 -0.4  1 1 1",
    "ext-ori-australis i deg 5 300 -700 90  1 1 1  -20 12 85  1 1 1",
    "ext-ori-quaternion i 5 100 210 1500  1 1 1  0.9 0.1 -0.2 0.4  1 1 1 1",
    "dlt i 0 1e-4 1 2e-5 1 -1e-5 1 0.01 1 3e-5 1 -2e-4 1 5e-5 1 -0.02 1 1e-3 1 -2e-3 1 5e-4 1",
    "pmf-linear i 0 0.01 1 1e-4 1 2e-5 1 -1e-5 1 -0.02 1 3e-5 1 -2e-4 1 5e-5 1"};

constexpr Vec3 kPoints[] = {{180, 150, 20}, {-40, 260, -35}, {100, 210, 0}};
constexpr Vec3 kImage = {0, 0, -0.15};

// Compares the column of one variable with the difference quotient; the tolerance is relative to
// the column, above what rounding makes of zeros.
void expect_column(ImageGeometry& geometry, const Vec3& point, const Matrix& a, std::int32_t column,
                   double& variable) {
  const double kept = variable;
  const double h = 1e-6 * std::max(1e-2, std::abs(kept));
  Vec3 image[3] = {kImage, kImage, kImage};
  for (const int side : {0, 2, 1}) {
    variable = kept + (side - 1) * h;
    geometry.update();
    EXPECT_TRUE(geometry.projection(point, image[side]));
  }
  const double width = (kept + h) - (kept - h);
  const double size = std::max(std::abs(a[0][column]), std::abs(a[1][column]));
  for (const std::int32_t row : {0, 1}) {
    const auto k = static_cast<std::size_t>(row);
    EXPECT_NEAR((image[2][k] - image[0][k]) / width, a[row][column], 2e-6 * size + 1e-16 / width)
        << "row " << row << ", column " << column;
  }
}

void expect_block(ImageGeometry& geometry, const Vec3& point, const DesignBlock& block,
                  const AdjObject& object) {
  SCOPED_TRACE(object.get_type_name());
  EXPECT_EQ(block.index, object.index);
  ASSERT_EQ(block.a.cols(), static_cast<std::int32_t>(object.num_params()));
  for (std::int32_t k = 0; k < block.a.cols(); ++k) {
    expect_column(geometry, point, block.a, k, *object.param(k).value);
  }
}

TEST(Derivatives, OfAllModels) {
  PosCorrection pos;
  AttCorrection att;
  TokenReader pos_record("stop-dep 2.5 3  9 1 -7 1 5 1  3 1 2 1 -4 1  -2 1 1 1 0.5 1");
  TokenReader att_record(
      "stop-dep 6.5 3  0.02 1 -0.03 1 0.01 1  0.01 1 0.01 1 -0.02 1  0.01 1 0.02 1 0.03 1");
  ASSERT_EQ(pos.read(pos_record) + att.read(att_record), 2);
  pos.init_params();
  att.init_params();
  pos.index = 40;
  att.index = 60;
  PointDerivs derivs;  // shared, so that each model finds the sizes of the one before
  for (const std::string model : kModels) {
    OwnedList<ImageGeometry> list;
    const std::string text = "indiv-type " + model;
    TokenReader in(text);
    ASSERT_EQ(read_eo_file(in, list), 1);
    ImageGeometry& geometry = *list[0];
    auto* const orientation = dynamic_cast<ExtOrientation*>(&geometry);
    const bool angles = orientation != nullptr && orientation->num_values() == 6;
    geometry.index = 30;
    geometry.init_params();
    for (const bool corrected : {false, true}) {
      SCOPED_TRACE(model + (corrected ? ", corrected" : ""));
      if (corrected && orientation != nullptr) {
        orientation->set_pos_correction(pos);
        orientation->set_att_correction(att);
      }
      EXPECT_EQ(geometry.has_pos_correction(), corrected && orientation != nullptr);
      EXPECT_EQ(geometry.has_att_correction(), corrected && angles);
      geometry.update();
      for (Vec3 point : kPoints) {
        ASSERT_TRUE(geometry.get_derivs(kImage, point, derivs));
        for (std::int32_t k = 0; k < 3; ++k) {
          expect_column(geometry, point, derivs.point.a, k, point[static_cast<std::size_t>(k)]);
        }
        expect_block(geometry, point, derivs.geometry, geometry);
        if (geometry.has_pos_correction()) expect_block(geometry, point, derivs.pos, pos);
        if (geometry.has_att_correction()) expect_block(geometry, point, derivs.att, att);
        EXPECT_TRUE(derivs.b[0][0] == 1 && derivs.b[0][1] == 0);
        EXPECT_TRUE(derivs.b[1][0] == 0 && derivs.b[1][1] == 1);
      }
    }
  }
}

}  // namespace
}  // namespace vorn
