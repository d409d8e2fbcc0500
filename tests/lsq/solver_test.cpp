// The dense routines, and the normal matrix as its users see it.

#include <gtest/gtest.h>

#include <cmath>
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

Matrix random_matrix(std::int32_t rows, std::int32_t cols, test::Noise& noise) {
  Matrix a(rows, cols);
  for (std::int32_t i = 0; i < rows; ++i) {
    for (std::int32_t j = 0; j < cols; ++j) a[i][j] = noise.normal();
  }
  return a;
}

Matrix product(const Matrix& a, const Matrix& b) {
  Matrix c(a.rows(), b.cols());
  c.zero();
  for (std::int32_t i = 0; i < a.rows(); ++i) {
    for (std::int32_t k = 0; k < a.cols(); ++k) {
      for (std::int32_t j = 0; j < b.cols(); ++j) c[i][j] += a[i][k] * b[k][j];
    }
  }
  return c;
}

Matrix transposed(const Matrix& a) {
  Matrix t(a.cols(), a.rows());
  for (std::int32_t i = 0; i < a.rows(); ++i) {
    for (std::int32_t j = 0; j < a.cols(); ++j) t[j][i] = a[i][j];
  }
  return t;
}

Matrix matrix_of(std::int32_t rows, std::int32_t cols, const std::vector<double>& values) {
  Matrix a(rows, cols);
  a.set_from(values.data());
  return a;
}

TEST(Cholesky, LawsHoldForRandomMatrices) {
  test::Noise noise(3);
  for (const std::int32_t n : {0, 1, 2, 3, 7, 40, 97}) {
    const Matrix half = random_matrix(n + 2, n, noise);
    const Matrix full = product(transposed(half), half);
    NormalMatrix normal;
    normal.resize(n);
    normal.zero();
    Matrix lower = full;
    for (std::int32_t i = 0; i < n; ++i) {
      // What stands below the diagonal must not matter.
      for (std::int32_t j = 0; j < i; ++j) lower[i][j] = kNaN;
      for (std::int32_t j = i; j < n; ++j) normal.add(i, j, full[i][j]);
    }
    Vector b(n);
    for (std::int32_t i = 0; i < n; ++i) b[i] = noise.normal();
    Vector p;
    ASSERT_EQ(cholesky(lower, p), 0);
    Matrix factor = lower;
    for (std::int32_t i = 0; i < n; ++i) {
      factor[i][i] = p[i];
      for (std::int32_t j = i + 1; j < n; ++j) factor[i][j] = 0.0;
    }
    const Matrix rebuilt = product(factor, transposed(factor));

    AdjInterfaceNative solver;
    Vector x;
    Matrix q;
    ASSERT_EQ(solver.solve(normal, b, x, p), 0);
    ASSERT_EQ(solver.invert(normal, q, p), 0);
    const Matrix identity = product(q, full);
    const double tolerance = 1e-9 * (n + 1);
    for (std::int32_t i = 0; i < n; ++i) {
      double left = 0.0;
      for (std::int32_t j = 0; j < n; ++j) {
        left += full[i][j] * x[j];
        EXPECT_NEAR(rebuilt[i][j], full[i][j], tolerance);
        EXPECT_NEAR(identity[i][j], i == j ? 1.0 : 0.0, 1e-7 * (n + 1));
        EXPECT_EQ(q[i][j], q[j][i]);
        EXPECT_NEAR(normal.at(i, j), j < i ? lower[i][j] : full[i][j], j < i ? tolerance : 0.0);
      }
      EXPECT_NEAR(left, b[i], tolerance * 100);
    }
  }
}

