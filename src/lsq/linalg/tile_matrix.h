#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <utility>
#include <vector>

#include "lsq/linalg/kernels.h"
#include "lsq/linalg/large_array.h"

namespace vorn {

// Non-zero tiles of the lower triangle of a symmetric matrix, as one bit per tile.
class TilePattern {
 public:
  explicit TilePattern(std::int32_t num_tiles);

  void mark(std::int32_t row, std::int32_t column);  // column <= row
  bool has(std::int32_t row, std::int32_t column) const;
  // Adds the tiles that a Cholesky factorisation fills; returns the number of tile products it
  // takes.
  std::int64_t fill_in();
  std::int32_t num_tiles() const { return num_tiles_; }

 private:
  std::uint64_t* row_bits(std::int32_t row) {
    return bits_.data() + static_cast<std::size_t>(row) * words_;
  }

  std::int32_t num_tiles_;
  std::size_t words_;
  std::vector<std::uint64_t> bits_;  // row by row
};

// Where elements of a matrix stand that differ from zero: in rows [first, end) of the tile of a row
// and a column of tiles.
struct TileElements {
  std::int32_t row;
  std::int32_t column;  // <= row
  std::int32_t first;
  std::int32_t end;
};

// Symmetric positive definite matrix in square tiles of its lower triangle, of which only those
// that the factorisation touches exist: a full matrix has all, a sparse one few. Rows that stand
// for nothing, among them those that fill up the last tile, are rows of the identity matrix.
//
// Factorisation A = L L' by blocks of columns of tiles, left-looking (Golub and Van Loan
// 2013, 4.2): a square of tiles stays in the cache while everything before it passes by. Each tile
// is formed by the same operations in the same order, k ascending in A_ij - sum of L_ik L_jk',
// whatever the width of the blocks and whoever works at them. It does no pivoting. Rows of a tile
// that stay zero are left out, which changes no sum.
class TileMatrix {
 public:
  // Lays the matrix out; contents are undefined until `zero`. The pattern includes the fill-in;
  // `empty_rows` stand for nothing. False when it does not fit the address space.
  [[nodiscard]] bool set_structure(std::int32_t size, std::int32_t tile_size,
                                   const TilePattern& pattern,
                                   std::span<const std::int32_t> empty_rows = {});
  // Says where all elements outside the diagonal tiles stand that may differ from zero; rows of
  // tiles which the factorisation leaves zero are left out then. Otherwise none is.
  void narrow_rows(std::span<const TileElements> elements);
  // The same tiles as another matrix.
  [[nodiscard]] bool set_structure(const TileMatrix& other);
  void zero();

  std::int32_t size() const { return size_; }
  std::int32_t tile_size() const { return tile_size_; }
  std::int32_t num_tiles() const { return num_tiles_; }
  // tiles()[r * num_tiles() + c] for c <= r; null where there is none.
  double* const* tiles() const { return tiles_.data(); }
  // Tile of row r, column c <= r: column-major; null where there is none.
  double* tile(std::int32_t r, std::int32_t c) const { return tiles_[place_of(r, c)]; }
  // The rows of a column's tiles, ascending: that of the diagonal is the first.
  std::span<const std::int32_t> column(std::int32_t c) const {
    return columns_[static_cast<std::size_t>(c)];
  }
  // Element (i, j), j <= i, of a tile that exists.
  double& element(std::int32_t i, std::int32_t j);
  // Element (i, j), j <= i; 0 where there is no tile.
  double at(std::int32_t i, std::int32_t j) const;

  // 0, or k > 0 when the pivot of row k (counted from 1) is not greater than 0.
  [[nodiscard]] std::int32_t factorise();
  // x := L^-1 x and x := L^-T x. x has room for num_tiles() * tile_size() values.
  void solve_lower(double* x) const;
  void solve_upper(double* x) const;

 private:
  // Columns [first, end) of tiles.
  struct ColumnBlock {
    std::int32_t first;
    std::int32_t end;
    std::vector<std::int32_t> before;  // columns before it whose products reach it, ascending
    std::vector<std::int32_t> below;   // rows of its tiles from `end` on, ascending
  };

  // Rows of a tile that may differ from zero, in eights: of a vector register, and of partial sums.
  struct Rows {
    std::uint8_t first;
    std::uint8_t end;
    std::int32_t begin() const { return 8 * first; }
    std::int32_t count() const { return 8 * (end - first); }
  };
  Rows rows_of(std::int32_t r, std::int32_t c) const { return row_ranges_[place_of(r, c)]; }
  std::size_t place_of(std::int32_t r, std::int32_t c) const {
    return static_cast<std::size_t>(r) * static_cast<std::size_t>(num_tiles_) +
           static_cast<std::size_t>(c);
  }
  void widen(std::int32_t r, std::int32_t c, Rows rows);
  [[nodiscard]] bool take_tiles();
  ColumnBlock block_at(std::int32_t first, std::int32_t end) const;
  [[nodiscard]] std::int32_t factorise_block(const ColumnBlock& block);
  void bring_in(const ColumnBlock& block, std::span<const std::int32_t> rows);
  void finish_row(const ColumnBlock& block, std::int32_t row);
  void subtract_product(std::int32_t i, std::int32_t j, std::int32_t k);

  std::int32_t size_ = 0;
  std::int32_t tile_size_ = 0;
  std::int32_t num_tiles_ = 0;
  std::vector<std::int32_t> empty_rows_;
  std::vector<double*> tiles_;
  std::vector<Rows> row_ranges_;                    // of the tiles, likewise
  std::vector<std::vector<std::int32_t>> rows_;     // columns of each row's tiles, ascending
  std::vector<std::vector<std::int32_t>> columns_;  // rows of each column's tiles, ascending
  LargeArray values_;
};

}  // namespace vorn
