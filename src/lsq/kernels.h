#pragma once

#include <cstdint>

namespace vorn {

// A run of consecutive unknowns within one tile of the reduced normal matrix.
struct TilePiece {
  std::int32_t tile;    // tile row
  std::int32_t offset;  // first row within the tile
  std::int32_t column;  // first column within the coupling rows of a point
  std::int32_t width;
};

// Design rows of one image point besides its object point: the m derivatives of x, then, `stride`
// doubles later, those of y; `weighted` holds the same rows times the 2 x 2 weight matrix.
struct DesignRows {
  const double* rows;
  const double* weighted;
  std::int32_t m;
  std::int32_t stride;
};

// Coupling rows of an object point: 3 x n, row-major with the given stride. Block b of the design
// rows, `widths[b]` columns wide, belongs at column `columns[b]`.
struct CouplingRows {
  double* rows;
  std::int32_t stride;
  const std::int32_t* columns;
  const std::int32_t* widths;
  std::int32_t num_blocks;
};

// The arithmetic of the normal equations, compiled for several instruction sets. A tile is a t x t
// block, column-major, t a multiple of 24; element (r, c) stands at [c * t + r].
struct Kernels {
  const char* name;

  // C -= A B'
  void (*multiply_subtract)(double* c, const double* a, const double* b, std::int32_t t);
  // The lower triangle of C -= A A'; what stands above it becomes undefined.
  void (*square_subtract)(double* c, const double* a, std::int32_t t);
  // Cholesky factorisation of a diagonal tile in its lower triangle, the diagonal of L included;
  // reads nothing above the diagonal. 0, or k > 0 when pivot k (counted from 1) is not greater than
  // 0.
  std::int32_t (*factorise)(double* a, std::int32_t t);
  // C := C L^-T with the lower triangle of L
  void (*solve_right)(double* c, const double* l, std::int32_t t);

  // One point's share in the reduced matrix: S -= V'V for the 3 x n matrix V (row-major, given
  // stride), in the pieces of its columns, which ascend. `tiles[r * num_tiles + c]` is the tile of
  // row r, column c <= r.
  void (*subtract_outer)(double* const* tiles, std::int32_t num_tiles, std::int32_t t,
                         const TilePiece* pieces, std::int32_t num_pieces, const double* v,
                         std::int32_t stride);

  // Upper triangle of the m x m matrix C (row-major) += A'PA.
  void (*add_products)(double* c, const DesignRows& design);
  // Coupling rows += Ap'PA for the 2 x 3 design rows Ap of the object point (x, then y).
  void (*add_coupling)(const CouplingRows& coupling, const double* point_rows,
                       const DesignRows& design);

  double (*dot)(const double* a, const double* b, std::int64_t n);
  // y += s x
  void (*add_scaled)(double* y, const double* x, double s, std::int64_t n);
};

// The kernels for the processor at hand, chosen once. The environment plays no part: one machine
// gives the same bits in every run.
const Kernels& kernels();

// The versions there are; null where the processor cannot run one.
const Kernels* baseline_kernels();
const Kernels* avx2_kernels();
const Kernels* avx512_kernels();

}  // namespace vorn