TEST(Cholesky, FailuresNameTheRow) {
  struct Case {
    std::int32_t size;
    std::vector<double> values;
    int code;
  };
  const Case cases[] = {
      {1, {0}, 1},
      {1, {-4}, 1},
      {1, {kNaN}, 1},
      {2, {1, 1, 1, 1}, 2},
      {2, {1, kNaN, 0, 1}, 2},
      {3, {4, 0, 0, 0, 9, 3, 0, 0, 1}, 3},
      {3, {4, 0, 0, 0, -1, 3, 0, 0, 1}, 2},
  };
  for (const Case& c : cases) {
    Matrix n = matrix_of(c.size, c.size, c.values);
    Vector p;
    EXPECT_EQ(cholesky(n, p), c.code);
    NormalMatrix normal;
    normal.resize(c.size);
    normal.zero();
    normal.add_block(0, 0, matrix_of(c.size, c.size, c.values));
    AdjInterfaceNative solver;
    Vector b(c.size);
    Vector x;
    EXPECT_EQ(test::captured_output([&] { EXPECT_EQ(solver.solve(normal, b, x, p), c.code); }),
              "ERROR: Cholesky decomposition failed.\n");
  }
  Matrix n = matrix_of(1, 1, {4});
  Vector p;
  Vector b(1);
  Vector x;
  b[0] = 2;
  EXPECT_EQ(cholesky(n, p), 0);
  EXPECT_EQ(back_substitution(n, p, b, x), 0);
  EXPECT_EQ(invert_from_cholesky(n, p), 0);
  EXPECT_EQ(std::vector<double>({p[0], x[0], n[0][0]}), (std::vector<double>{2, 0.5, 0.25}));

  Matrix flat(2, 3);
  Matrix square = matrix_of(2, 2, {1, 0, 0, 1});
  EXPECT_EQ(cholesky(flat, p), -1);
  EXPECT_EQ(back_substitution(flat, p, b, x), -1);
  EXPECT_EQ(back_substitution(square, Vector(1), Vector(2), x), -2);
  EXPECT_EQ(back_substitution(square, Vector(2), Vector(3), x), -3);
  EXPECT_EQ(invert_from_cholesky(flat, p), -1);
  EXPECT_EQ(invert_from_cholesky(square, Vector(3)), -2);
  NormalMatrix normal;
  normal.resize(2);
  EXPECT_EQ(
      test::captured_output([&] { EXPECT_EQ(AdjInterfaceNative().invert(normal, n, p), -2); }),
      "ERROR: Backsubstitution failed.\n");
}

TEST(NormalMatrix, TakesBlocksAndWritesFiles) {
  NormalMatrix normal;
  normal.resize(3);
  normal.zero();
  normal.add(0, 0, 4.0);
  normal.add_block(0, 1, matrix_of(1, 2, {2.0, 0.0}));
  // Below the diagonal nothing arrives.
  normal.add_block(1, 1, matrix_of(2, 2, {4.0, 2.0, 77.0, 2.0}));
  normal.add_block(1, 1, matrix_of(2, 2, {1.0, 0.0, 77.0, 0.0}));
  EXPECT_EQ(normal.at(2, 1), 0.0);
  EXPECT_EQ(test::written_text([&](TextWriter& out) { normal.write_structure(out); }),
            "P1\n3 3\n\n1 1 0 \n1 1 1 \n0 1 1 \n");
  Vector p;
  Vector b(3);
  Vector x;
  b.zero();
  ASSERT_EQ(AdjInterfaceNative().solve(normal, b, x, p), 0);
  EXPECT_EQ(test::written_text([&](TextWriter& out) { normal.write_elements(out); }),
            "3 3\n"
            "4.000000000000e+00 2.000000000000e+00 0.000000000000e+00 \n"
            "1.000000000000e+00 5.000000000000e+00 2.000000000000e+00 \n"
            "0.000000000000e+00 1.000000000000e+00 2.000000000000e+00 \n");
}

TEST(ObservationGroup, AddsConditionsWithWeights) {
  NormalMatrix normal;
  normal.resize(3);
  normal.zero();
  Vector rhs(3);
  rhs.zero();
  Vector weight(1);
  weight[0] = 10.0;
  Vector reduced(1);
  reduced[0] = 0.5;
  double vtpv = 1.0;
  const DesignBlock block = {matrix_of(1, 2, {2.0, -3.0}), 1};
  add_weighted_observations({&block}, weight, reduced, normal, rhs, vtpv);
  const double n[] = {0, 0, 0, 0, 40, -60, 0, 0, 90};
  for (std::int32_t i = 0; i < 9; ++i) EXPECT_EQ(normal.at(i / 3, i % 3), n[i]);
  EXPECT_EQ(std::vector<double>({rhs[0], rhs[1], rhs[2], vtpv}),
            (std::vector<double>{0, 10, -15, 3.5}));
}

}  // namespace
}  // namespace vorn
