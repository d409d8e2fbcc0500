#include "geometry/rotations.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vorn {
namespace {

constexpr double kPi = 3.14159265358979323846;

struct AngleForm {
  const char* name;
  Mat3 (*matrix)(const Vec3&);
  Vec3 (*angles)(const Mat3&);
};
constexpr AngleForm kAngleForms[] = {
    {"pok_rot", pok_rot::matrix_from_params, pok_rot::params_from_matrix},
    {"opk_rot", opk_rot::matrix_from_params, opk_rot::params_from_matrix},
    {"opk_fix", opk_fix::matrix_from_params, opk_fix::params_from_matrix},
    {"australis", australis::matrix_from_params, australis::params_from_matrix},
};
constexpr Vec3 kAngles[] = {{0.1, -0.2, 0.3}, {3.1, 1.5, -3.1}, {-2, -1.2, 1.8}, {0, 0, kPi}};

void expect_near(const Mat3& a, const Mat3& b, double tolerance) {
  for (std::size_t i = 0; i < 3; ++i) {
    for (std::size_t j = 0; j < 3; ++j) EXPECT_NEAR(a[i][j], b[i][j], tolerance) << i << ' ' << j;
  }
}

Mat3 product(const Mat3& a, const Mat3& b) {
  const Mat3 columns = transposed(b);
  return transposed({a * columns[0], a * columns[1], a * columns[2]});
}

Mat3 scaled_identity(double s) { return {{{s, 0, 0}, {0, s, 0}, {0, 0, s}}}; }

Mat3 turn_x(double a) {
  return {{{1, 0, 0}, {0, std::cos(a), -std::sin(a)}, {0, std::sin(a), std::cos(a)}}};
}
Mat3 turn_y(double a) {
  return {{{std::cos(a), 0, std::sin(a)}, {0, 1, 0}, {-std::sin(a), 0, std::cos(a)}}};
}
Mat3 turn_z(double a) {
  return {{{std::cos(a), -std::sin(a), 0}, {std::sin(a), std::cos(a), 0}, {0, 0, 1}}};
}

// Products of elementary turns (so rotations), undone by the way back and by the quaternion.
TEST(Rotations, AngleFormsAreTheirProductsAndReversible) {
  for (const Vec3& angles : kAngles) {
    const auto& [a, b, c] = angles;
    const Mat3 pok = product(turn_y(a), product(turn_x(b), turn_z(c)));
    const Mat3 opk = product(turn_x(a), product(turn_y(b), turn_z(c)));
    const Mat3 expected[] = {pok, opk, transposed(opk), product(turn_x(kPi / 2), pok)};
    for (std::size_t form = 0; form < 4; ++form) {
      SCOPED_TRACE(kAngleForms[form].name);
      const Mat3 r = kAngleForms[form].matrix(angles);
      expect_near(r, expected[form], 1e-15);
      const Vec3 back = kAngleForms[form].angles(r);
      for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(back[k], angles[k], 1e-13);
      expect_near(quaternion::matrix_from_params(quaternion::params_from_matrix(r)), r, 1e-12);
    }
  }
}

TEST(Rotations, QuaternionOfHalfTurns) {
  struct HalfTurn {
    Mat3 r;
    quaternion::Params q;
  };
  const HalfTurn half_turns[] = {
      {scaled_identity(1), {1, 0, 0, 0}},
      {{{{1, 0, 0}, {0, -1, 0}, {0, 0, -1}}}, {0, 1, 0, 0}},
      {{{{-1, 0, 0}, {0, 1, 0}, {0, 0, -1}}}, {0, 0, 1, 0}},
      {{{{-1, 0, 0}, {0, -1, 0}, {0, 0, 1}}}, {0, 0, 0, 1}},
      // About (2, 1, 2)/3.
      {{{{-1. / 9, 4. / 9, 8. / 9}, {4. / 9, -7. / 9, 4. / 9}, {8. / 9, 4. / 9, -1. / 9}}},
       {0, 2. / 3, 1. / 3, 2. / 3}},
  };
  for (const auto& [r, q] : half_turns) {
    const quaternion::Params recovered = quaternion::params_from_matrix(r);
    for (std::size_t k = 0; k < 4; ++k) EXPECT_NEAR(recovered[k], q[k], 1e-15);
  }
  // About an axis within a coordinate plane the one product that is left meets a zero square root.
  EXPECT_TRUE(std::isnan(quaternion::params_from_matrix({{{0, 1, 0}, {1, 0, 0}, {0, 0, -1}}})[1]));
}

}  // namespace
}  // namespace vorn
