#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <vector>

#include "lsq/linalg/kernels.h"
#include "lsq/linalg/large_array.h"
#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_structure.h"
#include "lsq/normal/reduced_matrix.h"
#include "text/text_writer.h"

namespace vorn {

// The symmetric matrix of the normal equations, U x U, seen element by element. Contributions go to
// the upper triangle. After `factorise` the upper triangle still holds N and the strict lower
// triangle holds the Cholesky factor L.
//
// Only what can differ from zero is stored. The object points come first and are independent of
// each other:
//
//       | N_pp  N_pr |     N_pp   3 x 3 diagonal blocks, one per point
//   N = |            |     N_pr   per point the couplings with the blocks of the images that see it
//       |  sym  N_rr |     N_rr   blocks of the reduced part that meet in an image
//
// so that the Cholesky factorisation in the order of the unknowns is an elimination point by point,
// S = N_rr - sum over the points of N_pr' N_pp^-1 N_pr (the reduced normal equations; Brown 1958),
// followed by the factorisation of S.
class NormalMatrix {
 public:
  NormalMatrix();
  NormalMatrix(const NormalMatrix&) = delete;
  NormalMatrix& operator=(const NormalMatrix&) = delete;
  ~NormalMatrix();

  // How the matrix is factorised: by elimination of the points, with the reduced part in an order
  // that keeps it sparse; the same in the order of the unknowns, for those who want to see the
  // factor; or by the dense routines, element by element and row by row, for small systems.
  enum class Method { eliminate, eliminate_in_order, dense };

  // Takes memory for a structure, with all elements zero. False when the matrix does not fit the
  // address space.
  bool set_structure(NormalStructure structure, Method method = Method::eliminate);
  // A matrix of n unknowns of which nothing is known: all of them in one block of the reduced part.
  void resize(std::int32_t n);
  std::int32_t size() const { return size_; }
  Method method() const { return method_; }
  void zero();
  // The same in parts: the reduced part, and the rows of consecutive points in the order in which
  // they stand in memory, which those do who are about to add to them.
  void zero_reduced();
  void zero_points(std::int32_t first, std::int32_t count);

  // N[i][j] += v for i <= j. An element outside the structure is an error of the program
  // (std::out_of_range).
  void add(std::int32_t i, std::int32_t j, double v);
  // N[i + r][j + c] += block[r][c]. Elements of it that fall below the diagonal of N are ignored.
  void add_block(std::int32_t i, std::int32_t j, const Matrix& block);
  // Upper triangle N, after `factorise` strict lower triangle L.
  double at(std::int32_t i, std::int32_t j) const;

  // Direct access for those who add to the same elements in every iteration; valid until the
  // structure changes. `diagonal` holds xx, xy, xz, yy, yz, zz of the point's own block; its
  // coupling with a block, 3 x width, row-major, stands at coupling[coupling_start(point, block)].
  struct PointRows {
    double* diagonal;
    double* coupling;
  };
  PointRows point_rows(std::int32_t point);
  std::int32_t coupling_start(std::int32_t point, std::int32_t block) const;
  std::int32_t num_points() const { return num_points_; }
  // The points in the order in which they stand in memory.
  std::span<const std::int32_t> point_order() const { return point_order_; }
  // The block of an unknown of the reduced part, and a block's first unknown and width.
  std::int32_t block_of(std::int32_t unknown) const { return structure_.block_of(unknown); }
  std::int32_t block_index(std::int32_t block) const { return blocks_[place(block)].index; }
  std::int32_t block_width(std::int32_t block) const { return blocks_[place(block)].width; }
  // The elements where two blocks of a group meet, a <= b: row-major, as wide as block b.
  double* block_pair(std::int32_t a, std::int32_t b);

  // Cholesky factorisation; p receives the diagonal of L (where the reduced part has an order of
  // its own, that of its factor). 0, or k > 0 when the pivot of row k (counted from 1, in the order
  // of the unknowns) is not greater than 0. No pivoting, no tolerance.
  std::int32_t factorise(Vector& p);
  // Solves N x = b after `factorise`. 0, or -2, -3 when p or b have a wrong length.
  int substitute(const Vector& p, const Vector& b, Vector& x) const;
  // Both in one, which reads the matrix once less.
  std::int32_t solve(const Vector& b, Vector& x, Vector& p);

  // Full symmetric inverse after `factorise`, for small systems: it takes U x U elements. Result
  // codes as invert_from_cholesky.
  int invert(const Vector& p, Matrix& q) const;
  // The inverse of large systems, in parts, after `factorise`: the cofactors of the reduced part
  // (in the order of the unknowns), and from them those of a point (3 x 3) and of a point with a
  // block (3 x width).
  void invert_reduced(Matrix& q) const;
  void point_cofactors(std::int32_t point, const Matrix& reduced, Matrix& q) const;
  void point_block_cofactors(std::int32_t point, std::int32_t block, const Matrix& reduced,
                             Matrix& q) const;

