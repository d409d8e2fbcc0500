// The kernels, written once and compiled for each instruction set. The including file defines
//
//   VORN_LANES        doubles per vector: 2, 4 or 8
//   VORN_COLUMNS      columns of a register block of C in `multiply_subtract`
//   VORN_FUSED        1 where the processor multiplies and adds with one rounding
//   VORN_KERNEL_NAME  the name of the table
//   VORN_INSTRUCTIONS the instruction set
//
// One order of operations for all: every element of a result is formed by the same operations in
// the same order whatever the width of the vectors, sums over a row in eight partial sums (element
// k goes to sum k modulo 8) that `total` adds up. The compiler contracts nothing
// (-ffp-contract=off); `multiply_add` says where two operations are one. So all processors that
// fuse end with the same bytes, and whatever compiler built the library.
//
// Sums and products are written on GCC's vector types, so that the compiler schedules and allocates
// registers; intrinsics serve fused operations and rows shorter than a vector. All memory is
// accessed unaligned: nothing here depends on the alignment of the stack.

#include <cstddef>
#include <cstdint>

#if VORN_FUSED
#include <immintrin.h>
#endif

#include "lsq/linalg/kernels.h"

namespace vorn {
namespace {

using Index = std::ptrdiff_t;
constexpr Index kLanes = VORN_LANES;
constexpr Index kRowOfPiece = kPieceWidth;

using Lanes = double __attribute__((vector_size(VORN_LANES * sizeof(double))));
// A typedef, because Clang drops the alignment of an alias declaration.
typedef double LanesInMemory
    __attribute__((vector_size(VORN_LANES * sizeof(double)), aligned(sizeof(double)), may_alias));

inline Lanes load(const double* p) { return *reinterpret_cast<const LanesInMemory*>(p); }
inline void store(double* p, Lanes v) { *reinterpret_cast<LanesInMemory*>(p) = v; }

// a * b + c and c - a * b, rounded once where the processor can, else twice.
#if VORN_FUSED
#if VORN_LANES == 8
inline Lanes multiply_add(Lanes a, Lanes b, Lanes c) { return _mm512_fmadd_pd(a, b, c); }
inline Lanes subtract_product(Lanes c, Lanes a, Lanes b) { return _mm512_fnmadd_pd(a, b, c); }
#else
inline Lanes multiply_add(Lanes a, Lanes b, Lanes c) { return _mm256_fmadd_pd(a, b, c); }
inline Lanes subtract_product(Lanes c, Lanes a, Lanes b) { return _mm256_fnmadd_pd(a, b, c); }
#endif
inline double multiply_add(double a, double b, double c) { return __builtin_fma(a, b, c); }
inline double subtract_product(double c, double a, double b) { return __builtin_fma(-a, b, c); }
#else
template <class T>
inline T multiply_add(T a, T b, T c) {
  return a * b + c;
}
template <class T>
inline T subtract_product(T c, T a, T b) {
  return c - a * b;
}
#endif

// The same number in all lanes, and the first `count` numbers of memory, zeros behind them; nothing
// behind them is read.
#if VORN_LANES == 8
inline Lanes spread(double x) { return _mm512_set1_pd(x); }
inline Lanes load_some(const double* p, Index count) {
  return _mm512_maskz_loadu_pd(static_cast<__mmask8>((1U << count) - 1U), p);
}
#elif VORN_LANES == 4
inline Lanes spread(double x) { return _mm256_set1_pd(x); }
inline Lanes load_some(const double* p, Index count) {
  const __m256i lane = _mm256_setr_epi64x(0, 1, 2, 3);
  return _mm256_maskload_pd(p, _mm256_cmpgt_epi64(_mm256_set1_epi64x(count), lane));
}
#else
inline Lanes spread(double x) { return Lanes{x, x}; }
inline Lanes load_some(const double* p, Index count) {
  return Lanes{count > 0 ? p[0] : 0.0, count > 1 ? p[1] : 0.0};
}
#endif

// A register block of C: VORN_LANES * R rows by K columns.
// C -= A B' over `depth` columns of A and B, or C -= A B over `depth` rows of a plain B; all are
// column-major with leading dimension t.
template <int R, int K, bool Plain = false>
inline void subtract_block(double* c, const double* a, const double* b, Index t, Index depth) {
  Lanes sum[std::size_t{K}][std::size_t{R}];
  for (int j = 0; j < K; ++j) {
    for (int r = 0; r < R; ++r) sum[j][r] = Lanes{};
  }
  for (Index k = 0; k < depth; ++k) {
    Lanes column[std::size_t{R}];
    for (int r = 0; r < R; ++r) column[r] = load(a + k * t + r * kLanes);
    for (int j = 0; j < K; ++j) {
      const Lanes factor = spread(Plain ? b[j * t + k] : b[k * t + j]);
      for (int r = 0; r < R; ++r) sum[j][r] = multiply_add(column[r], factor, sum[j][r]);
    }
  }
  for (int j = 0; j < K; ++j) {
    for (int r = 0; r < R; ++r) {
      double* const at = c + j * t + r * kLanes;
      store(at, load(at) - sum[j][r]);
    }
  }
}

// Rows [first, end) of K columns, multiples of 8.
template <int K>
inline void subtract_columns(double* c, const double* a, const double* b, Index t, Index depth,
                             Index first, Index end) {
  constexpr Index kTall = 3 * kLanes;
  Index row = first;
  for (; row + kTall <= end; row += kTall) {
    subtract_block<3, K, false>(c + row, a + row, b, t, depth);
  }
  for (; row < end; row += VORN_LANES) {
    subtract_block<1, K, false>(c + row, a + row, b, t, depth);
  }
}

// R vectors of rows, and the columns of C. They stay in the first cache while B passes by once.
template <int R, bool Plain>
inline void subtract_band(double* c, const double* a, const double* b, Index t, Index columns) {
  for (Index j = 0; j < columns; j += VORN_COLUMNS) {
    subtract_block<R, VORN_COLUMNS, Plain>(c + j * t, a, Plain ? b + j * t : b + j, t, t);
  }
}

template <bool Plain>
inline void subtract_tile_product(double* c, const double* a, const double* b, Index t, Index rows,
                                  Index columns) {
  constexpr Index kTall = 3 * kLanes;  // divides t
  Index row = 0;
  for (; row + kTall <= rows; row += kTall) {
    subtract_band<3, Plain>(c + row, a + row, b, t, columns);
  }
  if (row + 2 * kLanes == rows) {
    subtract_band<2, Plain>(c + row, a + row, b, t, columns);
  } else if (row < rows) {
    subtract_band<1, Plain>(c + row, a + row, b, t, columns);
  }
}

void multiply_subtract(double* c, const double* a, const double* b, std::int32_t size,
                       std::int32_t rows, std::int32_t columns) {
  subtract_tile_product<false>(c, a, b, size, rows, columns);
}

void multiply_subtract_plain(double* c, const double* a, const double* b, std::int32_t size) {
  subtract_tile_product<true>(c, a, b, size, size, size);
}

void square_subtract(double* c, const double* a, std::int32_t size, std::int32_t rows) {
  const Index t = size;
  for (Index j = 0; j < rows; j += VORN_COLUMNS) {
    subtract_columns<VORN_COLUMNS>(c + j * t, a, a + j, t, t, j / 8 * 8, rows);
  }
}

// Columns are finished in panels of this width.
constexpr Index kPanel = 8;

// Brings the contributions of all earlier columns into one panel of C, rows [first, end).
inline void update_panel(double* c, const double* a, const double* l, Index t, Index panel,
                         Index first, Index end) {
  for (Index j = 0; j < kPanel; j += VORN_COLUMNS) {
    subtract_columns<VORN_COLUMNS>(c + (panel + j) * t, a, l + panel + j, t, panel, first, end);
  }
}

// Divides one panel of C, rows [first, end), by the triangular panel of L: C := C L^-T.
inline void divide_panel(double* c, const double* l, Index t, Index panel, Index first, Index end) {
  for (Index j = panel; j < panel + kPanel; ++j) {
    double* const column = c + j * t;
    for (Index k = panel; k < j; ++k) {
      const Lanes factor = spread(l[k * t + j]);
      const double* const earlier = c + k * t;
      for (Index r = first; r < end; r += VORN_LANES) {
        store(column + r, subtract_product(load(column + r), load(earlier + r), factor));
      }
    }
    const double inverse = 1.0 / l[j * t + j];
    for (Index r = first; r < end; r += VORN_LANES) store(column + r, load(column + r) * inverse);
  }
}

void solve_right(double* c, const double* l, std::int32_t size, std::int32_t rows) {
  const Index t = size;
  for (Index panel = 0; panel < t; panel += kPanel) {
    update_panel(c, c, l, t, panel, 0, rows);
    divide_panel(c, l, t, panel, 0, rows);
  }
}

std::int32_t factorise(double* a, std::int32_t size) {
  const Index t = size;
  for (Index panel = 0; panel < t; panel += kPanel) {
    update_panel(a, a, a, t, panel, panel, t);
    for (Index j = panel; j < panel + kPanel; ++j) {
      for (Index i = j; i < panel + kPanel; ++i) {
        double s = a[j * t + i];
        for (Index k = panel; k < j; ++k) {
          s = subtract_product(s, a[k * t + i], a[k * t + j]);
        }
        if (i == j) {
          // Negated, so that a pivot that is not a number fails.
          if (!(s > 0.0)) return static_cast<std::int32_t>(j) + 1;
          s = __builtin_sqrt(s);
        } else {
          s /= a[j * t + j];
        }
        a[j * t + i] = s;
      }
    }
    divide_panel(a, a, t, panel, panel + kPanel, t);
  }
  return 0;
}

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
  constexpr Index kPoint = 3 * kRowOfPiece;
  Lanes sum[std::size_t{Columns}][std::size_t{kParts}];
  for (int c = 0; c < Columns; ++c) {
    for (int k = 0; k < kParts; ++k) sum[c][k] = Lanes{};
  }
  for (std::uint64_t common = a.points & b.points; common != 0; common &= common - 1) {
    const std::uint64_t before = (common & -common) - 1;
    const double* const va = a.v + kPoint * __builtin_popcountll(a.points & before);
    const double* const vb = b.v + kPoint * __builtin_popcountll(b.points & before);
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
  constexpr Index kPoint = 3 * kRowOfPiece;
  Lanes columns[std::size_t{Columns}][std::size_t{kParts}];
  for (int c = 0; c < Columns; ++c) {
    for (int k = 0; k < kParts; ++k) columns[c][k] = load(by[c] + k * kLanes);
  }
  for (std::uint64_t common = a.points & b.points; common != 0; common &= common - 1) {
    const std::uint64_t before = (common & -common) - 1;
    double* const u = a.u + kPoint * __builtin_popcountll(a.points & before);
    const double* const v = b.v + kPoint * __builtin_popcountll(b.points & before);
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

// A row of PA: x * p + y * q.
inline Lanes weigh(Lanes x, double p, Lanes y, double q) {
  return multiply_add(y, spread(q), x * spread(p));
}

void add_products(double* c, double* sums, const DesignRows& design, const PointWeights& weights,
                  const double* weighted_reduced) {
  const Index stride = design.stride;
  const double* const x = design.rows;
  const double* const y = x + stride;
  double* const wx = design.weighted;
  double* const wy = wx + stride;
  const Lanes pl_x = spread(weighted_reduced[0]);
  const Lanes pl_y = spread(weighted_reduced[1]);
  for (Index j = 0; j < stride; j += VORN_LANES) {
    const Lanes xj = load(x + j);
    const Lanes yj = load(y + j);
    const Lanes weighted_x = weigh(xj, weights.xx, yj, weights.xy);
    const Lanes weighted_y = weigh(xj, weights.xy, yj, weights.yy);
    store(wx + j, weighted_x);
    store(wy + j, weighted_y);
    store(sums + j, multiply_add(yj, pl_y, multiply_add(xj, pl_x, load(sums + j))));
    // The rows whose diagonal element stands before the end of these columns.
    const Index rows = j + VORN_LANES < design.m ? j + VORN_LANES : design.m;
    for (Index i = 0; i < rows; ++i) {
      double* const at = c + i * stride + j;
      const Lanes with_x = multiply_add(weighted_x, spread(x[i]), load(at));
      store(at, multiply_add(weighted_y, spread(y[i]), with_x));
    }
  }
}

#if VORN_LANES == 8
// The transpose of eight rows of eight.
inline void transpose(Lanes (&v)[8]) {
  for (int i = 0; i < 8; i += 2) {
    const Lanes low = __builtin_shufflevector(v[i], v[i + 1], 0, 8, 2, 10, 4, 12, 6, 14);
    v[i + 1] = __builtin_shufflevector(v[i], v[i + 1], 1, 9, 3, 11, 5, 13, 7, 15);
    v[i] = low;
  }
  for (int i = 0; i < 6; i += i == 1 ? 3 : 1) {
    const Lanes low = __builtin_shufflevector(v[i], v[i + 2], 0, 1, 8, 9, 4, 5, 12, 13);
    v[i + 2] = __builtin_shufflevector(v[i], v[i + 2], 2, 3, 10, 11, 6, 7, 14, 15);
    v[i] = low;
  }
  for (int i = 0; i < 4; ++i) {
    const Lanes low = __builtin_shufflevector(v[i], v[i + 4], 0, 1, 2, 3, 8, 9, 10, 11);
    v[i + 4] = __builtin_shufflevector(v[i], v[i + 4], 4, 5, 6, 7, 12, 13, 14, 15);
    v[i] = low;
  }
}

inline void line_up(const double* columns, double* rows, Index m, Index stride) {
  for (Index j = 0; j < stride; j += 8) {
    Lanes v[8];
    for (Index c = 0; c < 8; ++c) v[c] = j + c < m ? load(columns + 8 * (j + c)) : Lanes{};
    transpose(v);
    for (Index k = 0; k < 8; ++k) store(rows + k * stride + j, v[k]);
  }
}
#else
inline void line_up(const double* columns, double* rows, Index m, Index stride) {
  for (Index k = 0; k < 8; ++k) {
    for (Index j = 0; j < m; ++j) rows[k * stride + j] = columns[8 * j + k];
    for (Index j = m; j < stride; ++j) rows[k * stride + j] = 0.0;
  }
}
#endif

// From eight points side by side to one row after the other, plain and weighted.
void weigh_packed_rows(const PackedRows& design, const PackedWeights& weights) {
  const Index stride = design.stride;
  double* const x = design.rows;
  double* const y = x + 8 * stride;
  double* const weighted = y + 8 * stride;
  line_up(design.x, x, design.m, stride);
  line_up(design.y, y, design.m, stride);
  for (Index k = 0; k < 8; ++k) {
    for (Index j = k * stride; j < (k + 1) * stride; j += VORN_LANES) {
      const Lanes xj = load(x + j);
      const Lanes yj = load(y + j);
      store(weighted + k * stride + j, weigh(xj, weights.xx[k], yj, weights.xy[k]));
      store(weighted + (k + 1) * stride + j, weigh(xj, weights.xy[k], yj, weights.yy[k]));
    }
  }
}

void add_packed_products(double* c, double* sums, const PackedRows& design,
                         const PackedWeights& weights) {
  constexpr Index kRows = 8;  // of C in registers; divides the stride
  weigh_packed_rows(design, weights);
  const Index stride = design.stride;
  const double* const x = design.rows;
  const double* const y = x + 8 * stride;
  const double* const weighted = y + 8 * stride;
  for (Index j = 0; j < stride; j += VORN_LANES) {
    Lanes sum = load(sums + j);
    for (Index k = 0; k < 8; ++k) {
      sum = multiply_add(load(x + k * stride + j), spread(weights.reduced_x[k]), sum);
      sum = multiply_add(load(y + k * stride + j), spread(weights.reduced_y[k]), sum);
    }
    store(sums + j, sum);
    // The rows whose diagonal element stands before the end of these columns.
    for (Index i = 0; i < j + VORN_LANES; i += kRows) {
      Lanes block[kRows];
      for (Index r = 0; r < kRows; ++r) block[r] = load(c + (i + r) * stride + j);
      for (Index k = 0; k < 8; ++k) {
        const Lanes wx = load(weighted + 2 * k * stride + j);
        const Lanes wy = load(weighted + (2 * k + 1) * stride + j);
        for (Index r = 0; r < kRows; ++r) {
          block[r] = multiply_add(wx, spread(x[k * stride + i + r]), block[r]);
          block[r] = multiply_add(wy, spread(y[k * stride + i + r]), block[r]);
        }
      }
      for (Index r = 0; r < kRows; ++r) store(c + (i + r) * stride + j, block[r]);
    }
  }
}

void find_packed_weights(PackedWeights& weights, const double* cofactors,
                         const double* misclosures) {
  for (Index k = 0; k < 8; k += VORN_LANES) {
    const Lanes xx = spread(1.0) / load(cofactors + k);
    const Lanes yy = spread(1.0) / load(cofactors + 8 + k);
    store(weights.xx + k, xx);
    store(weights.xy + k, Lanes{});
    store(weights.yy + k, yy);
    store(weights.reduced_x + k, xx * load(misclosures + k));
    store(weights.reduced_y + k, yy * load(misclosures + 8 + k));
  }
}

void multiply_packed_points(double* products, const double* x, const double* y,
                            const PackedWeights& weights) {
  for (Index k = 0; k < 8; k += VORN_LANES) {
    const Lanes weight_x = load(weights.xx + k);
    const Lanes weight_y = load(weights.yy + k);
    const Lanes reduced_x = load(weights.reduced_x + k);
    const Lanes reduced_y = load(weights.reduced_y + k);
    double* product = products + k;
    for (Index i = 0; i < 3; ++i) {
      const Lanes xi = load(x + 8 * i + k);
      const Lanes yi = load(y + 8 * i + k);
      const Lanes wx = weight_x * xi;
      const Lanes wy = weight_y * yi;
      for (Index j = i; j < 3; ++j, product += 8) {
        store(product, wx * load(x + 8 * j + k) + wy * load(y + 8 * j + k));
      }
      store(products + 8 * (6 + i) + k, xi * reduced_x + yi * reduced_y);
    }
  }
}

void multiply_packed_rows(double* s, const PackedRows& design, const double* x) {
  for (Index k = 0; k < 8; k += VORN_LANES) {
    Lanes sum_x{};
    Lanes sum_y{};
    for (Index j = 0; j < design.m; ++j) {
      sum_x = multiply_add(load(design.x + 8 * j + k), spread(x[j]), sum_x);
      sum_y = multiply_add(load(design.y + 8 * j + k), spread(x[j]), sum_y);
    }
    store(s + k, sum_x);
    store(s + 8 + k, sum_y);
  }
}

// One coupling block; a width known beforehand unrolls.
template <int Width>
inline void add_coupling_block(double* block, const double* point_rows, const double* wx,
                               const double* wy, Index columns) {
  const Index width = Width > 0 ? Width : columns;
  for (Index r = 0; r < 3; ++r) {
    const double x = point_rows[r];
    const double y = point_rows[3 + r];
    double* const row = block + r * width;
    for (Index c = 0; c < width; ++c) {
      row[c] = multiply_add(y, wy[c], multiply_add(x, wx[c], row[c]));
    }
  }
}

void add_coupling(const CouplingBlocks& coupling, const double* point_rows,
                  const DesignRows& design) {
  const double* wx = design.weighted;
  const double* wy = wx + design.stride;
  for (std::int32_t b = 0; b < coupling.num_blocks; ++b) {
    double* const block = coupling.blocks + coupling.starts[b];
    const Index width = coupling.widths[b];
    if (width == 6) {
      add_coupling_block<6>(block, point_rows, wx, wy, width);
    } else if (width == 3) {
      add_coupling_block<3>(block, point_rows, wx, wy, width);
    } else {
      add_coupling_block<0>(block, point_rows, wx, wy, width);
    }
    wx += width;
    wy += width;
  }
}

// Eight partial sums.
constexpr Index kSums = 8;
constexpr int kVectors = kSums / VORN_LANES;
struct Sums {
  Lanes lanes[std::size_t{kVectors}] = {};
};

// Adds the products of eight elements to the partial sums.
inline void add_whole(Sums& sums, const double* a, const double* b) {
  for (int k = 0; k < kVectors; ++k) {
    sums.lanes[k] = multiply_add(load(a + k * kLanes), load(b + k * kLanes), sums.lanes[k]);
  }
}

// The rest of a row, `count` < 8 elements; a product of zeros changes nothing.
inline void add_rest(Sums& sums, const double* a, const double* b, Index count) {
  for (int k = 0; k < kVectors; ++k) {
    const Index left = count - k * kLanes;
    if (left <= 0) return;
    sums.lanes[k] = multiply_add(load_some(a + k * kLanes, left), load_some(b + k * kLanes, left),
                                 sums.lanes[k]);
  }
}

// ((0 + 4) + (2 + 6)) + ((1 + 5) + (3 + 7)) of the partial sums.
inline double total(const Sums& sums) {
  const auto at = [&sums](Index i) { return sums.lanes[i / kLanes][i % kLanes]; };
  return ((at(0) + at(4)) + (at(2) + at(6))) + ((at(1) + at(5)) + (at(3) + at(7)));
}

void multiply_blocks(double* s, const BlockProduct* products, std::int64_t count) {
  Sums sums[3];
  for (const BlockProduct* at = products; at != products + count; ++at) {
    const Index width = at->width;
    Index c = 0;
    for (; c + kSums <= width; c += kSums) {
      for (Index r = 0; r < 3; ++r) add_whole(sums[r], at->n + r * width + c, at->x + c);
    }
    if (c == width) continue;
    for (Index r = 0; r < 3; ++r) add_rest(sums[r], at->n + r * width + c, at->x + c, width - c);
  }
  for (Index r = 0; r < 3; ++r) s[r] = total(sums[r]);
}

double dot(const double* a, const double* b, std::int64_t n) {
  Sums sums;
  Index k = 0;
  for (; k + kSums <= n; k += kSums) add_whole(sums, a + k, b + k);
  if (k < n) add_rest(sums, a + k, b + k, static_cast<Index>(n) - k);
  return total(sums);
}

void add_scaled(double* y, const double* x, double s, std::int64_t n) {
  const Lanes factor = spread(s);
  Index k = 0;
  for (; k + kLanes <= n; k += kLanes) {
    store(y + k, multiply_add(load(x + k), factor, load(y + k)));
  }
  for (; k < n; ++k) y[k] = multiply_add(x[k], s, y[k]);
}

void project_packed_rows(PackedProjection& result, const PackedFactors& of) {
  const Index m = of.m;
  for (Index k = 0; k < 8; k += VORN_LANES) {
    const auto at = [k](const double* column, Index j) { return load(column + 8 * j + k); };
    Lanes xx{};
    Lanes xy{};
    Lanes yy{};
    Lanes kx[3] = {};
    Lanes ky[3] = {};
    for (Index i = 0; i < m; ++i) {
      // Half the diagonal, then what stands in front of it.
      const Lanes xi = at(of.x, i);
      const Lanes yi = at(of.y, i);
      const Lanes half = spread(0.5 * of.q[i * of.stride + i]);
      Lanes qx = half * xi;
      Lanes qy = half * yi;
      for (Index j = 0; j < i; ++j) {
        const Lanes q = spread(of.q[i * of.stride + j]);
        qx = multiply_add(q, at(of.x, j), qx);
        qy = multiply_add(q, at(of.y, j), qy);
      }
      xx = multiply_add(qx, xi, xx);
      xy = multiply_add(qy, xi, multiply_add(qx, yi, xy));
      yy = multiply_add(qy, yi, yy);
      for (Index r = 0; r < 3; ++r) {
        const Lanes coupling = at(of.coupling, r * m + i);
        kx[r] = multiply_add(coupling, xi, kx[r]);
        ky[r] = multiply_add(coupling, yi, ky[r]);
      }
    }
    store(result.xx + k, xx + xx);
    store(result.xy + k, xy);
    store(result.yy + k, yy + yy);
    for (Index r = 0; r < 3; ++r) {
      store(result.kx[r] + k, kx[r]);
      store(result.ky[r] + k, ky[r]);
    }
  }
}

bool any_product_reaches(const double* a, const double* b, std::int64_t n, double limit) {
  Index k = 0;
  for (; k + kLanes <= n; k += kLanes) {
    const Lanes product = load(a + k) * load(b + k);
    const auto reached = (product >= spread(limit)) | (product <= spread(-limit));
    for (Index i = 0; i < kLanes; ++i) {
      if (reached[i] != 0) return true;
    }
  }
  for (; k < n; ++k) {
    const double product = a[k] * b[k];
    if (product >= limit || product <= -limit) return true;
  }
  return false;
}

constexpr Kernels kTable = {VORN_KERNEL_NAME,
                            InstructionSet::VORN_INSTRUCTIONS,
                            multiply_subtract,
                            multiply_subtract_plain,
                            square_subtract,
                            factorise,
                            solve_right,
                            divide_piece,
                            subtract_rhs,
                            subtract_pairs,
                            multiply_batch,
                            add_products,
                            add_packed_products,
                            find_packed_weights,
                            multiply_packed_points,
                            weigh_packed_rows,
                            multiply_packed_rows,
                            add_coupling,
                            multiply_blocks,
                            dot,
                            add_scaled,
                            project_packed_rows,
                            any_product_reaches};

}  // namespace
}  // namespace vorn
