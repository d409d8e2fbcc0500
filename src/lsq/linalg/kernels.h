#pragma once

#include <cstdint>
#include <string_view>

namespace vorn {

// At most eight consecutive unknowns within one tile of the reduced normal matrix, and what a batch
// of up to 64 object points couples them with: the columns V of those points whose bits are set,
// one after another in the order of the bits, each 3 x 8 (rows of eight, zero behind the width).
struct BatchPiece {
  std::uint64_t points;
  double* v;
  std::int32_t tile;    // tile row
  std::int32_t offset;  // first row within the tile
  std::int32_t width;
  double* u = nullptr;  // products of `multiply_batch`, laid out as V
};
// The pieces of a batch that lie in one tile row.
struct TilePieces {
  const BatchPiece* begin = nullptr;
  const BatchPiece* end = nullptr;
};
constexpr std::int32_t kPieceWidth = 8;
// Room that the columns of one point take in a piece: 3 x 8.
constexpr std::int32_t kPointColumns = 3 * kPieceWidth;
constexpr std::int32_t kBatchPoints = 64;

// Design rows of one image point besides its object point: the m derivatives of x, then, `stride`
// doubles later, those of y; `weighted` has room for the same rows times the weight matrix. The
// stride is a multiple of 8, and the rows are filled up with zeros.
struct DesignRows {
  const double* rows;
  double* weighted;
  std::int32_t m;
  std::int32_t stride;
};

// The design rows of up to eight image points of one image side by side: column j of point k at
// [8 * j + k] of `x` and `y`, `m` columns. `rows` has room for 32 * stride doubles: there the
// kernel leaves for each point its rows of x and y, then the same weighted, each filled up with
// zeros to the stride, a multiple of 8.
struct PackedRows {
  const double* x;
  const double* y;
  double* rows;
  std::int32_t m;
  std::int32_t stride;
};

// The observation equations v = A_p x_p + A_r x_r - l of up to eight image points of one image with
// object points of one batch, as they make columns V of the batch: the 2 x 3 rows A_p, column j of
// point k at [8 * j + k], the rows A_r likewise, cofactors of x and then of y.
struct PackedRays {
  const double* point_x;
  const double* point_y;
  const double* x;
  const double* y;
  const double* cofactors;
  const std::int32_t* points;  // places of the eight object points in the batch
  std::int32_t count;          // of the rays; those behind repeat one of them
};
// Columns [column, column + width) of A_r, and where they go: the columns V of a piece.
struct RowPiece {
  std::uint64_t points;
  double* v;
  std::int32_t column;
  std::int32_t width;
};
// From the factor of one point of a batch to the next: the inverse diagonal of L, l10, l20, l21.
constexpr std::int32_t kFactorStride = 8;

// Weights of the eight points, and weighted reduced observations Pl; all zero for a point that does
// not exist.
struct PackedWeights {
  double xx[8];
  double xy[8];
  double yy[8];
  double reduced_x[8];
  double reduced_y[8];
};

// The design rows x and y of eight image points as in PackedRows; the symmetric m x m matrix Q of
// their columns, row-major, rows `stride` apart, of which the lower triangle is read; and the 3 x m
// matrix K of each point, element (r, j) of point k at [8 * (r * m + j) + k].
struct PackedFactors {
  const double* x;
  const double* y;
  const double* q;
  const double* coupling;
  std::int32_t m;
  std::int32_t stride;
};
// x'Qx, x'Qy, y'Qy, Kx and Ky of eight points.
struct PackedProjection {
  double xx[8];
  double xy[8];
  double yy[8];
  double kx[3][8];
  double ky[3][8];
};

// Symmetric 2 x 2 weight matrix P of one image point.
struct PointWeights {
  double xx;
  double xy;
  double yy;
};

// Coupling blocks of an object point that an image touches: block b, 3 x `widths[b]`, row-major, at
// `blocks[starts[b]]`.
struct CouplingBlocks {
  double* blocks;
  const std::int32_t* starts;
  const std::int32_t* widths;
  std::int32_t num_blocks;
};

// A block N of 3 rows, row-major, and the vector that it meets.
struct BlockProduct {
  const double* n;
  const double* x;
  std::int32_t width;
};

enum class InstructionSet { baseline, avx2, avx512 };

// The arithmetic of the normal equations, compiled for several instruction sets. A tile is a t x t
// block, column-major, t a multiple of 24 (the rows of a register block of the widest vectors);
// element (r, c) stands at [c * t + r].
struct Kernels {
  const char* name;
  InstructionSet instructions;