  // Files: the pattern as a plain portable bitmap, and all elements as `at` gives them.
  void write_structure(TextWriter& out) const;
  void write_elements(TextWriter& out) const;

 private:
  struct Block {
    std::int32_t index;
    std::int32_t width;
  };
  struct BlockPair {
    std::int32_t other;
    std::size_t offset;
  };
  struct PointEntry {
    std::size_t values;  // diagonal block, then coupling blocks
    std::size_t first_block;
    std::int32_t num_blocks;
    std::int32_t width;  // of all its blocks
  };
  struct PointBlock {
    std::int32_t block;
    std::int32_t start;  // within the coupling blocks
  };
  class PointBatch;
  // Right-hand sides on their way through the elimination of the points.
  struct Forward {
    const double* b;  // of the points, in the order of the unknowns
    double* y;        // L^-1 b, likewise
    double*
        reduced;  // b_r - V'y, in the order of the reduced matrix, with room for a piece behind it
  };
  static constexpr std::size_t kDiagonalRoom = 8;  // six elements, filled up to a cache line

  static std::size_t place(std::int32_t i) { return static_cast<std::size_t>(i); }
  std::int32_t num_point_unknowns() const { return 3 * num_points_; }
  const double* diagonal(std::int32_t point) const {
    return point_values_.data() + points_[place(point)].values;
  }

  void lay_out_blocks(const NormalStructure& structure);
  bool lay_out_points(const NormalStructure& structure, const NormalStructure::PointBlocks& blocks);
  bool lay_out_pairs(const NormalStructure& structure);
  std::span<const PointBlock> blocks_of(std::int32_t point) const {
    const PointEntry& entry = points_[place(point)];
    return {point_blocks_.data() + entry.first_block, place(entry.num_blocks)};
  }
  const double* coupling(std::int32_t point, const PointBlock& at) const {
    return diagonal(point) + kDiagonalRoom + at.start;
  }
  // Asks for the memory of the point that stands at a place of the order; what lies behind the last
  // one needs none.
  void fetch_point(std::size_t at) const {
    if (at >= point_order_.size()) return;
    const PointEntry& entry = points_[place(point_order_[at])];
    const double* const values = point_values_.data() + entry.values;
    const std::size_t size = kDiagonalRoom + 3 * place(entry.width);
    for (std::size_t k = 0; k < size; k += 8) __builtin_prefetch(values + k);
  }
  NormalStructure::PointBlocks point_blocks() const;
  const PointBlock* find_point_block(std::int32_t point, std::int32_t block) const;
  const double* find(std::int32_t i, std::int32_t j) const;
  double factor_at(std::int32_t i, std::int32_t j) const;
  void load(ReducedMatrix& reduced) const;
  std::int32_t reduce(PointBatch& batch, ReducedMatrix& reduced, double* diagonal_of_factor,
                      const Forward* forward) const;
  void fill_dense();
  PointBatch& batch();
  void release_batch();
  std::int32_t finish_factorisation(std::int32_t failed, Vector& p);
  std::vector<double> reduced_rhs(const Vector& b) const;
  void substitute_back(std::vector<double>& reduced, Vector& x) const;
  std::int32_t first_failing_pivot() const;
  std::int32_t failing_unknown(std::int32_t row) const;
  const ReducedMatrix& natural_factor() const;
  // s := N_pp^-1 s for the diagonal block of a point.
  void solve_point(std::int32_t point, double (&s)[3]) const;

  std::int32_t size_ = 0;
  std::int32_t num_points_ = 0;
  bool factorised_ = false;
  NormalStructure structure_;  // without rays: what they say stands in point_blocks_
  std::vector<Block> blocks_;  // of the reduced part, in the order of the unknowns
  std::vector<PointEntry> points_;
  // The points in the order in which they stand in memory and are eliminated: those that meet the
  // same blocks follow one another, so that what they touch stays in the cache.
  std::vector<std::int32_t> point_order_;
  std::vector<PointBlock> point_blocks_;
  std::vector<std::vector<BlockPair>> pairs_;  // of each block, with itself and later ones
  LargeArray point_values_;
  LargeArray pair_values_;
  Method method_ = Method::eliminate;
  Matrix dense_;  // N and L of the dense method
  ReducedMatrix reduced_;
  std::unique_ptr<PointBatch> batch_;  // working memory of all factorisations
  // The factor in the order of the unknowns, made when somebody looks at it and reduced_ has
  // another.
  mutable std::unique_ptr<ReducedMatrix> natural_;
};

}  // namespace vorn
