#include "lsq/linalg/tile_matrix.h"

#include <algorithm>

#include "base/cache_size.h"
#include "base/workers.h"

namespace vorn {
namespace {

constexpr std::uint32_t kWordBits = 64;

// How many columns of tiles are finished at once: as many as leave room in the second-level cache
// for a square of tiles and those that meet there. More of them would be one worker's.
std::int32_t columns_at_once(std::int32_t tile_size) {
  constexpr std::size_t kMost = 4;
  const std::size_t area =
      static_cast<std::size_t>(tile_size) * static_cast<std::size_t>(tile_size);
  const std::size_t tiles = second_level_cache() / (area * sizeof(double));
  std::size_t width = 1;
  while (width < kMost && (width + 1) * (width + 3) <= tiles) ++width;
  return static_cast<std::int32_t>(width);
}

}  // namespace

TilePattern::TilePattern(std::int32_t num_tiles)
    : num_tiles_(num_tiles),
      words_((static_cast<std::size_t>(num_tiles) + kWordBits - 1) / kWordBits),
      bits_(words_ * static_cast<std::size_t>(num_tiles), 0) {
  for (std::int32_t i = 0; i < num_tiles; ++i) mark(i, i);
}

void TilePattern::mark(std::int32_t row, std::int32_t column) {
  const auto c = static_cast<std::uint32_t>(column);
  row_bits(row)[c / kWordBits] |= std::uint64_t{1} << (c % kWordBits);
}

bool TilePattern::has(std::int32_t row, std::int32_t column) const {
  const auto c = static_cast<std::uint32_t>(column);
  const std::uint64_t word = bits_[static_cast<std::size_t>(row) * words_ + c / kWordBits];
  return ((word >> (c % kWordBits)) & 1U) != 0;
}

std::int64_t TilePattern::fill_in() {
  std::int64_t products = 0;
  std::vector<std::int32_t> below;
  for (std::int32_t k = 0; k < num_tiles_; ++k) {
    below.clear();
    for (std::int32_t i = k + 1; i < num_tiles_; ++i) {
      if (has(i, k)) below.push_back(i);
    }
    for (std::size_t a = 0; a < below.size(); ++a) {
      for (std::size_t b = 0; b <= a; ++b) mark(below[a], below[b]);
    }
    const auto count = static_cast<std::int64_t>(below.size());
    products += count * (count + 1) / 2 + count + 1;
  }
  return products;
}

bool TileMatrix::set_structure(std::int32_t size, std::int32_t tile_size,
                               const TilePattern& pattern,
                               std::span<const std::int32_t> empty_rows) {
  size_ = size;
  tile_size_ = tile_size;
  num_tiles_ = pattern.num_tiles();
  empty_rows_.assign(empty_rows.begin(), empty_rows.end());
  for (std::int32_t i = size; i < num_tiles_ * tile_size_; ++i) empty_rows_.push_back(i);
  const auto n = static_cast<std::size_t>(num_tiles_);
  // The table of tiles counts their pairs, which 32 bits may not hold.
  if (!LargeArray::fits(std::uint64_t{n} * n)) return false;
  rows_.assign(n, {});
  columns_.assign(n, {});
  for (std::int32_t r = 0; r < num_tiles_; ++r) {
    for (std::int32_t c = 0; c <= r; ++c) {
      if (!pattern.has(r, c)) continue;
      rows_[static_cast<std::size_t>(r)].push_back(c);
      columns_[static_cast<std::size_t>(c)].push_back(r);
    }
  }
  return take_tiles();
}

bool TileMatrix::set_structure(const TileMatrix& other) {
  size_ = other.size_;
  tile_size_ = other.tile_size_;
  num_tiles_ = other.num_tiles_;
  empty_rows_ = other.empty_rows_;
  rows_ = other.rows_;
  columns_ = other.columns_;
  return take_tiles();
}

// Memory for the tiles that the lists of rows and columns name.
bool TileMatrix::take_tiles() {
  std::uint64_t count = 0;
  for (const std::vector<std::int32_t>& rows : columns_) count += rows.size();
  const std::size_t area =
      static_cast<std::size_t>(tile_size_) * static_cast<std::size_t>(tile_size_);
  if (!values_.resize(count * area)) return false;
  // Column by column, as the factorisation walks.
  const auto n = static_cast<std::size_t>(num_tiles_);
  tiles_.assign(n * n, nullptr);
  row_ranges_.assign(n * n, {0, static_cast<std::uint8_t>(tile_size_ / 8)});
  double* next = values_.data();
  for (std::size_t c = 0; c < n; ++c) {
    for (const std::int32_t r : columns_[c]) {
      tiles_[static_cast<std::size_t>(r) * n + c] = next;
      next += area;
    }
  }
  return true;
}

void TileMatrix::narrow_rows(std::span<const TileElements> elements) {
  const auto all = static_cast<std::uint8_t>(tile_size_ / 8);
  row_ranges_.assign(row_ranges_.size(), {all, 0});
  for (std::int32_t i = 0; i < num_tiles_; ++i) widen(i, i, {0, all});
  for (const TileElements& at : elements) {
    widen(at.row, at.column,
          {static_cast<std::uint8_t>(at.first / 8), static_cast<std::uint8_t>((at.end + 7) / 8)});
  }
  // A_ij - L_ik L_jk' differs from zero in the rows of both.
  for (std::int32_t k = 0; k < num_tiles_; ++k) {
    const std::span<const std::int32_t> below = column(k).subspan(1);
    for (std::size_t i = 0; i < below.size(); ++i) {
      const Rows rows = rows_of(below[i], k);
      for (std::size_t j = 0; j < i; ++j) widen(below[i], below[j], rows);
    }
  }
}

void TileMatrix::widen(std::int32_t r, std::int32_t c, Rows rows) {
  Rows& own = row_ranges_[place_of(r, c)];
  own = {std::min(own.first, rows.first), std::max(own.end, rows.end)};
}

void TileMatrix::zero() {
  constexpr std::size_t kGrain = std::size_t{1} << 17U;
  for_each_range(values_.size(), kGrain, [this](std::size_t begin, std::size_t end, std::size_t) {
    std::fill(values_.data() + begin, values_.data() + end, 0.0);
  });
  for (const std::int32_t i : empty_rows_) element(i, i) = 1.0;
}

double& TileMatrix::element(std::int32_t i, std::int32_t j) {
  double* const values = tile(i / tile_size_, j / tile_size_);
  return values[static_cast<std::ptrdiff_t>(j % tile_size_) * tile_size_ + i % tile_size_];
}

double TileMatrix::at(std::int32_t i, std::int32_t j) const {
  const double* const values = tile(i / tile_size_, j / tile_size_);
  if (values == nullptr) return 0.0;
  return values[static_cast<std::ptrdiff_t>(j % tile_size_) * tile_size_ + i % tile_size_];
}

std::int32_t TileMatrix::factorise() {
  const std::int32_t width = columns_at_once(tile_size_);
  std::int32_t failed_row = 0;
  for (std::int32_t first = 0; first < num_tiles_ && failed_row == 0; first += width) {
    failed_row = factorise_block(block_at(first, std::min(first + width, num_tiles_)));
  }
  return failed_row;
}

TileMatrix::ColumnBlock TileMatrix::block_at(std::int32_t first, std::int32_t end) const {
  ColumnBlock block{first, end, {}, {}};
  for (std::int32_t j = first; j < end; ++j) {
    for (const std::int32_t k : rows_[static_cast<std::size_t>(j)]) {
      if (k < first) block.before.push_back(k);
    }
    for (const std::int32_t i : columns_[static_cast<std::size_t>(j)]) {
      if (i >= end) block.below.push_back(i);
    }
  }
  for (std::vector<std::int32_t>* list : {&block.before, &block.below}) {
    std::sort(list->begin(), list->end());
    list->erase(std::unique(list->begin(), list->end()), list->end());
  }
  return block;
}

// First the triangle of tiles in the diagonal, then the rows below it, which do not depend on one
// another.
std::int32_t TileMatrix::factorise_block(const ColumnBlock& block) {
  const auto width = static_cast<std::size_t>(block.end - block.first);
  workers().run(width, [&](std::size_t k, std::size_t) {
    const std::int32_t row = block.first + static_cast<std::int32_t>(k);
    bring_in(block, {&row, 1});
  });
  for (std::int32_t row = block.first; row < block.end; ++row) {
    finish_row(block, row);
    const std::int32_t failed = kernels().factorise(tile(row, row), tile_size_);
    if (failed != 0) return row * tile_size_ + failed;
  }
  for_each_range(block.below.size(), width, [&](std::size_t begin, std::size_t end, std::size_t) {
    const auto rows = std::span(block.below).subspan(begin, end - begin);
    bring_in(block, rows);
    for (const std::int32_t row : rows) finish_row(block, row);
  });
  return 0;
}

// The products with all columns before the block: the tiles of a few rows stay in the cache while
// those before them pass by.
void TileMatrix::bring_in(const ColumnBlock& block, std::span<const std::int32_t> rows) {
  for (const std::int32_t k : block.before) {
    for (const std::int32_t i : rows) {
      if (tile(i, k) == nullptr) continue;
      for (std::int32_t j = block.first; j < std::min(block.end, i + 1); ++j) {
        subtract_product(i, j, k);
      }
    }
  }
}

// The products with the columns of the block, and L_ij = C L_jj^-T, column after column.
void TileMatrix::finish_row(const ColumnBlock& block, std::int32_t row) {
  for (std::int32_t j = block.first; j < std::min(block.end, row + 1); ++j) {
    if (tile(row, j) == nullptr) continue;
    for (std::int32_t k = block.first; k < j; ++k) subtract_product(row, j, k);
    if (j == row) continue;
    const Rows rows = rows_of(row, j);
    kernels().solve_right(tile(row, j) + rows.begin(), tile(j, j), tile_size_, rows.count());
  }
}

// C_ij -= L_ik L_jk', where both are.
void TileMatrix::subtract_product(std::int32_t i, std::int32_t j, std::int32_t k) {
  const double* const left = tile(i, k);
  const double* const right = tile(j, k);
  if (left == nullptr || right == nullptr) return;
  const Rows rows = rows_of(i, k);
  const Rows columns = rows_of(j, k);
  double* const product = tile(i, j) + columns.begin() * tile_size_ + rows.begin();
  if (i == j) {
    kernels().square_subtract(product, left + rows.begin(), tile_size_, rows.count());
  } else {
    kernels().multiply_subtract(product, left + rows.begin(), right + columns.begin(), tile_size_,
                                rows.count(), columns.count());
  }
}

void TileMatrix::solve_lower(double* x) const {
  const Kernels& kernel = kernels();
  const std::ptrdiff_t t = tile_size_;
  for (std::int32_t j = 0; j < num_tiles_; ++j) {
    double* const xj = x + j * t;
    for (const std::int32_t i : columns_[static_cast<std::size_t>(j)]) {
      const double* const l = tile(i, j);
      if (i != j) {
        const Rows rows = rows_of(i, j);
        double* const xi = x + i * t + rows.begin();
        for (std::ptrdiff_t c = 0; c < t; ++c) {
          kernel.add_scaled(xi, l + c * t + rows.begin(), -xj[c], rows.count());
        }
        continue;
      }
      for (std::ptrdiff_t c = 0; c < t; ++c) {
        xj[c] /= l[c * t + c];
        kernel.add_scaled(xj + c + 1, l + c * t + c + 1, -xj[c], t - c - 1);
      }
    }
  }
}

void TileMatrix::solve_upper(double* x) const {
  const Kernels& kernel = kernels();
  const std::ptrdiff_t t = tile_size_;
  for (std::int32_t j = num_tiles_ - 1; j >= 0; --j) {
    double* const xj = x + j * t;
    const std::vector<std::int32_t>& rows = columns_[static_cast<std::size_t>(j)];
    for (std::size_t k = rows.size(); k-- > 0;) {
      const std::int32_t i = rows[k];
      const double* const l = tile(i, j);
      if (i != j) {
        const Rows range = rows_of(i, j);
        const double* const xi = x + i * t + range.begin();
        for (std::ptrdiff_t c = 0; c < t; ++c) {
          xj[c] -= kernel.dot(l + c * t + range.begin(), xi, range.count());
        }
        continue;
      }
      for (std::ptrdiff_t c = t - 1; c >= 0; --c) {
        xj[c] = (xj[c] - kernel.dot(l + c * t + c + 1, xj + c + 1, t - c - 1)) / l[c * t + c];
      }
    }
  }
}

}  // namespace vorn
