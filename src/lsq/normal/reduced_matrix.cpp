#include "lsq/normal/reduced_matrix.h"

#include <algorithm>
#include <cstdint>
#include <limits>
#include <numeric>
#include <utility>

namespace vorn {
namespace {

// Tiles are a multiple of the rows of a register block, 24. Small ones leave fewer zeros in a
// sparse matrix; three large ones (72 KiB each) fit the second-level cache of any processor at
// hand.
constexpr std::int32_t kSmallTile = 48;
constexpr std::int32_t kLargeTile = 96;

// The time of a factorisation in an arbitrary unit: a product of tiles takes t^3 multiplications
// and loads and stores t^2 elements, each of them counted as 24 multiplications.
double cost(std::int64_t products, std::int32_t tile_size) {
  constexpr double kAccess = 24.0;
  const double t = tile_size;
  return static_cast<double>(products) * t * t * (t + kAccess);
}

}  // namespace

void ReducedMatrix::lay_out(const NormalStructure& structure, const Layout& layout) {
  order_ = layout.order;
  is_natural_ = std::is_sorted(order_.begin(), order_.end());
  tile_size_ = layout.tile_size;
  num_tiles_ = (structure.reduced_size() + tile_size_ - 1) / tile_size_;
  const auto n = static_cast<std::size_t>(structure.num_blocks());
  starts_.assign(n, 0);
  first_pieces_.assign(n, 0);
  num_pieces_.assign(n, 0);
  pieces_.clear();
  std::int32_t row = 0;
  for (const std::int32_t block : order_) {
    const auto b = static_cast<std::size_t>(block);
    starts_[b] = row;
    first_pieces_[b] = static_cast<std::int32_t>(pieces_.size());
    for (std::int32_t column = 0; column < structure.width(block);) {
      const std::int32_t offset = row % tile_size_;
      const std::int32_t width =
          std::min({kPieceWidth, tile_size_ - offset, structure.width(block) - column});
      pieces_.push_back({row / tile_size_, offset, width, column});
      row += width;
      column += width;
    }
    num_pieces_[b] = static_cast<std::int32_t>(pieces_.size()) - first_pieces_[b];
  }
}

void ReducedMatrix::mark_all(std::span<const std::int32_t> blocks,
                             std::vector<std::int32_t>& touched, TilePattern& marked) const {
  touched.clear();
  for (const std::int32_t block : blocks) {
    for (std::int32_t k = 0; k < num_pieces(block); ++k) {
      const std::int32_t tile =
          pieces_[static_cast<std::size_t>(first_piece(block)) + static_cast<std::size_t>(k)].tile;
      if (touched.empty() || touched.back() != tile) touched.push_back(tile);
    }
  }
  std::sort(touched.begin(), touched.end());
  touched.erase(std::unique(touched.begin(), touched.end()), touched.end());
  for (std::size_t i = 0; i < touched.size(); ++i) {
    for (std::size_t j = 0; j <= i; ++j) marked.mark(touched[i], touched[j]);
  }
}

TilePattern ReducedMatrix::pattern(const NormalStructure& structure,
                                   const NormalStructure::PointBlocks& points) const {
  TilePattern marked(num_tiles_);
  std::vector<std::int32_t> touched;
  for (std::int32_t g = 0; g < structure.num_groups(); ++g) {
    mark_all(structure.group(g), touched, marked);
  }
  for (std::int32_t p = 0; p < structure.num_points(); ++p) {
    mark_all(points.of(p), touched, marked);
  }
  // A block meets itself, also across the tiles that it stands in.
  for (std::int32_t block = 0; block < structure.num_blocks(); ++block) {
    mark_all({&block, 1}, touched, marked);
  }
  return marked;
}

bool ReducedMatrix::set_structure(const NormalStructure& structure,
                                  const NormalStructure::PointBlocks& points, bool natural_order) {
  std::vector<std::int32_t> natural(static_cast<std::size_t>(structure.num_blocks()));
  std::iota(natural.begin(), natural.end(), 0);
  std::vector<Layout> candidates = {{natural, kLargeTile}, {natural, kSmallTile}};
  if (!natural_order) {
    const std::vector<std::int32_t> reducing = fill_reducing_order(structure, points);
    if (reducing != natural) {
      candidates.push_back({reducing, kLargeTile});
      candidates.push_back({reducing, kSmallTile});
    }
  }
  double lowest = std::numeric_limits<double>::infinity();
  const Layout* best = nullptr;
  TilePattern best_pattern(0);
  for (const Layout& candidate : candidates) {
    lay_out(structure, candidate);
    TilePattern marked = pattern(structure, points);
    const double needed = cost(marked.fill_in(), candidate.tile_size);
    if (needed >= lowest) continue;
    lowest = needed;
    best = &candidate;
    best_pattern = std::move(marked);
  }
  lay_out(structure, *best);
  return tiles.set_structure(structure.reduced_size(), tile_size_, best_pattern);
}

std::int32_t ReducedMatrix::block_at(std::int32_t row) const {
  const auto behind =
      std::upper_bound(order_.begin(), order_.end(), row,
                       [this](std::int32_t r, std::int32_t block) { return r < start(block); });
  return *(behind - 1);
}

}  // namespace vorn
