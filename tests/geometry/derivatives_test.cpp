// Analytic derivatives of every image geometry against central differences.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

#include "calibration/corrections.h"
#include "geometry/eo_angles.h"
#include "geometry/eo_quaternion.h"
#include "geometry/linear_geometries.h"
#include "geometry_support.h"

namespace vorn {
namespace {

using test::from_record;
using test::GeometryTest;

constexpr double kZ = -0.15;

struct Model {
  const char* name;
  std::unique_ptr<ImageGeometry> (*make)(const char* record);
  const char* record;
  bool attitude;  // an attitude correction takes effect
};

template <class Geometry>
std::unique_ptr<ImageGeometry> make(const char* record) {
  return from_record<Geometry>(record);
}

// Orientations above, beside and below the object, with small and with large angles.
const Model kModels[] = {
    {"pok", make<EOAnglesPOKRot>, "i deg 5 500 -900 800  1 1 1  130 -50 -160  1 1 1", true},
    {"opk rotated", make<EOAnglesOPKRot>, "i deg 5 500 -900 800  1 1 1  65 40 20  1 1 1", true},
    {"opk fixed", make<EOAnglesOPKFix>, "i rad 5 100 210 1500  1 1 1  0.15 0.25 -0.4  1 1 1", true},
    {"australis", make<EOAustralis>, "i deg 5 300 -700 90  1 1 1  -20 12 85  1 1 1", true},
    {"quaternion", make<EOQuaternion>, "i 5 100 210 1500  1 1 1  0.9 0.1 -0.2 0.4  1 1 1 1", false},
    {"dlt", make<DirectLinearTransf>,
     "i 0 1e-4 1 2e-5 1 -1e-5 1 0.01 1 3e-5 1 -2e-4 1 5e-5 1 -0.02 1 1e-3 1 -2e-3 1 5e-4 1", false},
    {"pmf", make<PMFLinear>, "i 0 0.01 1 1e-4 1 2e-5 1 -1e-5 1 -0.02 1 3e-5 1 -2e-4 1 5e-5 1",
     false},
};

constexpr Vec3 kPoints[] = {{180, 150, 20}, {-40, 260, -35}, {100, 210, 0}};

// Compares the column of one variable with the difference quotient; the tolerance is relative to
// the column, above what rounding makes of zeros.
template <class Refresh>
void expect_column(ImageGeometry& geometry, const Vec3& point, const Matrix& a, std::int32_t column,
                   double& variable, Refresh refresh) {
  const double kept = variable;
  const double h = 1e-6 * std::max(1e-2, std::abs(kept));
  Vec3 image[3] = {{0, 0, kZ}, {0, 0, kZ}, {0, 0, kZ}};
  for (const int side : {0, 2, 1}) {
    variable = kept + (side - 1) * h;
    refresh();
    EXPECT_TRUE(geometry.projection(point, image[side]));
  }
  const double width = (kept + h) - (kept - h);
  const double size = std::max(std::abs(a[0][column]), std::abs(a[1][column]));
  const double tolerance = 2e-6 * size + 1e-16 / width;
  for (std::size_t row = 0; row < 2; ++row) {
    EXPECT_NEAR((image[2][row] - image[0][row]) / width, a[static_cast<std::int32_t>(row)][column],
                tolerance)
        << "row " << row << ", column " << column;
  }
}

void expect_block(ImageGeometry& geometry, const Vec3& point, const DesignBlock& block,
                  const AdjObject& object) {
  SCOPED_TRACE(object.get_type_name());
  EXPECT_EQ(block.index, object.index);
  ASSERT_EQ(block.a.cols(), static_cast<std::int32_t>(object.num_params()));
  for (std::int32_t k = 0; k < block.a.cols(); ++k) {
    expect_column(geometry, point, block.a, k, *object.param(k).value, [&] { geometry.update(); });
  }
}

TEST_F(GeometryTest, DerivativesOfAllModels) {
  PointDerivs derivs;  // shared, so that each model finds the sizes of the one before
  for (const Model& model : kModels) {
    for (const bool corrected : {false, true}) {
      SCOPED_TRACE(std::string(model.name) + (corrected ? ", corrected" : ""));
      const std::unique_ptr<ImageGeometry> geometry = model.make(model.record);
      auto* const orientation = dynamic_cast<ExtOrientation*>(geometry.get());
      if (corrected && orientation == nullptr) continue;

      PosCorrection pos;
      AttCorrection att;
      TokenReader pos_record("stop-dep 2.5 3  9 1 -7 1 5 1  3 1 2 1 -4 1  -2 1 1 1 0.5 1");
      TokenReader att_record(
          "stop-dep 6.5 3  0.02 1 -0.03 1 0.01 1  0.01 1 0.01 1 -0.02 1  0.01 1 0.02 1 0.03 1");
      if (corrected) {
        ASSERT_EQ(pos.read(pos_record), 1);
        ASSERT_EQ(att.read(att_record), 1);
        orientation->set_pos_correction(pos);
        orientation->set_att_correction(att);
      }
      EXPECT_EQ(geometry->has_pos_correction(), corrected);
      EXPECT_EQ(geometry->has_att_correction(), corrected && model.attitude);
      pos.init_params();
      att.init_params();
      geometry->init_params();
      geometry->index = 30;
      pos.index = 40;
      att.index = 60;
      geometry->update();

      for (Vec3 point : kPoints) {
        ASSERT_TRUE(geometry->get_derivs({0, 0, kZ}, point, derivs));
        for (std::int32_t k = 0; k < 3; ++k) {
          expect_column(*geometry, point, derivs.point.a, k, point[static_cast<std::size_t>(k)],
                        [] {});
        }
        expect_block(*geometry, point, derivs.geometry, *geometry);
        if (geometry->has_pos_correction()) expect_block(*geometry, point, derivs.pos, pos);
        if (geometry->has_att_correction()) expect_block(*geometry, point, derivs.att, att);
        EXPECT_TRUE(derivs.b[0][0] == 1 && derivs.b[0][1] == 0);
        EXPECT_TRUE(derivs.b[1][0] == 0 && derivs.b[1][1] == 1);
      }
    }
  }
}

}  // namespace
}  // namespace vorn
