// The normal equations: the structured ones against the dense routines, on random structures.

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <bit>
#include <cmath>
#include <limits>
#include <memory>
#include <numeric>
#include <stdexcept>
#include <string>
#include <vector>

#include "lsq/adj_interface.h"
#include "lsq/linalg/cholesky.h"
#include "lsq/linalg/kernels.h"
#include "lsq/normal/dense_factor.h"
#include "lsq/normal/normal_matrix.h"
#include "lsq/normal/point_elimination.h"
#include "lsq/normal/selected_inverse.h"
#include "support/captured_output.h"
#include "support/noise.h"

namespace vorn {
namespace {

using Method = AdjInterfaceNative::Method;
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
  Matrix flat(2, 3);
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
  EXPECT_EQ(test::captured_output([&] {
              NormalMatrix normal;
              set_normal(normal, matrix_of(1, 1, {4}));
              EXPECT_EQ(AdjInterfaceNative().solve(normal, Vector(2), x, p), -3);
              EXPECT_EQ(AdjInterfaceNative().invert(normal, flat, Vector(2)), -2);
            }),
            "ERROR: Backsubstitution failed.\nERROR: Backsubstitution failed.\n");
  Matrix square = matrix_of(2, 2, {1, 0, 0, 1});
  EXPECT_EQ(cholesky(flat, p), -1);
  EXPECT_EQ(back_substitution(flat, p, Vector(1), x), -1);
  EXPECT_EQ(back_substitution(square, Vector(1), Vector(2), x), -2);
  EXPECT_EQ(back_substitution(square, Vector(2), Vector(3), x), -3);
  EXPECT_EQ(invert_from_cholesky(flat, p), -1);
  EXPECT_EQ(invert_from_cholesky(square, Vector(3)), -2);
}

struct Shape {
  std::int32_t images, points;
  std::int32_t reach;  // images further apart share no points: the reduced matrix becomes sparse
  std::int32_t set_width;
  Method method;
};

// A random structure and a positive definite matrix of that structure, structured and dense. A
// block of `set_width` is shared by all images, one of 5 unknowns by none; one is empty, and the
// last point has no rays.
struct Scene {
  explicit Scene(const Shape& shape) : structure(shape.points) {
    // Images in a random order of their places, so that the natural order is a bad one.
    std::vector<std::int32_t> places(static_cast<std::size_t>(shape.images));
    std::iota(places.begin(), places.end(), 0);
    for (std::size_t i = places.size(); i > 1; --i) {
      std::swap(places[i - 1], places[noise.below(i)]);
    }
    for (std::size_t i = 0; i < places.size(); ++i) {
      structure.add_block(std::array{6, 7, 11, 6, 8, 6}[i % 6]);
    }
    const std::int32_t set = structure.add_block(shape.set_width);
    structure.add_block(5);
    structure.add_block(0);
    std::vector<std::int32_t> centres;
    for (std::int32_t p = 0; p + 1 < shape.points; ++p) {
      centres.push_back(static_cast<std::int32_t>(noise.below(places.size())));
    }
    std::vector<std::pair<std::int32_t, std::int32_t>> rays;
    for (std::int32_t i = 0; i < shape.images; ++i) {
      structure.add_group({i, set});
      for (std::int32_t p = 0; p + 1 < shape.points; ++p) {
        const auto place = places[static_cast<std::size_t>(i)];
        if (std::abs(place - centres[static_cast<std::size_t>(p)]) > shape.reach) continue;
        structure.add_ray(p);
        rays.emplace_back(i, p);
      }
    }
    EXPECT_TRUE(normal.set_structure(structure));
    normal.zero();
    n = structure.num_unknowns();
    dense.resize(n, n);
    dense.zero();
    for (const auto& [image, point] : rays) observe(image, set, point);
    rhs.resize(n);
    for (std::int32_t i = 0; i < n; ++i) {
      // K3 in SI units beside suppressed unknowns: pivots of very different size are legitimate.
      add(i, i, i % 17 == 3 ? 1e10 : i % 17 == 5 ? 1e-3 : 1.0);
      rhs[i] = std::sin(i + 1.0);
    }
  }

  void add(std::int32_t i, std::int32_t j, double v) {
    normal.add(i, j, v);
    dense[i][j] += v;
  }
  // Adds A'PA of an observation of a point in an image with its set.
  void observe(std::int32_t image, std::int32_t set, std::int32_t point) {
    std::vector<std::int32_t> unknowns = {3 * point, 3 * point + 1, 3 * point + 2};
    for (const std::int32_t block : {image, set}) {
      for (std::int32_t c = 0; c < normal.block_width(block); ++c) {
        unknowns.push_back(normal.block_index(block) + c);
      }
    }
    for (int row = 0; row < 2; ++row) {
      std::vector<double> a(unknowns.size());
      for (double& x : a) x = noise.uniform(-1.0, 1.0);
      for (std::size_t i = 0; i < a.size(); ++i) {
        for (std::size_t j = i; j < a.size(); ++j) add(unknowns[i], unknowns[j], a[i] * a[j]);
      }
    }
  }