  // C -= A B' for the first `rows` of A and `columns` of B, multiples of 8. A part of a tile that
  // begins at another row or column is given by where it begins.
  void (*multiply_subtract)(double* c, const double* a, const double* b, std::int32_t t,
                            std::int32_t rows, std::int32_t columns);
  // C -= A B
  void (*multiply_subtract_plain)(double* c, const double* a, const double* b, std::int32_t t);
  // The lower triangle of C -= A A' for the first `rows` of A, likewise; what stands above it
  // becomes undefined.
  void (*square_subtract)(double* c, const double* a, std::int32_t t, std::int32_t rows);
  // Cholesky factorisation of a diagonal tile in its lower triangle, the diagonal of L included;
  // reads nothing above the diagonal. 0, or k > 0 when pivot k (counted from 1) is not greater than
  // 0.
  std::int32_t (*factorise)(double* a, std::int32_t t);
  // C := C L^-T with the lower triangle of L, for the first `rows` of C, likewise
  void (*solve_right)(double* c, const double* l, std::int32_t t, std::int32_t rows);

  // Columns of one piece of a point: V := L^-1 N, 3 x width from rows of N that stand `stride`
  // apart to rows of eight filled up with zeros. `factor` holds the inverse diagonal of L and l10,
  // l20, l21.
  void (*divide_piece)(const double* factor, const double* n, std::int32_t stride,
                       std::int32_t width, double* v);

  // Adds the share of image points in the columns of their object points: V += L^-1 A_p'P A_r in
  // all pieces, with the factors L of the points of the batch.
  void (*add_columns)(const RowPiece* pieces, std::int32_t num_pieces, const PackedRays& rays,
                      const double* factors);

  // rhs -= V'y over the points of a piece, point after point; `rhs` holds the rows of the piece, y
  // the three elements of each of the 64 points of the batch.
  void (*subtract_rhs)(double* rhs, const BatchPiece& piece, const double* y);

  // The share of a batch of points in one tile of the reduced matrix: S -= V'V in all pairs of its
  // pieces in the rows and in the columns of the tile, which stand in one array, ascending: those
  // of the columns come first or, in a tile of the diagonal, are the same.
  void (*subtract_pairs)(double* tile, std::int32_t t, const TilePieces& rows,
                         const TilePieces& columns);

  // The products of a batch of points with a symmetric matrix, U += V Z for each point over all
  // pieces that it meets; the pieces ascend. `tiles[r * num_tiles + c]` is the tile of Z in row r,
  // column c <= r, with full tiles in the diagonal.
  void (*multiply_batch)(double* const* tiles, std::int32_t num_tiles, std::int32_t t,
                         const BatchPiece* pieces, std::int32_t num_pieces);

  // Weights the design rows; adds A'PA to the upper triangle of the m x m matrix C (row-major, of
  // the rows' stride; what stands below becomes undefined) and A'Pl to `sums`, given Pl.
  void (*add_products)(double* c, double* sums, const DesignRows& design,
                       const PointWeights& weights, const double* weighted_reduced);
  // The same for eight points at once, which gives C in full rows of the stride.
  void (*add_packed_products)(double* c, double* sums, const PackedRows& design,
                              const PackedWeights& weights);
  // The weights of eight points and their weighted misclosures, from cofactors and misclosures:
  // eight of x, then of y. The two observations of a point are not correlated.
  void (*find_packed_weights)(PackedWeights& weights, const double* cofactors,
                              const double* misclosures);
  // A'PA, the six elements of the upper triangle row by row, then A'Pl, the three elements, of
  // eight points' own 2 x 3 design rows A: each of the elements eight times side by side, as those
  // of A.
  void (*multiply_packed_points)(double* products, const double* x, const double* y,
                                 const PackedWeights& weights);
  // s := A x for eight points, eight elements of their rows of x, then of y; x has `m` elements.
  void (*multiply_packed_rows)(double* s, const PackedRows& design, const double* x);
  // Coupling blocks += Ap'PA for the 2 x 3 design rows Ap of the object point (x, then y).
  void (*add_coupling)(const CouplingBlocks& coupling, const double* point_rows,
                       const DesignRows& design);

  // s := sum of N x over some blocks, 3 elements.
  void (*multiply_blocks)(double* s, const BlockProduct* products, std::int64_t count);

  double (*dot)(const double* a, const double* b, std::int64_t n);
  // y += s x
  void (*add_scaled)(double* y, const double* x, double s, std::int64_t n);

  // What cofactors make of the design rows of eight points.
  void (*project_packed_rows)(PackedProjection& result, const PackedFactors& of);
  // Whether |a_k b_k| is at least `limit` for any k.
  bool (*any_product_reaches)(const double* a, const double* b, std::int64_t n, double limit);
};

// The kernels in use: the widest that the processor can run, chosen once, unless `use_kernels` has
// chosen others. The environment plays no part.
const Kernels& kernels();
// For tests and support: makes `kernels()` those of a name from now on; an empty name leaves the
// choice to the processor again. Not while normal equations exist. False when there are none of the
// name or the processor cannot run them.
[[nodiscard]] bool use_kernels(std::string_view name);

// The versions there are; null where the processor cannot run one.
const Kernels* baseline_kernels();
const Kernels* avx2_kernels();
const Kernels* avx512_kernels();

}  // namespace vorn
