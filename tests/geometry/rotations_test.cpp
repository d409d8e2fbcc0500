#include "geometry/rotations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <numbers>
#include <utility>

namespace vorn {
namespace {

constexpr double kPi = std::numbers::pi;
constexpr Vec3 kAngles[] = {{0.1, -0.2, 0.3}, {3.1, 1.5, -3.1}, {-2, -1.2, 1.8}, {0, 0, kPi}};

void expect_near(const Mat3& a, const Mat3& b, double tolerance) {
  for (std::size_t i = 0; i < 9; ++i) {
    EXPECT_NEAR(a[i / 3][i % 3], b[i / 3][i % 3], tolerance) << "element " << i;
  }
}

// R1 R2 R3 of elementary turns by `angle` about the axes x (0), y (1) and z (2).
Mat3 turns(std::initializer_list<std::pair<std::size_t, double>> axes_and_angles) {
  Mat3 r = {{{1, 0, 0}, {0, 1, 0}, {0, 0, 1}}};
  for (const auto& [axis, angle] : axes_and_angles) {
    for (Vec3& row : r) {
      double& u = row[(axis + 1) % 3];
      double& v = row[(axis + 2) % 3];
      const double kept = u;
      u = kept * std::cos(angle) + v * std::sin(angle);
      v = v * std::cos(angle) - kept * std::sin(angle);
    }
  }
  return r;
}

// Products of elementary turns (so rotations), undone by the way back and by the quaternion.
TEST(Rotations, AngleFormsAreTheirProductsAndReversible) {
  for (const Vec3& angles : kAngles) {
    const auto& [a, b, c] = angles;
    const Mat3 opk = turns({{0, a}, {1, b}, {2, c}});
    const struct {
      Mat3 expected;
      Mat3 (*matrix)(const Vec3&);
      Vec3 (*angles)(const Mat3&);
    } forms[] = {
        {turns({{1, a}, {0, b}, {2, c}}), pok_rot::matrix_from_params, pok_rot::params_from_matrix},
        {opk, opk_rot::matrix_from_params, opk_rot::params_from_matrix},
        {transposed(opk), opk_fix::matrix_from_params, opk_fix::params_from_matrix},
        {turns({{0, kPi / 2}, {1, a}, {0, b}, {2, c}}), australis::matrix_from_params,
         australis::params_from_matrix}};
    for (const auto& form : forms) {
      const Mat3 r = form.matrix(angles);
      expect_near(r, form.expected, 1e-15);
      const Vec3 back = form.angles(r);
      for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(back[k], angles[k], 1e-13);
      expect_near(quaternion::matrix_from_params(quaternion::params_from_matrix(r)), r, 1e-12);
    }
  }
}

TEST(Rotations, QuaternionOfHalfTurns) {
  // The last one about (2, 1, 2)/3.
  for (const quaternion::Params& q : {quaternion::Params{1, 0, 0, 0},
                                      {0, 1, 0, 0},
                                      {0, 0, 1, 0},
                                      {0, 0, 0, 1},
                                      {0, 2. / 3, 1. / 3, 2. / 3}}) {
    const quaternion::Params recovered =
        quaternion::params_from_matrix(quaternion::matrix_from_params(q));
    for (std::size_t k = 0; k < 4; ++k) EXPECT_NEAR(recovered[k], q[k], 1e-15);
  }
  // About an axis within a coordinate plane the one product that is left meets a zero square root.
  EXPECT_TRUE(std::isnan(quaternion::params_from_matrix({{{0, 1, 0}, {1, 0, 0}, {0, 0, -1}}})[1]));
}

}  // namespace
}  // namespace vorn
