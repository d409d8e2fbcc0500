#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "base/place.h"
#include "lsq/linalg/large_array.h"
#include "lsq/linalg/matrix.h"
#include "lsq/normal/couplings.h"
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
//
// N_pr is by far the largest part. Whoever adds the observations may be able to form it again,
// batch by batch of points, in less time than it takes to fetch it from memory; then it need not be
// stored. Those who read it batch by batch (`Couplings`) see no difference.
class NormalMatrix {
 public:
  NormalMatrix() = default;
  NormalMatrix(const NormalMatrix&) = delete;
  NormalMatrix& operator=(const NormalMatrix&) = delete;

  // Whether N_pr is stored, or formed again by a `CouplingSource` whenever it is needed.
  enum class PointCouplings { stored, formed };
  // Takes memory for a structure. Nobody has touched it when `zero` clears it, or those who share
  // the work of filling it clear it in parts. False when the matrix does not fit the address space.
  [[nodiscard]] bool set_structure(NormalStructure structure,
                                   PointCouplings couplings = PointCouplings::stored);
  // A matrix of n unknowns of which nothing is known: all of them in one block of the reduced part;
  // all elements are zero.
  void resize(std::int32_t n);
  std::int32_t size() const { return size_; }
  void zero();
  // The same in parts: the reduced part, and the rows of consecutive points in the order in which
  // they stand in memory, which those do who are about to add to them.
  void zero_reduced();
  void zero_points(std::int32_t first, std::int32_t count);

  // From now on N_pr is stored, which it is not yet: all elements of N are to be added anew. For
  // those who change it or ask for its elements. Throws std::bad_alloc.
  void store_couplings();
  bool stores_couplings() const { return stores_couplings_; }
  // Who forms N_pr when it is not stored. It stays where it is as long as the factor of the matrix
  // is used, and the values from which it forms as they were when the matrix was filled.
  void set_coupling_source(const CouplingSource& source) { coupling_source_ = &source; }

  // N[i][j] += v for i <= j. An element outside the structure is an error of the program
  // (std::out_of_range).
  void add(std::int32_t i, std::int32_t j, double v);
  // N[i + r][j + c] += block[r][c]. Elements of it that fall below the diagonal of N are ignored.
  void add_block(std::int32_t i, std::int32_t j, const Matrix& block);
  // N[i][j] for i <= j; 0 below the diagonal. Elements of N_pr are there when it is stored
  // (std::logic_error otherwise).
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
  // coupling with a block, 3 x width, row-major, stands at coupling[coupling_start(point, block)];
  // `coupling` is null when couplings are not stored.
  struct PointRows {
    double* diagonal;
    double* coupling;
  };
  PointRows point_rows(std::int32_t point);
  std::int32_t coupling_start(std::int32_t point, std::int32_t block) const {
    return coupling_start_at(rank_of(point), block);
  }
  std::int32_t num_points() const { return num_points_; }
  std::int32_t num_point_unknowns() const { return 3 * num_points_; }
  // The points in the order in which they stand in memory.
  std::span<const std::int32_t> point_order() const { return point_order_; }
  // The blocks that a point meets, ascending, and all their widths together.
  std::span<const PointBlock> blocks_of(std::int32_t point) const {
    return blocks_at(rank_of(point));
  }
  // Null where they do not meet.
  const PointBlock* find_point_block(std::int32_t point, std::int32_t block) const;
  std::int32_t coupled_width(std::int32_t point) const {
    const std::span<const PointBlock> blocks = blocks_of(point);
    return blocks.empty() ? 0 : blocks.back().start / 3 + block_width(blocks.back().block);
  }
  const double* diagonal(std::int32_t point) const { return diagonal_at(rank_of(point)); }
  // A reader of the couplings of all points, batch by batch, whether they are stored or not.
  Couplings couplings() const;
  // Where those of the first point in the order of the points begin, when they are stored.
  const double* stored_couplings() const { return point_couplings_.data(); }
  // The coupling of a point with a block, when it is stored.
  const double* coupling(std::int32_t point, const PointBlock& at) const {
    return stored_couplings() + coupling_offset(rank_of(point)) + at.start;
  }
  // The same by places in the order of the points, which those know who go through all of them.
  std::size_t rank_of(std::int32_t point) const { return place(point_ranks_[place(point)]); }
  std::int32_t coupling_start_at(std::size_t rank, std::int32_t block) const;
  std::span<const PointBlock> blocks_at(std::size_t rank) const {
    const std::size_t first = points_[rank].first_block;
    return {point_blocks_.data() + first, points_[rank + 1].first_block - first};
  }
  const double* diagonal_at(std::size_t rank) const {
    return point_diagonals_.data() + kDiagonal * rank;
  }
  PointRows rows_at(std::size_t rank) {
    return {point_diagonals_.data() + kDiagonal * rank,
            stores_couplings_ ? point_couplings_.data() + coupling_offset(rank) : nullptr};
  }
  // Where the couplings of the point that stands at a place begin among those of all points; behind
  // the last place, where all of them end.
  std::size_t coupling_offset(std::size_t rank) const { return points_[rank].couplings; }
  // Prefetches the couplings of the point at a place of the order; what is not stored, or lies
  // behind the last one, needs nothing.
  void prefetch_couplings(std::size_t at) const {
    constexpr std::size_t kCacheLine = 8;  // doubles
    if (at >= point_order_.size() || !stores_couplings_) return;
    for (std::size_t k = coupling_offset(at); k < coupling_offset(at + 1); k += kCacheLine) {
      __builtin_prefetch(point_couplings_.data() + k);
    }
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
    std::size_t couplings;
    std::size_t first_block;
  };
  static constexpr std::size_t kDiagonal = 6;  // elements of a diagonal block

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
      -> decltype(self.point_diagonals_.data());

  std::int32_t size_ = 0;
  std::int32_t num_points_ = 0;
  NormalStructure structure_;
  std::vector<Block> blocks_;  // of the reduced part, in the order of the unknowns
  // The points in the order in which they stand in memory and are eliminated: those that meet the
  // same blocks follow one another, so that what they touch stays in the cache.
  std::vector<std::int32_t> point_order_;
  std::vector<std::int32_t> point_ranks_;  // by points: their places in the order
  std::vector<PointEntry> points_;         // in the order; a last one marks the end
  std::vector<PointBlock> point_blocks_;
  std::vector<std::vector<BlockPair>> pairs_;  // of each block, with itself and later ones
  LargeArray point_diagonals_;
  LargeArray point_couplings_;  // empty unless stored
  bool stores_couplings_ = true;
  const CouplingSource* coupling_source_ = nullptr;
  LargeArray pair_values_;
};

// Non-zero pattern as a plain portable bitmap "P1", both triangles.
void write_sparsity_pbm(TextWriter& out, const NormalMatrix& n);

}  // namespace vorn
