// The dense routines, and the normal matrix as its users see it.

#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "lsq/adj_interface.h"
#include "lsq/cholesky.h"
#include "lsq/observation_group.h"
#include "support/captured_output.h"
#include "support/noise.h"

namespace vorn {
namespace {

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

Matrix matrix_of(std::int32_t rows, std::int32_t cols, const std::vector<double>& values) {
  Matrix a(rows, cols);
  a.set_from(values.data());
  return a;
}

void set_normal(NormalMatrix& normal, const Matrix& full) {
  normal.resize(full.rows());
  normal.zero();
  for (std::int32_t i = 0; i < full.rows(); ++i) {
    for (std::int32_t j = i; j < full.rows(); ++j) normal.add(i, j, full[i][j]);
  }
}

// Sum over k of a[i][k] b[k][j], or of a[i][k] b[j][k].
double product(const Matrix& a, std::int32_t i, const Matrix& b, std::int32_t j, bool transposed) {
  double sum = 0.0;
  for (std::int32_t k = 0; k < a.cols(); ++k) sum += a[i][k] * (transposed ? b[j][k] : b[k][j]);
  return sum;
}

TEST(Cholesky, LawsHoldForRandomMatrices) {
  test::Noise noise(3);
  for (const std::int32_t n : {0, 1, 2, 3, 7, 40, 97}) {
    Matrix half(n, n + 2);
    Vector b(n);
    for (std::int32_t i = 0; i < n; ++i) {
      b[i] = noise.normal();
      for (std::int32_t k = 0; k < half.cols(); ++k) half[i][k] = noise.normal();
    }
    Matrix full(n, n);
    Matrix factor(n, n);
    for (std::int32_t i = 0; i < n; ++i) {
      for (std::int32_t j = 0; j < n; ++j) {
        full[i][j] = product(half, i, half, j, true);
        // What stands below the diagonal must not matter.
        factor[i][j] = j < i ? kNaN : full[i][j];
      }
    }
    NormalMatrix normal;
    set_normal(normal, full);
    Vector p;
    Vector x;
    Matrix q;
    ASSERT_EQ(cholesky(factor, p), 0);
    for (std::int32_t i = 0; i < n; ++i) {
      factor[i][i] = p[i];
      for (std::int32_t j = i + 1; j < n; ++j) factor[i][j] = 0.0;
    }
    ASSERT_EQ(AdjInterfaceNative().solve(normal, b, x, p), 0);
    ASSERT_EQ(AdjInterfaceNative().invert(normal, q, p), 0);
    const double tolerance = 1e-9 * (n + 1);
    for (std::int32_t i = 0; i < n; ++i) {
      double left = 0.0;
      for (std::int32_t j = 0; j < n; ++j) {
        left += full[i][j] * x[j];
        EXPECT_NEAR(product(factor, i, factor, j, true), full[i][j], tolerance);
        EXPECT_NEAR(product(q, i, full, j, false), i == j ? 1.0 : 0.0, 100 * tolerance);
        EXPECT_EQ(q[i][j], q[j][i]);
        EXPECT_NEAR(normal.at(i, j), j < i ? factor[i][j] : full[i][j], j < i ? tolerance : 0.0);
      }
      EXPECT_NEAR(left, b[i], 100 * tolerance);
    }
  }
}

TEST(Cholesky, FailuresNameTheRow) {
  const struct {
    std::int32_t size;
    std::vector<double> values;
    int code;
  } cases[] = {{1, {0}, 1},
               {1, {-4}, 1},
               {1, {kNaN}, 1},
               {2, {1, 1, 1, 1}, 2},
               {2, {1, kNaN, 0, 1}, 2},
               {3, {4, 0, 0, 0, 9, 3, 0, 0, 1}, 3},
               {3, {4, 0, 0, 0, -1, 3, 0, 0, 1}, 2}};
  Vector p;
  Vector x;
  for (const auto& c : cases) {
    Matrix n = matrix_of(c.size, c.size, c.values);
    NormalMatrix normal;
    set_normal(normal, n);
    EXPECT_EQ(cholesky(n, p), c.code);
    EXPECT_EQ(test::captured_output([&] {
                EXPECT_EQ(AdjInterfaceNative().solve(normal, Vector(c.size), x, p), c.code);
              }),
              "ERROR: Cholesky decomposition failed.\n");
  }
  Matrix flat(2, 3);
  Matrix square = matrix_of(2, 2, {1, 0, 0, 1});
  EXPECT_EQ(cholesky(flat, p), -1);
  EXPECT_EQ(back_substitution(flat, p, Vector(1), x), -1);
  EXPECT_EQ(back_substitution(square, Vector(1), Vector(2), x), -2);
  EXPECT_EQ(back_substitution(square, Vector(2), Vector(3), x), -3);
  EXPECT_EQ(invert_from_cholesky(flat, p), -1);
  EXPECT_EQ(invert_from_cholesky(square, Vector(3)), -2);
}

TEST(ImageEquations, NeedAPositiveDefiniteWeightMatrix) {
  NormalMatrix normal;
  set_normal(normal, Matrix());
  Vector rhs;
  ImageEquations equations(normal, rhs, {});
  const Matrix b = matrix_of(2, 2, {1, 0, 0, 1});
  for (const std::array q : {std::array{0., 1.}, {1., -1.}, {kNaN, 1.}, {1., kNaN}}) {
    const Matrix cofactors = matrix_of(2, 2, {q[0], 0, 0, q[1]});
    EXPECT_EQ(test::captured_output([&] {
                EXPECT_FALSE(equations.add({}, Matrix(2, 3), {}, b, cofactors, {0.0, 0.0}));
              }),
              "ERROR: Decomposition of weight matrix failed.\n");
  }
}

TEST(NormalMatrix, TakesBlocksAndConditions) {
  NormalMatrix normal;
  set_normal(normal, matrix_of(3, 3, {4, 2, 0, 0, 0, 0, 0, 0, 0}));
  // Below the diagonal nothing arrives.
  normal.add_block(1, 1, matrix_of(2, 2, {4, 2, 77, 2}));
  EXPECT_EQ(normal.at(2, 1), 0.0);
  EXPECT_EQ(test::written_text([&](TextWriter& out) { normal.write_structure(out); }),
            "P1\n3 3\n\n1 1 0 \n1 1 1 \n0 1 1 \n");
  Vector rhs = Vector(3);
  Vector weight(1);
  Vector reduced(1);
  rhs.zero();
  weight[0] = 10.0;
  reduced[0] = 0.5;
  double vtpv = 1.0;
  const DesignBlock block = {matrix_of(1, 2, {2.0, -3.0}), 1};
  add_weighted_observations({&block}, weight, reduced, normal, rhs, vtpv);
  const double n[] = {4, 2, 0, 0, 44, -58, 0, 0, 92};
  for (std::int32_t i = 0; i < 9; ++i) EXPECT_EQ(normal.at(i / 3, i % 3), n[i]);
  EXPECT_EQ(std::vector<double>({rhs[0], rhs[1], rhs[2], vtpv}),
            (std::vector<double>{0, 10, -15, 3.5}));
}

}  // namespace
}  // namespace vorn
