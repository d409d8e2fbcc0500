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

#include <cstddef>
#include <cstdint>

#include "lsq/linalg/kernel_batches.h"
#include "lsq/linalg/kernel_columns.h"
#include "lsq/linalg/kernel_lanes.h"
#include "lsq/linalg/kernel_observations.h"
#include "lsq/linalg/kernel_tiles.h"
#include "lsq/linalg/kernels.h"

namespace vorn {
namespace {

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

constexpr Kernels kTable = {
    VORN_KERNEL_NAME,     InstructionSet::VORN_INSTRUCTIONS,
    multiply_subtract,    multiply_subtract_plain,
    square_subtract,      factorise,
    solve_right,          divide_piece,
    add_columns,          subtract_rhs,
    subtract_pairs,       multiply_batch,
    add_products,         add_packed_products,
    find_packed_weights,  multiply_packed_points,
    multiply_packed_rows, add_coupling,
    multiply_blocks,      dot,
    add_scaled,           project_packed_rows,
    any_product_reaches,
};

}  // namespace
}  // namespace vorn
