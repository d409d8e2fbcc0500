#pragma once

// Kernels of batches of object points in the reduced matrix (kernels_impl.h).

#include "lsq/linalg/kernel_lanes.h"
#include "lsq/linalg/kernels.h"

namespace vorn {
namespace {

constexpr Index kRowOfPiece = kPieceWidth;

// One row of at most eight values, filled up with zeros.
inline void load_row(const double* p, Index width, double* row) {
  for (Index k = 0; k < kRowOfPiece; k += kLanes) store(row + k, load_some(p + k, width - k));
}

void divide_piece(const double* factor, const double* n, std::int32_t stride, std::int32_t width,
                  double* v) {
  const Lanes i0 = spread(factor[0]);
  const Lanes i1 = spread(factor[1]);
  const Lanes i2 = spread(factor[2]);
  const Lanes l10 = spread(factor[3]);
  const Lanes l20 = spread(factor[4]);
  const Lanes l21 = spread(factor[5]);
  for (Index r = 0; r < 3; ++r) load_row(n + r * stride, width, v + r * kRowOfPiece);
  for (Index c = 0; c < kPieceWidth; c += VORN_LANES) {
    const Lanes v0 = load(v + c) * i0;
    const Lanes v1 = subtract_product(load(v + kRowOfPiece + c), v0, l10) * i1;
    const Lanes v2 =
        subtract_product(subtract_product(load(v + 2 * kRowOfPiece + c), v0, l20), v1, l21) * i2;
    store(v + c, v0);
    store(v + kRowOfPiece + c, v1);
    store(v + 2 * kRowOfPiece + c, v2);
  }
}

constexpr int kParts = kPieceWidth / VORN_LANES;  // vectors per row of a piece

// column[r] -= sum[r] for the rows of a piece.
inline void subtract_rows(double* column, const Lanes (&sum)[kParts], Index width) {
#if VORN_LANES == 8
  const auto mask = static_cast<__mmask8>((1U << width) - 1U);
  _mm512_mask_storeu_pd(column, mask, _mm512_maskz_loadu_pd(mask, column) - sum[0]);
#else
  Index r = 0;
  for (; r + VORN_LANES <= width; r += VORN_LANES) {
    store(column + r, load(column + r) - sum[static_cast<std::size_t>(r / VORN_LANES)]);
  }
  for (; r < width; ++r) column[r] -= sum[static_cast<std::size_t>(r / VORN_LANES)][r % VORN_LANES];
#endif
}

void subtract_rhs(double* rhs, const BatchPiece& piece, const double* y) {
  Lanes sum[kParts];
  for (int k = 0; k < kParts; ++k) sum[k] = load_some(rhs + k * kLanes, piece.width - k * kLanes);
  const double* v = piece.v;
  for (std::uint64_t points = piece.points; points != 0; points &= points - 1) {
    const double* const of_point = y + Index{3} * __builtin_ctzll(points);
    for (int r = 0; r < 3; ++r, v += kRowOfPiece) {
      for (int k = 0; k < kParts; ++k) {
        sum[k] = subtract_product(sum[k], load(v + k * kLanes), spread(of_point[r]));
      }
    }
  }
  for (Index i = 0; i < piece.width; ++i) rhs[i] = sum[i / kLanes][i % kLanes];
}

// S(rows of a, columns of b) -= Va' Vb over the points that both pieces have.
template <int Columns>
inline void subtract_pair(double* s, Index t, const BatchPiece& a, const BatchPiece& b) {
  Lanes sum[std::size_t{Columns}][std::size_t{kParts}];
  for (int c = 0; c < Columns; ++c) {
    for (int k = 0; k < kParts; ++k) sum[c][k] = Lanes{};
  }
  for (std::uint64_t common = a.points & b.points; common != 0; common &= common - 1) {
    const std::uint64_t point = common & -common;
    const double* const va = a.v + columns_of(a.points, point);
    const double* const vb = b.v + columns_of(b.points, point);
    for (int r = 0; r < 3; ++r) {
      Lanes row[kParts];
      for (int k = 0; k < kParts; ++k) row[k] = load(va + r * kRowOfPiece + k * kLanes);
      for (int c = 0; c < Columns; ++c) {
        const Lanes factor = spread(vb[r * kRowOfPiece + c]);
        for (int k = 0; k < kParts; ++k) sum[c][k] = multiply_add(row[k], factor, sum[c][k]);
      }
    }
  }
  for (int c = 0; c < Columns; ++c) subtract_rows(s + c * t, sum[c], a.width);
}

inline void subtract_pair(double* s, Index t, const BatchPiece& a, const BatchPiece& b) {
  switch (b.width) {
    case 1:
      return subtract_pair<1>(s, t, a, b);
    case 2:
      return subtract_pair<2>(s, t, a, b);
    case 3:
      return subtract_pair<3>(s, t, a, b);
    case 4:
      return subtract_pair<4>(s, t, a, b);
    case 5:
      return subtract_pair<5>(s, t, a, b);
    case 6:
      return subtract_pair<6>(s, t, a, b);
    case 7:
      return subtract_pair<7>(s, t, a, b);
    default:
      return subtract_pair<8>(s, t, a, b);
  }
}

// Prefetches the elements where two pieces meet: to be written, or only read.
template <bool kWrite>
inline void prefetch_pair(const double* tile, Index t, const BatchPiece& a, const BatchPiece& b) {
  const double* column = tile + b.offset * t + a.offset;
  for (Index c = 0; c < b.width; ++c, column += t) {
    __builtin_prefetch(column, kWrite);
    __builtin_prefetch(column + a.width - 1, kWrite);
  }
}

// The end of the pieces that lie in the tile row of `first`.
inline std::int32_t end_of_tile(const BatchPiece* pieces, std::int32_t first,
                                std::int32_t num_pieces) {
  std::int32_t end = first + 1;
  while (end < num_pieces && pieces[end].tile == pieces[first].tile) ++end;
  return end;
}

void subtract_pairs(double* tile, std::int32_t size, const TilePieces& rows,
                    const TilePieces& columns) {
  const Index t = size;
  for (const BatchPiece* a = rows.begin; a != rows.end; ++a) {
    // Within a tile of the diagonal the lower triangle.
    for (const BatchPiece* b = columns.begin; b != columns.end && b <= a; ++b) {
      if (b + 1 != columns.end) prefetch_pair<true>(tile, t, *a, b[1]);
      if ((a->points & b->points) == 0) continue;
      subtract_pair(tile + b->offset * t + a->offset, t, *a, *b);
    }
  }
}

// U_a += V_b Z_ba over the points that both pieces have, where column c of Z_ab, for column c of b,
// stands at by[c].
template <int Columns>
inline void multiply_piece(const double (&by)[kRowOfPiece][kRowOfPiece], const BatchPiece& a,
                           const BatchPiece& b) {
  Lanes columns[std::size_t{Columns}][std::size_t{kParts}];
  for (int c = 0; c < Columns; ++c) {
    for (int k = 0; k < kParts; ++k) columns[c][k] = load(by[c] + k * kLanes);
  }
  for (std::uint64_t common = a.points & b.points; common != 0; common &= common - 1) {
    const std::uint64_t point = common & -common;
    double* const u = a.u + columns_of(a.points, point);
    const double* const v = b.v + columns_of(b.points, point);
    Lanes sum[3][kParts];
    for (int r = 0; r < 3; ++r) {
      for (int k = 0; k < kParts; ++k) sum[r][k] = load(u + r * kRowOfPiece + k * kLanes);
    }
    // Three sums that do not wait for one another.
    for (int c = 0; c < Columns; ++c) {
      for (int r = 0; r < 3; ++r) {
        const Lanes factor = spread(v[r * kRowOfPiece + c]);
        for (int k = 0; k < kParts; ++k) {
          sum[r][k] = multiply_add(columns[c][k], factor, sum[r][k]);
        }
      }
    }
    for (int r = 0; r < 3; ++r) {
      for (int k = 0; k < kParts; ++k) store(u + r * kRowOfPiece + k * kLanes, sum[r][k]);
    }
  }
}

inline void multiply_piece(const double (&by)[kRowOfPiece][kRowOfPiece], const BatchPiece& a,
                           const BatchPiece& b) {
  switch (b.width) {
    case 1:
      return multiply_piece<1>(by, a, b);
    case 2:
      return multiply_piece<2>(by, a, b);
    case 3:
      return multiply_piece<3>(by, a, b);
    case 4:
      return multiply_piece<4>(by, a, b);
    case 5:
      return multiply_piece<5>(by, a, b);
    case 6:
      return multiply_piece<6>(by, a, b);
    case 7:
      return multiply_piece<7>(by, a, b);
    default:
      return multiply_piece<8>(by, a, b);
  }
}

// U_a += V_b Z_ba and, for two pieces, U_b += V_a Z_ab, where Z_ab stands at `z`.
inline void multiply_pair(const double* z, Index t, const BatchPiece& a, const BatchPiece& b) {
  double columns[kRowOfPiece][kRowOfPiece] = {};
  for (Index c = 0; c < b.width; ++c) load_row(z + c * t, a.width, columns[c]);
  multiply_piece(columns, a, b);
  if (&a == &b) return;
  double rows[kRowOfPiece][kRowOfPiece];
  for (Index r = 0; r < kRowOfPiece; ++r) {
    for (Index c = 0; c < kRowOfPiece; ++c) rows[r][c] = columns[c][r];
  }
  multiply_piece(rows, b, a);
}

void multiply_batch(double* const* tiles, std::int32_t num_tiles, std::int32_t size,
                    const BatchPiece* pieces, std::int32_t num_pieces) {
  const Index t = size;
  for (std::int32_t i0 = 0, i1 = 0; i0 < num_pieces; i0 = i1) {
    i1 = end_of_tile(pieces, i0, num_pieces);
    for (std::int32_t j0 = 0, j1 = 0; j0 <= i0; j0 = j1) {
      j1 = end_of_tile(pieces, j0, num_pieces);
      const double* const tile =
          tiles[static_cast<Index>(pieces[i0].tile) * num_tiles + pieces[j0].tile];
      if (tile == nullptr) continue;
      for (std::int32_t i = i0; i < i1; ++i) {
        for (std::int32_t j = j0; j < j1 && j <= i; ++j) {
          if (j + 1 < j1) prefetch_pair<false>(tile, t, pieces[i], pieces[j + 1]);
          if ((pieces[i].points & pieces[j].points) == 0) continue;
          multiply_pair(tile + pieces[j].offset * t + pieces[i].offset, t, pieces[i], pieces[j]);
        }
      }
    }
  }
}

}  // namespace
}  // namespace vorn
