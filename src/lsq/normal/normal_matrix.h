#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "lsq/linalg/large_array.h"
#include "lsq/linalg/matrix.h"
#include "lsq/normal/normal_structure.h"
#include "text/text_writer.h"

namespace vorn {

// The symmetric matrix of the normal equations, U x U, seen element by element: its structure, its
// storage and how contributions are added. Contributions go to the upper triangle. What factorises
// it reads it and keeps the factor elsewhere (`NormalFactor`).
//
// Only what can differ from zero is stored. The object points come first and are independent of
// each other:
//
//       | N_pp  N_pr |     N_pp   3 x 3 diagonal blocks, one per point
//   N = |            |     N_pr   per point the couplings with the blocks of the images that see it
//       |  sym  N_rr |     N_rr   blocks of the reduced part that meet in an image
class NormalMatrix {
 public:
  NormalMatrix() = default;
  NormalMatrix(const NormalMatrix&) = delete;
  NormalMatrix& operator=(const NormalMatrix&) = delete;

  // Takes memory for a structure, with all elements zero. False when the matrix does not fit the
  // address space.
  [[nodiscard]] bool set_structure(NormalStructure structure);
  // A matrix of n unknowns of which nothing is known: all of them in one block of the reduced part.
  void resize(std::int32_t n);
  std::int32_t size() const { return size_; }
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
  // N[i][j] for i <= j; 0 below the diagonal.
  double at(std::int32_t i, std::int32_t j) const;

  // A direction in the parameters of one object: unit vector n over the unknowns from `index` on,
  // all of one object point or of one block of the reduced part.
  struct Direction {
    std::int32_t index;
    std::vector<double> n;
    double weight;  // c > 0, about as large as the diagonal of N there
  };
  // Takes directions out of the equations exactly, whatever the weights: N := P N P + c n n' and
  // b := P b with P = I - n n', one after the other. The solution then has x'n = 0, the inverse is
  // that of the equations in which n cannot move, plus n n' / c. Directions of one object are
  // orthogonal to one another. Fixed parameters are unit vectors, conditions their normals.
  void take_out(std::span<const Direction> directions, Vector& b);

  // ---- object points ----

  // A block that a point meets, and where their coupling starts among those of the point.
  struct PointBlock {
    std::int32_t block;
    std::int32_t start;
  };
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
  std::int32_t num_point_unknowns() const { return 3 * num_points_; }
  // The points in the order in which they stand in memory.
  std::span<const std::int32_t> point_order() const { return point_order_; }
  // The blocks that a point meets, ascending, and all their widths together.
  std::span<const PointBlock> blocks_of(std::int32_t point) const {
    const PointEntry& entry = points_[place(point)];
    return {point_blocks_.data() + entry.first_block, place(entry.num_blocks)};
  }
  // Null where they do not meet.
  const PointBlock* find_point_block(std::int32_t point, std::int32_t block) const;
  std::int32_t coupled_width(std::int32_t point) const { return points_[place(point)].width; }
  const double* diagonal(std::int32_t point) const {
    return point_values_.data() + points_[place(point)].values;
  }
  const double* coupling(std::int32_t point, const PointBlock& at) const {
    return diagonal(point) + kDiagonalRoom + at.start;
  }
  // Prefetches the rows of the point that stands at a place of the order; what lies behind the last
  // one needs nothing.
  void prefetch_point(std::size_t at) const {
    if (at >= point_order_.size()) return;
    const PointEntry& entry = points_[place(point_order_[at])];
    const double* const values = point_values_.data() + entry.values;
    const std::size_t size = kDiagonalRoom + 3 * place(entry.width);
    for (std::size_t k = 0; k < size; k += kCacheLine) __builtin_prefetch(values + k);
  }
  // All blocks of all points, in the order of the points.
  NormalStructure::PointBlocks point_blocks() const;

  // ---- reduced part ----

  // Its structure, without rays: what they say stands in `blocks_of`.
  const NormalStructure& structure() const { return structure_; }
  std::int32_t num_blocks() const { return structure_.num_blocks(); }
  // The block of an unknown of the reduced part, and a block's first unknown and width.
  std::int32_t block_of(std::int32_t unknown) const { return structure_.block_of(unknown); }
  std::int32_t block_index(std::int32_t block) const { return blocks_[place(block)].index; }
  std::int32_t block_width(std::int32_t block) const { return blocks_[place(block)].width; }
  // The elements where two blocks of a group meet, a <= b: row-major, as wide as block b. Null
  // where they do not meet.
  double* block_pair(std::int32_t a, std::int32_t b);
  const double* block_pair(std::int32_t a, std::int32_t b) const;
  // Calls visit(a, b, elements) for all pairs a <= b that meet.
  template <class Visit>
  void for_each_pair(Visit visit) const {
    for (std::int32_t a = 0; a < num_blocks(); ++a) {
      for (const BlockPair& pair : pairs_[place(a)]) {
        visit(a, pair.other, pair_values_.data() + pair.offset);
      }
    }
  }

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
  static constexpr std::size_t kCacheLine = 8;  // doubles
  // The six elements of a diagonal block fill a cache line.
  static constexpr std::size_t kDiagonalRoom = kCacheLine;

  static std::size_t place(std::int32_t i) { return static_cast<std::size_t>(i); }

  void lay_out_blocks();
  [[nodiscard]] bool lay_out_points(const NormalStructure::PointBlocks& blocks);
  [[nodiscard]] bool lay_out_pairs();
  void take_out_of_point(const Direction& direction);
  void take_out_of_diagonal(std::int32_t block, double* elements,
                            const std::vector<const Direction*>& directions);
  template <class Self>
  static auto find_pair(Self& self, std::int32_t a, std::int32_t b)
      -> decltype(self.pair_values_.data());
  template <class Self>
  static auto find(Self& self, std::int32_t i, std::int32_t j)
      -> decltype(self.point_values_.data());

  std::int32_t size_ = 0;
  std::int32_t num_points_ = 0;
  NormalStructure structure_;
  std::vector<Block> blocks_;  // of the reduced part, in the order of the unknowns
  std::vector<PointEntry> points_;
  // The points in the order in which they stand in memory and are eliminated: those that meet the
  // same blocks follow one another, so that what they touch stays in the cache.
  std::vector<std::int32_t> point_order_;
  std::vector<PointBlock> point_blocks_;
  std::vector<std::vector<BlockPair>> pairs_;  // of each block, with itself and later ones
  LargeArray point_values_;
  LargeArray pair_values_;
};

// Non-zero pattern as a plain portable bitmap "P1", both triangles.
void write_sparsity_pbm(TextWriter& out, const NormalMatrix& n);

}  // namespace vorn