  test::Noise noise{7};
  NormalStructure structure;
  NormalMatrix normal;
  Matrix dense;
  Vector rhs;
  std::int32_t n = 0;
};

std::unique_ptr<NormalFactor> factor_of(const NormalMatrix& normal, Method method) {
  if (method == Method::dense) return std::make_unique<DenseFactor>(normal);
  auto elimination = std::make_unique<PointElimination>(normal);
  EXPECT_TRUE(elimination->set_structure(method == Method::eliminate
                                             ? PointElimination::Order::fill_reducing
                                             : PointElimination::Order::natural));
  return elimination;
}

class StructuredNormalMatrix : public testing::TestWithParam<Shape> {
 protected:
  Scene scene_{GetParam()};
  const std::int32_t n_ = scene_.n;
  Matrix& dense_ = scene_.dense;
  const std::unique_ptr<NormalFactor> factor_ = factor_of(scene_.normal, GetParam().method);
  Vector dense_p_;
};

// The dense routines obey their laws, and the structured ones give the same.
TEST_P(StructuredNormalMatrix, SolvesAndShowsWhatTheDenseRoutinesGive) {
  const Matrix full = dense_;
  Vector x, again, dense_x;
  for (std::int32_t i = 0; i < n_; ++i) {
    // What stands below the diagonal must not matter.
    for (std::int32_t j = 0; j < i; ++j) dense_[i][j] = std::nan("");
  }
  const bool shows_factor = GetParam().method != Method::eliminate;
  ASSERT_EQ(factor_->solve(scene_.rhs, x), 0);
  ASSERT_EQ(cholesky(dense_, dense_p_), 0);
  ASSERT_EQ(back_substitution(dense_, dense_p_, scene_.rhs, dense_x), 0);
  for (std::int32_t i = 0; i < n_; ++i) {
    EXPECT_NEAR(dense_x[i], x[i], 1e-9);
    if (shows_factor) {
      EXPECT_NEAR(dense_p_[i], factor_->diagonal()[i], 1e-9 * dense_p_[i]);
    }
    double rebuilt_rhs = 0.0;
    for (std::int32_t j = 0; j < n_; ++j) {
      const double scale = dense_p_[std::max(i, j)];
      if (i <= j) {
        ASSERT_NEAR(dense_[i][j], scene_.normal.at(i, j), 1e-9 * scale) << i << ' ' << j;
      } else if (shows_factor) {
        ASSERT_NEAR(dense_[i][j], factor_->lower(i, j), 1e-9 * scale) << i << ' ' << j;
      }
      rebuilt_rhs += full[std::min(i, j)][std::max(i, j)] * x[j];
      double rebuilt = j < i ? 0.0 : dense_p_[i] * (i == j ? dense_p_[i] : dense_[j][i]);
      for (std::int32_t k = 0; k < i; ++k) rebuilt += dense_[i][k] * dense_[j][k];
      if (j >= i) {
        EXPECT_NEAR(rebuilt, full[i][j], 1e-9 * dense_p_[i] * scale);
      }
    }
    EXPECT_NEAR(rebuilt_rhs, scene_.rhs[i], 1e-6);
  }
  // The two steps apart give the same.
  ASSERT_EQ(factor_->factorise(), 0);
  factor_->substitute(scene_.rhs, again);
  for (std::int32_t i = 0; i < n_; ++i) EXPECT_NEAR(x[i], again[i], 1e-9);
}

// Full symmetric inverse by the dense routines, of the upper triangle of a matrix.
Matrix dense_inverse(Matrix n) {
  Vector p;
  EXPECT_EQ(cholesky(n, p), 0);
  EXPECT_EQ(invert_from_cholesky(n, p), 0);
  n.symmetrise();
  return n;
}

TEST_P(StructuredNormalMatrix, InverseIsThatOfTheDenseRoutines) {
  Matrix inverse, unit(2, n_), columns;
  ASSERT_EQ(factor_->factorise(), 0);
  factor_->invert(inverse);
  const Matrix dense = dense_inverse(dense_);
  unit.zero();
  unit[0][1] = unit[1][n_ - 1] = 1.0;
  factor_->substitute(unit, columns);
  Vector ratios;
  factor_->pivot_ratios(ratios);
  for (std::int32_t i = 0; i < n_; ++i) {
    double one = 0.0;
    for (std::int32_t k = 0; k < n_; ++k) {
      one += dense_[std::min(i, k)][std::max(i, k)] * inverse[k][i];
      EXPECT_NEAR(dense[i][k], inverse[i][k], 1e-9);
    }
    EXPECT_NEAR(one, 1.0, 1e-6);
    EXPECT_NEAR(columns[0][i], dense[1][i], 1e-9);
    EXPECT_NEAR(columns[1][i], dense[n_ - 1][i], 1e-9);
    EXPECT_NEAR(ratios[i] * dense_[i][i], factor_->diagonal()[i] * factor_->diagonal()[i],
                1e-12 * dense_[i][i]);
  }
}

// All parts that the selected inverse gives, against the whole inverse.
void expect_parts(const NormalMatrix& normal, const Matrix& dense) {
  const std::int32_t first = normal.num_point_unknowns();
  PointElimination elimination(normal);
  ASSERT_TRUE(elimination.set_structure(PointElimination::Order::fill_reducing));
  ASSERT_EQ(elimination.factorise(), 0);
  SelectedInverse inverse(elimination);
  ASSERT_TRUE(inverse.compute());
  Matrix q;
  normal.for_each_pair([&](std::int32_t a, std::int32_t b, const double*) {
    inverse.block_pair(a, b, q);
    for (std::int32_t r = 0; r < q.rows(); ++r) {
      for (std::int32_t c = 0; c < q.cols(); ++c) {
        EXPECT_NEAR(dense[normal.block_index(a) + r][normal.block_index(b) + c], q[r][c], 1e-9);
      }
    }
  });
  for (std::int32_t i = first; i < normal.size(); ++i) {
    for (std::int32_t j = first; j < normal.size(); ++j) {
      if (inverse.has(i, j)) {
        EXPECT_NEAR(dense[i][j], inverse.at(i, j), 1e-9);
      }
    }
  }
  std::vector<std::int32_t> visited;
  inverse.for_each_batch(true, [&](std::size_t, const auto& points, std::size_t) {
    for (const SelectedInverse::PointCofactors& point : points) {
      visited.push_back(point.point);
      const double* const row = dense[3 * point.point];
      for (std::int32_t r = 0; r < 3; ++r) {
        for (std::int32_t c = 0; c < 3; ++c) {
          EXPECT_NEAR(dense[3 * point.point + r][3 * point.point + c], point.own[r][c], 1e-9);
        }
        for (const NormalMatrix::PointBlock& at : normal.blocks_of(point.point)) {
          const std::int32_t width = normal.block_width(at.block);
          for (std::int32_t c = 0; c < width; ++c) {
            EXPECT_NEAR(row[r * dense.cols() + normal.block_index(at.block) + c],
                        point.coupled[at.start + r * width + c], 1e-9);
          }
        }
      }
    }
  });
  EXPECT_TRUE(std::equal(visited.begin(), visited.end(), normal.point_order().begin(),
                         normal.point_order().end()));
}

TEST_P(StructuredNormalMatrix, PartsOfTheInverseAreThoseOfTheDenseInverse) {
  expect_parts(scene_.normal, dense_inverse(dense_));
}

// Fixed unknowns and directions leave the equations: the inverse is that of the others.
TEST_P(StructuredNormalMatrix, TakesDirectionsOut) {
  NormalMatrix& normal = scene_.normal;
  // Oblique directions keep clear of the suppressed unknowns, beside which others are lost.
  const auto clear_of_large = [](std::int32_t first, std::int32_t count) {
    while ((first + count - 1 + 14) % 17 < count) ++first;
    return first;
  };
  const std::int32_t num_blocks = scene_.structure.num_blocks();
  const std::int32_t image = clear_of_large(normal.block_index(2), 4);
  std::vector<NormalMatrix::Direction> directions = {
      {1, {1.0}, 0.0},  // one coordinate of the first point
      {3 * (normal.num_points() - 1), {0.6, 0.0, -0.8}, 0.0},
      {image, {0.5, -0.5, 0.5, 0.5}, 0.0},
      {image + 4, {1.0}, 0.0},                               // a second one in the same block
      {normal.block_index(num_blocks - 3) + 1, {1.0}, 0.0},  // in the shared set
      {clear_of_large(normal.block_index(num_blocks - 2), 2), {0.8, 0.6}, 0.0}};
  for (NormalMatrix::Direction& direction : directions) {
    for (std::size_t k = 0; k < direction.n.size(); ++k) {
      const std::int32_t i = direction.index + static_cast<std::int32_t>(k);
      direction.weight = std::max(direction.weight, normal.at(i, i));
    }
  }
  // The same by dense matrices.
  Matrix expected = dense_;
  expected.symmetrise();
  Vector b = scene_.rhs, projected = scene_.rhs;
  for (const auto& [index, n, weight] : directions) {
    const auto project = [&, first = index, &along = n](auto element) {
      double sum = 0.0;
      for (std::size_t k = 0; k < along.size(); ++k) {
        sum += along[k] * element(first + static_cast<std::int32_t>(k));
      }
      for (std::size_t k = 0; k < along.size(); ++k) {
        element(first + static_cast<std::int32_t>(k)) -= along[k] * sum;
      }
    };
    for (std::int32_t i = 0; i < n_; ++i) {
      project([&](std::int32_t k) -> double& { return expected[k][i]; });
    }
    for (std::int32_t i = 0; i < n_; ++i) {
      project([&](std::int32_t k) -> double& { return expected[i][k]; });
    }
    project([&](std::int32_t k) -> double& { return projected[k]; });
    for (std::size_t r = 0; r < n.size(); ++r) {
      for (std::size_t c = 0; c < n.size(); ++c) {
        expected[index + static_cast<std::int32_t>(r)][index + static_cast<std::int32_t>(c)] +=
            weight * n[r] * n[c];
      }
    }
  }
  normal.take_out(directions, b);
  for (std::int32_t i = 0; i < n_; ++i) {
    EXPECT_NEAR(b[i], projected[i], 1e-12);
    for (std::int32_t j = i; j < n_; ++j) {
      EXPECT_NEAR(normal.at(i, j), expected[i][j], 1e-9 * std::max(1.0, std::fabs(expected[i][j])));
    }
  }
  Vector x;
  ASSERT_EQ(factor_->solve(b, x), 0);
  EXPECT_EQ(x[1], 0.0);
  EXPECT_NEAR(x[image] - x[image + 1] + x[image + 2] + x[image + 3], 0.0, 1e-9);
  expect_parts(normal, dense_inverse(expected));
}

TEST_P(StructuredNormalMatrix, FailsAtTheSameRow) {
  // Rows of points, of an image in the middle, of the shared set and of the last block; the first
  // and the last row of blocks.
  std::vector<std::int32_t> rows = {0, 4, 8, n_ / 2 * 2 / 3, n_ - 20, n_ - 6, n_ - 1};
  for (std::int32_t block = 0; block < 3; ++block) {
    const std::int32_t first = scene_.normal.block_index(block);
    rows.push_back(first);
    rows.push_back(first + scene_.normal.block_width(block) - 1);
  }
  for (const std::int32_t row : rows) {
    for (const double spoilt : {-1e6, std::nan("")}) {
      Scene scene(GetParam());
      scene.add(row, row, spoilt);
      const int expected = cholesky(scene.dense, dense_p_);
      EXPECT_TRUE(expected == row + 1 || row % 17 == 3);
      EXPECT_EQ(factor_of(scene.normal, GetParam().method)->factorise(), expected) << row;
    }
  }
}

// The reduced equations, solved by somebody else, lead to the same solution.
TEST_P(StructuredNormalMatrix, ReducesAndCompletes) {
  if (GetParam().method == Method::dense) return;
  PointElimination elimination(scene_.normal);
  ASSERT_TRUE(elimination.set_reduced_structure());
  Vector expected, x, p, x_reduced;
  std::vector<double> rhs;
  ASSERT_EQ(factor_->solve(scene_.rhs, expected), 0);
  ASSERT_EQ(elimination.reduce(scene_.rhs, x, rhs), 0);
  const std::int32_t first = scene_.normal.num_point_unknowns();
  const TileMatrix& tiles = elimination.reduced().tiles;
  Matrix s(n_ - first, n_ - first);
  Vector b(n_ - first);
  for (std::int32_t i = 0; i < s.rows(); ++i) {
    for (std::int32_t j = i; j < s.rows(); ++j) s[i][j] = tiles.at(j, i);
    b[i] = rhs[static_cast<std::size_t>(i)];
  }
  ASSERT_EQ(cholesky(s, p), 0);
  ASSERT_EQ(back_substitution(s, p, b, x_reduced), 0);
  std::copy_n(x_reduced.data(), s.rows(), x.data() + first);
  elimination.complete(x);
  for (std::int32_t i = 0; i < n_; ++i) EXPECT_NEAR(x[i], expected[i], 1e-9) << i;
  // The first failing pivot of the points.
  scene_.add(0, 0, -1e6);
  EXPECT_EQ(elimination.reduce(scene_.rhs, x, rhs), 1);
}

INSTANTIATE_TEST_SUITE_P(
    Shapes, StructuredNormalMatrix,
    testing::Values(Shape{5, 20, 5, 3, Method::dense},
                    Shape{5, 20, 5, 3, Method::eliminate},             // full, as close range
                    Shape{40, 90, 2, 10, Method::eliminate},           // sparse, as aerial blocks
                    Shape{40, 90, 2, 10, Method::eliminate_in_order},  // the same, natural order
                    Shape{12, 70, 3, 44, Method::eliminate},           // a wide set
                    Shape{3, 1, 0, 120, Method::eliminate}));          // no rays, a set over tiles

TEST(ReducedMatrix, RowsFindTheirBlocks) {
  const Scene scene({40, 90, 2, 10, Method::eliminate});
  ReducedMatrix reduced;
  ASSERT_TRUE(reduced.set_structure(scene.structure, scene.normal.point_blocks(), false));
  for (std::int32_t b = 0; b < scene.structure.num_blocks(); ++b) {
    for (std::int32_t r = 0; r < scene.structure.width(b); ++r) {
      EXPECT_EQ(reduced.block_at(reduced.start(b) + r), b) << r;
    }
  }
}

// Tile (3, 0) does not exist, (2, 0) and behind it (3, 1) do.
TEST(TileMatrix, FactorisesAroundMissingTiles) {
  constexpr std::int32_t kTile = 48;
  constexpr std::int32_t kSize = 4 * kTile;
  TilePattern pattern(4);
  for (const auto& [row, column] :
       {std::pair{0, 0}, {1, 1}, {2, 0}, {2, 1}, {2, 2}, {3, 1}, {3, 3}}) {
    pattern.mark(row, column);
  }
  TilePattern filled = pattern;
  filled.fill_in();
  TileMatrix tiles;
  ASSERT_TRUE(tiles.set_structure(kSize, kTile, filled));
  EXPECT_FALSE(filled.has(3, 0));
  tiles.zero();
  Matrix dense(kSize, kSize);
  dense.zero();
  for (std::int32_t i = 0; i < kSize; ++i) {
    for (std::int32_t j = 0; j <= i; ++j) {
      if (!pattern.has(i / kTile, j / kTile)) continue;
      dense[i][j] = dense[j][i] = tiles.element(i, j) = i == j ? 400.0 : std::sin(7 * i + j);
    }
  }
  Vector p;
  ASSERT_EQ(cholesky(dense, p), 0);
  ASSERT_EQ(tiles.factorise(), 0);
  for (std::int32_t i = 0; i < kSize; ++i) {
    for (std::int32_t j = 0; j < i; ++j) EXPECT_NEAR(tiles.at(i, j), dense[i][j], 1e-12);
  }
}

// Leaving out rows of tiles that stay zero changes no bit, whichever rows of a tile they are: each
// block of rows below meets some of the first tile's columns, hence all blocks that do so, too.
TEST(TileMatrix, RowsThatStayZeroChangeNoSum) {
  constexpr std::int32_t kTile = 48;
  constexpr std::int32_t kTiles = 6;
  constexpr std::pair<std::int32_t, std::int32_t> kRows[kTiles] = {{0, 48},  {3, 9},   {0, 1},
                                                                   {47, 48}, {16, 39}, {0, 48}};
  TilePattern pattern(kTiles);
  std::vector<TileElements> elements;
  for (std::int32_t row = 1; row < kTiles; ++row) {
    pattern.mark(row, 0);
    elements.push_back({row, 0, kRows[row].first, kRows[row].second});
  }
  pattern.fill_in();
  TileMatrix whole, narrow;
  for (TileMatrix* const tiles : {&whole, &narrow}) {
    ASSERT_TRUE(tiles->set_structure(kTiles * kTile, kTile, pattern));
    if (tiles == &narrow) tiles->narrow_rows(elements);
    tiles->zero();
    for (std::int32_t i = 0; i < kTiles * kTile; ++i) tiles->element(i, i) = 100.0;
    for (const TileElements& at : elements) {
      for (std::int32_t i = at.first; i < at.end; ++i) {
        for (std::int32_t j = 0; j < kTile; ++j) {
          tiles->element(at.row * kTile + i, j) = std::sin(7 * at.row * kTile + 5 * i + j);
        }
      }
    }
    ASSERT_EQ(tiles->factorise(), 0);
  }
  EXPECT_NE(whole.at(2 * kTile, kTile + 3), 0.0) << "no fill-in";
  std::vector<double> x(kTiles * kTile), y;
  for (std::size_t i = 0; i < x.size(); ++i) x[i] = std::cos(static_cast<double>(i));
  y = x;
  whole.solve_lower(x.data());
  narrow.solve_lower(y.data());
  EXPECT_EQ(x, y);
  whole.solve_upper(x.data());
  narrow.solve_upper(y.data());
  EXPECT_EQ(x, y);
  for (std::int32_t i = 0; i < kTiles * kTile; ++i) {
    for (std::int32_t j = 0; j <= i; ++j) ASSERT_EQ(whole.at(i, j), narrow.at(i, j)) << i << j;
  }
  // Who says too little gets another factor: the rows are left out indeed.
  ASSERT_TRUE(narrow.set_structure(kTiles * kTile, kTile, pattern));
  narrow.narrow_rows({});
  narrow.zero();
  for (std::int32_t i = 0; i < kTiles * kTile; ++i) narrow.element(i, i) = 100.0;
  narrow.element(kTile, 0) = 1.0;
  ASSERT_EQ(narrow.factorise(), 0);
  EXPECT_EQ(narrow.at(kTile, 0), 1.0);
}

TEST(NormalMatrix, RefusesElementsOutsideTheStructure) {
  NormalStructure structure(2);
  structure.add_block(6);
  structure.add_block(6);
  structure.add_group({0});
  structure.add_ray(0);
  NormalMatrix normal;
  ASSERT_TRUE(normal.set_structure(structure));
  normal.zero();
  EXPECT_NO_THROW(normal.add(0, 6, 1.0));
  EXPECT_THROW(normal.add(0, 3, 1.0), std::out_of_range);   // two points
  EXPECT_THROW(normal.add(3, 6, 1.0), std::out_of_range);   // a point that no image sees
  EXPECT_THROW(normal.add(6, 12, 1.0), std::out_of_range);  // blocks without a common image
  EXPECT_EQ(normal.at(6, 12), 0.0);
}

// Every version of the kernels that the processor can run, against plain loops.
class KernelVersions : public testing::TestWithParam<std::string> {
 protected:
  void SetUp() override {
    if (kernel_ == nullptr) GTEST_SKIP() << "the processor has no such instructions";
  }
  const Kernels* const kernel_ = GetParam() == "avx512" ? avx512_kernels()
                                 : GetParam() == "avx2" ? avx2_kernels()
                                                        : baseline_kernels();
};

TEST_P(KernelVersions, FactoriseATile) {
  constexpr std::int32_t kSize = 48;
  using Tile = std::vector<double>;
  const Tile zero(std::size_t{kSize} * kSize, 0.0);
  const auto at = [](auto& tile, std::int32_t r, std::int32_t c) -> auto& {
    return tile[static_cast<std::size_t>(c * kSize + r)];
  };
  Tile a = zero, b = zero, product = zero, square = zero;
  for (std::int32_t r = 0; r < kSize; ++r) {
    at(square, r, r) = -100.0;
    for (std::int32_t c = 0; c < kSize; ++c) {
      at(a, r, c) = std::sin(c * kSize + r);
      at(b, r, c) = std::cos(3.0 * (c * kSize + r));
    }
  }
  kernel_->multiply_subtract(product.data(), a.data(), b.data(), kSize, kSize, kSize);
  kernel_->square_subtract(square.data(), a.data(), kSize, kSize);
  for (double& x : square) x = -x;  // A A' + 100 I, lower triangle
  Tile factor = square;
  ASSERT_EQ(kernel_->factorise(factor.data(), kSize), 0);
  Tile quotient = product;
  kernel_->solve_right(quotient.data(), factor.data(), kSize, kSize);
  for (std::int32_t r = 0; r < kSize; ++r) {
    for (std::int32_t c = 0; c < kSize; ++c) {
      double ab = 0.0, aa = r == c ? 100.0 : 0.0, ll = 0.0, ql = 0.0;
      for (std::int32_t k = 0; k < kSize; ++k) {
        ab += at(a, r, k) * at(b, c, k);
        aa += at(a, r, k) * at(a, c, k);
        if (k <= std::min(r, c)) ll += at(factor, r, k) * at(factor, c, k);
        if (k <= c) ql += at(quotient, r, k) * at(factor, c, k);
      }
      EXPECT_NEAR(at(product, r, c), -ab, 1e-11);
      EXPECT_NEAR(ql, -ab, 1e-10);
      if (c <= r) {
        EXPECT_NEAR(at(square, r, c), aa, 1e-10);
        EXPECT_NEAR(ll, aa, 1e-10);
      }
    }
  }
  at(square, 5, 5) = -1.0;
  EXPECT_EQ(kernel_->factorise(square.data(), kSize), 6);
}

TEST_P(KernelVersions, SubtractABatchOfPoints) {
  constexpr std::size_t kSize = 24;
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
    std::vector<double> tile(kSize * kSize, 0.0);
    const TilePieces both{pieces, pieces + 2};
    kernel_->subtract_pairs(tile.data(), kSize, both, both);
    // Point 2 is second in the one and first in the other piece, point 63 third in both.
    for (std::size_t r = 0; r < 6; ++r) {
      for (std::size_t c = 0; c < static_cast<std::size_t>(width); ++c) {
        double expected = 0.0;
        for (std::size_t k = 0; k < 24; k += 8) {
          expected -= v[72 + k + r] * v[24 + k + c] + v[72 + 48 + k + r] * v[48 + k + c];
        }
        EXPECT_NEAR(tile[(1 + c) * kSize + 10 + r], expected, 1e-12);
      }
    }
    // The right-hand side: rows behind the piece stay as they are.
    std::vector<double> y(3 * kBatchPoints, NAN), rhs(8, 1.0);
    for (const std::size_t point : {0U, 2U, 63U}) {
      for (std::size_t k = 0; k < 3; ++k) {
        y[3 * point + k] = std::cos(static_cast<double>(point + k));
      }
    }
    kernel_->subtract_rhs(rhs.data(), pieces[0], y.data());
    for (std::size_t r = 0; r < 8; ++r) {
      double expected = 1.0;
      for (std::size_t k = 0; k < 3; ++k) {
        expected -=
            v[8 * k + r] * y[k] + v[24 + 8 * k + r] * y[6 + k] + v[48 + 8 * k + r] * y[189 + k];
      }
      EXPECT_NEAR(rhs[r], expected, 1e-12);
    }
    EXPECT_EQ(tile[kSize + 9], 0.0);
    EXPECT_EQ(tile[kSize + 16], 0.0);
  }
}

