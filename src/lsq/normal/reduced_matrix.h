#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <span>
#include <vector>

#include "lsq/linalg/tile_matrix.h"
#include "lsq/normal/nested_dissection.h"
#include "lsq/normal/normal_structure.h"

namespace vorn {

// At most eight consecutive unknowns of one block, within one tile.
struct TilePiece {
  std::int32_t tile;    // tile row
  std::int32_t offset;  // first row within the tile
  std::int32_t width;
  std::int32_t column;  // first column within the block
};

// The reduced normal matrix in tiles, its blocks in an order of its own.
class ReducedMatrix {
 public:
  // Chooses tiles, and unless the natural order is asked for also the order of the blocks, by the
  // number of operations that the factorisation takes: bands, or nested dissection in projects of
  // some thousand blocks where it saves a good part. False when the matrix does not fit the address
  // space.
  [[nodiscard]] bool set_structure(const NormalStructure& structure,
                                   const NormalStructure::PointBlocks& points, bool natural_order);
  // The same for S alone, which is not factorised here: the natural order, and no tiles but those
  // that hold elements.
  [[nodiscard]] bool set_unfilled_structure(const NormalStructure& structure,
                                            const NormalStructure::PointBlocks& points);

  bool is_natural() const { return is_natural_; }
  // First row of a block.
  std::int32_t start(std::int32_t block) const { return starts_[static_cast<std::size_t>(block)]; }
  // The pieces of a block are numbered in the order of the rows: [first_piece(block),
  // first_piece(block) + num_pieces(block)).
  std::int32_t first_piece(std::int32_t block) const {
    return first_pieces_[static_cast<std::size_t>(block)];
  }
  std::int32_t num_pieces(std::int32_t block) const {
    return num_pieces_[static_cast<std::size_t>(block)];
  }
  const std::vector<TilePiece>& pieces() const { return pieces_; }
  // The block of a row.
  std::int32_t block_at(std::int32_t row) const;

  TileMatrix tiles;

 private:
  struct Layout {
    BlockOrder order;
    std::int32_t tile_size = 0;
  };
  struct Choice {
    Layout layout;
    TilePattern pattern{0};
    double cost = std::numeric_limits<double>::infinity();
  };
  // Calls meet(blocks) for sets of blocks that meet one another; together they are all that meet.
  using Meet = std::function<void(std::span<const std::int32_t> blocks)>;
  using Meetings = std::function<void(const Meet& meet)>;

  void lay_out(const NormalStructure& structure, const Layout& layout);
  TilePattern pattern(const Meetings& meetings) const;
  void choose(const NormalStructure& structure, const Meetings& meetings, const BlockOrder& order,
              double gain, Choice& best);
  // Leaves the graph of the blocks unless it was not needed.
  Choice best_choice(const NormalStructure& structure, const NormalStructure::PointBlocks& points,
                     bool natural_order, Graph& graph);
  std::vector<TileElements> elements_of(const Graph& graph) const;
  void mark_all(std::span<const std::int32_t> blocks, std::vector<std::int32_t>& touched,
                TilePattern& marked) const;

  bool is_natural_ = true;
  std::int32_t tile_size_ = 0;
  std::int32_t num_tiles_ = 0;
  std::int32_t num_rows_ = 0;
  std::vector<std::int32_t> order_;
  std::vector<std::int32_t> empty_rows_;  // before a new tile
  std::vector<std::int32_t> starts_;
  std::vector<TilePiece> pieces_;
  std::vector<std::int32_t> first_pieces_;  // of each block
  std::vector<std::int32_t> num_pieces_;
};

}  // namespace vorn
