#pragma once

// Kernels of the observation equations of image points (kernels_impl.h).

#include "lsq/linalg/kernel_lanes.h"
#include "lsq/linalg/kernel_transpose.h"
#include "lsq/linalg/kernels.h"

namespace vorn {
namespace {

// A row of PA: x * p + y * q.
inline Lanes weigh(Lanes x, Lanes p, Lanes y, Lanes q) { return multiply_add(y, q, x * p); }

void add_products(double* c, double* sums, const DesignRows& design, const PointWeights& weights,
                  const double* weighted_reduced) {
  const Index stride = design.stride;
  const double* const x = design.rows;
  const double* const y = x + stride;
  double* const wx = design.weighted;
  double* const wy = wx + stride;
  const Lanes pl_x = spread(weighted_reduced[0]);
  const Lanes pl_y = spread(weighted_reduced[1]);
  const Lanes xx = spread(weights.xx);
  const Lanes xy = spread(weights.xy);
  const Lanes yy = spread(weights.yy);
  for (Index j = 0; j < stride; j += VORN_LANES) {
    const Lanes xj = load(x + j);
    const Lanes yj = load(y + j);
    const Lanes weighted_x = weigh(xj, xx, yj, xy);
    const Lanes weighted_y = weigh(xj, xy, yj, yy);
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

// Lines up the rows of eight points, plain and weighted.
inline void line_up_both(const PackedRows& design, const PackedWeights& weights) {
  const Index stride = design.stride;
  double* const x = design.rows;
  double* const y = x + 8 * stride;
  double* const weighted = y + 8 * stride;
  const auto line_up_plain = [&](const double* columns, double* rows) {
    line_up([&](Index j, Index k) { return load(columns + 8 * j + k); }, rows, design.m, stride,
            stride);
  };
  line_up_plain(design.x, x);
  line_up_plain(design.y, y);
  for (Index k = 0; k < 8; ++k) {
    const Lanes xx = spread(weights.xx[k]);
    const Lanes xy = spread(weights.xy[k]);
    const Lanes yy = spread(weights.yy[k]);
    for (Index j = k * stride; j < (k + 1) * stride; j += VORN_LANES) {
      const Lanes xj = load(x + j);
      const Lanes yj = load(y + j);
      store(weighted + k * stride + j, weigh(xj, xx, yj, xy));
      store(weighted + (k + 1) * stride + j, weigh(xj, xy, yj, yy));
    }
  }
}

void add_packed_products(double* c, double* sums, const PackedRows& design,
                         const PackedWeights& weights) {
  constexpr Index kRows = 8;  // of C in registers; divides the stride
  line_up_both(design, weights);
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

}  // namespace
}  // namespace vorn
