// The structured normal equations against the dense routines, on random structures.

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <random>
#include <vector>

#include "lsq/cholesky.h"
#include "lsq/kernels.h"
#include "lsq/normal_matrix.h"

namespace vorn {
namespace {

// A structure and a positive definite matrix of that structure, structured and dense.
struct Scene {
  NormalStructure structure;
  NormalMatrix normal;
  Matrix dense;
  Vector rhs;
};

// Adds A'PA of one observation of an image (its blocks) and a point, both to the structured and to
// the dense matrix.
void observe(std::mt19937& random, const std::vector<std::int32_t>& group, std::int32_t point,
             Scene& scene) {
  std::uniform_real_distribution<double> value(-1.0, 1.0);
  std::vector<std::int32_t> unknowns = {3 * point, 3 * point + 1, 3 * point + 2};
  for (const std::int32_t block : group) {
    for (std::int32_t c = 0; c < scene.normal.block_width(block); ++c) {
      unknowns.push_back(scene.normal.block_index(block) + c);
    }
  }
  for (int row = 0; row < 2; ++row) {
    std::vector<double> a(unknowns.size());
    for (double& x : a) x = value(random);
    for (std::size_t i = 0; i < a.size(); ++i) {
      for (std::size_t j = i; j < a.size(); ++j) {
        scene.normal.add(unknowns[i], unknowns[j], a[i] * a[j]);
        scene.dense[unknowns[i]][unknowns[j]] += a[i] * a[j];
      }
    }
  }
}

// `reach` limits the images that see a point to neighbours, which makes the reduced matrix sparse;
// a block of `set_width` is shared by all images, one of 5 unknowns by none of them.
void build(std::uint32_t seed, std::int32_t images, std::int32_t points, std::int32_t reach,
           std::int32_t set_width, NormalMatrix::Method method, Scene& scene) {
  std::mt19937 random(seed);
  const std::vector<std::int32_t> widths = {6, 7, 11, 6, 8, 6};
  scene.structure = NormalStructure(points);
  // Images in a random order of their places, so that the natural order is a bad one.
  std::vector<std::int32_t> places(static_cast<std::size_t>(images));
  for (std::size_t i = 0; i < places.size(); ++i) places[i] = static_cast<std::int32_t>(i);
  std::shuffle(places.begin(), places.end(), random);
  for (std::int32_t i = 0; i < images; ++i) {
    scene.structure.add_block(widths[static_cast<std::size_t>(i) % widths.size()]);
  }
  const std::int32_t set = scene.structure.add_block(set_width);
  scene.structure.add_block(5);
  scene.structure.add_block(0);
  std::vector<std::vector<std::int32_t>> seen(static_cast<std::size_t>(images));
  std::uniform_int_distribution<std::int32_t> place(0, images - 1);
  for (std::int32_t p = 0; p + 1 < points; ++p) {  // the last point has no rays
    const std::int32_t centre = place(random);
    for (std::int32_t i = 0; i < images; ++i) {
      if (std::abs(places[static_cast<std::size_t>(i)] - centre) <= reach) {
        seen[static_cast<std::size_t>(i)].push_back(p);
      }
    }
  }
  for (std::int32_t i = 0; i < images; ++i) {
    scene.structure.add_group({i, set});
    for (const std::int32_t p : seen[static_cast<std::size_t>(i)]) scene.structure.add_ray(p);
  }
  ASSERT_TRUE(scene.normal.set_structure(scene.structure, method));
  const std::int32_t n = scene.structure.num_unknowns();
  scene.dense.resize(n, n);
  scene.dense.zero();
  for (std::int32_t i = 0; i < images; ++i) {
    for (const std::int32_t p : seen[static_cast<std::size_t>(i)]) {
      observe(random, {i, set}, p, scene);
    }
  }
  scene.rhs.resize(n);
  for (std::int32_t i = 0; i < n; ++i) {
    // K3 in SI units beside suppressed unknowns: pivots of very different size are legitimate.
    const double weight = i % 17 == 3 ? 1e10 : i % 17 == 5 ? 1e-3 : 1.0;
    scene.normal.add(i, i, weight);
    scene.dense[i][i] += weight;
    scene.rhs[i] = std::sin(i + 1.0);
  }
}

struct Shape {
  std::int32_t images, points, reach, set_width;
  NormalMatrix::Method method;
};

class StructuredNormalMatrix : public testing::TestWithParam<Shape> {
 protected:
  void SetUp() override {
    const Shape shape = GetParam();
    build(7U, shape.images, shape.points, shape.reach, shape.set_width, shape.method, scene_);
  }
  void expect_close(double expected, double actual, double scale) {
    EXPECT_NEAR(expected, actual, 1e-9 * scale);
  }
  Scene scene_;
};

TEST_P(StructuredNormalMatrix, SolvesAndShowsWhatTheDenseRoutinesGive) {
  const std::int32_t n = scene_.dense.rows();
  Vector p;
  Vector x;
  ASSERT_EQ(scene_.normal.solve(scene_.rhs, x, p), 0);
  Vector dense_p;
  Vector dense_x;
  ASSERT_EQ(cholesky(scene_.dense, dense_p), 0);
  ASSERT_EQ(back_substitution(scene_.dense, dense_p, scene_.rhs, dense_x), 0);
  for (std::int32_t i = 0; i < n; ++i) {
    expect_close(dense_x[i], x[i], 1.0);
    if (GetParam().method == NormalMatrix::Method::eliminate_in_order)
      expect_close(dense_p[i], p[i], dense_p[i]);
    for (std::int32_t j = 0; j < n; ++j) {
      ASSERT_NEAR(scene_.dense[i][j], scene_.normal.at(i, j), 1e-9 * dense_p[std::max(i, j)])
          << i << ' ' << j;
    }
  }
  // The two steps apart give the same.
  Vector again;
  ASSERT_EQ(scene_.normal.factorise(p), 0);
  ASSERT_EQ(scene_.normal.substitute(p, scene_.rhs, again), 0);
  for (std::int32_t i = 0; i < n; ++i) expect_close(x[i], again[i], 1.0);
}

TEST_P(StructuredNormalMatrix, PartsOfTheInverseAreThoseOfTheDenseInverse) {
  Vector p;
  ASSERT_EQ(scene_.normal.factorise(p), 0);
  Vector dense_p;
  ASSERT_EQ(cholesky(scene_.dense, dense_p), 0);
  ASSERT_EQ(invert_from_cholesky(scene_.dense, dense_p), 0);
  scene_.dense.symmetrise();
  const std::int32_t first = 3 * scene_.structure.num_points();
  Matrix reduced;
  scene_.normal.invert_reduced(reduced);
  for (std::int32_t i = 0; i < reduced.rows(); ++i) {
    for (std::int32_t j = 0; j < reduced.cols(); ++j) {
      expect_close(scene_.dense[first + i][first + j], reduced[i][j], 1.0);
    }
  }
  Matrix q;
  for (std::int32_t point = 0; point < scene_.structure.num_points(); ++point) {
    scene_.normal.point_cofactors(point, reduced, q);
    for (std::int32_t r = 0; r < 3; ++r) {
      for (std::int32_t c = 0; c < 3; ++c) {
        expect_close(scene_.dense[3 * point + r][3 * point + c], q[r][c], 1.0);
      }
    }
    for (std::int32_t block = 0; block < scene_.structure.num_blocks(); block += 3) {
      scene_.normal.point_block_cofactors(point, block, reduced, q);
      for (std::int32_t r = 0; r < 3; ++r) {
        for (std::int32_t c = 0; c < q.cols(); ++c) {
          expect_close(scene_.dense[3 * point + r][scene_.normal.block_index(block) + c], q[r][c],
                       1.0);
        }
      }
    }
  }
}

TEST_P(StructuredNormalMatrix, FailsAtTheSameRow) {
  const std::int32_t n = scene_.dense.rows();
  // Rows of points, of an image in the middle, of the shared set and of the last block.
  for (const std::int32_t row : {0, 4, 8, n / 2 * 2 / 3, n - 20, n - 6, n - 1}) {
    NormalMatrix& normal = scene_.normal;
    const double diagonal = normal.at(row, row);
    for (const double spoilt : {-1e6, std::nan("")}) {
      normal.add(row, row, spoilt);
      Matrix dense(n, n);
      for (std::int32_t i = 0; i < n; ++i) {
        for (std::int32_t j = i; j < n; ++j) dense[i][j] = dense[j][i] = normal.at(i, j);
      }
      Vector p;
      const int expected = cholesky(dense, p);
      if (row % 17 != 3) {
        EXPECT_EQ(expected, row + 1);
      }
      EXPECT_EQ(normal.factorise(p), expected) << row;
      if (!std::isnan(spoilt)) normal.add(row, row, diagonal - normal.at(row, row));
    }
    // NaN stays: a fresh matrix for the next row.
    Scene fresh;
    const Shape shape = GetParam();
    build(7U, shape.images, shape.points, shape.reach, shape.set_width, shape.method, fresh);
    normal.set_structure(fresh.structure, shape.method);
    for (std::int32_t i = 0; i < n; ++i) {
      for (std::int32_t j = i; j < n; ++j) {
        if (fresh.normal.at(i, j) != 0.0) normal.add(i, j, fresh.normal.at(i, j));
      }
    }
  }
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, StructuredNormalMatrix,
    testing::Values(
        Shape{5, 20, 5, 3, NormalMatrix::Method::dense},
        Shape{5, 20, 5, 3, NormalMatrix::Method::eliminate},             // full, as close range
        Shape{40, 90, 2, 10, NormalMatrix::Method::eliminate},           // sparse, as aerial blocks
        Shape{40, 90, 2, 10, NormalMatrix::Method::eliminate_in_order},  // the same, natural order
        Shape{12, 70, 3, 44, NormalMatrix::Method::eliminate},           // a wide set
        Shape{3, 1, 0, 120, NormalMatrix::Method::eliminate}));  // no rays, a set over tiles

TEST(NormalMatrix, RefusesElementsOutsideTheStructure) {
  NormalStructure structure(2);
  structure.add_block(6);
  structure.add_block(6);
  structure.add_group({0});
  structure.add_ray(0);
  NormalMatrix normal;
  ASSERT_TRUE(normal.set_structure(structure));
  EXPECT_NO_THROW(normal.add(0, 6, 1.0));
  EXPECT_THROW(normal.add(0, 3, 1.0), std::out_of_range);   // two points
  EXPECT_THROW(normal.add(3, 6, 1.0), std::out_of_range);   // a point that no image sees
  EXPECT_THROW(normal.add(6, 12, 1.0), std::out_of_range);  // blocks without a common image
  EXPECT_EQ(normal.at(6, 12), 0.0);
}

// Every version of the kernels that the processor can run, against plain loops.
class KernelVersions : public testing::TestWithParam<const Kernels* (*)()> {};

TEST_P(KernelVersions, FactoriseATile) {
  const Kernels* const kernel = GetParam()();
  if (kernel == nullptr) GTEST_SKIP() << "the processor has no such instructions";
  constexpr std::int32_t kSize = 48;
  constexpr std::size_t kArea = std::size_t{kSize} * kSize;
  std::vector<double> a(kArea);
  std::vector<double> b(kArea);
  for (std::size_t i = 0; i < kArea; ++i) a[i] = std::sin(static_cast<double>(i));
  for (std::size_t i = 0; i < kArea; ++i) b[i] = std::cos(3.0 * static_cast<double>(i));
  const auto at = [](const std::vector<double>& m, std::int32_t r, std::int32_t c) {
    return m[static_cast<std::size_t>(c * kSize + r)];
  };
  std::vector<double> product(kArea, 0.0);
  kernel->multiply_subtract(product.data(), a.data(), b.data(), kSize);
  std::vector<double> square(kArea, 0.0);
  for (std::int32_t i = 0; i < kSize; ++i) square[static_cast<std::size_t>(i * kSize + i)] = -100.0;
  kernel->square_subtract(square.data(), a.data(), kSize);
  for (double& x : square) x = -x;  // A A' + 100 I, lower triangle
  std::vector<double> factor = square;
  ASSERT_EQ(kernel->factorise(factor.data(), kSize), 0);
  std::vector<double> quotient = product;
  kernel->solve_right(quotient.data(), factor.data(), kSize);
  for (std::int32_t r = 0; r < kSize; ++r) {
    for (std::int32_t c = 0; c < kSize; ++c) {
      double ab = 0.0;
      double ll = 0.0;
      double ql = 0.0;
      for (std::int32_t k = 0; k < kSize; ++k) {
        ab += at(a, r, k) * at(b, c, k);
        if (k <= std::min(r, c)) ll += at(factor, r, k) * at(factor, c, k);
        if (k <= c) ql += at(quotient, r, k) * at(factor, c, k);
      }
      EXPECT_NEAR(at(product, r, c), -ab, 1e-11);
      EXPECT_NEAR(ql, at(product, r, c), 1e-10);
      if (c <= r) {
        EXPECT_NEAR(ll, at(square, r, c), 1e-10);
      }
    }
  }
  factor = square;
  factor[5 * kSize + 5] = -1.0;
  EXPECT_EQ(kernel->factorise(factor.data(), kSize), 6);
}

TEST_P(KernelVersions, SubtractABatchOfPoints) {
  const Kernels* const kernel = GetParam()();
  if (kernel == nullptr) GTEST_SKIP() << "the processor has no such instructions";
  constexpr std::int32_t kSize = 24;
  for (std::int32_t width = 1; width <= kPieceWidth; ++width) {
    // Two pieces of one tile; points 0, 2, 63 and 2, 3, 63.
    std::vector<double> v(6 * 24, 0.0);
    for (std::size_t i = 0; i < v.size(); ++i) {
      const auto lane = static_cast<std::int32_t>(i % 8);
      if (lane < (i < 72 ? width : 6)) v[i] = std::sin(static_cast<double>(i));
    }
    constexpr std::uint64_t kLast = std::uint64_t{1} << 63U;
    const BatchPiece pieces[] = {{0b101 | kLast, v.data(), 0, 1, width},
                                 {0b1100 | kLast, v.data() + 72, 0, 10, 6}};
    std::vector<double> tile(std::size_t{kSize} * kSize, 0.0);
    double* const tiles[] = {tile.data()};
    kernel->subtract_batch(tiles, 1, kSize, pieces, 2);
    const auto element = [&](std::int32_t r, std::int32_t c) {
      return tile[static_cast<std::size_t>(c * kSize + r)];
    };
    // Point 2 is second in the one and first in the other piece, point 63 third in both.
    for (std::int32_t r = 0; r < 6; ++r) {
      for (std::int32_t c = 0; c < width; ++c) {
        double expected = 0.0;
        for (std::size_t k = 0; k < 3; ++k) {
          expected -= v[72 + 8 * k + static_cast<std::size_t>(r)] *
                      v[24 + 8 * k + static_cast<std::size_t>(c)];
          expected -= v[72 + 48 + 8 * k + static_cast<std::size_t>(r)] *
                      v[48 + 8 * k + static_cast<std::size_t>(c)];
        }
        EXPECT_NEAR(element(10 + r, 1 + c), expected, 1e-12);
      }
    }
    EXPECT_EQ(element(9, 1), 0.0);
    EXPECT_EQ(element(16, 1), 0.0);
  }
}

INSTANTIATE_TEST_SUITE_P(All, KernelVersions,
                         testing::Values(baseline_kernels, avx2_kernels, avx512_kernels));

}  // namespace
}  // namespace vorn