// V += L^-1 A_p'P A_r, for points of a batch that meet both pieces of a row or only one.
TEST_P(KernelVersions, AddColumnsOfRays) {
  constexpr std::size_t kWidth = 11;  // five columns of one piece, six of another
  constexpr std::int32_t kPoints[] = {4, 63, 0, 9, 17, 40, 40, 40};
  constexpr std::int32_t kCount = 6;  // the rest repeats
  const auto wave = [](std::size_t k) { return std::sin(5.0 * static_cast<double>(k)); };
  std::vector<double> x(8 * kWidth), y(x), point(48), cofactors(16), factors(64 * 8);
  for (std::size_t k = 0; k < x.size(); ++k) x[k] = wave(k), y[k] = wave(k + 100);
  for (std::size_t k = 0; k < point.size(); ++k) point[k] = wave(k + 200);
  for (std::size_t k = 0; k < cofactors.size(); ++k) cofactors[k] = 2.0 + wave(k);
  for (std::size_t k = 0; k < factors.size(); ++k) factors[k] = wave(k + 300);
  // A point that the image does not see stands between the others.
  std::uint64_t points = std::uint64_t{1} << 5U;
  for (const std::int32_t k : kPoints) points |= std::uint64_t{1} << static_cast<unsigned>(k);
  std::vector<double> v(2 * 7 * 24, 1.0);
  const RowPiece pieces[] = {{points, v.data(), 0, 5}, {points, v.data() + 7 * 24, 5, 6}};
  kernel_->add_columns(
      pieces, 2,
      {point.data(), point.data() + 24, x.data(), y.data(), cofactors.data(), kPoints, kCount},
      factors.data());
  std::vector<double> expected(v.size(), 1.0);
  for (std::size_t k = 0; k < kCount; ++k) {
    const auto at = static_cast<std::size_t>(kPoints[k]);
    const double* const l = factors.data() + 8 * at;
    const auto before =
        static_cast<std::size_t>(std::popcount(points & ((std::uint64_t{1} << at) - 1)));
    for (std::size_t j = 0; j < kWidth; ++j) {
      double w[3];
      for (std::size_t r = 0; r < 3; ++r) {
        w[r] = point[8 * r + k] * x[8 * j + k] / cofactors[k] +
               point[24 + 8 * r + k] * y[8 * j + k] / cofactors[8 + k];
      }
      w[0] *= l[0];
      w[1] = (w[1] - l[3] * w[0]) * l[1];
      w[2] = (w[2] - l[4] * w[0] - l[5] * w[1]) * l[2];
      const std::size_t to = j < 5 ? 24 * before + j : 24 * (7 + before) + j - 5;
      for (std::size_t r = 0; r < 3; ++r) expected[to + 8 * r] += w[r];
    }
  }
  for (std::size_t k = 0; k < v.size(); ++k) EXPECT_NEAR(v[k], expected[k], 1e-12) << k;
}

