#include "geometry/rotations.h"

#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "geometry/units.h"

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

TEST(Rotations, AngleFormsAreRotationsAndReversible) {
  for (const AngleForm& form : kAngleForms) {
    SCOPED_TRACE(form.name);
    for (const Vec3& angles : kAngles) {
      const Mat3 r = form.matrix(angles);
      expect_near(product(r, transposed(r)), scaled_identity(1), 1e-15);
      EXPECT_NEAR(dot(cross(r[0], r[1]), r[2]), 1, 1e-15);
      const Vec3 back = form.angles(r);
      for (std::size_t k = 0; k < 3; ++k) EXPECT_NEAR(back[k], angles[k], 1e-13);
    }
  }
}

TEST(Rotations, AngleFormsAreTheirProducts) {
  for (const auto& [a, b, c] : kAngles) {
    expect_near(pok_rot::matrix_from_params({a, b, c}),
                product(turn_y(a), product(turn_x(b), turn_z(c))), 1e-15);
    expect_near(opk_rot::matrix_from_params({a, b, c}),
                product(turn_x(a), product(turn_y(b), turn_z(c))), 1e-15);
    expect_near(opk_fix::matrix_from_params({a, b, c}),
                transposed(opk_rot::matrix_from_params({a, b, c})), 0);
    expect_near(australis::matrix_from_params({a, b, c}),
                product(turn_x(kPi / 2), pok_rot::matrix_from_params({a, b, c})), 1e-15);
  }
  expect_near(australis::matrix_from_params({0, 0, 0}), {{{1, 0, 0}, {0, 0, -1}, {0, 1, 0}}}, 0);
}

TEST(Rotations, QuaternionScalesWithItsNorm) {
  const quaternion::Params q = {0.4, -0.7, 0.2, 0.9};
  const double norm = 0.16 + 0.49 + 0.04 + 0.81;
  const Mat3 r = quaternion::matrix_from_params(q);
  expect_near(product(r, transposed(r)), scaled_identity(norm * norm), 1e-14);
  expect_near(quaternion::matrix_from_params({2, 0, 0, 0}), scaled_identity(4), 0);
  // R is homogeneous of degree 2 in q: the derivatives add up to 2R (Euler).
  const auto derivs = quaternion::matrix_derivs(q);
  for (std::size_t i = 0; i < 3; ++i) {
    Vec3 sum{};
    for (std::size_t k = 0; k < 4; ++k) sum = sum + q[k] * derivs[k][i];
    for (std::size_t j = 0; j < 3; ++j) EXPECT_NEAR(sum[j], 2 * r[i][j], 1e-15);
  }
}

TEST(Rotations, QuaternionOfMatrix) {
  for (const AngleForm& form : kAngleForms) {
    for (const Vec3& angles : kAngles) {
      const Mat3 r = form.matrix(angles);
      expect_near(quaternion::matrix_from_params(quaternion::params_from_matrix(r)), r, 1e-12);
    }
  }
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

TEST(Units, UnknownWordsKeepTheFactor) {
  UnitAngle angle("gon");
  UnitLength length("mm");
  for (const char* word : {"unk", "", "DEG", "Deg", "deg ", "de", "degree"}) {
    EXPECT_FALSE(angle.set(word)) << word;
    EXPECT_FALSE(length.set(word)) << word;
    EXPECT_EQ(angle.code, 0);
    EXPECT_EQ(angle.abbreviation(), "unk");
    EXPECT_EQ(length.abbreviation(), "unk");
  }
  EXPECT_NEAR(angle.factor, 200 / kPi, 1e-13);
  EXPECT_EQ(length.factor, 0.001);
  EXPECT_EQ(UnitLength("n.m.").factor, 1852);
  EXPECT_EQ(UnitAngle("sec").abbreviation(), "sec");
  for (const std::int32_t code : {0, -1, 99, std::numeric_limits<std::int32_t>::min()}) {
    EXPECT_EQ(angle_unit_factor(code), 0.0);
    EXPECT_EQ(length_unit_factor(code), 0.0);
  }
}

}  // namespace
}  // namespace vorn
