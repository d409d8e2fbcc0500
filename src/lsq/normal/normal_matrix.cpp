#include "lsq/normal/normal_matrix.h"

#include <algorithm>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace vorn {
namespace {

// Place of element (i, j), i <= j, in the diagonal block of a point.
std::size_t diagonal_place(std::int32_t i, std::int32_t j) {
  return static_cast<std::size_t>(i == 0 ? j : i + j + 1);
}

// The points by their first block, those of one first block by the middle one: a counting sort
// each.
std::vector<std::int32_t> order_by_blocks(const NormalStructure::PointBlocks& blocks,
                                          std::int32_t num_points, std::int32_t num_blocks) {
  std::vector<std::int32_t> order(static_cast<std::size_t>(num_points));
  std::iota(order.begin(), order.end(), 0);
  std::vector<std::int32_t> sorted(order.size());
  const auto sort_by = [&](auto key) {
    std::vector<std::size_t> next(static_cast<std::size_t>(num_blocks) + 2, 0);
    for (const std::int32_t p : order) ++next[key(p) + 1];
    std::partial_sum(next.begin(), next.end(), next.begin());
    for (const std::int32_t p : order) sorted[next[key(p)]++] = p;
    order.swap(sorted);
  };
  // Points without blocks come first.
  const auto key_of = [](std::span<const std::int32_t> of, std::size_t which) {
    return of.empty() ? std::size_t{0} : static_cast<std::size_t>(of[which]) + 1;
  };
  // The last blocks are often the parameter sets that all points share; the middle one tells more.
  sort_by([&](std::int32_t p) { return key_of(blocks.of(p), blocks.of(p).size() / 2); });
  sort_by([&](std::int32_t p) { return key_of(blocks.of(p), 0); });
  return order;
}

// Null where a point does not meet the block.
const NormalMatrix::PointBlock* find_block(std::span<const NormalMatrix::PointBlock> blocks,
                                           std::int32_t block) {
  const auto found = std::lower_bound(
      blocks.begin(), blocks.end(), block,
      [](const NormalMatrix::PointBlock& x, std::int32_t b) { return x.block < b; });
  return found != blocks.end() && found->block == block ? &*found : nullptr;
}

}  // namespace

// ---- structure ---------------------------------------------------------------------------------

bool NormalMatrix::set_structure(NormalStructure structure, PointCouplings couplings) {
  const NormalStructure::PointBlocks blocks = structure.point_blocks();
  structure.forget_rays();
  structure_ = std::move(structure);
  // A matrix without room has no unknowns: nobody takes it for one that can be filled.
  size_ = 0;
  num_points_ = structure_.num_points();
  stores_couplings_ = couplings == PointCouplings::stored;
  coupling_source_ = nullptr;
  lay_out_blocks();
  if (!lay_out_points(blocks) || !lay_out_pairs()) return false;
  size_ = structure_.num_unknowns();
  return true;
}

void NormalMatrix::resize(std::int32_t n) {
  if (n == size_ && num_points_ == 0) return;
  NormalStructure structure;
  if (n > 0) structure.add_group({structure.add_block(n)});
  if (!set_structure(std::move(structure))) throw std::bad_alloc();
  zero();
}

void NormalMatrix::lay_out_blocks() {
  blocks_.clear();
  std::int32_t index = num_point_unknowns();
  for (std::int32_t b = 0; b < num_blocks(); ++b) {
    blocks_.push_back({index, structure_.width(b)});
    index += structure_.width(b);
  }
}

bool NormalMatrix::lay_out_points(const NormalStructure::PointBlocks& blocks) {
  points_.clear();
  points_.reserve(place(num_points_) + 1);
  point_ranks_.resize(place(num_points_));
  point_blocks_.clear();
  point_blocks_.reserve(blocks.blocks.size());
  point_order_ = order_by_blocks(blocks, num_points_, num_blocks());
  std::uint64_t room = 0;
  for (const std::int32_t p : point_order_) {
    point_ranks_[place(p)] = static_cast<std::int32_t>(points_.size());
    points_.push_back({static_cast<std::size_t>(room), point_blocks_.size()});
    std::int32_t start = 0;
    for (const std::int32_t block : blocks.of(p)) {
      point_blocks_.push_back({block, start});
      start += 3 * block_width(block);
    }
    room += static_cast<std::uint64_t>(start);
    // Offsets count whether they are stored or not.
    if (!LargeArray::fits(room)) return false;
  }
  points_.push_back({static_cast<std::size_t>(room), point_blocks_.size()});
  return point_diagonals_.resize(kDiagonal * static_cast<std::uint64_t>(num_points_)) &&
         point_couplings_.resize(stores_couplings_ ? room : 0);
}

void NormalMatrix::store_couplings() {
  if (stores_couplings_) return;
  if (!point_couplings_.resize(points_.back().couplings)) throw std::bad_alloc();
  stores_couplings_ = true;
  zero();
}

Couplings NormalMatrix::couplings() const {
  if (stores_couplings_) return {*this, nullptr};
  if (coupling_source_ == nullptr) throw std::logic_error("normal matrix: nobody forms couplings");
  return {*this, coupling_source_->make_former()};
}