TEST_P(KernelVersions, AddPackedPointsAsOneByOne) {
  for (const std::int32_t m : {3, 12, 50}) {
    const std::int32_t stride = (m + 7) / 8 * 8;
    const auto size = static_cast<std::size_t>(stride);
    std::vector<double> x(8 * size), y(8 * size), scratch(32 * size, NAN);
    for (std::size_t i = 0; i < x.size(); ++i) {
      x[i] = std::sin(static_cast<double>(i));
      y[i] = std::cos(2.0 * static_cast<double>(i));
    }
    PackedWeights weights{};
    std::vector<double> c(size * size, 0.0), sums(size, 0.0), one_c = c, one_sums = sums;
    std::vector<double> rows(2 * size, 0.0), weighted(2 * size);
    for (std::size_t k = 0; k < 7; ++k) {  // the last one does not exist
      const double number = static_cast<double>(k);
      const PointWeights w{2.0 + number, 0.5, 3.0 - number / 7.0};
      const double reduced[] = {number - 2.0, 1.0 / (number + 1.0)};
      weights.xx[k] = w.xx;
      weights.xy[k] = w.xy;
      weights.yy[k] = w.yy;
      weights.reduced_x[k] = reduced[0];
      weights.reduced_y[k] = reduced[1];
      for (std::size_t j = 0; j < static_cast<std::size_t>(m); ++j) {
        rows[j] = x[8 * j + k];
        rows[size + j] = y[8 * j + k];
      }
      const DesignRows design{rows.data(), weighted.data(), m, stride};
      kernel_->add_products(one_c.data(), one_sums.data(), design, w, reduced);
    }
    kernel_->add_packed_products(c.data(), sums.data(),
                                 {x.data(), y.data(), scratch.data(), m, stride}, weights);
    for (std::size_t i = 0; i < static_cast<std::size_t>(m); ++i) {
      EXPECT_NEAR(sums[i], one_sums[i], 1e-12);
      for (std::size_t j = i; j < static_cast<std::size_t>(m); ++j) {
        EXPECT_NEAR(c[i * size + j], one_c[i * size + j], 1e-11) << m;
      }
      // The weighted rows of the last point but one are those that were made last.
      EXPECT_NEAR(scratch[(16 + 2 * 6) * size + i], weighted[i], 1e-12);
      EXPECT_NEAR(scratch[(16 + 2 * 6 + 1) * size + i], weighted[size + i], 1e-12);
    }
    const BlockProduct products[] = {{x.data(), y.data(), m}, {y.data(), x.data(), 1}};
    double s[3];
    kernel_->multiply_blocks(s, products, 2);
    for (std::size_t r = 0; r < 3; ++r) {
      const auto width = static_cast<std::size_t>(m);
      const double expected =
          std::inner_product(y.begin(), y.begin() + m,
                             x.begin() + static_cast<std::ptrdiff_t>(r * width), y[r] * x[0]);
      EXPECT_NEAR(s[r], expected, 1e-12);
    }
  }
}

