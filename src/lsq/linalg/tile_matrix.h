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

// Symmetric positive definite matrix in square tiles of its lower triangle, of which only those
// that the factorisation touches exist: a full matrix has all, a sparse one few. The last tile is
// filled up with rows of the identity matrix.
//
// Factorisation A = L L' by columns of tiles, left-looking (Golub and Van Loan 2013, 4.2): every
// tile is finished in one go while it stays in the cache. It does no pivoting.
class TileMatrix {
 public:
  // Lays the matrix out; contents are undefined until `zero`. The pattern includes the fill-in.
  // False when it does not fit the address space.
  [[nodiscard]] bool set_structure(std::int32_t size, std::int32_t tile_size,
                                   const TilePattern& pattern);
  // The same tiles as another matrix.
  [[nodiscard]] bool set_structure(const TileMatrix& other);
  void zero();

  std::int32_t size() const { return size_; }
  std::int32_t tile_size() const { return tile_size_; }
  std::int32_t num_tiles() const { return num_tiles_; }
  // tiles()[r * num_tiles() + c] for c <= r; null where there is none.
  double* const* tiles() const { return tiles_.data(); }
  // Tile of row r, column c <= r: column-major; null where there is none.
  double* tile(std::int32_t r, std::int32_t c) const {
    return tiles_[static_cast<std::size_t>(r) * static_cast<std::size_t>(num_tiles_) +
                  static_cast<std::size_t>(c)];
  }
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
  [[nodiscard]] bool take_tiles();
  [[nodiscard]] bool finish_column(std::int32_t column, std::int32_t& failed_pivot);

  std::int32_t size_ = 0;
  std::int32_t tile_size_ = 0;
  std::int32_t num_tiles_ = 0;
  std::vector<double*> tiles_;
  std::vector<std::vector<std::int32_t>> rows_;     // columns of each row's tiles, ascending
  std::vector<std::vector<std::int32_t>> columns_;  // rows of each column's tiles, ascending
  LargeArray values_;
};

}  // namespace vorn
