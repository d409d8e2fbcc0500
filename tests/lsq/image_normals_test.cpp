// The normal equations of one image, with correlated observations.

#include "lsq/normal/image_normals.h"

#include <gtest/gtest.h>

#include <cmath>

namespace vorn {
namespace {

Matrix matrix_of(const double (&values)[4]) {
  Matrix a(2, 2);
  a.set_from(values);
  return a;
}

// P B Q B' = I, for correlations of both signs and conditions that mix x and y.
TEST(ImageNormals, WeightsInvertThePropagatedCofactors) {
  const double designs[][4] = {{1, 0, 0, 1}, {0, -1, 1, 0}, {2, 0.5, -0.25, 3}};
  const double cofactors[][4] = {{4, 0, 0, 9}, {4, 1.5, 1.5, 9}, {0.5, -0.6, -0.6, 1}};
  for (const auto& design : designs) {
    for (const auto& cofactor : cofactors) {
      PointWeights p{};
      ASSERT_TRUE(weights_of(matrix_of(design), matrix_of(cofactor), p));
      double s[2][2] = {};  // B Q B'
      for (int i = 0; i < 2; ++i) {
        for (int j = 0; j < 2; ++j) {
          for (int k = 0; k < 2; ++k) {
            for (int l = 0; l < 2; ++l) {
              s[i][j] += design[2 * i + k] * cofactor[2 * k + l] * design[2 * j + l];
            }
          }
        }
      }
      EXPECT_NEAR(p.xx * s[0][0] + p.xy * s[1][0], 1.0, 1e-13);
      EXPECT_NEAR(p.xx * s[0][1] + p.xy * s[1][1], 0.0, 1e-13);
      EXPECT_NEAR(p.xy * s[0][1] + p.yy * s[1][1], 1.0, 1e-13);
    }
  }
  PointWeights p{};
  EXPECT_FALSE(weights_of(matrix_of(designs[0]), matrix_of({1, 2, 2, 1}), p));
  EXPECT_FALSE(weights_of(matrix_of({1, 1, 1, 1}), matrix_of(cofactors[0]), p));
  EXPECT_FALSE(weights_of(matrix_of(designs[0]), matrix_of({NAN, 0, 0, 1}), p));
}

// N = A'PA, n = A'Pl and l'Pl of a point in an image with two blocks.
TEST(ImageNormals, CorrelatedPointAddsItsProducts) {
  constexpr std::int32_t kUnknowns = 3 + 4 + 2;
  NormalStructure structure(1);
  const std::int32_t blocks[] = {structure.add_block(4), structure.add_block(2)};
  structure.add_group({blocks[0], blocks[1]});
  structure.add_ray(0);
  NormalMatrix normal;
  ASSERT_TRUE(normal.set_structure(structure));
  normal.zero();
  ImageNormals image(normal, {blocks[0], blocks[1]});
  Vector rhs(kUnknowns);
  rhs.zero();
  double lPl = 0.0;

  double a[2][kUnknowns];
  PointEquation equation;
  equation.resize(6);
  equation.weights = {2.0, -0.75, 5.0};
  equation.misclosure[0] = 0.5;
  equation.misclosure[1] = -2.0;
  for (std::int32_t r = 0; r < 2; ++r) {
    for (std::int32_t c = 0; c < kUnknowns; ++c) {
      a[r][c] = std::sin(3.0 * r + c + 1.0);
      if (c < 3) equation.point[3 * r + c] = a[r][c];
      if (c >= 3) equation.rows[static_cast<std::size_t>(r * equation.stride + c - 3)] = a[r][c];
    }
  }
  const std::int32_t starts[] = {normal.coupling_start(0, blocks[0]),
                                 normal.coupling_start(0, blocks[1])};
  image.start();
  image.add({normal.point_rows(0), starts, 0}, equation, rhs);
  image.finish(rhs, lPl);

  const double p[2][2] = {{2.0, -0.75}, {-0.75, 5.0}};
  const double* const l = equation.misclosure;
  EXPECT_NEAR(lPl, 2.0 * 0.25 + 2 * 0.75 + 5.0 * 4.0, 1e-13);
  for (std::int32_t i = 0; i < kUnknowns; ++i) {
    double n = 0.0;
    for (int r = 0; r < 2; ++r) n += a[r][i] * (p[r][0] * l[0] + p[r][1] * l[1]);
    EXPECT_NEAR(rhs[i], n, 1e-13);
    for (std::int32_t j = i; j < kUnknowns; ++j) {
      double product = 0.0;
      for (int r = 0; r < 2; ++r) product += a[r][i] * (p[r][0] * a[0][j] + p[r][1] * a[1][j]);
      EXPECT_NEAR(normal.at(i, j), product, 1e-13) << i << ' ' << j;
    }
  }
}

}  // namespace
}  // namespace vorn
