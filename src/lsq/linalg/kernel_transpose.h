#pragma once

// Between eight points side by side and one row after the other (kernels_impl.h).

#include "lsq/linalg/kernel_lanes.h"

namespace vorn {
namespace {

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
#endif

// From eight points side by side to one row after the other, `step` apart: column(j, k) gives
// column j of the points from k on.
template <class Column>
inline void line_up(Column column, double* rows, Index m, Index stride, Index step) {
#if VORN_LANES == 8
  for (Index j = 0; j < stride; j += 8) {
    Lanes v[8];
    for (Index c = 0; c < 8; ++c) v[c] = j + c < m ? column(j + c, 0) : Lanes{};
    transpose(v);
    for (Index k = 0; k < 8; ++k) store(rows + k * step + j, v[k]);
  }
#else
  for (Index j = 0; j < m; ++j) {
    double numbers[8];
    for (Index k = 0; k < 8; k += VORN_LANES) store(numbers + k, column(j, k));
    for (Index k = 0; k < 8; ++k) rows[k * step + j] = numbers[k];
  }
  for (Index k = 0; k < 8; ++k) {
    for (Index j = m; j < stride; ++j) rows[k * step + j] = 0.0;
  }
#endif
}

// to[i][k] := element i of the row of k, eight rows of eight; row(k) gives where one begins.
template <class Row>
inline void transpose_rows(Row row, double (&to)[8][8]) {
#if VORN_LANES == 8
  Lanes v[8];
  for (Index k = 0; k < 8; ++k) v[k] = load(row(k));
  transpose(v);
  for (Index k = 0; k < 8; ++k) store(to[k], v[k]);
#else
  for (Index k = 0; k < 8; ++k) {
    const double* const from = row(k);
    for (Index i = 0; i < 8; ++i) to[i][k] = from[i];
  }
#endif
}

}  // namespace
}  // namespace vorn
