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

// Dissection changes the order of sums, hence last digits, and fills tiles less well: it is for
// projects in which it saves a fifth of the operations and more. Parts of some tiles stay whole.
constexpr std::size_t kFewestToDissect = 4000;
constexpr double kDissectionGain = 1.25;
constexpr std::size_t kLeaf = 64;

// Where every point meets a good part of all blocks, the factor is full in any order.
bool is_full(const NormalStructure& structure, const NormalStructure::PointBlocks& points) {
  return std::uint64_t{points.blocks.size()} * 4 >
         static_cast<std::uint64_t>(structure.num_points()) *
             static_cast<std::uint64_t>(structure.num_blocks());
}

BlockOrder natural_order_of(const NormalStructure& structure) {
  BlockOrder natural;
  natural.blocks.resize(static_cast<std::size_t>(structure.num_blocks()));
  std::iota(natural.blocks.begin(), natural.blocks.end(), 0);
  return natural;
}

// Calls meet(blocks) for the blocks of each group and of each point.
template <class Meet>
void meet_in_groups_and_points(const NormalStructure& structure,
                               const NormalStructure::PointBlocks& points, const Meet& meet) {
  for (std::int32_t g = 0; g < structure.num_groups(); ++g) meet(structure.group(g));
  for (std::int32_t p = 0; p < structure.num_points(); ++p) meet(points.of(p));
}

}  // namespace

void ReducedMatrix::lay_out(const NormalStructure& structure, const Layout& layout) {
  order_ = layout.order.blocks;
  is_natural_ = std::is_sorted(order_.begin(), order_.end());
  tile_size_ = layout.tile_size;
  const auto n = static_cast<std::size_t>(structure.num_blocks());
  starts_.assign(n, 0);
  first_pieces_.assign(n, 0);
  num_pieces_.assign(n, 0);
  pieces_.clear();
  empty_rows_.clear();
  std::int32_t row = 0;
  auto front = layout.order.fronts.begin();
  for (std::size_t at = 0; at < order_.size(); ++at) {
    const std::int32_t block = order_[at];
    const auto b = static_cast<std::size_t>(block);
    for (; front != layout.order.fronts.end() && static_cast<std::size_t>(*front) == at; ++front) {
      for (; row % tile_size_ != 0; ++row) empty_rows_.push_back(row);
    }
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
  num_rows_ = row;
  num_tiles_ = (row + tile_size_ - 1) / tile_size_;
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

TilePattern ReducedMatrix::pattern(const Meetings& meetings) const {
  TilePattern marked(num_tiles_);
  std::vector<std::int32_t> touched;
  meetings([&](std::span<const std::int32_t> blocks) { mark_all(blocks, touched, marked); });
  // A block meets itself, also across the tiles that it stands in.
  for (std::int32_t block = 0; block < static_cast<std::int32_t>(order_.size()); ++block) {
    mark_all({&block, 1}, touched, marked);
  }
  return marked;
}

// Takes the order with the tiles that suit it best, if its cost times the gain that is asked of it
// is less than the lowest so far.
void ReducedMatrix::choose(const NormalStructure& structure, const Meetings& meetings,
                           const BlockOrder& order, double gain, Choice& best) {
  Choice own;
  for (const std::int32_t tile_size : {kLargeTile, kSmallTile}) {
    const Layout layout{order, tile_size};
    lay_out(structure, layout);
    TilePattern marked = pattern(meetings);
    const double needed = cost(marked.fill_in(), tile_size);
    if (needed < own.cost) own = {layout, std::move(marked), needed};
  }
  if (own.cost * gain < best.cost) best = std::move(own);
}

// Where blocks that meet have their elements, in the lower triangle.
std::vector<TileElements> ReducedMatrix::elements_of(const Graph& graph) const {
  std::vector<TileElements> elements;
  const auto pieces_of = [this](std::int32_t block) {
    return std::span(pieces_).subspan(static_cast<std::size_t>(first_piece(block)),
                                      static_cast<std::size_t>(num_pieces(block)));
  };
  const auto meet = [&](std::int32_t below, std::int32_t above) {
    for (const TilePiece& row : pieces_of(below)) {
      for (const TilePiece& column : pieces_of(above)) {
        if (row.tile <= column.tile) continue;
        elements.push_back({row.tile, column.tile, row.offset, row.offset + row.width});
      }
    }
  };
  for (std::int32_t a = 0; a < graph.size(); ++a) {
    meet(a, a);
    for (const std::int32_t b : graph.of(a)) meet(a, b);
  }
  return elements;
}

ReducedMatrix::Choice ReducedMatrix::best_choice(const NormalStructure& structure,
                                                 const NormalStructure::PointBlocks& points,
                                                 bool natural_order, Graph& graph) {
  const BlockOrder natural = natural_order_of(structure);
  Choice best;
  if (natural_order || is_full(structure, points)) {
    const Meetings meetings = [&](const Meet& meet) {
      meet_in_groups_and_points(structure, points, meet);
    };
    choose(structure, meetings, natural, 1.0, best);
  } else {
    graph = block_graph(structure, points);
    const Meetings meetings = [&](const Meet& meet) {
      for (std::int32_t a = 0; a < graph.size(); ++a) {
        for (const std::int32_t b : graph.of(a)) {
          const std::int32_t pair[2] = {a, b};
          if (a < b) meet(pair);
        }
      }
    };
    choose(structure, meetings, natural, 1.0, best);
    choose(structure, meetings, {band_order(graph), {}}, 1.0, best);
    if (natural.blocks.size() >= kFewestToDissect) {
      choose(structure, meetings, dissection_order(graph, kLeaf), kDissectionGain, best);
    }
  }
  return best;
}

bool ReducedMatrix::set_structure(const NormalStructure& structure,
                                  const NormalStructure::PointBlocks& points, bool natural_order) {
  Graph graph;
  const Choice best = best_choice(structure, points, natural_order, graph);
  lay_out(structure, best.layout);
  if (!tiles.set_structure(num_rows_, tile_size_, best.pattern, empty_rows_)) return false;
  if (graph.size() > 0) tiles.narrow_rows(elements_of(graph));
  return true;
}

bool ReducedMatrix::set_unfilled_structure(const NormalStructure& structure,
                                           const NormalStructure::PointBlocks& points) {
  lay_out(structure, {natural_order_of(structure), kSmallTile});
  const TilePattern marked =
      pattern([&](const Meet& meet) { meet_in_groups_and_points(structure, points, meet); });
  return tiles.set_structure(num_rows_, tile_size_, marked, empty_rows_);
}

std::int32_t ReducedMatrix::block_at(std::int32_t row) const {
  const auto behind =
      std::upper_bound(order_.begin(), order_.end(), row,
                       [this](std::int32_t r, std::int32_t block) { return r < start(block); });
  return *(behind - 1);
}

}  // namespace vorn
