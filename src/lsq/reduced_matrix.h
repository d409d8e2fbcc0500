#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

#include "lsq/normal_structure.h"
#include "lsq/tile_matrix.h"

namespace vorn {

// The reduced normal matrix in tiles, its blocks in an order of its own.
class ReducedMatrix {
 public:
  // Chooses tiles, and unless the natural order is asked for also the order of the blocks, by the
  // number of operations that the factorisation takes. False when the matrix does not fit the
  // address space.
  bool set_structure(const NormalStructure& structure, const NormalStructure::PointBlocks& points,
                     bool natural_order);

  bool is_natural() const { return is_natural_; }
  // First row of a block.
  std::int32_t start(std::int32_t block) const { return starts_[static_cast<std::size_t>(block)]; }
  // The block in pieces that lie within one tile; their columns count from the block's first.
  std::span<const TilePiece> pieces_of(std::int32_t block) const {
    const auto b = static_cast<std::size_t>(block);
    return {pieces_.data() + first_piece_[b],
            static_cast<std::size_t>(first_piece_[b + 1] - first_piece_[b])};
  }
  // The block of a row.
  std::int32_t block_at(std::int32_t row) const;

  TileMatrix tiles;

 private:
  struct Layout {
    std::vector<std::int32_t> order;
    std::int32_t tile_size;
  };

  void lay_out(const NormalStructure& structure, const Layout& layout);
  TilePattern pattern(const NormalStructure& structure,
                      const NormalStructure::PointBlocks& points) const;
  void mark_all(std::span<const std::int32_t> blocks, std::vector<std::int32_t>& touched,
                TilePattern& marked) const;

  bool is_natural_ = true;
  std::int32_t tile_size_ = 0;
  std::int32_t num_tiles_ = 0;
  std::vector<std::int32_t> order_;
  std::vector<std::int32_t> starts_;
  std::vector<TilePiece> pieces_;
  std::vector<std::int32_t> first_piece_;
};

}  // namespace vorn