bool NormalMatrix::lay_out_pairs() {
  pairs_.assign(blocks_.size(), {});
  for (std::int32_t b = 0; b < num_blocks(); ++b) pairs_[place(b)].push_back({b, 0});
  for (std::int32_t g = 0; g < structure_.num_groups(); ++g) {
    for (const std::int32_t a : structure_.group(g)) {
      for (const std::int32_t b : structure_.group(g)) {
        if (a < b) pairs_[place(a)].push_back({b, 0});
      }
    }
  }
  std::uint64_t room = 0;
  for (std::size_t a = 0; a < pairs_.size(); ++a) {
    std::vector<BlockPair>& pairs = pairs_[a];
    std::sort(pairs.begin(), pairs.end(),
              [](const BlockPair& x, const BlockPair& y) { return x.other < y.other; });
    pairs.erase(
        std::unique(pairs.begin(), pairs.end(),
                    [](const BlockPair& x, const BlockPair& y) { return x.other == y.other; }),
        pairs.end());
    for (BlockPair& pair : pairs) {
      pair.offset = static_cast<std::size_t>(room);
      room += static_cast<std::uint64_t>(blocks_[a].width) *
              static_cast<std::uint64_t>(blocks_[place(pair.other)].width);
      if (!LargeArray::fits(room)) return false;
    }
  }
  return pair_values_.resize(room);
}

// ---- elements ----------------------------------------------------------------------------------

void NormalMatrix::zero() {
  zero_reduced();
  point_diagonals_.zero();
  point_couplings_.zero();
}

void NormalMatrix::zero_reduced() { pair_values_.zero(); }

void NormalMatrix::zero_points(std::int32_t first, std::int32_t count) {
  std::fill_n(point_diagonals_.data() + kDiagonal * place(first), kDiagonal * place(count), 0.0);
  if (!stores_couplings_) return;
  std::fill(point_couplings_.data() + coupling_offset(place(first)),
            point_couplings_.data() + coupling_offset(place(first + count)), 0.0);
}

NormalMatrix::PointRows NormalMatrix::point_rows(std::int32_t point) {
  return rows_at(rank_of(point));
}

NormalStructure::PointBlocks NormalMatrix::point_blocks() const {
  NormalStructure::PointBlocks result;
  result.first.push_back(0);
  for (std::int32_t point = 0; point < num_points_; ++point) {
    for (const PointBlock& at : blocks_of(point)) result.blocks.push_back(at.block);
    result.first.push_back(result.blocks.size());
  }
  return result;
}

const NormalMatrix::PointBlock* NormalMatrix::find_point_block(std::int32_t point,
                                                               std::int32_t block) const {
  return find_block(blocks_of(point), block);
}

std::int32_t NormalMatrix::coupling_start_at(std::size_t rank, std::int32_t block) const {
  const PointBlock* const found = find_block(blocks_at(rank), block);
  if (found == nullptr) throw std::out_of_range("normal matrix: point and block do not meet");
  return found->start;
}

template <class Self>
auto NormalMatrix::find_pair(Self& self, std::int32_t a, std::int32_t b)
    -> decltype(self.pair_values_.data()) {
  const std::vector<BlockPair>& pairs = self.pairs_[place(a)];
  const auto found =
      std::lower_bound(pairs.begin(), pairs.end(), b,
                       [](const BlockPair& x, std::int32_t other) { return x.other < other; });
  if (found == pairs.end() || found->other != b) return nullptr;
  return self.pair_values_.data() + found->offset;
}

double* NormalMatrix::block_pair(std::int32_t a, std::int32_t b) { return find_pair(*this, a, b); }

const double* NormalMatrix::block_pair(std::int32_t a, std::int32_t b) const {
  return find_pair(*this, a, b);
}

// The stored element (i, j), i <= j; null for a structural zero.
template <class Self>
auto NormalMatrix::find(Self& self, std::int32_t i, std::int32_t j)
    -> decltype(self.point_diagonals_.data()) {
  const std::int32_t reduced = self.num_point_unknowns();
  if (j < reduced) {
    if (i / 3 != j / 3) return nullptr;
    return self.point_diagonals_.data() + kDiagonal * self.rank_of(i / 3) +
           diagonal_place(i % 3, j % 3);
  }
  const std::int32_t block = self.block_of(j);
  const std::size_t width = place(self.block_width(block));
  const std::size_t column = place(j - self.block_index(block));
  if (i < reduced) {
    const PointBlock* const at = self.find_point_block(i / 3, block);
    if (at == nullptr) return nullptr;
    if (!self.stores_couplings_) throw std::logic_error("normal matrix: couplings are not stored");
    return self.point_couplings_.data() + self.coupling_offset(self.rank_of(i / 3)) + at->start +
           place(i % 3) * width + column;
  }
  const std::int32_t row_block = self.block_of(i);
  const auto pair = find_pair(self, row_block, block);
  if (pair == nullptr) return nullptr;
  return pair + place(i - self.block_index(row_block)) * width + column;
}

void NormalMatrix::add(std::int32_t i, std::int32_t j, double v) {
  double* const element = find(*this, i, j);
  if (element == nullptr) throw std::out_of_range("normal matrix: element outside the structure");
  *element += v;
}

void NormalMatrix::add_block(std::int32_t i, std::int32_t j, const Matrix& block) {
  for (std::int32_t r = 0; r < block.rows(); ++r) {
    for (std::int32_t c = i + r > j ? i + r - j : 0; c < block.cols(); ++c) {
      add(i + r, j + c, block[r][c]);
    }
  }
}

double NormalMatrix::at(std::int32_t i, std::int32_t j) const {
  if (i > j) return 0.0;
  const double* const element = find(*this, i, j);
  return element == nullptr ? 0.0 : *element;
}

void write_sparsity_pbm(TextWriter& out, const NormalMatrix& n) {
  out << "P1\n" << n.size() << ' ' << n.size() << "\n\n";
  for (std::int32_t i = 0; i < n.size(); ++i) {
    for (std::int32_t j = 0; j < n.size(); ++j) {
      out << (n.at(std::min(i, j), std::max(i, j)) == 0.0 ? "0 " : "1 ");
    }
    out << '\n';
  }
}

}  // namespace vorn