TEST_P(KernelVersions, ProjectRowsAndFindLargeProducts) {
  for (const std::size_t m : {1U, 6U, 13U}) {
    const std::size_t stride = m + 3;
    const auto wave = [](std::size_t k) { return std::sin(3.0 * static_cast<double>(k)); };
    std::vector<double> x(8 * m), y(8 * m), coupling(24 * m), q(stride * m, std::nan(""));
    for (std::size_t k = 0; k < x.size(); ++k) x[k] = wave(k), y[k] = wave(k + 1000);
    for (std::size_t k = 0; k < coupling.size(); ++k) coupling[k] = wave(k + 2000);
    for (std::size_t i = 0; i < m; ++i) {
      for (std::size_t j = 0; j <= i; ++j) q[i * stride + j] = wave(i * m + j + 3000);
    }
    PackedProjection result;
    const auto width = static_cast<std::int32_t>(m);
    kernel_->project_packed_rows(result, {x.data(), y.data(), q.data(), coupling.data(), width,
                                          static_cast<std::int32_t>(stride)});
    for (std::size_t k = 0; k < 8; ++k) {
      const auto form = [&](const std::vector<double>& a, const std::vector<double>& b) {
        double sum = 0.0;
        for (std::size_t i = 0; i < m; ++i) {
          for (std::size_t j = 0; j < m; ++j) {
            sum += a[8 * i + k] * q[std::max(i, j) * stride + std::min(i, j)] * b[8 * j + k];
          }
        }
        return sum;
      };
      EXPECT_NEAR(result.xx[k], form(x, x), 1e-12);
      EXPECT_NEAR(result.xy[k], form(x, y), 1e-12);
      EXPECT_NEAR(result.yy[k], form(y, y), 1e-12);
      for (std::size_t r = 0; r < 3; ++r) {
        double kx = 0.0;
        double ky = 0.0;
        for (std::size_t j = 0; j < m; ++j) {
          kx += coupling[8 * (r * m + j) + k] * x[8 * j + k];
          ky += coupling[8 * (r * m + j) + k] * y[8 * j + k];
        }
        EXPECT_NEAR(result.kx[r][k], kx, 1e-12);
        EXPECT_NEAR(result.ky[r][k], ky, 1e-12);
      }
    }
  }
  // Wherever it stands, of either sign.
  for (std::size_t n = 1; n < 20; ++n) {
    for (std::size_t at = 0; at < n; ++at) {
      std::vector<double> a(n, 0.5), b(n, -0.5);
      b[(at + 1) % n] = std::nan("");
      EXPECT_FALSE(kernel_->any_product_reaches(a.data(), b.data(), std::ssize(a), 1.0));
      b[at] = at % 2 == 0 ? 2.0 : -2.0;
      EXPECT_TRUE(kernel_->any_product_reaches(a.data(), b.data(), std::ssize(a), 1.0));
    }
  }
}

INSTANTIATE_TEST_SUITE_P(All, KernelVersions, testing::Values("baseline", "avx2", "avx512"),
                         [](const auto& version) { return version.param; });

}  // namespace
}  // namespace vorn
