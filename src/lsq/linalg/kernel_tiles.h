#pragma once

// Kernels of tiles: their products and their Cholesky factorisation (kernels_impl.h).

#include "lsq/linalg/kernel_lanes.h"

namespace vorn {
namespace {

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

}  // namespace
}  // namespace vorn
